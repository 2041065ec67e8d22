// POSIX wake-up object of the shutdown flag: an eventfd that poll() can wait on beside a pidfd.
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "std/error.h"
#include "std/shutdown.h"

namespace QZSTD {
namespace {

int ShutdownFd()
{
    // Created once, on first use, by whichever thread gets here first (a magic static is thread safe).
    static const int s_fd = [] {
        const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (fd < 0)
            QZ_THROW_SYSTEM();
        return fd;
    }();
    return s_fd;
}

}  // namespace

void SignalShutdownObject() noexcept
{
    try {
        const uint64_t n = 1;
        // The counter only has to be non-zero; a full counter (EAGAIN) is already readable.
        [[maybe_unused]] const ssize_t r = ::write(ShutdownFd(), &n, sizeof(n));
    } catch (...) {
        // Without an eventfd the waits still see the flag at their next slice.
    }
}

void ClearShutdownObject() noexcept
{
    try {
        uint64_t n = 0;
        while (::read(ShutdownFd(), &n, sizeof(n)) > 0) {
        }
    } catch (...) {
    }
}

int GetShutdownFd()
{
    return ShutdownFd();
}

}  // namespace QZSTD
