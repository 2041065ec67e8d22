// The agent's process-wide shutdown flag and stop event.
//
// When the agent must stop (the service's stop or shutdown control, a fatal condition on another thread)
// any thread raises the flag once; every wait of the agent watches it and ends within one slice with
// QZError 1199 (QZSTD). The flag is never lowered in the product: a raised shutdown lasts until exit.
//
// The waitable object: on Windows a manual-reset event (a HANDLE) that WaitForMultipleObjects can
// watch beside a process; on POSIX an eventfd that poll() reports readable once the flag is raised.
// Both are created on first use and live until the process ends; they are not inherited by children.
#pragma once

#include <cstdint>

namespace QZSTD {

// Sets the flag and signals the stop event. Any thread, any number of times; never throws.
void RaiseShutdown() noexcept;
// True once RaiseShutdown has been called. One atomic load.
bool IsShutdownRaised() noexcept;
// Raises QZError 1199 (QZSTD) when the flag is set.
void ThrowIfShutdown();

#ifdef _WIN32
// The manual-reset stop event (a HANDLE); owned by this module, never close it.
void* GetShutdownEvent();
#else
// The eventfd to poll() for POLLIN; owned by this module, never close it.
int GetShutdownFd();
#endif

// FOR TESTS ONLY: lowers the flag and resets the event, so that one test executable can raise a
// shutdown in several tests. The agent itself never calls it: a shutdown is final.
void ResetShutdownForTests() noexcept;

}  // namespace QZSTD
