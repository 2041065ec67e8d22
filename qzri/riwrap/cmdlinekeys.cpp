// Finding keys and values in the agent's command line.
#include "qzri/riwrap/cmdlinekeys.h"

#include <climits>
#include <cwchar>

#include "std/cmdline.h"

namespace QZRI {
namespace {

constexpr wchar_t QUOTE = L'"';

std::wstring StripOuterQuotes(const std::wstring& wstrWord)
{
    size_t nBegin = 0;
    size_t nEnd = wstrWord.size();
    if (nEnd > nBegin && wstrWord[nBegin] == QUOTE)
        ++nBegin;
    if (nEnd > nBegin && wstrWord[nEnd - 1] == QUOTE)
        --nEnd;
    return wstrWord.substr(nBegin, nEnd - nBegin);
}

}  // namespace

bool HasKey(const std::wstring& wstrCmdLine, std::wstring_view wsvKey)
{
    return wstrCmdLine.find(wsvKey) != std::wstring::npos;
}

std::wstring GetKeyValue(const std::wstring& wstrCmdLine, std::wstring_view wsvKey)
{
    std::wstring wstrPrefix(wsvKey);
    wstrPrefix += L'=';
    for (const std::wstring& wstrWord : QZSTD::SplitCommandLine(wstrCmdLine)) {
        const size_t nPos = wstrWord.find(wstrPrefix);
        if (nPos != std::wstring::npos)
            return wstrWord.substr(nPos + wstrPrefix.size());
    }
    return std::wstring();
}

bool IsSilentSwitch(const std::wstring& wstrWord)
{
    const std::wstring wstr = StripOuterQuotes(wstrWord);
    return wstr == L"-s" || wstr == L"-S" || wstr == L"/s" || wstr == L"/S";
}

bool HasSilentSwitch(const std::vector<std::wstring>& vecArgs)
{
    for (size_t i = 1; i < vecArgs.size(); ++i) {
        if (vecArgs[i].empty())
            continue;
        if (IsSilentSwitch(vecArgs[i]))
            return true;
    }
    return false;
}

int ParseDecimal(const std::wstring& wstrText)
{
    const long long n = std::wcstoll(wstrText.c_str(), nullptr, 10);
    if (n > INT_MAX)
        return INT_MAX;
    if (n < INT_MIN)
        return INT_MIN;
    return static_cast<int>(n);
}

}  // namespace QZRI
