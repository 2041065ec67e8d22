// Operating-system independent parts of the standard launcher: the environment merge, the synchronous
// form and the reader of captured output. Nothing here may include a system header.
#include <algorithm>
#include <cwctype>
#include <fstream>
#include <iterator>

#include "std/par/params.h"
#include "std/par/paramshelpers.h"
#include "std/process/launch.h"
#include "std/process/launchwaiterimpl.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace {

std::wstring EntryName(const std::wstring& wstrEntry)
{
    // "=C:=C:\\dir" entries of a Windows block start with '='; their name runs to the second '='.
    const size_t nPos = wstrEntry.find(L'=', 1);
    return wstrEntry.substr(0, nPos);
}

bool SameName(const std::wstring& a, const std::wstring& b, bool bIgnoreCase)
{
    if (!bIgnoreCase)
        return a == b;
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towupper(static_cast<wint_t>(x)) == std::towupper(static_cast<wint_t>(y));
           });
}

}  // namespace

namespace QZSTD {

std::vector<std::wstring> MergeEnvironment(const std::vector<std::wstring>& vecInherited,
                                           QZPAR::Params* pEnvironmentAddition, bool bIgnoreCase)
{
    std::vector<std::wstring> vecResult = vecInherited;
    if (!pEnvironmentAddition)
        return vecResult;
    std::vector<std::wstring> vecNames;
    pEnvironmentAddition->GetNames(vecNames);
    for (const std::wstring& wstrName : vecNames) {
        QZ_CHECK_ARG(!wstrName.empty() && wstrName.find(L'=') == std::wstring::npos, "pEnvironmentAddition");
        const std::wstring wstrEntry =
            wstrName + L"=" + QZPAR::GetStringValue(pEnvironmentAddition, wstrName.c_str());
        auto it = std::find_if(vecResult.begin(), vecResult.end(), [&](const std::wstring& e) {
            return SameName(EntryName(e), wstrName, bIgnoreCase);
        });
        if (it != vecResult.end())
            *it = wstrEntry;
        else
            vecResult.push_back(wstrEntry);
    }
    return vecResult;
}

}  // namespace QZSTD

bool QZSTD_LaunchSync(const wchar_t* szCommandline, const wchar_t* szCurDir, const wchar_t* szwOut,
                      QZPAR::Params* pEnvironmentAddition, long lTimeout, uint32_t* pnExitCode)
{
    QZ_ASSERT(szwOut);
    QZ_CHECK_ARG(*szwOut, "szwOut");
    QZ_ASSERT(pnExitCode);
    QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter;
    QZSTD_LaunchAsync(szCommandline, szCurDir, szwOut, szwOut, nullptr, pEnvironmentAddition, &pWaiter);
    if (!pWaiter->Wait(lTimeout))
        return false;
    *pnExitCode = pWaiter->ExitCode();
    return true;
}

void QZSTD_ReadLaunchOutput(const wchar_t* szwOut, std::wstring* ppText)
{
    QZ_ASSERT(szwOut);
    QZ_ASSERT(ppText);
#ifdef _WIN32
    std::ifstream in(szwOut, std::ios::binary);
#else
    std::ifstream in(QZSTD::WideToUtf8(szwOut), std::ios::binary);
#endif
    if (!in)
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, szwOut);
    const std::string str((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    *ppText = QZSTD::Utf8ToWide(str);
}

namespace QZSTD {

bool LaunchWaiterImpl::QueryInterface(const char* szIid, void** ppObject)
{
    QZ_ASSERT(ppObject);
    const std::string_view sv = szIid ? szIid : "";
    if (sv == "QZSTD::QZBaseQI" || sv == LaunchWaiter::QZ_IID)
        *ppObject = static_cast<LaunchWaiter*>(this);
    else if (sv == LaunchWaiter2::QZ_IID)
        *ppObject = static_cast<LaunchWaiter2*>(this);
    else if (sv == ProcessPid::QZ_IID)
        *ppObject = static_cast<ProcessPid*>(this);
    else
        return false;
    static_cast<LaunchWaiter*>(this)->AddRef();
    return true;
}

bool LaunchWaiterImpl::WaitMain(long lTimeout)
{
    QZ_ASSERT(lTimeout == -1 || lTimeout >= 0);
    return WaitI(lTimeout, true);
}

bool LaunchWaiterImpl::WaitNoShutdown(long lTimeout)
{
    QZ_ASSERT(lTimeout >= 0);
    return WaitI(lTimeout, false);
}

uint32_t LaunchWaiterImpl::ExitCode()
{
    QZ_TRACE_SCOPE("QZSTD", "QZSTD::LaunchWaiterImpl::ExitCode");
    QZ_TRACE_I(L"%hs: Pid=%ld", QZ_SCOPE_NAME, m_lPid);
    uint32_t nExitCode = 0;
    if (!TryGetExitCode(&nExitCode))
        QZ_THROW_STD(Err::UNSUPPORTED);
    QZ_TRACE_I(L"ExitCode is 0x%X for Pid=%ld", nExitCode, m_lPid);
    return nExitCode;
}

}  // namespace QZSTD
