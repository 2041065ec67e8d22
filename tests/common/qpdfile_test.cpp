// The package helpers of common/: the "$HEX_" form of ini values, the package description (qpd file
// and companion), the package folder (key files, copies) and the localization data of the agent.
#include "common/qpdfile.h"
#include "common/ansicp.h"
#include "common/inifileparser.h"
#include "common/localization.h"
#include "common/ristrutils.h"
#include "common/rmtinstutils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <tuple>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/trace.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/memoryfiles.h"

namespace {

using QZRI::DecodeHexString;
using QZRI::EncodeHexString;
using QZRI::QpdFile;
using QZRI::QpdValueOrigin;

// Only the value of a password key changes; the rest of the line, quotes and blanks included, stays.
TEST(MaskPasswords, ReplacesPasswordValuesByTheirLengthOnly)
{
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"\"C:\\a b\\s.exe\" /s TASK_ID=T1", L"\"C:\\a b\\s.exe\" /s TASK_ID=T1"},
        {L"s.exe AKINSTALLPWD=s3cret  X=1", L"s.exe AKINSTALLPWD=<password of 6 characters>  X=1"},
        {L"s.exe \"Proxy_Password=a b\" pwd=",
         L"s.exe \"Proxy_Password=<password of 3 characters>\" pwd=<password of 0 characters>"},
        {L"", L""},
        // Inside a quoted word of several parts, as a legacy setup gets its parameters.
        {L"s.exe /z\"/pDIR=C:\\a b TASK_ID=T PASSWORD=s3 cret\" /s",
         L"s.exe /z\"/pDIR=C:\\a b TASK_ID=T PASSWORD=<password of 7 characters>\" /s"},
        {L"s.exe \"/x Pwd=ab\" y=1", L"s.exe \"/x Pwd=<password of 2 characters>\" y=1"},
    };
    for (const auto& [szLine, szMasked] : rows)
        EXPECT_EQ(QZRI::MaskPasswords(szLine), szMasked) << szLine;
}

