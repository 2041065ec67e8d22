#include "common/inifileparser.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <sstream>
#include <tuple>

#include "inifileparser_reference.h"
#include "std/par/dump.h"
#include "std/strconv.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/memoryfiles.h"

namespace {

using QZRI::IniFileParser;

QZSTD::CAutoPtr<IniFileParser> ParseText(const std::wstring& wstrText,
                                         const std::vector<std::wstring>* pSections = nullptr)
{
    QZSTD::CAutoPtr<IniFileParser> pParser = IniFileParser::Create();
    pParser->ParseText(wstrText, pSections);
    return pParser;
}

// A value that is absent reads as this, so that the tables can tell absent from empty.
const wchar_t* const c_szAbsent = QZRI::c_szAbsentSentinel;

// Lookups in another case, and the value (or c_szAbsent) a line gives. The differential test below
// proves the tree against the grammar's regular expressions; these rows do not depend on them.
TEST(IniFileParser, ReadsSectionsKeysQuotesAndBlanksAsTheGrammarSays)
{
    const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*> c_arrCases[] = {
        {L"  [ \t S \t ]  \t\n \t k \t = \t v \t ", L"S", L"k", L"v"},
        {L"[S]\nk=a=b", L"S", L"k", L"a=b"},
        {L"[S]\nk = \" inner  blanks \" ", L"S", L"k", L" inner  blanks "},
        {L"[S]\nk=\"a", L"S", L"k", L"\"a"},
        {L"[S]\n=v", L"S", L"", c_szAbsent},
        {L"[S]\n[]\nk=v", L"S", L"k", c_szAbsent},
        {L"[S]\nk=b\r=c", L"S", L"k=b", L"c"},
        {L"[S]\nk=a\x2028z", L"S", L"k", c_szAbsent},
        {L"[S]\nk=a\x00A0", L"S", L"k", L"a\x00A0"},
        {L"[S]\nk=v\n[s]\nk=w", L"S", L"k", L"w"},
        {L"[S]\nKey=v", L"s", L"KEY", L"v"},
        {L"[\x00C9t\x00E9]\n\x0416=v", L"\x00E9T\x00C9", L"\x0436", L"v"},
        {L"k=v\n[S]", L"S", L"k", c_szAbsent},
        {L"[S] x\nk=v", L"S", L"k", c_szAbsent},
    };
    for (const auto& [szText, szSection, szKey, szExpected] : c_arrCases)
        EXPECT_EQ(ParseText(szText)->GetString(szSection, szKey, c_szAbsent), szExpected)
            << "text: " << QZSTD::WideToUtf8(szText);
}

TEST(IniFileParser, AnAbsentValueGivesTheDefaultOrRaisesNotFoundAnEmptyOneIsReturned)
{
    QZSTD::CAutoPtr<IniFileParser> pParser = ParseText(L"[S]\nempty=\n");
    EXPECT_EQ(pParser->GetString(L"S", L"empty", nullptr), L"");
    EXPECT_EQ(pParser->GetString(L"T", L"empty", L"dflt"), L"dflt");
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { pParser->GetString(L"S", L"other", nullptr); }),
              QZSTD::Err::NOT_FOUND);
    EXPECT_EQ(pParser->GetInt(L"S", L"n", 7, true), 7);
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { pParser->GetInt(L"S", L"n", 7, false); }), QZSTD::Err::NOT_FOUND);
}

TEST(IniFileParser, GetIntReadsDecimalLikeTheRuntime)
{
    QZSTD::CAutoPtr<IniFileParser> pParser =
        ParseText(L"[S]\na=42\nb=-17\nc=+5\nd=12abc\ne=abc\nf=\ng=0x10\nh=010\ni=2147483648\nj=-99999999999");
    std::vector<int32_t> vecValues;
    for (const wchar_t* szKey : {L"a", L"b", L"c", L"d", L"e", L"f", L"g", L"h", L"i", L"j"})
        vecValues.push_back(pParser->GetInt(L"S", szKey, -1, false));
    EXPECT_EQ(vecValues, (std::vector<int32_t>{42, -17, 5, 12, 0, 0, 0, 10, INT32_MAX, INT32_MIN}));
}

