// The layer under the settings storage: whole-file reads, the crash-safe replace, and the lock file
// (who excludes whom, and that waiting is bounded).
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <thread>

#include "std/error.h"
#include "std/ss/atomicfile.h"
#include "std/ss/filelock.h"
#include "std/ss/sserrors.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZSTD;
using namespace QZSTD::SsErr;
using QZTEST::ErrorOf;

TEST(SettingsStorageAtomicFile, ReadIsFalseForAMissingFileAndRefusesFoldersAndFilesTooLarge)
{
    QZTEST::TempFolder folder;
    std::string strData = "stale";
    EXPECT_FALSE(ReadWholeFile(folder.Join(L"missing.xml"), strData, 100));
    EXPECT_TRUE(strData.empty());
    EXPECT_FALSE(ReadWholeFile(folder.Join(L"no/such/folder.xml"), strData, 100));
    const std::optional<QZError> folderError = ErrorOf([&] { ReadWholeFile(folder.Path(), strData, 100); });
    ASSERT_TRUE(folderError && folderError->Is(MODULE, READ_FAILED));
    EXPECT_NE(folderError->GetMessage().find(folder.Path()), std::wstring::npos) << folderError->what();

    const std::wstring wstrPath = folder.Join(L"big.xml");
    QZTEST::WriteFileBytes(wstrPath, std::string(101, 'x'));
    const std::optional<QZError> error = ErrorOf([&] { ReadWholeFile(wstrPath, strData, 100); });
    ASSERT_TRUE(error && error->Is(MODULE, TOO_LARGE));
    EXPECT_NE(error->GetMessage().find(L"101 bytes, at most 100"), std::wstring::npos) << error->what();
    EXPECT_TRUE(ReadWholeFile(wstrPath, strData, 101));
}

TEST(SettingsStorageAtomicFile, ReplaceCreatesThenReplacesWithoutLeavingTheTemporaryFile)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrPath = folder.Join(L"data.xml");
    std::string strData;
    for (const std::string& str :
         {std::string("first"), std::string("\0\r\n\x80 second", 11), std::string()}) {
        ReplaceFileContent(wstrPath, str);
        ASSERT_TRUE(ReadWholeFile(wstrPath, strData, 100));
        EXPECT_EQ(strData, str);
    }
    EXPECT_FALSE(QZTEST::PathExists(TemporaryPathOf(wstrPath)));
    EXPECT_TRUE(FileExists(wstrPath));
    EXPECT_FALSE(FileExists(folder.Path()));
}

TEST(SettingsStorageAtomicFile, ParentFolderIsEverythingBeforeTheLastSeparator)
{
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
#ifdef _WIN32
        {L"C:\\ProgramData\\x\\local_ss.xml", L"C:\\ProgramData\\x"},
        {L"C:\\local_ss.xml", L"C:"},
        {L"C:/a/b.xml", L"C:/a"},
        {L"\\\\server\\share\\f.xml", L"\\\\server\\share"},
        {L"\\f.xml", L"\\"},
#else
        {L"/var/opt/x/local_ss.xml", L"/var/opt/x"},
        {L"/local_ss.xml", L"/"},
        {L"a/b.xml", L"a"},
#endif
        {L"f.xml", L""},
    };
    for (const auto& [szPath, szParent] : rows)
        EXPECT_EQ(ParentFolderOf(szPath), szParent);
}

// The chain itself is made, and made again, by SettingsStorage::OpenOrCreate in settingsstorage_test.cpp.
TEST(SettingsStorageAtomicFile, AFileInTheWayOfTheFolderChainIsReported)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrBlocker = folder.Join(L"blocker");
    QZTEST::WriteFileBytes(wstrBlocker, "a file, not a folder");
    const std::optional<QZError> error = ErrorOf([&] { CreateFolderChain(folder.Join(L"blocker/sub")); });
    ASSERT_TRUE(error && error->Is(MODULE, CREATE_FOLDER_FAILED));
    EXPECT_NE(error->GetMessage().find(wstrBlocker), std::wstring::npos) << error->what();
}

using Clock = std::chrono::steady_clock;

// The error a second lock attempt raises (nullopt when it got the lock).
std::optional<QZError> TryLock(const std::wstring& wstrPath, FileLockMode eMode, uint32_t nTimeoutMs)
{
    return ErrorOf([&] { FileLock lock(wstrPath, eMode, nTimeoutMs); });
}

bool IsTimeout(const std::optional<QZError>& error)
{
    return error && error->Is(MODULE, LOCK_TIMEOUT);
}

class SettingsStorageFileLock : public testing::Test
{
protected:
    QZTEST::TempFolder m_folder;
    const std::wstring m_wstrLock = m_folder.Join(L"storage.xml.lock");
};

TEST_F(SettingsStorageFileLock, ExclusiveLockKeepsOutEveryOtherLockSharedLocksOnlyTheWriter)
{
    {
        FileLock held(m_wstrLock, FileLockMode::EXCLUSIVE);
        const Clock::time_point tStart = Clock::now();
        const std::optional<QZError> error = TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 150);
        EXPECT_GE(Clock::now() - tStart, std::chrono::milliseconds(140));
        ASSERT_TRUE(IsTimeout(error));
        EXPECT_NE(error->GetMessage().find(m_wstrLock), std::wstring::npos) << error->what();
        EXPECT_NE(error->GetMessage().find(L"150 ms"), std::wstring::npos) << error->what();
        EXPECT_TRUE(IsTimeout(TryLock(m_wstrLock, FileLockMode::SHARED, 50)));
    }
    {
        FileLock first(m_wstrLock, FileLockMode::SHARED);
        FileLock second(m_wstrLock, FileLockMode::SHARED, 0);
        EXPECT_TRUE(IsTimeout(TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 50)));
    }
    EXPECT_FALSE(TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 0).has_value());
}

TEST_F(SettingsStorageFileLock, WaiterGetsTheLockOnceTheHolderLetsGo)
{
    auto pHeld = std::make_unique<FileLock>(m_wstrLock, FileLockMode::EXCLUSIVE);
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        pHeld.reset();
    });
    const Clock::time_point tStart = Clock::now();
    const std::optional<QZError> error = TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 10000);
    const Clock::duration elapsed = Clock::now() - tStart;
    releaser.join();
    EXPECT_FALSE(error.has_value()) << error->what();
    EXPECT_GE(elapsed, std::chrono::milliseconds(150));
    EXPECT_LT(elapsed, std::chrono::milliseconds(5000));
}

TEST_F(SettingsStorageFileLock, LockFileInAMissingFolderIsAClearError)
{
    const std::wstring wstrLock = m_folder.Join(L"missing/storage.xml.lock");
    const std::optional<QZError> error = TryLock(wstrLock, FileLockMode::EXCLUSIVE, 0);
    ASSERT_TRUE(error && error->Is(MODULE, LOCK_FAILED)) << (error ? error->what() : "no error");
    EXPECT_NE(error->GetMessage().find(wstrLock), std::wstring::npos) << error->what();
}

}  // namespace
