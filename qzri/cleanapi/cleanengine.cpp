// The reference removal engine: its decisions and its two entry points.
#include "qzri/cleanapi/cleanengine.h"

#include <cstring>
#include <cwchar>
#include <cwctype>

#include "common/cleanapi.h"

namespace QZCLEAN {
namespace {

bool EqualNoCase(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t n = 0; n < a.size(); ++n) {
        if (std::towlower(a[n]) != std::towlower(b[n]))
            return false;
    }
    return true;
}

std::wstring Trim(const std::wstring& wstr)
{
    const size_t nBegin = wstr.find_first_not_of(L" \t");
    if (nBegin == std::wstring::npos)
        return {};
    return wstr.substr(nBegin, wstr.find_last_not_of(L" \t") - nBegin + 1);
}

void SetText(wchar_t* szError, uint32_t nChars, const std::wstring& wstrText)
{
    if (szError && nChars > 0)
        std::swprintf(szError, nChars, L"%ls", wstrText.c_str());
}

}  // namespace

ProductRule ReadRule(const std::wstring& wstrIniFile)
{
    ProductRule rule;
    rule.m_wstrFullName = ReadIniValue(wstrIniFile, L"main", L"fullname");
    rule.m_wstrProductCode = ReadIniValue(wstrIniFile, L"detect", L"ProductCode");
    rule.m_wstrDisplayName = ReadIniValue(wstrIniFile, L"detect", L"DisplayName");
    rule.m_wstrCommandValue = ReadIniValue(wstrIniFile, L"remove", L"Command");
    rule.m_wstrCommandLine = ReadIniValue(wstrIniFile, L"remove", L"CommandLine");
    const std::wstring wstrTimeout = ReadIniValue(wstrIniFile, L"remove", L"TimeoutSec");
    const unsigned long nTimeout = wstrTimeout.empty() ? 0 : std::wcstoul(wstrTimeout.c_str(), nullptr, 10);
    if (nTimeout > 0 && nTimeout < 7 * 24 * 3600)
        rule.m_nTimeoutSec = static_cast<uint32_t>(nTimeout);
    return rule;
}

bool Matches(const ProductRule& rule, const UninstallEntry& entry)
{
    if (!rule.m_wstrProductCode.empty())
        return EqualNoCase(rule.m_wstrProductCode, entry.m_wstrKeyName);
    if (rule.m_wstrDisplayName.empty() || entry.m_wstrDisplayName.empty())
        return false;
    if (rule.m_wstrDisplayName.back() == L'*') {
        const std::wstring wstrPrefix = rule.m_wstrDisplayName.substr(0, rule.m_wstrDisplayName.size() - 1);
        return entry.m_wstrDisplayName.size() >= wstrPrefix.size() &&
               EqualNoCase(wstrPrefix, entry.m_wstrDisplayName.substr(0, wstrPrefix.size()));
    }
    return EqualNoCase(rule.m_wstrDisplayName, entry.m_wstrDisplayName);
}

std::optional<std::wstring> RemovalCommand(const ProductRule& rule, const UninstallEntry& entry)
{
    if (!rule.m_wstrCommandLine.empty())
        return rule.m_wstrCommandLine;
    if (!rule.m_wstrCommandValue.empty()) {
        const std::wstring wstrLine =
            EqualNoCase(rule.m_wstrCommandValue, L"QuietUninstallString") ? entry.m_wstrQuietUninstallString
            : EqualNoCase(rule.m_wstrCommandValue, L"UninstallString")    ? entry.m_wstrUninstallString
                                                                          : std::wstring();
        if (Trim(wstrLine).empty())
            return std::nullopt;
        return Trim(wstrLine);
    }
    if (entry.m_bWindowsInstaller && !entry.m_wstrKeyName.empty() && entry.m_wstrKeyName[0] == L'{')
        return L"msiexec.exe /x " + entry.m_wstrKeyName + L" /qn /norestart";
    if (!Trim(entry.m_wstrQuietUninstallString).empty())
        return Trim(entry.m_wstrQuietUninstallString);
    return std::nullopt;
}

int32_t OutcomeOfExitCode(uint32_t nExitCode)
{
    if (nExitCode == 0)
        return QZCLEAN_REMOVED;
    if (nExitCode == 3010 || nExitCode == 1641)
        return QZCLEAN_RESTART_NEEDED;
    return QZCLEAN_REMOVE_FAILED;
}

}  // namespace QZCLEAN

