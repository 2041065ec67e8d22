// Windows half of FileLock: LockFileEx on the first byte of the lock file. Locks belong to the
// handle, so two handles in one process exclude each other as two processes do.
#include <windows.h>

#include "std/error.h"
#include "std/ss/filelock.h"
#include "std/ss/sserrors.h"

namespace QZSTD {
namespace {

[[noreturn]] void ThrowLockFailed(const std::wstring& wstrLockPath, DWORD dwError)
{
    QZ_THROW(SsErr::MODULE, SsErr::LOCK_FAILED, wstrLockPath, SystemErrorText(static_cast<int>(dwError)));
}

HANDLE OpenLockFile(const std::wstring& wstrLockPath, DWORD dwAccess, DWORD dwDisposition)
{
    // Every sharing flag: the lock is the byte-range lock, not the sharing mode.
    return CreateFileW(wstrLockPath.c_str(), dwAccess, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                       nullptr, dwDisposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

intptr_t FileLockOs::Open(const std::wstring& wstrLockPath, FileLockMode eMode)
{
    HANDLE h = OpenLockFile(wstrLockPath, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
    // A reader without write access to the folder can still share a lock file a writer created.
    if (h == INVALID_HANDLE_VALUE && eMode == FileLockMode::SHARED && GetLastError() == ERROR_ACCESS_DENIED)
        h = OpenLockFile(wstrLockPath, GENERIC_READ, OPEN_EXISTING);
    if (h == INVALID_HANDLE_VALUE)
        ThrowLockFailed(wstrLockPath, GetLastError());
    return reinterpret_cast<intptr_t>(h);
}

bool FileLockOs::TryLock(intptr_t hFile, const std::wstring& wstrLockPath, FileLockMode eMode)
{
    OVERLAPPED ov = {};
    DWORD dwFlags = LOCKFILE_FAIL_IMMEDIATELY;
    if (eMode == FileLockMode::EXCLUSIVE)
        dwFlags |= LOCKFILE_EXCLUSIVE_LOCK;
    if (LockFileEx(reinterpret_cast<HANDLE>(hFile), dwFlags, 0, 1, 0, &ov))
        return true;
    const DWORD dwError = GetLastError();
    if (dwError == ERROR_LOCK_VIOLATION || dwError == ERROR_IO_PENDING)
        return false;
    ThrowLockFailed(wstrLockPath, dwError);
}

void FileLockOs::Close(intptr_t hFile) noexcept
{
    HANDLE h = reinterpret_cast<HANDLE>(hFile);
    if (h == INVALID_HANDLE_VALUE || h == nullptr)
        return;
    // Closing the handle would release the lock too, but only "when the system gets to it"; an
    // explicit unlock hands the lock to the next waiter at once.
    OVERLAPPED ov = {};
    UnlockFileEx(h, 0, 1, 0, &ov);
    CloseHandle(h);
}

}  // namespace QZSTD
