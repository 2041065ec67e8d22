// POSIX side of the standard launcher: posix_spawn, a pidfd polled beside the shutdown eventfd.
#include "std/process/launch_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cwctype>
#include <thread>
#include <vector>

#include "std/cmdline.h"
#include "std/process/launch.h"
#include "std/process/launchwaiterimpl.h"
#include "std/shutdown.h"
#include "std/strconv.h"
#include "std/trace.h"

extern char** environ;

namespace QZSTD::Posix {
namespace {

// Slice of the fallback loop for kernels without pidfd_open.
constexpr long FALLBACK_SLICE_MS = 5;

std::string DevicePath(const std::wstring& wstr)
{
    if (wstr.empty())
        return "/dev/null";
    if (wstr.size() == 3 && std::towupper(wstr[0]) == L'N' && std::towupper(wstr[1]) == L'U' &&
        std::towupper(wstr[2]) == L'L')
        return "/dev/null";
    return WideToUtf8(wstr);
}

class SpawnActions
{
public:
    SpawnActions()
    {
        posix_spawn_file_actions_init(&m_fa);
        posix_spawnattr_init(&m_attr);
    }
    ~SpawnActions()
    {
        posix_spawn_file_actions_destroy(&m_fa);
        posix_spawnattr_destroy(&m_attr);
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    posix_spawn_file_actions_t m_fa;
    posix_spawnattr_t m_attr;
};

void Check(int nRc)
{
    if (nRc != 0)
        QZ_THROW_SYSTEM_CODE(nRc);
}

}  // namespace

pid_t Spawn(const SpawnRequest& req)
{
    std::vector<std::string> vecArgs;
    for (const std::wstring& wstrArg : SplitCommandLine(req.wstrCommandLine))
        vecArgs.push_back(WideToUtf8(wstrArg));
    QZ_CHECK_ARG(!vecArgs.empty() && !vecArgs[0].empty(), "szCommandline");
    std::vector<char*> vecArgv;
    for (std::string& str : vecArgs)
        vecArgv.push_back(str.data());
    vecArgv.push_back(nullptr);

    std::vector<std::wstring> vecInherited;
    for (char** pp = environ; pp && *pp; ++pp)
        vecInherited.push_back(Utf8ToWide(*pp));
    std::vector<std::string> vecEnv;
    for (const std::wstring& wstr : MergeEnvironment(vecInherited, req.pEnvironmentAddition, false))
        vecEnv.push_back(WideToUtf8(wstr));
    std::vector<char*> vecEnvp;
    for (std::string& str : vecEnv)
        vecEnvp.push_back(str.data());
    vecEnvp.push_back(nullptr);

    SpawnActions sa;
    const std::string strIn = DevicePath(req.wstrStdIn);
    const std::string strOut = DevicePath(req.wstrStdOut);
    const std::string strErr = DevicePath(req.wstrStdErr);
    constexpr int OUT_FLAGS = O_WRONLY | O_CREAT | O_TRUNC;
    Check(posix_spawn_file_actions_addopen(&sa.m_fa, 0, strIn.c_str(), O_RDONLY, 0));
    Check(posix_spawn_file_actions_addopen(&sa.m_fa, 1, strOut.c_str(), OUT_FLAGS, 0644));
    if (strErr == strOut)
        Check(posix_spawn_file_actions_adddup2(&sa.m_fa, 1, 2));
    else
        Check(posix_spawn_file_actions_addopen(&sa.m_fa, 2, strErr.c_str(), OUT_FLAGS, 0644));
    if (!req.wstrCurDir.empty())
        Check(posix_spawn_file_actions_addchdir_np(&sa.m_fa, WideToUtf8(req.wstrCurDir).c_str()));
    if (req.bNewProcessGroup) {
        Check(posix_spawnattr_setpgroup(&sa.m_attr, 0));
        Check(posix_spawnattr_setflags(&sa.m_attr, POSIX_SPAWN_SETPGROUP));
    }
    pid_t pid = 0;
    Check(posix_spawnp(&pid, vecArgv[0], &sa.m_fa, &sa.m_attr, vecArgv.data(), vecEnvp.data()));
    return pid;
}

uint32_t ExitCodeFromStatus(int nStatus)
{
    if (WIFEXITED(nStatus))
        return static_cast<uint32_t>(WEXITSTATUS(nStatus));
    if (WIFSIGNALED(nStatus))
        return 128u + static_cast<uint32_t>(WTERMSIG(nStatus));
    return static_cast<uint32_t>(nStatus);
}

ChildProcess::ChildProcess(pid_t pid) : m_pid(pid)
{
    m_fdPid = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (m_fdPid < 0) {
        if (errno != ENOSYS)
            QZ_THROW_SYSTEM();
        m_fdPid = -1;
    } else {
        ::fcntl(m_fdPid, F_SETFD, FD_CLOEXEC);
    }
}

ChildProcess::~ChildProcess()
{
    if (m_fdPid >= 0) {
        const int nErr = errno;
        ::close(m_fdPid);
        errno = nErr;
    }
}

bool ChildProcess::HasExited()
{
    if (m_bExited)
        return true;
    int nStatus = 0;
    const pid_t r = ::waitpid(m_pid, &nStatus, WNOHANG);
    if (r < 0)
        QZ_THROW_SYSTEM();
    if (r == 0)
        return false;
    m_bExited = true;
    m_nExitCode = ExitCodeFromStatus(nStatus);
    return true;
}

WaitEvent ChildProcess::Wait(long nTimeoutMs, const ShutdownSignal* pShutdown)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point tpStart = Clock::now();
    for (;;) {
        if (HasExited())
            return WaitEvent::EXITED;
        if (pShutdown && pShutdown->IsRaised())
            return WaitEvent::SHUTDOWN;
        long nLeft = -1;
        if (nTimeoutMs >= 0) {
            const long long nElapsed =
                std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - tpStart).count();
            if (nElapsed >= nTimeoutMs)
                return WaitEvent::TIMEOUT;
            nLeft = static_cast<long>(nTimeoutMs - nElapsed);
        }
        if (m_fdPid < 0) {
            const long nSlice = nLeft < 0 ? FALLBACK_SLICE_MS : std::min(nLeft, FALLBACK_SLICE_MS);
            std::this_thread::sleep_for(std::chrono::milliseconds(nSlice));
            continue;
        }
        pollfd fds[2] = {{m_fdPid, POLLIN, 0}, {pShutdown ? pShutdown->Fd() : -1, POLLIN, 0}};
        const int r = ::poll(fds, 2, nLeft < 0 ? -1 : static_cast<int>(std::min(nLeft, 1L << 30)));
        if (r < 0 && errno != EINTR)
            QZ_THROW_STD(Err::WAIT_FAILURE);
        // Going round the loop tells apart which one fired, and re-checks the time.
    }
}

}  // namespace QZSTD::Posix

