#include "common/qpdfile.h"
#include "common/rmtinstutils.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "std/error.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/memoryfiles.h"

namespace {

using QZRI::QpdFile;
using QZRI::QpdValueOrigin;

std::wstring Native(const std::wstring& wstr)
{
    return std::filesystem::path(wstr).make_preferred().wstring();
}

TEST(QpdFile, TheCompanionWinsThenTheQpdFileThenTheDefault)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(
        folder.Join(L"pkg.qpd"),
        "[Product]\nName=ansi name\nVersion=1.0\nEmpty=x\n[Setup]\nExecutable=setup.exe\n");
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
    const auto err = QZTEST::ErrorOf([&] { pQpd->GetString(L"Product", L"Missing", nullptr); });
    ASSERT_TRUE(err.has_value());
    EXPECT_TRUE(err->Is(QZSTD::Err::MODULE, QZSTD::Err::NOT_FOUND));
    EXPECT_EQ(pQpd->GetCompanionPath(), Native(folder.Join(L"pkg.qud")));
}

TEST(QpdFile, AValueEqualToTheSentinelCountsAsAbsent)
{
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"p.qpd"] = "[S]\nk=D3F45DA0-29F6-46dc-ACC7-0E5898F9724D\n";
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(L"p.qpd", pProvider.Get());
    EXPECT_EQ(pQpd->GetString(L"S", L"k", L"dflt"), L"dflt");
}

TEST(QpdFile, GetIntTakesTheCompanionFirstAndFallsBackToTheQpdFileAndDefault)
{
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"p.qpd"] = "[Product]\nAdaptedProduct=3\nOnlyQpd=5\n";
    pProvider->m_mapFiles[L"p.qud"] = "[Product]\nAdaptedProduct=7\n";
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(L"p.qpd", pProvider.Get());
    EXPECT_EQ(pQpd->GetInt(L"Product", L"AdaptedProduct", 0), 7);
    EXPECT_EQ(pQpd->GetInt(L"Product", L"OnlyQpd", 0), 5);
    EXPECT_EQ(pQpd->GetInt(L"Product", L"Nowhere", -4), -4);
}

TEST(QpdFile, GetIntFallsBackOnlyOnNotFound)
{
    int nQpdCalls = 0;
    auto fnQpd = [&] {
        ++nQpdCalls;
        return 11;
    };
    EXPECT_EQ(QZRI::GetIntCompanionFirst([] { return 3; }, fnQpd), 3);
    EXPECT_EQ(nQpdCalls, 0);
    EXPECT_EQ(
        QZRI::GetIntCompanionFirst([]() -> int32_t { QZ_THROW_STD(QZSTD::Err::NOT_FOUND, "k"); }, fnQpd), 11);
    EXPECT_EQ(nQpdCalls, 1);
    const auto err = QZTEST::ErrorOf([&] {
        QZRI::GetIntCompanionFirst([]() -> int32_t { QZ_THROW_STD(QZSTD::Err::BAD_PARAM, "k"); }, fnQpd);
    });
    ASSERT_TRUE(err.has_value());
    EXPECT_EQ(err->GetCode(), QZSTD::Err::BAD_PARAM);
    // The same code from another module is not "not found".
    EXPECT_THROW(QZRI::GetIntCompanionFirst([]() -> int32_t { QZ_THROW("QZPAR", 1186, "k"); }, fnQpd),
                 QZSTD::QZError);
    EXPECT_EQ(nQpdCalls, 1);
}

TEST(QpdFile, AQudPathIsReadAsUtf8AndNoCompanionIsLookedFor)
{
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"p.QUD"] = "[Product]\nName=\xC3\xA9\n";
    pProvider->m_mapFiles[L"p.qud"] = "[Product]\nName=other\n";
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(L"p.QUD", pProvider.Get());
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"\x00E9");
    EXPECT_EQ(pProvider->m_vecAsked, std::vector<std::wstring>{L"p.QUD"});
    EXPECT_TRUE(pQpd->GetCompanionPath().empty());
    EXPECT_TRUE(QpdFile::IsQudFile(L"a/b.qud"));
    EXPECT_FALSE(QpdFile::IsQudFile(L"a/b.qpd"));
    EXPECT_FALSE(QpdFile::IsQudFile(L"a.qud/b"));
}

TEST(QpdFile, Utf8qpdNamesTheCompanionInTheQpdFolder)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrSub = folder.MakeSubFolder(L"pkg");
    QZTEST::WriteFileBytes(wstrSub + L"pkg.qpd", "[Setup]\nutf8qpd=names.txt\n[Product]\nName=qpd\n");
    QZTEST::WriteFileBytes(wstrSub + L"pkg.qud", "[Product]\nName=wrong companion\n");
    QZTEST::WriteFileBytes(wstrSub + L"names.txt", "[Product]\nName=named companion\n");
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(wstrSub + L"pkg.qpd");
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"named companion");
    EXPECT_EQ(pQpd->GetCompanionPath(), Native(wstrSub + L"names.txt"));
}

