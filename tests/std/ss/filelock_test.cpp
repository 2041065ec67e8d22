// The lock file under the settings storage: who excludes whom, and that waiting is bounded.
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <thread>

#include "std/error.h"
#include "std/ss/filelock.h"
#include "std/ss/sserrors.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using QZSTD::FileLock;
using QZSTD::FileLockMode;
using Clock = std::chrono::steady_clock;
using namespace QZSTD::SsErr;

// The error a second lock attempt raises (nullopt when it got the lock).
std::optional<QZSTD::QZError> TryLock(const std::wstring& wstrPath, FileLockMode eMode, uint32_t nTimeoutMs)
{
    return QZTEST::ErrorOf([&] { FileLock lock(wstrPath, eMode, nTimeoutMs); });
}

bool IsTimeout(const std::optional<QZSTD::QZError>& error)
{
    return error && error->Is(MODULE, LOCK_TIMEOUT);
}

class SettingsStorageFileLock : public testing::Test
{
protected:
    QZTEST::TempFolder m_folder;
    const std::wstring m_wstrLock = m_folder.Join(L"storage.xml.lock");
};

TEST_F(SettingsStorageFileLock, ExclusiveLockKeepsOutEveryOtherLockUntilReleased)
{
    {
        FileLock held(m_wstrLock, FileLockMode::EXCLUSIVE);
        const Clock::time_point tStart = Clock::now();
        const std::optional<QZSTD::QZError> error = TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 150);
        EXPECT_GE(Clock::now() - tStart, std::chrono::milliseconds(140));
        ASSERT_TRUE(IsTimeout(error));
        EXPECT_NE(error->GetMessage().find(m_wstrLock), std::wstring::npos) << error->what();
        EXPECT_NE(error->GetMessage().find(L"150 ms"), std::wstring::npos) << error->what();
        EXPECT_TRUE(IsTimeout(TryLock(m_wstrLock, FileLockMode::SHARED, 50)));
    }
    EXPECT_FALSE(TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 0).has_value());
}

TEST_F(SettingsStorageFileLock, SharedLocksCoexistAndKeepOutTheWriter)
{
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
    const std::optional<QZSTD::QZError> error = TryLock(m_wstrLock, FileLockMode::EXCLUSIVE, 10000);
    const Clock::duration elapsed = Clock::now() - tStart;
    releaser.join();
    EXPECT_FALSE(error.has_value()) << error->what();
    EXPECT_GE(elapsed, std::chrono::milliseconds(150));
    EXPECT_LT(elapsed, std::chrono::milliseconds(5000));
}

TEST_F(SettingsStorageFileLock, LockFileInAMissingFolderIsAClearError)
{
    const std::wstring wstrLock = m_folder.Join(L"missing/storage.xml.lock");
    const std::optional<QZSTD::QZError> error = TryLock(wstrLock, FileLockMode::EXCLUSIVE, 0);
    ASSERT_TRUE(error && error->Is(MODULE, LOCK_FAILED)) << (error ? error->what() : "no error");
    EXPECT_NE(error->GetMessage().find(wstrLock), std::wstring::npos) << error->what();
}

}  // namespace
