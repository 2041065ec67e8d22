// POSIX wake-up object of the shutdown signal: an eventfd that poll() can wait on beside a pidfd.
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "std/error.h"
#include "std/shutdown.h"

namespace QZSTD {

ShutdownSignal::ShutdownSignal()
{
    m_fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_fd < 0)
        QZ_THROW_SYSTEM();
}

ShutdownSignal::~ShutdownSignal()
{
    ::close(m_fd);
}

void ShutdownSignal::Raise() noexcept
{
    m_bRaised.store(true);
    const uint64_t n = 1;
    // The counter only has to be non-zero; a full counter (EAGAIN) is already readable.
    [[maybe_unused]] const ssize_t r = ::write(m_fd, &n, sizeof(n));
}

}  // namespace QZSTD