TEST(IniFileParser, ExecutableInSetupGetsThePlatformSeparators)
{
    QZSTD::CAutoPtr<IniFileParser> pParser =
        ParseText(L"[setup]\nexecutable=bin/sub\\setup.exe\n[Other]\nExecutable=a/b\\c\n");
    const wchar_t wchSep = std::filesystem::path::preferred_separator;
    const std::wstring wstrExpected = std::wstring(L"bin") + wchSep + L"sub" + wchSep + L"setup.exe";
    EXPECT_EQ(pParser->GetString(L"Setup", L"Executable", nullptr), wstrExpected);
    EXPECT_EQ(pParser->GetString(L"Other", L"Executable", nullptr), L"a/b\\c");
}

TEST(IniFileParser, ReadsUtf8WithOrWithoutByteOrderMarkAnsiAndMissingFiles)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrUtf8 = folder.Join(L"u.ini");
    QZTEST::WriteFileBytes(wstrUtf8, "\xEF\xBB\xBF[S]\r\nname = \xD0\x96\xC3\xA9\r\n");
    QZSTD::CAutoPtr<IniFileParser> pParser = IniFileParser::Create(wstrUtf8, nullptr, true);
    EXPECT_TRUE(pParser->IsUtf8());
    EXPECT_EQ(pParser->GetString(L"S", L"name", nullptr), L"\x0416\x00E9");

    QZTEST::WriteFileBytes(wstrUtf8, "[S]\nname=\xD0\x96\n");
    pParser->ReadIniFile(wstrUtf8, nullptr, true);
    EXPECT_EQ(pParser->GetString(L"S", L"name", nullptr), L"\x0416");
    QZTEST::WriteFileBytes(wstrUtf8, "[S]\nname=plain\n");
    pParser->ReadIniFile(wstrUtf8, nullptr, false);
    EXPECT_FALSE(pParser->IsUtf8());
    EXPECT_EQ(pParser->GetString(L"S", L"name", nullptr), L"plain");

    // A missing file raises 1205 and leaves no content.
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { pParser->ReadIniFile(folder.Join(L"none.ini"), nullptr, false); }),
              QZSTD::Err::FILE_NOT_FOUND);
    EXPECT_EQ(pParser->GetParams()->GetSize(), 0);
}

#ifndef _WIN32
TEST(IniFileParser, AnsiIsWindows1252WhereTheSystemHasNoCodePage)
{
    QZSTD::CAutoPtr<IniFileParser> pParser = IniFileParser::Create();
    pParser->ParseBytes("[S]\nname=\x80\xE9\x9F\x81\xFF\n", nullptr, false);
    EXPECT_EQ(pParser->GetString(L"S", L"name", nullptr), L"\x20AC\x00E9\x0178\x0081\x00FF");

    // ASCII is widened sixteen bytes at a time: a high byte at every place of a block, and runs that
    // end anywhere, still read through the table.
    for (size_t nPos = 0; nPos < 40; ++nPos) {
        std::string strValue(40, 'a');
        strValue[nPos] = '\x80';
        pParser->ParseBytes("[S]\nname=" + strValue + "\n", nullptr, false);
        std::wstring wstrExpected(40, L'a');
        wstrExpected[nPos] = 0x20AC;
        ASSERT_EQ(pParser->GetString(L"S", L"name", nullptr), wstrExpected) << nPos;
    }
}
#endif

TEST(IniFileParser, TheFilesProviderSuppliesTheContentWhenSet)
{
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"remote/pkg.ini"] = "[S]\nk=from provider\n";
    QZSTD::CAutoPtr<IniFileParser> pParser =
        IniFileParser::Create(L"remote/pkg.ini", nullptr, false, pProvider.Get());
    EXPECT_EQ(pParser->GetString(L"S", L"k", nullptr), L"from provider");
    EXPECT_EQ(pProvider->m_vecAsked.size(), 1u);
    pParser->SetFilesProvider(nullptr);
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { pParser->ReadIniFile(L"remote/pkg.ini", nullptr, false); }),
              QZSTD::Err::FILE_NOT_FOUND);
    EXPECT_EQ(pProvider->m_vecAsked.size(), 1u);
}

