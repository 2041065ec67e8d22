// Portable path helpers of the agent's start-up.
#include "qzri/riwrap/agentos.h"

namespace QZRI {
namespace {

bool IsSeparator(wchar_t c)
{
#ifdef _WIN32
    return c == L'\\' || c == L'/';
#else
    return c == L'/';
#endif
}

}  // namespace

std::wstring DirectoryOf(const std::wstring& wstrPath)
{
    for (size_t n = wstrPath.size(); n > 0; --n)
        if (IsSeparator(wstrPath[n - 1]))
            return wstrPath.substr(0, n);
    return std::wstring();
}

bool IsAbsolutePath(const std::wstring& wstrPath)
{
    const auto IsAnySeparator = [](wchar_t c) { return c == L'\\' || c == L'/'; };
    if (!wstrPath.empty() && IsAnySeparator(wstrPath[0]))
        return true;
    return wstrPath.size() >= 3 && wstrPath[1] == L':' && IsAnySeparator(wstrPath[2]);
}

bool EndsWithNoCase(const std::wstring& wstr, const wchar_t* szSuffix)
{
    const std::wstring wstrSuffix = szSuffix;
    if (wstr.size() < wstrSuffix.size())
        return false;
    for (size_t n = 0; n < wstrSuffix.size(); ++n) {
        wchar_t c = wstr[wstr.size() - wstrSuffix.size() + n];
        if (c >= L'A' && c <= L'Z')
            c = static_cast<wchar_t>(c - L'A' + L'a');
        if (c != wstrSuffix[n])
            return false;
    }
    return true;
}

std::wstring WithTrailingSeparator(const std::wstring& wstrPath)
{
    if (wstrPath.empty() || IsSeparator(wstrPath.back()))
        return wstrPath;
    return wstrPath + PATH_SEPARATOR;
}

}  // namespace QZRI
