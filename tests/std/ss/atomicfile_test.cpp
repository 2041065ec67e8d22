// Whole-file reads and the crash-safe replace under the settings storage.
#include <gtest/gtest.h>

#include <optional>

#include "std/error.h"
#include "std/ss/atomicfile.h"
#include "std/ss/sserrors.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using QZTEST::ErrorOf;

TEST(SettingsStorageAtomicFile, ReadingAMissingFileIsFalseNotAnError)
{
    QZTEST::TempFolder folder;
    std::string strData = "stale";
    EXPECT_FALSE(QZSTD::ReadWholeFile(folder.Join(L"missing.xml"), strData, 100));
    EXPECT_TRUE(strData.empty());
    EXPECT_FALSE(QZSTD::ReadWholeFile(folder.Join(L"no/such/folder.xml"), strData, 100));
}

TEST(SettingsStorageAtomicFile, ReplaceCreatesThenReplacesWithoutLeavingTheTemporaryFile)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrPath = folder.Join(L"data.xml");
    QZSTD::ReplaceFileContent(wstrPath, "first");
    std::string strData;
    ASSERT_TRUE(QZSTD::ReadWholeFile(wstrPath, strData, 100));
    EXPECT_EQ(strData, "first");
    const std::string strBinary("\0\r\n\x80 second", 11);
    QZSTD::ReplaceFileContent(wstrPath, strBinary);
    ASSERT_TRUE(QZSTD::ReadWholeFile(wstrPath, strData, 100));
    EXPECT_EQ(strData, strBinary);
    QZSTD::ReplaceFileContent(wstrPath, "");
    ASSERT_TRUE(QZSTD::ReadWholeFile(wstrPath, strData, 100));
    EXPECT_EQ(strData, "");
    EXPECT_FALSE(QZTEST::PathExists(QZSTD::TemporaryPathOf(wstrPath)));
    EXPECT_TRUE(QZSTD::FileExists(wstrPath));
    EXPECT_FALSE(QZSTD::FileExists(folder.Path()));
}

TEST(SettingsStorageAtomicFile, AFileLargerThanAllowedIsRefusedUnread)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrPath = folder.Join(L"big.xml");
    QZTEST::WriteFileBytes(wstrPath, std::string(101, 'x'));
    std::string strData;
    const std::optional<QZSTD::QZError> error =
        ErrorOf([&] { QZSTD::ReadWholeFile(wstrPath, strData, 100); });
    ASSERT_TRUE(error.has_value());
    EXPECT_TRUE(error->Is(QZSTD::SsErr::MODULE, QZSTD::SsErr::TOO_LARGE)) << error->what();
    EXPECT_NE(error->GetMessage().find(L"101 bytes, at most 100"), std::wstring::npos) << error->what();
    EXPECT_TRUE(QZSTD::ReadWholeFile(wstrPath, strData, 101));
}

TEST(SettingsStorageAtomicFile, ReadingAFolderIsAReadError)
{
    QZTEST::TempFolder folder;
    std::string strData;
    const std::optional<QZSTD::QZError> error =
        ErrorOf([&] { QZSTD::ReadWholeFile(folder.Path(), strData, 100); });
    ASSERT_TRUE(error.has_value());
    EXPECT_TRUE(error->Is(QZSTD::SsErr::MODULE, QZSTD::SsErr::READ_FAILED)) << error->what();
    EXPECT_NE(error->GetMessage().find(folder.Path()), std::wstring::npos) << error->what();
}

TEST(SettingsStorageAtomicFile, ParentFolderIsEverythingBeforeTheLastSeparator)
{
    struct Row
    {
        const wchar_t* szPath;
        const wchar_t* szParent;
    };
#ifdef _WIN32
    const Row rows[] = {
        {L"C:\\ProgramData\\x\\local_ss.xml", L"C:\\ProgramData\\x"},
        {L"C:\\local_ss.xml", L"C:"},
        {L"C:/a/b.xml", L"C:/a"},
        {L"\\\\server\\share\\f.xml", L"\\\\server\\share"},
        {L"\\f.xml", L"\\"},
        {L"f.xml", L""},
    };
#else
    const Row rows[] = {
        {L"/var/opt/x/local_ss.xml", L"/var/opt/x"},
        {L"/local_ss.xml", L"/"},
        {L"a/b.xml", L"a"},
        {L"f.xml", L""},
    };
#endif
    for (const Row& row : rows)
        EXPECT_EQ(QZSTD::ParentFolderOf(row.szPath), row.szParent);
}

TEST(SettingsStorageAtomicFile, FolderChainIsCreatedOnceAndAFileInTheWayIsReported)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrDeep = folder.Join(L"a/b/c");
    QZSTD::CreateFolderChain(wstrDeep);
    QZSTD::CreateFolderChain(wstrDeep);
    EXPECT_TRUE(QZTEST::PathExists(wstrDeep));

    const std::wstring wstrBlocker = folder.Join(L"blocker");
    QZTEST::WriteFileBytes(wstrBlocker, "a file, not a folder");
    const std::optional<QZSTD::QZError> error =
        ErrorOf([&] { QZSTD::CreateFolderChain(folder.Join(L"blocker/sub")); });
    ASSERT_TRUE(error.has_value());
    EXPECT_TRUE(error->Is(QZSTD::SsErr::MODULE, QZSTD::SsErr::CREATE_FOLDER_FAILED)) << error->what();
    EXPECT_NE(error->GetMessage().find(wstrBlocker), std::wstring::npos) << error->what();
}

}  // namespace