// A package's ini file is traced as it is read; its passwords only as their length, whether a key of
// their own holds them or a command line of properties does. The values read stay as written.
TEST(MaskPasswords, AnIniFileIsTracedWithItsPasswordsMasked)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrIni = folder.Join(L"package.qpd");
    QZTEST::WriteFileBytes(wstrIni,
                           "[Setup]\r\nMsiProperties=A=\"x y\" PROXYPASSWORD=Canary1\r\n"
                           "[Uninstall]\r\nUserPwd=Canary22\r\n");
    ASSERT_TRUE(QZSTD::TraceOpen(folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
    const auto pIni = QZRI::IniFileParser::Create(wstrIni);
    QZSTD::TraceClose();
    const std::string strTrace = QZTEST::ReadFileBytes(folder.Join(L"trace.txt"));
    EXPECT_EQ(strTrace.find("Canary"), std::string::npos) << strTrace;
    EXPECT_NE(strTrace.find("A=\"x y\" PROXYPASSWORD=<password of 7 characters>"), std::string::npos)
        << strTrace;
    EXPECT_NE(strTrace.find("UserPwd = (STRING_T)\"<password of 8 characters>\""), std::string::npos);
    EXPECT_EQ(pIni->GetString(L"Uninstall", L"UserPwd", L""), L"Canary22");
}

TEST(HexString, EncodesUtf16LeInUpperCaseHexDecodesPrefixedValuesPassesPlainTextAndRoundTripsEveryCharacter)
{
    EXPECT_EQ(EncodeHexString(L"a b"), L"$HEX_610020006200");
    EXPECT_EQ(EncodeHexString(L"\u00E9\u20AC\U0001F600"), L"$HEX_E900AC203DD800DE")
        << "surrogate pair above U+FFFF";
    EXPECT_EQ(EncodeHexString(L""), L"") << "an empty value carries no prefix";
    EXPECT_EQ(DecodeHexString(L"$HEX_610020006200"), L"a b");
    EXPECT_EQ(DecodeHexString(L"$HEX_e900ac203dd800de"), L"\u00E9\u20AC\U0001F600") << "lower-case digits";
    EXPECT_EQ(DecodeHexString(L"$HEX_"), L"");
    EXPECT_EQ(DecodeHexString(L""), L"");
    EXPECT_EQ(DecodeHexString(L"setup.exe /s \"x\""), L"setup.exe /s \"x\"");
    EXPECT_EQ(DecodeHexString(L"$hex_6100"), L"$hex_6100") << "the prefix is upper case";
    EXPECT_EQ(DecodeHexString(L"$HEX_00004100"), std::wstring(L"\0A", 2));
    std::wstring wstr = L"\"quoted\"\r\n\t\\";
    for (wchar_t c = 1; c < 0xD800; c = static_cast<wchar_t>(c + 7))
        wstr += c;
    for (wchar_t c = 0xE000; c < 0xFFFF; c = static_cast<wchar_t>(c + 5))
        wstr += c;
    wstr += L"\U00010000\U0010FFFF";
    EXPECT_EQ(DecodeHexString(EncodeHexString(wstr)), wstr);
}

TEST(HexString, MalformedHexValuesRaiseBadParameter)
{
    const auto BadValue = testing::Throws<QZSTD::QZError>(
        testing::AllOf(testing::Property(&QZSTD::QZError::GetCode, 1187),
                       testing::Property(&QZSTD::QZError::GetArgs, testing::ElementsAre(L"value"))));
    for (const wchar_t* sz :
         {L"$HEX_610", L"$HEX_61", L"$HEX_61002", L"$HEX_6G00", L"$HEX_61 0", L"$HEX_-100"})
        EXPECT_THAT([sz] { DecodeHexString(sz); }, BadValue) << testing::PrintToString(std::wstring(sz));
}

// ---- the package description ----

std::wstring Native(const std::wstring& wstr)
{
    return QZRI::WideFromPath(QZRI::PathFromWide(wstr).make_preferred().lexically_normal());
}

TEST(QpdFile, TheCompanionWinsThenTheQpdFileThenTheDefault)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"pkg.qpd"), "[Product]\nName=ansi name\nVersion=1.0\nEmpty=x\n");
    QZTEST::WriteFileBytes(folder.Join(L"pkg.qud"), "[product]\nNAME=\xD0\x96 name\nEmpty=\n");
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(folder.Join(L"pkg.qpd"));
    QpdValueOrigin eOrigin = QpdValueOrigin::ABSENT;
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr, &eOrigin), L"\x0416 name");
    EXPECT_EQ(eOrigin, QpdValueOrigin::COMPANION);
    EXPECT_EQ(pQpd->GetString(L"Product", L"Version", nullptr, &eOrigin), L"1.0");
    EXPECT_EQ(eOrigin, QpdValueOrigin::QPD);
    EXPECT_EQ(pQpd->GetString(L"Product", L"Empty", L"dflt", &eOrigin), L"");
    EXPECT_EQ(eOrigin, QpdValueOrigin::COMPANION);
    EXPECT_EQ(pQpd->GetString(L"Product", L"Missing", L"dflt", &eOrigin), L"dflt");
    EXPECT_EQ(eOrigin, QpdValueOrigin::ABSENT);
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { pQpd->GetString(L"Product", L"Missing", nullptr); }),
              QZSTD::Err::NOT_FOUND);
    EXPECT_EQ(pQpd->GetCompanionPath(), Native(folder.Join(L"pkg.qud")));
    // A missing companion is no error; a missing qpd file is, and leaves no content.
    QZTEST::RemoveAll(folder.Join(L"pkg.qud"));
    pQpd->Read(folder.Join(L"pkg.qpd"));
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"ansi name");
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { pQpd->Read(folder.Join(L"none.qpd")); }), QZSTD::Err::FILE_NOT_FOUND);
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", L"gone"), L"gone");
}

TEST(QpdFile, TheQpdFileIsAnsiTheCompanionUtf8AndTheSentinelCountsAsAbsent)
{
    // A package description in memory: "p.qpd" (ANSI) and its companion "p.qud" (UTF-8).
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"p.qpd"] = "[S]\nq=caf\xE9\nn=3\nk=D3F45DA0-29F6-46dc-ACC7-0E5898F9724D\n";
    pProvider->m_mapFiles[L"p.qud"] = "[S]\nu=caf\xC3\xA9\nn=7\n";
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(L"p.qpd", pProvider.Get());
    EXPECT_EQ(pQpd->GetString(L"S", L"u", nullptr), L"caf\x00E9");
    // Read as UTF-8 the lone 0xE9 would be U+FFFD.
    EXPECT_NE(pQpd->GetString(L"S", L"q", nullptr), L"caf\xFFFD");
    EXPECT_EQ(pQpd->GetString(L"S", L"k", L"dflt"), L"dflt");
    EXPECT_EQ(pQpd->GetInt(L"S", L"n", 0), 7);
    EXPECT_EQ(pQpd->GetInt(L"S", L"Nowhere", -4), -4);
}

