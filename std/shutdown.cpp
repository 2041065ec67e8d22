// The portable half of the shutdown signal. The flag is the truth; the platform's wake-up object (an
// event on Windows, an eventfd elsewhere) only lets a blocked wait see it at once instead of at its
// next slice.
#include "std/shutdown.h"

#include <new>

#include "std/error.h"

namespace QZSTD {

void ShutdownSignal::ThrowIfRaised() const
{
    if (IsRaised())
        QZ_THROW_STD(Err::SHUTDOWN);
}

ShutdownSignal& ProcessShutdown()
{
    static ShutdownSignal* s_pSignal = new ShutdownSignal;
    return *s_pSignal;
}

void RaiseShutdown() noexcept
{
    try {
        ProcessShutdown().Raise();
    } catch (...) {
        // The signal could not even be created: there is no wait that could be watching it.
    }
}

bool IsShutdownRaised() noexcept
{
    try {
        return ProcessShutdown().IsRaised();
    } catch (...) {
        return false;
    }
}

void ThrowIfShutdown()
{
    ProcessShutdown().ThrowIfRaised();
}

}  // namespace QZSTD