TEST(IniFileParser, NamesFoldOnlyTheLettersOfTheKnownScripts)
{
    EXPECT_TRUE(QZRI::IniNamesEqual(L"Setup", L"sETUP"));
    EXPECT_TRUE(QZRI::IniNamesEqual(L"\x00C0\x00DE", L"\x00E0\x00FE"));
    EXPECT_TRUE(QZRI::IniNamesEqual(L"\x0391\x0416\x0401", L"\x03B1\x0436\x0451"));
    EXPECT_FALSE(QZRI::IniNamesEqual(L"\x00D7", L"\x00F7"));
    EXPECT_FALSE(QZRI::IniNamesEqual(L"Setup", L"Setup "));
    EXPECT_FALSE(QZRI::IniNamesEqual(L"[", L"{"));
}

// ---- the hand-written parser against the grammar's regular expressions ----

void ExpectSameTree(const std::wstring& wstrText, const std::vector<std::wstring>* pSections = nullptr)
{
    static const QZTEST::RegexIniReference s_reference;
    QZSTD::CAutoPtr<QZPAR::Params> pExpected = s_reference.Parse(wstrText, pSections);
    QZSTD::CAutoPtr<QZPAR::Params> pActual = ParseText(wstrText, pSections)->GetParams();
    ASSERT_EQ(QZPAR::DumpParams(pActual.Get()), QZPAR::DumpParams(pExpected.Get()))
        << "text: " << QZSTD::WideToUtf8(wstrText);
    ASSERT_EQ(pActual->Compare(pExpected.Get()), 0);
}

TEST(IniFileParserDifferential, HandMadeLinesGiveTheSameTreeAsTheRegexReference)
{
    const wchar_t* const c_arrTexts[] = {L"[S]\nk=v",
                                         L" \t[ \t a b \t ] \t\r\n \t key \t = \t value \t \r\n",
                                         L"[S]\nk==v\n==\n= \n =\n[S]\nk=\"\"\"\nq=\" \"\nr=\"x",
                                         L"[[a]]\n[a]b]\n[ [ ]\n[]]\n[\n]\n[]\nk=v",
                                         L"[S]\n\"k\"=\"v\"\n k = \"a = b\" \n",
                                         L"[S]\nk=v\r\nk2=v2\rx\nk3\r=v3\n\r\n\r",
                                         L"[S]\n\v\fk\v=\fv\v\f\n",
                                         L"[S]\nk=v\n[s]\nK=w\n[\x00C9]\nx=1\n[\x00E9]\nX=2",
                                         L"no section=1\n[S]\njunk line\n; comment\n# comment\nk=v",
                                         L"",
                                         L"\n\n\n",
                                         L"[S]"};
    const std::vector<std::wstring> vecOnly = {L"s", L"\x00E9"};
    for (const wchar_t* szText : c_arrTexts) {
        ExpectSameTree(szText);
        ExpectSameTree(szText, &vecOnly);
    }
}

#ifndef _WIN32
// What the patterns' "\s" and "." take beyond ASCII depends on the C runtime's classification of wide
// characters (the Windows one counts U+00A0 and U+2028 as white space); the parser follows the
// classification of the Linux runtime, where only ASCII white space is blank and U+2028 and U+2029 end
// a line.
TEST(IniFileParserDifferential, NonAsciiBlanksAndLineSeparatorsGiveTheSameTreeAsTheRegexReference)
{
    ExpectSameTree(
        L"[S]\nk=\x2028\nk2=a\x2029\n\x2028k3=v\n[\x2028]\n[a\x2029"
        L"b]\nk4=v\n[\x00A0T\x00A0]\n\x00A0k\x00A0=\x00A0v\x00A0\n\x3000x=y\x3000");
}
#endif

