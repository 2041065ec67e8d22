// POSIX side of the agent's launcher: posix_spawn into a new process group that stands in for the job.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "common/rilaunch.h"
#include "common/rilaunch_impl.h"
#include "std/cmdline.h"
#include "std/par/dump.h"
#include "std/process/launch_posix.h"
#include "std/shutdown.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

// A process of the group, from /proc/<pid>/stat: "pid (comm) state ppid pgrp ...". comm may hold
// spaces and parentheses, so the fields are read after the last ')'.
bool ReadStat(const std::string& strPid, char* pcState, pid_t* pPgrp)
{
    std::ifstream in("/proc/" + strPid + "/stat");
    std::string strLine;
    if (!std::getline(in, strLine))
        return false;
    const size_t nClose = strLine.rfind(')');
    if (nClose == std::string::npos || nClose + 2 >= strLine.size())
        return false;
    long lPpid = 0, lPgrp = 0;
    char cState = 0;
    if (std::sscanf(strLine.c_str() + nClose + 2, "%c %ld %ld", &cState, &lPpid, &lPgrp) != 3)
        return false;
    *pcState = cState;
    *pPgrp = static_cast<pid_t>(lPgrp);
    return true;
}

std::wstring ImageName(const std::string& strPid)
{
    char sz[4096];
    const ssize_t n = ::readlink(("/proc/" + strPid + "/exe").c_str(), sz, sizeof(sz) - 1);
    if (n > 0) {
        sz[n] = 0;
        std::string str(sz);
        // A deleted image reads "/path/name (deleted)".
        const std::string strDeleted = " (deleted)";
        if (str.size() > strDeleted.size() &&
            str.compare(str.size() - strDeleted.size(), strDeleted.size(), strDeleted) == 0)
            str.resize(str.size() - strDeleted.size());
        return Detail::FileNamePart(QZSTD::Utf8ToWide(str));
    }
    std::ifstream in("/proc/" + strPid + "/comm");
    std::string strComm;
    std::getline(in, strComm);
    return QZSTD::Utf8ToWide(strComm);
}

class GroupTarget : public Detail::JobTarget
{
public:
    GroupTarget(pid_t pid, const QZSTD::ShutdownSignal& shutdown) : m_child(pid), m_shutdown(shutdown) {}

    long Pid() const override { return static_cast<long>(m_child.Pid()); }
    Detail::SliceResult WaitProcess(long nMs) override
    {
        switch (m_child.Wait(nMs, &m_shutdown)) {
            case QZSTD::Posix::WaitEvent::EXITED:
                return Detail::SliceResult::EXITED;
            case QZSTD::Posix::WaitEvent::SHUTDOWN:
                return Detail::SliceResult::SHUTDOWN;
            case QZSTD::Posix::WaitEvent::TIMEOUT:
                break;
        }
        return Detail::SliceResult::TIMEOUT;
    }
    void SleepSlice(long nMs) override
    {
        pollfd fd = {m_shutdown.Fd(), POLLIN, 0};
        ::poll(&fd, 1, static_cast<int>(nMs));
    }
    bool HasJob() const override { return true; }
    bool JobHasActiveProcesses() override { return !ListGroup().empty(); }
    std::vector<Detail::JobProcess> ListJobProcesses() override
    {
        std::vector<Detail::JobProcess> vecProcesses;
        for (const std::string& strPid : ListGroup())
            vecProcesses.push_back({std::stol(strPid), ImageName(strPid)});
        return vecProcesses;
    }
    bool TryGetExitCode(uint32_t* pnExitCode) override
    {
        if (!m_child.HasExited())
            return false;
        *pnExitCode = m_child.ExitCode();
        return true;
    }

private:
    // Live members of the group: zombies have ended, they only wait for a parent that may never reap
    // them (a container's first process often does not).
    std::vector<std::string> ListGroup()
    {
        std::vector<std::string> vecPids;
        DIR* pDir = ::opendir("/proc");
        if (!pDir)
            QZ_THROW_SYSTEM();
        while (dirent* pEnt = ::readdir(pDir)) {
            const std::string strName = pEnt->d_name;
            if (strName.empty() || strName.find_first_not_of("0123456789") != std::string::npos)
                continue;
            char cState = 0;
            pid_t pgrp = 0;
            if (ReadStat(strName, &cState, &pgrp) && pgrp == m_child.Pid() && cState != 'Z' && cState != 'X')
                vecPids.push_back(strName);
        }
        ::closedir(pDir);
        return vecPids;
    }

