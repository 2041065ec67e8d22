#include "std/cmdline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "std/error.h"

#ifdef _WIN32
#include <windows.h>

#include <shellapi.h>
#endif

namespace {

using namespace QZSTD;
using Args = std::vector<std::wstring>;

// A command line and the words it splits into.
const std::pair<std::wstring, Args> kCases[] = {
    {L"", {L""}},
    {L"  a b", {L"", L"a", L"b"}},
    // Program name: quotes delimit anywhere in it, backslashes are plain characters.
    {L"\"C:\\Program Files\\app.exe\" /s", {L"C:\\Program Files\\app.exe", L"/s"}},
    {L"C:\\dir\\app.exe\\ x", {L"C:\\dir\\app.exe\\", L"x"}},
    {L"\"C:\\dir\\\"x y", {L"C:\\dir\\x", L"y"}},
    {L"pro\"g ra\"m x", {L"prog ram", L"x"}},
    {L"\"unterminated program", {L"unterminated program"}},
    // Arguments: the runtime's documented examples.
    {L"p \"a b c\" d e", {L"p", L"a b c", L"d", L"e"}},
    {L"p \"ab\\\"c\" \"\\\\\" d", {L"p", L"ab\"c", L"\\", L"d"}},
    {L"p a\\\\\\b d\"e f\"g h", {L"p", L"a\\\\\\b", L"de fg", L"h"}},
    {L"p a\\\\\\\"b c d", {L"p", L"a\\\"b", L"c", L"d"}},
    {L"p a\\\\\\\\\"b c\" d e", {L"p", L"a\\\\b c", L"d", L"e"}},
    // A doubled quote inside quotes is a literal quote and the quoted part goes on.
    {L"p a\"b\"\" c d", {L"p", L"ab\" c d"}},
    {L"p \"a\"\"b\" c", {L"p", L"a\"b", L"c"}},
    {L"p \"\"\"\" x", {L"p", L"\"", L"x"}},
    {L"p \"\" \"\" x", {L"p", L"", L"", L"x"}},
    {L"p \\\\\\\\\"\"", {L"p", L"\\\\"}},
    {L"p \"a b", {L"p", L"a b"}},
    {std::wstring(L"p a\0b c", 7), {L"p", L"a"}},
};

TEST(CmdLine, SplitsLikeTheRuntime)
{
    for (const auto& [wstrCmdLine, vecExpected] : kCases)
        EXPECT_EQ(SplitCommandLine(wstrCmdLine), vecExpected) << testing::PrintToString(wstrCmdLine);
}

std::wstring RandomWord(std::mt19937& rng, std::wstring_view wsvAlphabet, size_t nMaxLen)
{
    std::wstring wstr(rng() % (nMaxLen + 1), L' ');
    for (wchar_t& c : wstr)
        c = wsvAlphabet[rng() % wsvAlphabet.size()];
    return wstr;
}

TEST(CmdLine, JoinedArgumentsSplitBackUnchanged)
{
    std::mt19937 rng(20261122);
    for (int n = 0; n < 500; ++n) {
        Args vec{RandomWord(rng, L"ab \t\\\u00E9", 6)};
        for (size_t nArgs = rng() % 5; nArgs > 0; --nArgs)
            vec.push_back(RandomWord(rng, L"ab \t\"\\\u00E9\U0001F600", 8));
        EXPECT_EQ(SplitCommandLine(JoinCommandLine(vec)), vec)
            << testing::PrintToString(JoinCommandLine(vec));
    }
    EXPECT_EQ(QuoteCommandLineArg(L"C:\\dir\\"), L"C:\\dir\\") << "nothing to quote";
    EXPECT_EQ(QuoteCommandLineArg(L"a b\\"), L"\"a b\\\\\"");
}

TEST(CmdLine, JoinRejectsWhatCannotBeWritten)
{
    const auto BadParam = testing::Throws<QZError>(testing::Property(&QZError::GetCode, 1187));
    EXPECT_THAT([] { JoinCommandLine({L"a\"b", L"x"}); }, BadParam) << "a quote in the program name";
    EXPECT_THAT([] { JoinCommandLine({L"p", std::wstring(L"a\0b", 3)}); }, BadParam);
}

#ifdef _WIN32
Args ShellSplit(const std::wstring& wstrCmdLine)
{
    int n = 0;
    LPWSTR* ppArgs = CommandLineToArgvW(wstrCmdLine.c_str(), &n);
    Args vec(ppArgs, ppArgs + (ppArgs ? n : 0));
    LocalFree(ppArgs);
    return vec;
}

// CommandLineToArgvW is documented to differ from the runtime in two places, where only what both
// agree on is compared: the program name (it ends at the first quote after an opening one, and a quote
// inside an unquoted name is kept), so argv[0] is compared only for a plain name or a wholly quoted one
// followed by a blank; and "" (it ends the quoted part after the literal quote), so the arguments are
// compared only where no two quotes are adjacent. An empty command line gives the exe path there.
size_t ProgramNameEnd(const std::wstring& wstr)
{
    constexpr size_t NPOS = std::wstring::npos;
    if (wstr.empty() || wstr[0] == L' ' || wstr[0] == L'\t')
        return NPOS;
    size_t nEnd = wstr.size();
    if (wstr[0] == L'"') {
        const size_t nClose = wstr.find(L'"', 1);
        if (nClose == NPOS)
            return NPOS;
        nEnd = nClose + 1;
    } else if (const size_t n = wstr.find_first_of(L" \t\""); n != NPOS) {
        nEnd = n;
    }
    return (nEnd == wstr.size() || wstr[nEnd] == L' ' || wstr[nEnd] == L'\t') ? nEnd : NPOS;
}

size_t CompareWithShell(const std::wstring& wstrCmdLine)
{
    const size_t nNameEnd = ProgramNameEnd(wstrCmdLine);
    if (nNameEnd == std::wstring::npos)
        return 0;
    const Args vecOurs = SplitCommandLine(wstrCmdLine), vecShell = ShellSplit(wstrCmdLine);
    const std::string strWhat = testing::PrintToString(wstrCmdLine);
    EXPECT_EQ(vecOurs.at(0), vecShell.at(0)) << strWhat;
    if (wstrCmdLine.find(L"\"\"", nNameEnd) != std::wstring::npos)
        return 1;
    EXPECT_EQ(vecOurs, vecShell) << strWhat;
    return 1;
}

TEST(CmdLine, AgreesWithCommandLineToArgvWWhereItIsDocumentedToAgree)
{
    size_t nCompared = 0;
    for (const auto& [wstrCmdLine, vecExpected] : kCases)
        nCompared += CompareWithShell(wstrCmdLine);
    std::mt19937 rng(42);
    const std::wstring wstrNames[] = {L"prog", L"\"C:\\Program Files\\a.exe\"", L"C:\\a\\b.exe", L"\"x\""};
    for (int n = 0; n < 400; ++n)
        nCompared += CompareWithShell(wstrNames[n % 4] + L" " + RandomWord(rng, L"ab \t\"\\\u00E9", 16));
    EXPECT_GT(nCompared, 400u);
}
#endif

}  // namespace
