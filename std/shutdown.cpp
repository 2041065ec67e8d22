// The process-wide shutdown flag. The flag is the truth; the platform's wake-up object (an event on
// Windows, an eventfd elsewhere) only lets a blocked wait see it at once instead of at its next slice.
#include "std/shutdown.h"

#include <atomic>

#include "std/error.h"

namespace QZSTD {

// Platform files: make the wake-up object signalled / not signalled. Never throw.
void SignalShutdownObject() noexcept;
void ClearShutdownObject() noexcept;

namespace {
std::atomic<bool> g_bShutdown{false};
}

void RaiseShutdown() noexcept
{
    g_bShutdown.store(true);
    SignalShutdownObject();
}

bool IsShutdownRaised() noexcept
{
    return g_bShutdown.load();
}

void ThrowIfShutdown()
{
    if (IsShutdownRaised())
        QZ_THROW_STD(Err::SHUTDOWN);
}

void ResetShutdownForTests() noexcept
{
    g_bShutdown.store(false);
    ClearShutdownObject();
}

}  // namespace QZSTD
