// Portable part of the error machinery: module tables, message filling, descriptions.
#include "std/error.h"

#include <map>
#include <mutex>
#include <shared_mutex>

#include "std/strconv.h"

namespace QZSTD {
namespace {

const ErrorEntry g_stdErrors[] = {
    {Err::WAIT_FAILURE, L"Wait failed"},
    {Err::WRITE_FAILED, L"\"%ls\" cannot be written"},
    {Err::NOT_FOUND, L"Value \"%ls\" not found"},
    {Err::BAD_PARAM, L"Bad parameter \"%hs\""},
    {Err::OUT_OF_RANGE, L"Index value is out of range"},
    {Err::PRODUCT_MISSING, L"Product or version is missing: \"%ls\" \"%ls\""},
    {Err::UNSUPPORTED, L"Process is still running or the operation is unsupported on this operating system"},
    {Err::NOT_IMPLEMENTED, L"Not implemented"},
    {Err::ASSERTION, L"Assertion \"%hs\" failed"},
    {Err::SHUTDOWN, L"Stopped by shutdown"},
    {Err::FILE_NOT_FOUND, L"File \"%ls\" not found"},
    {0, nullptr},
};

struct Registry
{
    std::shared_mutex lock;
    std::map<std::string, const ErrorEntry*, std::less<>> tables{{Err::MODULE, g_stdErrors}};
};

Registry& TheRegistry()
{
    static Registry* p = new Registry;  // never destroyed: errors may be raised during exit
    return *p;
}

const char* BaseName(const char* szPath)
{
    const char* p = szPath;
    for (const char* q = szPath; q && *q; ++q)
        if (*q == '/' || *q == '\\')
            p = q + 1;
    return p ? p : "";
}

// Length of the conversion directive that starts after a '%', and whether it consumes an argument.
size_t SpecLength(const wchar_t* p, bool& bConsumes)
{
    size_t n = 0;
    while (p[n] && wcschr(L"-+ #0123456789.*hlLqjztI", p[n]))
        ++n;
    if (!p[n])
        return n;
    bConsumes = p[n] != L'%';
    return n + 1;
}

}  // namespace

ErrorArg::ErrorArg(const char* sz) : m_wstr(Utf8ToWide(sz ? sz : "")) {}

void RegisterErrorTable(const char* szModule, const ErrorEntry* pTable)
{
    Registry& r = TheRegistry();
    std::unique_lock g(r.lock);
    r.tables[szModule] = pTable;
}

const wchar_t* FindErrorFormat(std::string_view strModule, int nCode)
{
    Registry& r = TheRegistry();
    std::shared_lock g(r.lock);
    auto it = r.tables.find(strModule);
    if (it == r.tables.end())
        return nullptr;
    for (const ErrorEntry* e = it->second; e->szFormat; ++e)
        if (e->nCode == nCode)
            return e->szFormat;
    return nullptr;
}

std::wstring FillMessage(const wchar_t* szFormat, const std::vector<std::wstring>& vecArgs)
{
    std::wstring out;
    size_t nArg = 0;
    for (const wchar_t* p = szFormat; p && *p;) {
        if (*p != L'%') {
            out += *p++;
            continue;
        }
        bool bConsumes = false;
        const size_t n = SpecLength(p + 1, bConsumes);
        if (!bConsumes && n > 0)
            out += L'%';
        else if (bConsumes && nArg < vecArgs.size())
            out += vecArgs[nArg++];
        p += 1 + n;
    }
    return out;
}

QZError::QZError(const char* szModule, int nCode, const char* szFile, int nLine,
                 std::initializer_list<ErrorArg> args)
    : m_strModule(szModule ? szModule : ""), m_nCode(nCode), m_szFile(szFile ? szFile : ""), m_nLine(nLine)
{
    m_vecArgs.reserve(args.size());
    for (const ErrorArg& a : args)
        m_vecArgs.push_back(a.Text());
}

std::wstring QZError::GetMessage() const
{
    if (m_strModule == SYSTEM_MODULE)
        return SystemErrorText(m_nCode);
    if (const wchar_t* szFormat = FindErrorFormat(m_strModule, m_nCode))
        return FillMessage(szFormat, m_vecArgs);
    std::wstring wstr = L"Unknown error";
    for (const std::wstring& a : m_vecArgs)
        wstr.append(L" \"").append(a).append(L"\"");
    return wstr;
}

std::wstring QZError::Describe() const
{
    // Built by appending: GCC 12 warns falsely (-Wrestrict) on long operator+ chains at -O3.
    std::wstring wstr = L"#";
    wstr.append(std::to_wstring(m_nCode)).append(L" (").append(Utf8ToWide(m_strModule)).append(L") \"");
    wstr.append(GetMessage()).append(L"\" at ").append(Utf8ToWide(BaseName(m_szFile))).append(L":");
    wstr.append(std::to_wstring(m_nLine));
    return wstr;
}

const char* QZError::what() const noexcept
{
    try {
        if (m_strWhat.empty())
            m_strWhat = WideToUtf8(Describe());
        return m_strWhat.c_str();
    } catch (...) {
        return "QZError";
    }
}

}  // namespace QZSTD
