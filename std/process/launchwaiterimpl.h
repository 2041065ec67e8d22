// The waiter of the standard launcher, shared by the Windows and POSIX sides: interface lookup, the two
// Wait entries and ExitCode are written once here; each side supplies WaitI and the exit code.
#pragma once

#include "std/process/launch.h"
#include "std/shutdown.h"

namespace QZSTD {

// LaunchWaiter and LaunchWaiter2 both declare Wait(long); these faces give each its own overrider, so
// one object can honour the shutdown flag through one face and ignore it through the other.
struct LaunchWaiterFace : LaunchWaiter
{
    bool Wait(long lTimeout) final { return WaitMain(lTimeout); }

protected:
    virtual bool WaitMain(long lTimeout) = 0;
};

struct LaunchWaiter2Face : LaunchWaiter2
{
    bool Wait(long lTimeout) final { return WaitNoShutdown(lTimeout); }

protected:
    virtual bool WaitNoShutdown(long lTimeout) = 0;
};

class LaunchWaiterImpl : public LaunchWaiterFace, public LaunchWaiter2Face, public ProcessPid
{
public:
    // Answers exactly "QZSTD::QZBaseQI", "QZSTD::LaunchWaiter", "QZSTD::LaunchWaiter2", "QZSTD::ProcessPid".
    bool QueryInterface(const char* szIid, void** ppObject) override;
    uint32_t ExitCode() override;
    long GetPid() override { return m_lPid; }

protected:
    LaunchWaiterImpl(long lPid, const ShutdownSignal& shutdown) : m_lPid(lPid), m_shutdown(shutdown) {}
    bool WaitMain(long lTimeout) override;
    bool WaitNoShutdown(long lTimeout) override;
    // Waits for the process, and for m_shutdown when bCheckShutdown; true when the process
    // ended, false on time-out, QZError 1199 on shutdown.
    virtual bool WaitI(long lTimeout, bool bCheckShutdown) = 0;
    // A zero wait: false while the process runs, else true with its exit code.
    virtual bool TryGetExitCode(uint32_t* pnExitCode) = 0;

    long m_lPid;
    // The signal this waiter watches; it outlives the waiter.
    const ShutdownSignal& m_shutdown;
};

}  // namespace QZSTD
