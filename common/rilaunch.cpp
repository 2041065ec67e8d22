// Operating-system independent parts of the agent's launcher: the job waiter's loop, the decisions and
// the texts of the result scripts. Nothing here may include a system header.
#include <algorithm>
#include <chrono>

#include "common/rilaunch.h"
#include "common/rilaunch_impl.h"
#include "common/ristrutils.h"
#include "std/cmdline.h"
#include "std/shutdown.h"
#include "std/trace.h"

namespace QZRI {
namespace {

const char* WaitModeName(int nMode)
{
    switch (nMode) {
        case WAIT_PROCESS_ONLY:
            return "WAIT_PROCESS_ONLY";
        case WAIT_WHOLE_JOB:
            return "WAIT_WHOLE_JOB";
        case WAIT_LISTED_IMAGES:
            return "WAIT_LISTED_IMAGES";
        default:
            return "WAIT_MODE_UNKNOWN";
    }
}

class LaunchJobWaiterImpl : public QZSTD::LaunchWaiter
{
public:
    LaunchJobWaiterImpl(std::unique_ptr<Detail::JobTarget> pTarget, int nWaitMode,
                        std::vector<std::wstring> vecImages, const QZSTD::ShutdownSignal& shutdown)
        : m_pTarget(std::move(pTarget)),
          m_vecWaitImages(std::move(vecImages)),
          m_nWaitMode(nWaitMode),
          m_shutdown(shutdown)
    {
    }

    bool QueryInterface(const char* szIid, void** ppObject) override
    {
        QZ_ASSERT(ppObject);
        const std::string_view sv = szIid ? szIid : "";
        if (sv != "QZSTD::QZBaseQI" && sv != QZSTD::LaunchWaiter::QZ_IID)
            return false;
        *ppObject = static_cast<QZSTD::LaunchWaiter*>(this);
        AddRef();
        return true;
    }

    bool Wait(long lTimeout) override
    {
        QZ_TRACE_SCOPE("QZRI", "LaunchJobWaiterImpl::Wait");
        QZ_ASSERT(lTimeout == -1 || lTimeout >= 0);
        QZ_TRACE_D(L"%hs: lTimeout=%ld, mode %hs (%d)", QZ_SCOPE_NAME, lTimeout, WaitModeName(m_nWaitMode),
                   m_nWaitMode);
        const Clock::time_point tpStart = Clock::now();
        for (;;) {
            const Detail::SliceResult res = m_pTarget->WaitProcess(Slice(lTimeout, tpStart));
            m_shutdown.ThrowIfRaised();
            if (res == Detail::SliceResult::SHUTDOWN)
                QZ_THROW_STD(QZSTD::Err::SHUTDOWN);
            if (res == Detail::SliceResult::EXITED)
                break;
            if (TimedOut(lTimeout, tpStart))
                return false;
        }
        // The first pauses are short and double up to a slice: what the program leaves is often gone
        // within milliseconds.
        long nPauseMs = JOB_FIRST_PAUSE_MS;
        for (;;) {
            if (!m_pTarget->HasJob() || m_nWaitMode == WAIT_PROCESS_ONLY)
                return true;
            if (!m_pTarget->JobHasActiveProcesses() || OnlyConsoleHostsLeft())
                return true;
            if (m_nWaitMode == WAIT_LISTED_IMAGES && !RunsListedImage())
                return true;
            // Mode 2 sleeps as well: the job is polled, and a listed installer may run for an hour.
            m_pTarget->SleepSlice(std::min(nPauseMs, Slice(lTimeout, tpStart)));
            nPauseMs = std::min(nPauseMs * 2, JOB_WAIT_SLICE_MS);
            m_shutdown.ThrowIfRaised();
            if (TimedOut(lTimeout, tpStart))
                return false;
        }
    }

    // What is still alive of the started program's tree: the job's processes, or the program alone.
    std::wstring DescribeRunning()
    {
        std::wstring wstrOut;
        if (!m_pTarget->HasJob()) {
            uint32_t nCode = 0;
            return m_pTarget->TryGetExitCode(&nCode) ? std::wstring()
                                                     : L"pid " + std::to_wstring(m_pTarget->Pid());
        }
        for (const Detail::JobProcess& process : m_pTarget->ListJobProcesses())
            wstrOut += (wstrOut.empty() ? L"" : L", ") + process.wstrImage + L" (pid " +
                       std::to_wstring(process.nPid) + L")";
        return wstrOut;
    }

