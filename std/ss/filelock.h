// An advisory lock on a lock file, shared between processes: many readers or one writer. The lock
// file itself holds no data and is never deleted (deleting it would let two processes lock two
// different files of the same name). Windows: LockFileEx on one byte; POSIX: flock, which, unlike
// fcntl locks, also keeps apart two threads of one process that open the file separately.
//
// Waiting is bounded: a lock that stays taken for the whole time-out raises QZSS LOCK_TIMEOUT with
// the lock file's path, so a process that hangs while holding the lock cannot hang every other
// process with it. Errors opening or locking the file raise QZSS LOCK_FAILED.
#pragma once

#include <cstdint>
#include <string>

namespace QZSTD {

enum class FileLockMode
{
    SHARED,
    EXCLUSIVE,
};

class FileLock
{
public:
    // How long a settings storage waits for its lock by default.
    static constexpr uint32_t DEFAULT_TIMEOUT_MS = 30000;

    // Opens (creating it when missing) and locks wstrLockPath, waiting up to nTimeoutMs. A shared
    // lock falls back to opening an existing lock file read-only when it may not be written.
    FileLock(const std::wstring& wstrLockPath, FileLockMode eMode, uint32_t nTimeoutMs = DEFAULT_TIMEOUT_MS);
    // Unlocks and closes the file.
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    const std::wstring& GetPath() const { return m_wstrPath; }

private:
    std::wstring m_wstrPath;
    // HANDLE on Windows, file descriptor on POSIX.
    intptr_t m_hFile;
};

// The platform half of FileLock (filelock_win.cpp, filelock_posix.cpp).
namespace FileLockOs {
// Opens or creates the lock file; raises LOCK_FAILED.
intptr_t Open(const std::wstring& wstrLockPath, FileLockMode eMode);
// One attempt without waiting: false when another owner holds a conflicting lock; raises LOCK_FAILED.
bool TryLock(intptr_t hFile, const std::wstring& wstrLockPath, FileLockMode eMode);
// Releases the lock (if any) and closes the file. Never throws.
void Close(intptr_t hFile) noexcept;
}  // namespace FileLockOs

}  // namespace QZSTD
