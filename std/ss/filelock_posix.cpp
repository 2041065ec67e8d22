// POSIX half of FileLock: flock on a file descriptor. flock locks belong to the open file
// description, so two opens in one process exclude each other as two processes do.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "std/error.h"
#include "std/ss/filelock.h"
#include "std/ss/sserrors.h"
#include "std/strconv.h"

namespace QZSTD {
namespace {

[[noreturn]] void ThrowLockFailed(const std::wstring& wstrLockPath, int nErrno)
{
    QZ_THROW(SsErr::MODULE, SsErr::LOCK_FAILED, wstrLockPath, SystemErrorText(nErrno));
}

int OpenRetryingInterrupts(const std::string& strPath, int nFlags)
{
    int fd;
    do {
        fd = ::open(strPath.c_str(), nFlags | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

}  // namespace

intptr_t FileLockOs::Open(const std::wstring& wstrLockPath, FileLockMode eMode)
{
    const std::string strPath = WideToUtf8(wstrLockPath);
    int fd = OpenRetryingInterrupts(strPath, O_RDWR | O_CREAT);
    // A reader without write access to the folder can still share a lock file a writer created.
    if (fd < 0 && eMode == FileLockMode::SHARED && (errno == EACCES || errno == EROFS))
        fd = OpenRetryingInterrupts(strPath, O_RDONLY);
    if (fd < 0)
        ThrowLockFailed(wstrLockPath, errno);
    return fd;
}

bool FileLockOs::TryLock(intptr_t hFile, const std::wstring& wstrLockPath, FileLockMode eMode)
{
    const int nOperation = (eMode == FileLockMode::EXCLUSIVE ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (;;) {
        if (::flock(static_cast<int>(hFile), nOperation) == 0)
            return true;
        if (errno == EWOULDBLOCK)
            return false;
        if (errno != EINTR)
            ThrowLockFailed(wstrLockPath, errno);
    }
}

void FileLockOs::Close(intptr_t hFile) noexcept
{
    // Closing the descriptor releases the lock.
    if (hFile >= 0)
        ::close(static_cast<int>(hFile));
}

}  // namespace QZSTD