namespace QZSTD {
namespace {

class LaunchWaiterPosix : public LaunchWaiterImpl
{
public:
    LaunchWaiterPosix(pid_t pid, const ShutdownSignal& shutdown)
        : LaunchWaiterImpl(static_cast<long>(pid), shutdown), m_child(pid)
    {
    }

protected:
    bool WaitI(long lTimeout, bool bCheckShutdown) override
    {
        QZ_TRACE_SCOPE("QZSTD", "QZSTD::LaunchWaiterImpl::WaitI");
        switch (m_child.Wait(lTimeout, bCheckShutdown ? &m_shutdown : nullptr)) {
            case Posix::WaitEvent::EXITED:
                QZ_TRACE_I(L"%hs: the process finished", QZ_SCOPE_NAME);
                return true;
            case Posix::WaitEvent::SHUTDOWN:
                QZ_TRACE_I(L"%hs: the shutdown flag set", QZ_SCOPE_NAME);
                QZ_THROW_STD(Err::SHUTDOWN);
            case Posix::WaitEvent::TIMEOUT:
                break;
        }
        QZ_TRACE_I(L"%hs: timeout expired", QZ_SCOPE_NAME);
        return false;
    }
    bool TryGetExitCode(uint32_t* pnExitCode) override
    {
        if (!m_child.HasExited())
            return false;
        *pnExitCode = m_child.ExitCode();
        return true;
    }

private:
    Posix::ChildProcess m_child;
};

}  // namespace
}  // namespace QZSTD

void QZSTD_LaunchAsync(const wchar_t* szCommandline, const wchar_t* szCurDir, const wchar_t* szStdOut,
                       const wchar_t* szStdErr, const wchar_t* szStdIn, QZPAR::Params* pEnvironmentAddition,
                       QZSTD::LaunchWaiter** ppLaunchWaiter, const QZSTD::ShutdownSignal* pShutdown)
{
    QZ_TRACE_SCOPE("QZSTD", "QZSTD_LaunchAsync");
    QZ_ASSERT(szCommandline);
    QZ_ASSERT(ppLaunchWaiter);
    QZ_ASSERT(*ppLaunchWaiter == nullptr);
    const QZSTD::ShutdownSignal& shutdown = pShutdown ? *pShutdown : QZSTD::ProcessShutdown();
    shutdown.ThrowIfRaised();
    QZSTD::Posix::SpawnRequest req;
    req.wstrCommandLine = szCommandline;
    req.wstrCurDir = szCurDir ? szCurDir : L"";
    req.wstrStdOut = szStdOut ? szStdOut : L"";
    req.wstrStdErr = szStdErr ? szStdErr : L"";
    req.wstrStdIn = szStdIn ? szStdIn : L"";
    req.pEnvironmentAddition = pEnvironmentAddition;
    QZ_TRACE_I(L"%hs: CommandLine: '%ls', szCurDir:'%ls'", QZ_SCOPE_NAME, req.wstrCommandLine,
               req.wstrCurDir);
    const pid_t pid = QZSTD::Posix::Spawn(req);
    QZ_TRACE_I(L"%hs: started Pid=%ld", QZ_SCOPE_NAME, static_cast<long>(pid));
    *ppLaunchWaiter = new QZSTD::RcClassImpl<QZSTD::LaunchWaiterPosix>(pid, shutdown);
}