TEST(QpdFile, GetIntFallsBackOnlyOnNotFound)
{
    int nQpdCalls = 0;
    const std::function<int32_t()> fnQpd = [&] {
        ++nQpdCalls;
        return 11;
    };
    const auto CompanionFirst = [&](const std::function<int32_t()>& fnCompanion) {
        return QZRI::GetIntCompanionFirst(fnCompanion, fnQpd);
    };
    EXPECT_EQ(CompanionFirst([] { return 3; }), 3);
    EXPECT_EQ(nQpdCalls, 0);
    EXPECT_EQ(CompanionFirst([]() -> int32_t { QZ_THROW_STD(QZSTD::Err::NOT_FOUND, "k"); }), 11);
    EXPECT_EQ(nQpdCalls, 1);
    EXPECT_EQ(QZTEST::ErrorCodeOf(
                  [&] { CompanionFirst([]() -> int32_t { QZ_THROW_STD(QZSTD::Err::BAD_PARAM, "k"); }); }),
              QZSTD::Err::BAD_PARAM);
    // The same code from another module is not "not found".
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { CompanionFirst([]() -> int32_t { QZ_THROW("QZPAR", 1186, "k"); }); },
                                  "QZPAR"),
              1186);
    EXPECT_EQ(nQpdCalls, 1);
}

TEST(QpdFile, AQudPathIsReadAsUtf8AndNoCompanionIsLookedFor)
{
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"p.QUD"] = "[Product]\nName=\xC3\xA9\n";
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(L"p.QUD", pProvider.Get());
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"\x00E9");
    EXPECT_EQ(pProvider->m_vecAsked, std::vector<std::wstring>{L"p.QUD"});
    EXPECT_TRUE(pQpd->GetCompanionPath().empty());
    EXPECT_TRUE(QpdFile::IsQudFile(L"a/b.qud"));
    EXPECT_FALSE(QpdFile::IsQudFile(L"a.qud/b"));
}

// In a folder whose name is not ASCII: utf8qpd names the companion (not "pkg.qud"), and
// ExecutableRelPath gives a full path beside the qpd file; Executable alone gives none.
TEST(QpdFile, Utf8qpdAndExecutableRelPathAreFoundBesideTheQpdFile)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrSub = folder.MakeSubFolder(L"\x043F\x0430\x043A\x0435\x0442");
    QZTEST::WriteFileBytes(wstrSub + L"pkg.qpd",
                           "[Setup]\nutf8qpd=names.txt\nExecutableRelPath=bin\\..\\tools\\setup.exe\n");
    QZTEST::WriteFileBytes(wstrSub + L"pkg.qud", "[Product]\nName=wrong companion\n");
    QZTEST::WriteFileBytes(wstrSub + L"names.txt", "[Product]\nName=named companion\n");
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(wstrSub + L"pkg.qpd");
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"named companion");
    EXPECT_EQ(pQpd->GetCompanionPath(), Native(wstrSub + L"names.txt"));
    EXPECT_TRUE(QZRI::PathFromWide(pQpd->GetExecutablePath()).is_absolute());
    EXPECT_EQ(pQpd->GetExecutablePath(), Native(wstrSub + L"tools/setup.exe"));

    QZTEST::WriteFileBytes(wstrSub + L"pkg.qpd", "[Setup]\nExecutable=setup.exe\n");
    pQpd->Read(wstrSub + L"pkg.qpd");
    EXPECT_TRUE(pQpd->GetExecutablePath().empty());
}

// ---- the package folder: key files and copies ----

// The files left after CheckDeleteExtraKeys, with "$qzpkginf.ini" holding strInfo (none when empty).
std::vector<std::string> KeyFilesAfter(const std::string& strInfo)
{
    QZTEST::TempFolder folder;
    if (!strInfo.empty())
        QZTEST::WriteFileBytes(folder.Join(L"$qzpkginf.ini"), strInfo);
    for (const wchar_t* szName : {L"a.key", L"b.key", L"C.KEY", L"c.key.txt", L"keep.txt"})
        QZTEST::WriteFileBytes(folder.Join(szName), "x");
    QZRI::CheckDeleteExtraKeys(folder.Path());
    std::vector<std::string> vecNames = QZTEST::FileNamesIn(folder.Path());
    std::erase(vecNames, std::string("$qzpkginf.ini"));
    return vecNames;
}