TEST(IniFileParserDifferential, LongSectionsWithRepeatedKeysGiveTheSameTreeAsTheRegexReference)
{
    // Past the size where the reader switches from scanning a section's keys to hashing them, with
    // repeats in other cases on both sides of the switch.
    std::wstring wstrText = L"[Big]\n";
    for (int i = 0; i < 60; ++i) {
        wstrText += L"Key" + std::to_wstring(i % 23) + L" = v" + std::to_wstring(i) + L"\n";
        wstrText += L"KEY" + std::to_wstring((i * 7) % 31) + L"=w" + std::to_wstring(i) + L"\n";
    }
    wstrText += L"[small]\na=1\n[BIG]\nkey5=last\n";
    ExpectSameTree(wstrText);
    QZSTD::CAutoPtr<IniFileParser> pParser = ParseText(wstrText);
    EXPECT_EQ(pParser->GetString(L"big", L"KEY5", nullptr), L"last");
    EXPECT_EQ(pParser->GetString(L"big", L"key30", nullptr), L"w53");
    EXPECT_EQ(pParser->GetString(L"big", L"key31", L"none"), L"none");
}

// Lines assembled from the pieces that matter to the grammar: every kind of blank anywhere, "=" and
// brackets anywhere, quotes, letters of several cases and scripts, line terminators inside lines.
std::wstring GenerateText(std::mt19937& rng)
{
    // Runs longer than the blocks in which the reader scans ("abcdefg" and the two after it) put "=",
    // "\r" and blanks at every place of a block.
    // The pieces, separated by "|" (which none of them contains); "=" and the quote twice for weight.
    static const std::vector<std::wstring> c_vecPieces = [] {
        std::vector<std::wstring> vec;
        std::wistringstream in(
            L" |\t|  \t|\v|\f|\r|=|=| = |[|]|[ | ]|\"|\"|a|A|key|KEY|Sec|sec|x y|\x00E9|\x00C9|"
            L"\x0416|\x0436|\x4E2D|;|#|1|abcdefg|Long Name Of A Key|"
            L"C:\\Program Files\\Vendor\\setup.exe");
        for (std::wstring wstr; std::getline(in, wstr, L'|');)
            vec.push_back(wstr);
        return vec;
    }();
    // Up to nMax pieces drawn at random.
    const auto pieces = [&](int nMax) {
        std::wstring wstr;
        for (int n = std::uniform_int_distribution<int>(0, nMax)(rng); n > 0; --n)
            wstr += c_vecPieces[std::uniform_int_distribution<size_t>(0, c_vecPieces.size() - 1)(rng)];
        return wstr;
    };
    std::wstring wstrText;
    const int nLines = std::uniform_int_distribution<int>(0, 40)(rng);
    for (int i = 0; i < nLines; ++i) {
        const int nKind = std::uniform_int_distribution<int>(0, 9)(rng);
        if (nKind < 2)
            wstrText += pieces(2) + L"[" + pieces(4) + L"]" + pieces(2);
        else if (nKind < 7)
            wstrText += pieces(3) + L"=" + pieces(5);
        else
            wstrText += pieces(8);
        if (i + 1 < nLines || std::uniform_int_distribution<int>(0, 1)(rng))
            wstrText += std::uniform_int_distribution<int>(0, 1)(rng) ? L"\r\n" : L"\n";
    }
    return wstrText;
}

TEST(IniFileParserDifferential, GeneratedTextsGiveTheSameTreeAsTheRegexReference)
{
    std::mt19937 rng(20261122);
    const std::vector<std::wstring> vecOnly = {L"sec", L"\x00E9", L"a"};
    for (int i = 0; i < 3000; ++i) {
        const std::wstring wstrText = GenerateText(rng);
        ExpectSameTree(wstrText);
        ExpectSameTree(wstrText, &vecOnly);
    }
}

}  // namespace
