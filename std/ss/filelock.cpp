// Portable half of FileLock: the bounded wait around the platform's non-blocking attempt.
#include "std/ss/filelock.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "std/error.h"
#include "std/ss/sserrors.h"

namespace QZSTD {
namespace {

// Short at first, so that an uncontended hand-over between two writers costs little; longer later,
// so that a long wait does not keep a core busy.
constexpr std::chrono::milliseconds FIRST_PAUSE{1};
constexpr std::chrono::milliseconds LONGEST_PAUSE{50};

void WaitForLock(intptr_t hFile, const std::wstring& wstrPath, FileLockMode eMode, uint32_t nTimeoutMs)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point tDeadline = Clock::now() + std::chrono::milliseconds(nTimeoutMs);
    std::chrono::milliseconds pause = FIRST_PAUSE;
    while (!FileLockOs::TryLock(hFile, wstrPath, eMode)) {
        const Clock::time_point tNow = Clock::now();
        if (tNow >= tDeadline)
            QZ_THROW(SsErr::MODULE, SsErr::LOCK_TIMEOUT, wstrPath, static_cast<unsigned long>(nTimeoutMs));
        std::this_thread::sleep_for(
            std::min<Clock::duration>(pause, std::chrono::duration_cast<Clock::duration>(tDeadline - tNow)));
        pause = std::min(pause * 2, LONGEST_PAUSE);
    }
}

}  // namespace

FileLock::FileLock(const std::wstring& wstrLockPath, FileLockMode eMode, uint32_t nTimeoutMs)
    : m_wstrPath(wstrLockPath), m_hFile(-1)
{
    RegisterSettingsStorageErrors();
    m_hFile = FileLockOs::Open(wstrLockPath, eMode);
    try {
        WaitForLock(m_hFile, wstrLockPath, eMode, nTimeoutMs);
    } catch (...) {
        FileLockOs::Close(m_hFile);
        throw;
    }
}

FileLock::~FileLock()
{
    FileLockOs::Close(m_hFile);
}

}  // namespace QZSTD
