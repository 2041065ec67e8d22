// Windows wake-up object of the shutdown signal: a manual-reset event that every wait watches.
#include <windows.h>

#include "std/error.h"
#include "std/shutdown.h"

namespace QZSTD {

ShutdownSignal::ShutdownSignal()
{
    // Manual reset: once raised, every wait of every thread sees it, not just the first one.
    m_hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (!m_hEvent)
        QZ_THROW_SYSTEM();
}

ShutdownSignal::~ShutdownSignal()
{
    ::CloseHandle(m_hEvent);
}

void ShutdownSignal::Raise() noexcept
{
    m_bRaised.store(true);
    ::SetEvent(m_hEvent);
}

}  // namespace QZSTD
