// Splitting and joining Windows command lines; portable so that both sides are tested on every platform.
#include "std/cmdline.h"

#include <string_view>

#include "std/error.h"

namespace QZSTD {
namespace {

bool IsBlank(wchar_t c)
{
    return c == L' ' || c == L'\t';
}

std::wstring ReadProgramName(std::wstring_view wsv, size_t& i)
{
    std::wstring wstr;
    bool bInQuotes = false;
    for (; i < wsv.size(); ++i) {
        const wchar_t c = wsv[i];
        if (c == L'"') {
            bInQuotes = !bInQuotes;
            continue;
        }
        if (!bInQuotes && IsBlank(c))
            break;
        wstr += c;
    }
    return wstr;
}

// Handles a run of backslashes ending at a quote (i is at the quote); returns the new quoting state.
bool ReadQuote(std::wstring_view wsv, size_t& i, size_t nSlashes, bool bInQuotes, std::wstring& wstr)
{
    wstr.append(nSlashes / 2, L'\\');
    if (nSlashes % 2 == 1) {
        wstr += L'"';
        ++i;
        return bInQuotes;
    }
    if (bInQuotes && i + 1 < wsv.size() && wsv[i + 1] == L'"') {
        wstr += L'"';
        i += 2;
        return true;
    }
    ++i;
    return !bInQuotes;
}

std::wstring ReadArgument(std::wstring_view wsv, size_t& i)
{
    std::wstring wstr;
    bool bInQuotes = false;
    while (i < wsv.size()) {
        size_t nSlashes = 0;
        while (i < wsv.size() && wsv[i] == L'\\') {
            ++nSlashes;
            ++i;
        }
        if (i < wsv.size() && wsv[i] == L'"') {
            bInQuotes = ReadQuote(wsv, i, nSlashes, bInQuotes, wstr);
            continue;
        }
        wstr.append(nSlashes, L'\\');
        if (i == wsv.size() || (!bInQuotes && IsBlank(wsv[i])))
            break;
        wstr += wsv[i++];
    }
    return wstr;
}

void SkipBlanks(std::wstring_view wsv, size_t& i)
{
    while (i < wsv.size() && IsBlank(wsv[i]))
        ++i;
}

bool NeedsQuotes(const std::wstring& wstrArg)
{
    return wstrArg.empty() || wstrArg.find_first_of(L" \t\"") != std::wstring::npos;
}

std::wstring QuoteProgramName(const std::wstring& wstrName)
{
    QZ_CHECK_ARG(wstrName.find_first_of(std::wstring_view(L"\"\0", 2)) == std::wstring::npos, "vecArgs");
    if (wstrName.empty() || wstrName.find_first_of(L" \t") != std::wstring::npos)
        return L"\"" + wstrName + L"\"";
    return wstrName;
}

}  // namespace

std::vector<std::wstring> SplitCommandLine(const std::wstring& wstrCmdLine)
{
    const std::wstring_view wsv(wstrCmdLine.c_str());  // up to the first U+0000
    size_t i = 0;
    std::vector<std::wstring> vecArgs;
    vecArgs.push_back(ReadProgramName(wsv, i));
    for (;;) {
        SkipBlanks(wsv, i);
        if (i == wsv.size())
            return vecArgs;
        vecArgs.push_back(ReadArgument(wsv, i));
    }
}

std::wstring QuoteCommandLineArg(const std::wstring& wstrArg)
{
    if (!NeedsQuotes(wstrArg))
        return wstrArg;
    std::wstring wstr = L"\"";
    size_t nSlashes = 0;
    for (const wchar_t c : wstrArg) {
        if (c == L'\\') {
            ++nSlashes;
            continue;
        }
        // Backslashes before a quote are doubled and the quote escaped; others stay literal.
        wstr.append(c == L'"' ? nSlashes * 2 + 1 : nSlashes, L'\\');
        wstr += c;
        nSlashes = 0;
    }
    // The closing quote follows: double the backslashes before it.
    wstr.append(nSlashes * 2, L'\\');
    wstr += L'"';
    return wstr;
}

std::wstring JoinCommandLine(const std::vector<std::wstring>& vecArgs)
{
    if (vecArgs.empty())
        return std::wstring();
    std::wstring wstr = QuoteProgramName(vecArgs[0]);
    for (size_t n = 1; n < vecArgs.size(); ++n) {
        QZ_CHECK_ARG(vecArgs[n].find(L'\0') == std::wstring::npos, "vecArgs");
        wstr += L' ';
        wstr += QuoteCommandLineArg(vecArgs[n]);
    }
    return wstr;
}

}  // namespace QZSTD
