// Windows shutdown flag: an atomic flag and a manual-reset event that every wait watches.
#include <windows.h>

#include <atomic>

#include "std/error.h"
#include "std/shutdown.h"

namespace QZSTD {
namespace {

std::atomic<bool> g_bShutdown{false};

HANDLE ShutdownEvent()
{
    // Manual reset: once raised, every wait of every thread sees it, not just the first one.
    static const HANDLE s_h = [] {
        const HANDLE h = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (!h)
            QZ_THROW_SYSTEM();
        return h;
    }();
    return s_h;
}

}  // namespace

void RaiseShutdown() noexcept
{
    g_bShutdown.store(true);
    try {
        ::SetEvent(ShutdownEvent());
    } catch (...) {
        // Without the event the waits still see the flag at their next slice.
    }
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

void* GetShutdownEvent()
{
    return ShutdownEvent();
}

void ResetShutdownForTests() noexcept
{
    g_bShutdown.store(false);
    try {
        ::ResetEvent(ShutdownEvent());
    } catch (...) {
    }
}

}  // namespace QZSTD
