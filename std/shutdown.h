// The agent's shutdown signal: a flag and the stop event that every wait watches.
//
// When the agent must stop (the service's stop or shutdown control, a fatal condition on another thread)
// any thread raises the process's signal once; every wait of the agent watches it and ends within one
// slice with QZError 1199 (QZSTD). A signal is never lowered: a raised shutdown lasts until exit.
//
// The process has one signal (ProcessShutdown), which the launchers' waiters watch unless they are
// given another one. A test gives each of its waits a signal of its own, so that raising it touches
// nothing else in the test executable.
//
// The waitable object: on Windows a manual-reset event (a HANDLE) that WaitForMultipleObjects can
// watch beside a process; on POSIX an eventfd that poll() reports readable once the flag is raised.
// Neither is inherited by child processes.
#pragma once

#include <atomic>

namespace QZSTD {

class ShutdownSignal
{
public:
    // Creates the wake-up object; a system error when it cannot be created.
    ShutdownSignal();
    ~ShutdownSignal();
    ShutdownSignal(const ShutdownSignal&) = delete;
    ShutdownSignal& operator=(const ShutdownSignal&) = delete;

    // Sets the flag and signals the wake-up object. Any thread, any number of times; never throws.
    void Raise() noexcept;
    // True once Raise has been called. One atomic load.
    bool IsRaised() const noexcept { return m_bRaised.load(); }
    // Raises QZError 1199 (QZSTD) when the flag is set.
    void ThrowIfRaised() const;

#ifdef _WIN32
    // The manual-reset event (a HANDLE); owned by the signal, never close it.
    void* Event() const
    {
        return m_hEvent;
    }
#else
    // The eventfd to poll() for POLLIN; owned by the signal, never close it.
    int Fd() const
    {
        return m_fd;
    }
#endif

private:
    std::atomic<bool> m_bRaised{false};
#ifdef _WIN32
    void* m_hEvent = nullptr;
#else
    int m_fd = -1;
#endif
};

// The process's signal, created on first use and never destroyed (a wait on another thread may still
// watch it while the process exits).
ShutdownSignal& ProcessShutdown();

// The process's signal: raise it, test it, raise 1199 when it is set.
void RaiseShutdown() noexcept;
bool IsShutdownRaised() noexcept;
void ThrowIfShutdown();

}  // namespace QZSTD