TEST(QpdFile, PathsOutsideAsciiReachTheFileSystem)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrSub = folder.MakeSubFolder(L"\x043F\x0430\x043A\x0435\x0442");
    QZTEST::WriteFileBytes(wstrSub + L"pkg.qpd",
                           "[Setup]\nutf8qpd=companion.qud\nExecutableRelPath=setup.exe\n");
    QZTEST::WriteFileBytes(wstrSub + L"companion.qud", "[Product]\nName=found\n");
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(wstrSub + L"pkg.qpd");
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"found");
    const std::wstring wstrExe = pQpd->GetExecutablePath();
    EXPECT_EQ(wstrExe.substr(wstrExe.size() - 9), L"setup.exe");
    EXPECT_NE(wstrExe.find(L"\x043F\x0430\x043A\x0435\x0442"), std::wstring::npos);
}

TEST(QpdFile, AMissingCompanionIsIgnoredAndAMissingQpdFileIsAnError)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"pkg.qpd"), "[Product]\nName=alone\n");
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(folder.Join(L"pkg.qpd"));
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", nullptr), L"alone");
    const auto err = QZTEST::ErrorOf([&] { pQpd->Read(folder.Join(L"none.qpd")); });
    ASSERT_TRUE(err.has_value());
    EXPECT_EQ(err->GetCode(), QZSTD::Err::FILE_NOT_FOUND);
    EXPECT_EQ(pQpd->GetString(L"Product", L"Name", L"gone"), L"gone");
}

TEST(QpdFile, ExecutableRelPathGivesAFullPathBesideTheQpdFile)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrSub = folder.MakeSubFolder(L"pkg");
    QZTEST::WriteFileBytes(wstrSub + L"pkg.qpd", "[Setup]\nExecutableRelPath=bin\\..\\tools\\setup.exe\n");
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(wstrSub + L"pkg.qpd");
    const std::filesystem::path pathExe(pQpd->GetExecutablePath());
    EXPECT_TRUE(pathExe.is_absolute());
    EXPECT_EQ(pathExe, std::filesystem::path(Native(wstrSub + L"tools/setup.exe")).lexically_normal());

    QZTEST::WriteFileBytes(wstrSub + L"pkg.qpd", "[Setup]\nExecutable=setup.exe\n");
    pQpd->Read(wstrSub + L"pkg.qpd");
    EXPECT_TRUE(pQpd->GetExecutablePath().empty());
}

TEST(QpdFile, TheQpdFileIsAnsiAndTheCompanionUtf8)
{
    auto pProvider = QZTEST::MemoryFiles::Create();
    pProvider->m_mapFiles[L"p.qpd"] = "[S]\nq=caf\xE9\n";
    pProvider->m_mapFiles[L"p.qud"] = "[S]\nu=caf\xC3\xA9\n";
    QZSTD::CAutoPtr<QpdFile> pQpd = QpdFile::Create(L"p.qpd", pProvider.Get());
    EXPECT_EQ(pQpd->GetString(L"S", L"u", nullptr), L"caf\x00E9");
    EXPECT_FALSE(pQpd->GetAnsiParser()->IsUtf8());
    EXPECT_TRUE(pQpd->GetUtf8Parser()->IsUtf8());
    // Read as UTF-8 the lone 0xE9 would be U+FFFD.
    EXPECT_NE(pQpd->GetString(L"S", L"q", nullptr), L"caf\xFFFD");
}

// ---- the package folder: key files and copies ----

std::vector<std::string> KeyFilesAfter(const std::string& strInfo, bool bWriteInfo)
{
    QZTEST::TempFolder folder;
    if (bWriteInfo)
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
    EXPECT_EQ(KeyFilesAfter("", false), vecAll);
    EXPECT_EQ(KeyFilesAfter("[Properties]\nKey=*\n", true), vecAll);
    EXPECT_EQ(KeyFilesAfter("[Properties]\nOther=1\n", true), vecAll);
    EXPECT_EQ(KeyFilesAfter("[Other]\nKey=a.key\n", true), vecAll);
    EXPECT_EQ(KeyFilesAfter("[properties]\nkey = b.key\n", true),
              (std::vector<std::string>{"b.key", "c.key.txt", "keep.txt"}));
    // The name is compared exactly: a key file named in another case is not the one to keep.
    EXPECT_EQ(KeyFilesAfter("[Properties]\nKey=A.KEY\n", true),
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

}  // namespace
