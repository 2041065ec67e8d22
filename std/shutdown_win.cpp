// Windows wake-up object of the shutdown flag: a manual-reset event that every wait watches.
#include <windows.h>

#include "std/error.h"
#include "std/shutdown.h"

namespace QZSTD {
namespace {

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

void SignalShutdownObject() noexcept
{
    try {
        ::SetEvent(ShutdownEvent());
    } catch (...) {
        // Without the event the waits still see the flag at their next slice.
    }
}

void ClearShutdownObject() noexcept
{
    try {
        ::ResetEvent(ShutdownEvent());
    } catch (...) {
    }
}

void* GetShutdownEvent()
{
    return ShutdownEvent();
}

}  // namespace QZSTD