TEST(CheckDeleteExtraKeys, KeepsOnlyTheNamedKeyFile)
{
    const std::vector<std::string> vecAll = {"C.KEY", "a.key", "b.key", "c.key.txt", "keep.txt"};
    for (const char* szInfo :
         {"", "[Properties]\nKey=*\n", "[Properties]\nOther=1\n", "[Other]\nKey=a.key\n"})
        EXPECT_EQ(KeyFilesAfter(szInfo), vecAll) << szInfo;
    EXPECT_EQ(KeyFilesAfter("[properties]\nkey = b.key\n"),
              (std::vector<std::string>{"b.key", "c.key.txt", "keep.txt"}));
    // The name is compared exactly: a key file named in another case is not the one to keep.
    EXPECT_EQ(KeyFilesAfter("[Properties]\nKey=A.KEY\n"),
              (std::vector<std::string>{"c.key.txt", "keep.txt"}));
}

TEST(Copy, UsesTheProviderWhenGivenElseCopiesAndOverwrites)
{
    QZTEST::TempFolder folder;
    auto pProvider = QZTEST::MemoryFiles::Create();
    QZRI::Copy(L"remote/setup.exe", folder.Join(L"setup.exe"), pProvider.Get());
    EXPECT_EQ(pProvider->m_vecCopies,
              std::vector<std::wstring>{L"remote/setup.exe -> " + folder.Join(L"setup.exe")});
    EXPECT_FALSE(QZTEST::PathExists(folder.Join(L"setup.exe")));

    QZTEST::WriteFileBytes(folder.Join(L"src.bin"), "new content");
    QZTEST::WriteFileBytes(folder.Join(L"dst.bin"), "old");
    QZRI::Copy(folder.Join(L"src.bin"), folder.Join(L"dst.bin"), nullptr);
    EXPECT_EQ(QZTEST::ReadFileBytes(folder.Join(L"dst.bin")), "new content");
    EXPECT_THROW(QZRI::Copy(folder.Join(L"none.bin"), folder.Join(L"dst2.bin"), nullptr), QZSTD::QZError);
    EXPECT_FALSE(QZTEST::PathExists(folder.Join(L"dst2.bin")));
}

// ---- the localization data ----

// One "qzrimsg.dat" as the agent may find it (bFile false: none; nullopt tag: the value absent;
// bIntTag: the value with another type), and the tag and loc ini name it gives. A file that is no
// Params file raises ReadParamsFile's error (serialize_test.cpp), which the tag lookup meets as it meets
// the missing file's.
TEST(Localization, LanguageTagAndLocIniFileFollowQzrimsgDat)
{
    const std::tuple<bool, std::optional<std::wstring>, bool, const wchar_t*, const wchar_t*> cases[] = {
        {true, L"de-DE", false, L"de-DE", L"de-de.ini"},
        {true, L"\x0416-X", false, L"\x0416-X", L"\x0436-x.ini"},  // non-ASCII capitals lowered
        {true, std::nullopt, false, L"", L".ini"},
        {true, std::nullopt, true, L"", L".ini"},
        {false, std::nullopt, false, L"", L".ini"},
    };
    for (const auto& [bFile, tag, bIntTag, szTag, szIniName] : cases) {
        SCOPED_TRACE(testing::PrintToString(szIniName) + (bFile ? "" : " no file"));
        QZTEST::TempFolder agent, package;
        QZSTD::CAutoPtr<QZPAR::Params> pParams = QZPAR::CreateParams();
        QZPAR::SetStringValue(pParams, L"QZRI_MSG_DATA_TIMEOUT_EXPIRED", L"Timeout elapsed.");
        if (tag)
            QZPAR::SetStringValue(pParams, L"QZRI_SERVER_LANGUAGE_TAG", *tag);
        if (bIntTag)
            QZPAR::SetIntValue(pParams, L"QZRI_SERVER_LANGUAGE_TAG", 7);
        if (bFile)
            QZPAR::WriteParamsFile(agent.Join(L"qzrimsg.dat"), pParams);
        EXPECT_EQ(QZRI::GetLanguageTagFromLocalizationData(agent.Path()), szTag);
        EXPECT_EQ(
            QZRI::GetQpdLocIniFile(package.Join(L"pkg.qpd"), agent.Path()),
            QZRI::WideFromPath(
                QZRI::PathFromWide(package.Join(std::wstring(L"qpd.loc/") + szIniName)).make_preferred()));
        // The whole tree, read from the agent's folder.
        if (bFile) {
            EXPECT_EQ(QZPAR::GetStringValue(QZRI::GetLocalizationData(agent.Path()),
                                            L"QZRI_MSG_DATA_TIMEOUT_EXPIRED"),
                      L"Timeout elapsed.");
        }
    }
}

}  // namespace
