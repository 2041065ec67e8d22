// POSIX building blocks of the launchers (std/process and common/rilaunch): starting a command line with
// posix_spawn and watching a child through a pidfd. Included only by *_posix.cpp files.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace QZPAR {
struct Params;
}

namespace QZSTD {
class ShutdownSignal;
}

namespace QZSTD::Posix {

struct SpawnRequest
{
    std::wstring wstrCommandLine;
    std::wstring wstrCurDir;  // empty: the caller's own
    std::wstring wstrStdOut;  // empty or "NUL": /dev/null
    std::wstring wstrStdErr;  // the same file as wstrStdOut: both streams share one open file
    std::wstring wstrStdIn;
    QZPAR::Params* pEnvironmentAddition = nullptr;
    // Puts the child at the head of a new process group: the group stands in for a job object, since
    // whatever the child starts stays in it unless it leaves on its own (setsid, setpgid).
    bool bNewProcessGroup = false;
};

// Starts the program; raises a system error (errno) when it cannot be started.
pid_t Spawn(const SpawnRequest& req);

// Status of a child as a waiter reports it: a normal exit gives its 8-bit code, a signal N gives 128+N
// (as a shell reports it).
uint32_t ExitCodeFromStatus(int nStatus);

enum class WaitEvent
{
    EXITED,
    SHUTDOWN,
    TIMEOUT,
};

// One child of this process, watched through a pidfd, so an exit wakes the waiter at once. Where the
// kernel has no pidfd_open (before 5.3) the wait falls back to short waitpid(WNOHANG) slices.
// The destructor never ends the child; a child that is still running is not reaped by it.
class ChildProcess
{
public:
    explicit ChildProcess(pid_t pid);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return m_pid; }
    // Waits up to nTimeoutMs (-1: no limit) for the exit, or also for the signal when one is given.
    WaitEvent Wait(long nTimeoutMs, const ShutdownSignal* pShutdown);
    // Reaps the child if it has ended (a zero wait); true when it has.
    bool HasExited();
    // Valid once HasExited() is true.
    uint32_t ExitCode() const { return m_nExitCode; }

private:
    pid_t m_pid;
    int m_fdPid = -1;
    bool m_bExited = false;
    uint32_t m_nExitCode = 0;
};

}  // namespace QZSTD::Posix