    QZSTD::Posix::ChildProcess m_child;
    const QZSTD::ShutdownSignal& m_shutdown;
};

}  // namespace

void LaunchAsync(const LaunchOptions& options, QZSTD::LaunchWaiter** ppLaunchWaiter)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::LaunchAsync");
    const std::wstring wstrErr = Detail::BeginLaunch(options, ppLaunchWaiter);
    if (!options.m_wstrUser.empty()) {
        // There is no logon here: refuse rather than run the program as the agent's own user.
        QZ_THROW_STD(QZSTD::Err::UNSUPPORTED, L"unsupported on this operating system");
    }
    const QZSTD::ShutdownSignal& shutdown = Detail::ShutdownOf(options);
    QZSTD::Posix::SpawnRequest req;
    req.wstrCommandLine = options.m_bUseCmd
                              ? L"/bin/sh -c " + QZSTD::QuoteCommandLineArg(options.m_wstrCommandLine)
                              : options.m_wstrCommandLine;
    Detail::TraceApplication(options.m_bUseCmd ? L"/bin/sh" : L"", req.wstrCommandLine, options.m_wstrCurDir);
    if (options.m_pEnvironmentAddition) {
        QZ_TRACE_I(L"pEnvironmentAddition described below\n");
        QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(options.m_pEnvironmentAddition));
    }
    req.wstrCurDir = options.m_wstrCurDir;
    req.wstrStdErr = wstrErr;
    req.pEnvironmentAddition = options.m_pEnvironmentAddition;
    req.bNewProcessGroup = true;
    const pid_t pid = QZSTD::Posix::Spawn(req);
    *ppLaunchWaiter = Detail::CreateJobWaiter(std::make_unique<GroupTarget>(pid, shutdown),
                                              options.m_nWaitMode, options.m_vecWaitImages, shutdown);
}

std::wstring ScriptCommandLine(const std::wstring& wstrScriptPath)
{
    return QZSTD::QuoteCommandLineArg(wstrScriptPath);
}

std::wstring WrapCommandLineToStoreProcessResult(const std::wstring& wstrCommandLine,
                                                 const std::wstring& wstrCurDir,
                                                 const std::wstring& wstrFolder,
                                                 const std::wstring& wstrResultFile)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::WrapCommandLineToStoreProcessResult");
    const std::wstring wstrScript = BuildResultShellScript(wstrCommandLine, wstrCurDir, wstrResultFile);
    const std::string strBytes = QZSTD::WideToUtf8(wstrScript);
    std::wstring wstrPath;
    for (unsigned n = 0;; ++n) {
        wstrPath =
            wstrFolder + L"/qzprocrslt_" + std::to_wstring(::getpid()) + L"_" + std::to_wstring(n) + L".sh";
        const int fd =
            ::open(QZSTD::WideToUtf8(wstrPath).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0755);
        if (fd < 0) {
            if (errno == EEXIST && n < 10000)
                continue;
            QZ_THROW_SYSTEM();
        }
        const ssize_t nWritten = ::write(fd, strBytes.data(), strBytes.size());
        const int nErr = errno;
        ::close(fd);
        if (nWritten != static_cast<ssize_t>(strBytes.size()))
            QZ_THROW_SYSTEM_CODE(nWritten < 0 ? nErr : EIO);
        break;
    }
    QZ_TRACE_I(L"Cmd file path: %ls\n", wstrPath);
    QZ_TRACE_I(L"Script:\n%ls\n", wstrScript);
    return wstrPath;
}

}  // namespace QZRI