    uint32_t ExitCode() override
    {
        QZ_TRACE_SCOPE("QZRI", "LaunchJobWaiterImpl::ExitCode");
        QZ_TRACE_I(L"%hs: Pid=%ld", QZ_SCOPE_NAME, m_pTarget->Pid());
        uint32_t nExitCode = 0;
        if (!m_pTarget->TryGetExitCode(&nExitCode))
            QZ_THROW_STD(QZSTD::Err::UNSUPPORTED);
        QZ_TRACE_I(L"ExitCode is 0x%X for Pid=%ld", nExitCode, m_pTarget->Pid());
        return nExitCode;
    }

private:
    using Clock = std::chrono::steady_clock;

    // The console host of the program's own console ends with that console and is no part of what
    // the program installs: waiting for it cost every setup run up to a few hundred milliseconds.
    bool OnlyConsoleHostsLeft()
    {
        const std::vector<Detail::JobProcess> vecLeft = m_pTarget->ListJobProcesses();
        return !vecLeft.empty() &&
               std::all_of(vecLeft.begin(), vecLeft.end(), [](const Detail::JobProcess& p) {
                   return Detail::IsListedImage(p.wstrImage, {CONSOLE_HOST_IMAGE});
               });
    }

    bool RunsListedImage()
    {
        QZ_TRACE_SCOPE("QZRI", "LaunchJobWaiterImpl::Wait");
        for (const Detail::JobProcess& process : m_pTarget->ListJobProcesses()) {
            if (Detail::IsListedImage(process.wstrImage, m_vecWaitImages)) {
                QZ_TRACE_D(L"%hs: %ls is still running, Pid=%ld", QZ_SCOPE_NAME, process.wstrImage,
                           process.nPid);
                return true;
            }
        }
        return false;
    }

    static long Elapsed(Clock::time_point tpStart)
    {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - tpStart).count());
    }
    static bool TimedOut(long lTimeout, Clock::time_point tpStart)
    {
        return lTimeout >= 0 && Elapsed(tpStart) >= lTimeout;
    }
    // One slice, or what is left of the time-out when that is shorter.
    static long Slice(long lTimeout, Clock::time_point tpStart)
    {
        if (lTimeout < 0)
            return JOB_WAIT_SLICE_MS;
        return std::max(0L, std::min(JOB_WAIT_SLICE_MS, lTimeout - Elapsed(tpStart)));
    }

    std::unique_ptr<Detail::JobTarget> m_pTarget;
    std::vector<std::wstring> m_vecWaitImages;
    int m_nWaitMode;
    const QZSTD::ShutdownSignal& m_shutdown;
};

std::wstring ShellQuote(const std::wstring& wstr)
{
    std::wstring wstrOut = L"'";
    for (wchar_t ch : wstr) {
        if (ch == L'\'')
            wstrOut += L"'\\''";
        else
            wstrOut += ch;
    }
    return wstrOut + L"'";
}

}  // namespace

namespace Detail {

QZSTD::LaunchWaiter* CreateJobWaiter(std::unique_ptr<JobTarget> pTarget, int nWaitMode,
                                     std::vector<std::wstring> vecImages,
                                     const QZSTD::ShutdownSignal& shutdown)
{
    if (nWaitMode == WAIT_MODE_RESERVED)
        QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
    return new QZSTD::RcClassImpl<LaunchJobWaiterImpl>(std::move(pTarget), nWaitMode, std::move(vecImages),
                                                       shutdown);
}

const QZSTD::ShutdownSignal& ShutdownOf(const LaunchOptions& options)
{
    return options.m_pShutdown ? *options.m_pShutdown : QZSTD::ProcessShutdown();
}

std::wstring BeginLaunch(const LaunchOptions& options, QZSTD::LaunchWaiter** ppLaunchWaiter)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::LaunchAsync");
    ShutdownOf(options).ThrowIfRaised();
    QZ_ASSERT(ppLaunchWaiter);
    QZ_ASSERT(*ppLaunchWaiter == nullptr);
    const int nWaitMode = options.m_nWaitMode;
    if (nWaitMode == WAIT_MODE_RESERVED)
        QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
    QZ_CHECK_ARG(nWaitMode >= WAIT_PROCESS_ONLY && nWaitMode <= WAIT_LISTED_IMAGES, "nWaitMode");
    QZ_CHECK_ARG(!options.m_wstrCommandLine.empty(), "wstrCommandLine");
    const std::wstring wstrErr = options.m_wstrStdErr.empty() ? L"NUL" : options.m_wstrStdErr;
    QZ_TRACE_I(L"CommandLine: '%ls', szCurDir:'%ls'\n", MaskPasswords(options.m_wstrCommandLine),
               options.m_wstrCurDir);
    QZ_TRACE_I(L"szStdOut: '%ls', szStdErr:'%ls', szStdIn:'%ls'\n", L"NUL", wstrErr, L"NUL");
    return wstrErr;
}