using namespace QZCLEAN;

#ifdef _WIN32
#define QZCLEAN_EXPORT extern "C" __declspec(dllexport)
#else
#define QZCLEAN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Nothing may escape to the caller: every failure becomes a result and a text.
QZCLEAN_EXPORT int32_t QZCLEAN_CALL EnumCompetitorSoftwareW(uint32_t nCallerVersion,
                                                            const wchar_t* szIniFolder, wchar_t* pList,
                                                            uint32_t* pnListChars, uint32_t* pnEngineVersion,
                                                            wchar_t* szError, uint32_t nErrorChars)
{
    if (pnEngineVersion)
        *pnEngineVersion = QZCLEAN_INTERFACE_VERSION;
    if (!szIniFolder || !pnListChars || !szError || nErrorChars == 0 || (!pList && *pnListChars != 0))
        return QZCLEAN_E_ARGUMENT;
    SetText(szError, nErrorChars, L"");
    if (nCallerVersion > QZCLEAN_INTERFACE_VERSION) {
        SetText(szError, nErrorChars, L"interface version not supported");
        return QZCLEAN_E_VERSION;
    }
    try {
        std::wstring wstrList;
        const std::vector<UninstallEntry> vecEntries = ListUninstallEntries();
        for (const std::wstring& wstrIni : ListIniFiles(szIniFolder)) {
            const ProductRule rule = ReadRule(wstrIni);
            if (rule.m_wstrFullName.empty())
                continue;
            for (const UninstallEntry& entry : vecEntries) {
                if (Matches(rule, entry)) {
                    wstrList += rule.m_wstrFullName + L'\0' + wstrIni + L'\0';
                    break;
                }
            }
        }
        wstrList += L'\0';
        if (*pnListChars < wstrList.size()) {
            *pnListChars = static_cast<uint32_t>(wstrList.size());
            return QZCLEAN_E_MORE_DATA;
        }
        wstrList.copy(pList, wstrList.size());
        *pnListChars = static_cast<uint32_t>(wstrList.size());
        return QZCLEAN_OK;
    } catch (const std::exception& e) {
        SetText(szError, nErrorChars,
                L"enumeration failed: " + std::wstring(e.what(), e.what() + std::strlen(e.what())));
        return QZCLEAN_E_FAILED;
    }
}

QZCLEAN_EXPORT int32_t QZCLEAN_CALL RemoveCompetitorSoftwareW(uint32_t nCallerVersion,
                                                              const wchar_t* szIniFile, const wchar_t*,
                                                              wchar_t* szError, uint32_t nErrorChars)
{
    if (!szIniFile || !szError || nErrorChars == 0)
        return QZCLEAN_E_ARGUMENT;
    SetText(szError, nErrorChars, L"");
    if (nCallerVersion > QZCLEAN_INTERFACE_VERSION) {
        SetText(szError, nErrorChars, L"interface version not supported");
        return QZCLEAN_E_VERSION;
    }
    try {
        const ProductRule rule = ReadRule(szIniFile);
        for (const UninstallEntry& entry : ListUninstallEntries()) {
            if (!Matches(rule, entry))
                continue;
            const std::optional<std::wstring> wstrCmd = RemovalCommand(rule, entry);
            if (!wstrCmd) {
                SetText(szError, nErrorChars, L"no quiet removal for " + entry.m_wstrKeyName);
                return QZCLEAN_REMOVE_FAILED;
            }
            std::wstring wstrError;
            const std::optional<uint32_t> nExit = RunAndWait(*wstrCmd, rule.m_nTimeoutSec, wstrError);
            if (!nExit) {
                SetText(szError, nErrorChars, wstrError);
                return QZCLEAN_REMOVE_FAILED;
            }
            const int32_t nOutcome = OutcomeOfExitCode(*nExit);
            if (nOutcome == QZCLEAN_REMOVE_FAILED)
                SetText(szError, nErrorChars, L"the removal exited " + std::to_wstring(*nExit));
            return nOutcome;
        }
        // Gone already (removed by hand, or by the removal a restart finished): nothing left to do.
        return QZCLEAN_REMOVED;
    } catch (const std::exception& e) {
        SetText(szError, nErrorChars,
                L"removal failed: " + std::wstring(e.what(), e.what() + std::strlen(e.what())));
        return QZCLEAN_REMOVE_FAILED;
    }
}