void TraceApplication(const std::wstring& wstrApp, const std::wstring& wstrCmd,
                      const std::wstring& wstrCurDir)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::LaunchAsync");
    QZ_TRACE_I(L"App: %ls, CommandLine: '%ls', szCurDir:'%ls'\n", wstrApp.empty() ? L"NULL" : wstrApp.c_str(),
               MaskPasswords(wstrCmd), wstrCurDir);
}

bool SameImageName(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        wchar_t x = a[i], y = b[i];
        if (x >= L'A' && x <= L'Z')
            x = static_cast<wchar_t>(x - L'A' + L'a');
        if (y >= L'A' && y <= L'Z')
            y = static_cast<wchar_t>(y - L'A' + L'a');
        if (x != y)
            return false;
    }
    return true;
}

bool IsListedImage(const std::wstring& wstrImage, const std::vector<std::wstring>& vecImages)
{
    for (const std::wstring& wstrListed : vecImages)
        if (SameImageName(wstrImage, wstrListed))
            return true;
    return false;
}

std::wstring FileNamePart(const std::wstring& wstrPath)
{
    const size_t nPos = wstrPath.find_last_of(L"\\/");
    return nPos == std::wstring::npos ? wstrPath : wstrPath.substr(nPos + 1);
}

}  // namespace Detail

std::wstring DescribeRunningProcesses(QZSTD::LaunchWaiter* pWaiter)
{
    auto* pJobWaiter = dynamic_cast<LaunchJobWaiterImpl*>(pWaiter);
    return pJobWaiter ? pJobWaiter->DescribeRunning() : std::wstring();
}

AccountName SplitUserName(const std::wstring& wstrUserName)
{
    const size_t nBackslash = wstrUserName.find(L'\\');
    if (nBackslash != std::wstring::npos)
        return {wstrUserName.substr(nBackslash + 1), wstrUserName.substr(0, nBackslash)};
    const size_t nAt = wstrUserName.find(L'@');
    if (nAt != std::wstring::npos)
        return {wstrUserName.substr(0, nAt), wstrUserName.substr(nAt + 1)};
    return {wstrUserName, L""};
}

bool ShouldBreakAwayFromJob(bool bAgentInJob, uint32_t nJobLimitFlags)
{
    constexpr uint32_t LIMIT_BREAKAWAY_OK = 0x800;
    return !bAgentInJob || (nJobLimitFlags & LIMIT_BREAKAWAY_OK) != 0;
}

std::wstring BuildResultBatchScript(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                                    const std::wstring& wstrResultFile)
{
    std::wstring wstr = L"echo off\r\n";
    if (!wstrCurDir.empty())
        wstr += L"cd \"" + wstrCurDir + L"\"\r\n";
    wstr += L"call " + wstrCommandLine + L"\r\n";
    wstr += L"set cmd_proc_rslt=%errorLevel%\r\n";
    const std::wstring wstrFile = L"\"" + wstrResultFile + L"\"";
    wstr += L"echo [cmd_proc_rslt] > " + wstrFile + L"\r\n";
    wstr += L"echo result=%cmd_proc_rslt% >> " + wstrFile + L"\r\n";
    wstr += L"echo ready=1 >> " + wstrFile + L"\r\n";
    return wstr;
}

std::wstring BuildResultShellScript(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                                    const std::wstring& wstrResultFile)
{
    std::wstring wstr = L"#!/bin/sh\n";
    if (!wstrCurDir.empty())
        wstr += L"cd " + ShellQuote(wstrCurDir) + L"\n";
    std::wstring wstrWords;
    for (const std::wstring& wstrArg : QZSTD::SplitCommandLine(wstrCommandLine))
        wstrWords += (wstrWords.empty() ? L"" : L" ") + ShellQuote(wstrArg);
    wstr += wstrWords + L"\n";
    wstr += L"cmd_proc_rslt=$?\n";
    const std::wstring wstrFile = ShellQuote(wstrResultFile);
    wstr += L"echo '[cmd_proc_rslt]' > " + wstrFile + L"\n";
    wstr += L"echo \"result=$cmd_proc_rslt\" >> " + wstrFile + L"\n";
    wstr += L"echo ready=1 >> " + wstrFile + L"\n";
    return wstr;
}

}  // namespace QZRI
