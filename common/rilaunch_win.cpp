// Windows side of the agent's launcher: a suspended start, a job object of the program's own, and the
// credentials path (logon, primary token, CreateProcessAsUserW under impersonation).
#include <windows.h>

#include "common/impersonation.h"
#include "common/rilaunch.h"
#include "common/rilaunch_impl.h"
#include "common/win32_handlelist.h"
#include "std/par/dump.h"
#include "std/process/launch_win.h"
#include "std/shutdown.h"
#include "std/trace.h"
#include "std/win/scopedhandle.h"

namespace QZRI {
namespace {

using QZSTD::Win::ScopedHandle;

// CREATE_SUSPENDED | CREATE_NEW_CONSOLE | NORMAL_PRIORITY_CLASS | CREATE_UNICODE_ENVIRONMENT
constexpr DWORD BASE_CREATION_FLAGS = 0x434;
// Room of the system directory buffer, as the system asks for it.
constexpr UINT SYSTEM_DIR_CHARS = 519;

class JobTargetWin : public Detail::JobTarget
{
public:
    JobTargetWin(HANDLE hProcess, DWORD dwPid, const QZSTD::ShutdownSignal& shutdown)
        : m_dwPid(dwPid), m_shutdown(shutdown)
    {
        QZ_TRACE_SCOPE("QZRI", "LaunchJobWaiterImpl::LaunchJobWaiterImpl");
        HANDLE hDup = nullptr;
        if (!::DuplicateHandle(::GetCurrentProcess(), hProcess, ::GetCurrentProcess(), &hDup, 0, FALSE,
                               DUPLICATE_SAME_ACCESS))
            QZ_THROW_SYSTEM();
        m_hProcess.Reset(hDup);
        BOOL bInJob = FALSE;
        if (!::IsProcessInJob(m_hProcess.Get(), nullptr, &bInJob))
            QZ_THROW_SYSTEM();
        if (bInJob) {
            // It inherited the agent's job (no breakaway): a second job cannot be trusted to hold it.
            QZ_TRACE_W(L"Process already in job. Can't handle process tree\n");
            return;
        }
        ScopedHandle hJob(::CreateJobObjectW(nullptr, nullptr));
        if (!hJob.IsValid())
            QZ_THROW_SYSTEM();
        // Only BREAKAWAY_OK: grandchildren may leave on their own, and with no kill-on-close, closing
        // the job handle (the waiter's end) never ends the setup program or what it started.
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION info = {};
        info.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_BREAKAWAY_OK;
        if (!::SetInformationJobObject(hJob.Get(), JobObjectExtendedLimitInformation, &info, sizeof(info)))
            QZ_THROW_SYSTEM();
        if (!::AssignProcessToJobObject(hJob.Get(), m_hProcess.Get()))
            QZ_THROW_SYSTEM();
        m_hJob = std::move(hJob);
    }

    long Pid() const override { return static_cast<long>(m_dwPid); }

    Detail::SliceResult WaitProcess(long nMs) override
    {
        QZ_TRACE_SCOPE("QZRI", "LaunchJobWaiterImpl::Wait");
        HANDLE vecHandles[2] = {m_hProcess.Get(), static_cast<HANDLE>(m_shutdown.Event())};
        const DWORD dwWait = ::WaitForMultipleObjects(2, vecHandles, FALSE, static_cast<DWORD>(nMs));
        if (dwWait == WAIT_OBJECT_0)
            return Detail::SliceResult::EXITED;
        if (dwWait == WAIT_OBJECT_0 + 1)
            return Detail::SliceResult::SHUTDOWN;
        if (dwWait == WAIT_TIMEOUT)
            return Detail::SliceResult::TIMEOUT;
        QZ_TRACE_E(L"%hs: WaitForMultipleObjects returned 0x%X", QZ_SCOPE_NAME, dwWait);
        QZ_THROW_SYSTEM();
    }

    void SleepSlice(long nMs) override
    {
        if (::WaitForSingleObject(static_cast<HANDLE>(m_shutdown.Event()), static_cast<DWORD>(nMs)) ==
            WAIT_FAILED)
            QZ_THROW_SYSTEM();
    }

    bool HasJob() const override { return m_hJob.IsValid(); }

    bool JobHasActiveProcesses() override
    {
        JOBOBJECT_BASIC_ACCOUNTING_INFORMATION info = {};
        if (!::QueryInformationJobObject(m_hJob.Get(), JobObjectBasicAccountingInformation, &info,
                                         sizeof(info), nullptr))
            QZ_THROW_SYSTEM();
        return info.ActiveProcesses != 0;
    }

    std::vector<Detail::JobProcess> ListJobProcesses() override
    {
        QZ_TRACE_SCOPE("QZRI", "LaunchJobWaiterImpl::Wait");
        std::vector<Detail::JobProcess> vecProcesses;
        constexpr DWORD MAX_IDS = 1024;
        std::vector<unsigned char> vecBuf(sizeof(JOBOBJECT_BASIC_PROCESS_ID_LIST) +
                                          MAX_IDS * sizeof(ULONG_PTR));
        auto* pList = reinterpret_cast<JOBOBJECT_BASIC_PROCESS_ID_LIST*>(vecBuf.data());
        pList->NumberOfAssignedProcesses = MAX_IDS;
        if (!::QueryInformationJobObject(m_hJob.Get(), JobObjectBasicProcessIdList, pList,
                                         static_cast<DWORD>(vecBuf.size()), nullptr) &&
            ::GetLastError() != ERROR_MORE_DATA)
            QZ_THROW_SYSTEM();
        for (DWORD i = 0; i < pList->NumberOfProcessIdsInList; ++i) {
            const DWORD dwPid = static_cast<DWORD>(pList->ProcessIdList[i]);
            ScopedHandle hProcess(::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, dwPid));
            wchar_t szPath[MAX_PATH * 4] = {};
            DWORD dwChars = MAX_PATH * 4;
            if (!hProcess.IsValid() || !::QueryFullProcessImageNameW(hProcess.Get(), 0, szPath, &dwChars)) {
                QZ_TRACE_W(L"Last error code: %d", static_cast<int>(::GetLastError()));
                continue;
            }
            vecProcesses.push_back({static_cast<long>(dwPid), Detail::FileNamePart(szPath)});
        }
        return vecProcesses;
    }

    bool TryGetExitCode(uint32_t* pnExitCode) override
    {
        return QZSTD::Win::TryGetProcessExitCode(m_hProcess.Get(), pnExitCode);
    }

private:
    ScopedHandle m_hProcess;
    ScopedHandle m_hJob;
    DWORD m_dwPid;
    const QZSTD::ShutdownSignal& m_shutdown;
};

// Whether the program may break away from the job the agent runs in (a process in no job may).
bool AgentMayBreakAway()
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::LaunchAsync");
    BOOL bInJob = FALSE;
    if (!::IsProcessInJob(::GetCurrentProcess(), nullptr, &bInJob))
        QZ_THROW_SYSTEM();
    uint32_t nLimitFlags = 0;
    if (bInJob) {
        QZ_TRACE_I(L"Process is already in a job\n");
        JOBOBJECT_EXTENDED_LIMIT_INFORMATION info = {};
        if (!::QueryInformationJobObject(nullptr, JobObjectExtendedLimitInformation, &info, sizeof(info),
                                         nullptr))
            QZ_THROW_SYSTEM();
        nLimitFlags = info.BasicLimitInformation.LimitFlags;
        if (!(nLimitFlags & JOB_OBJECT_LIMIT_BREAKAWAY_OK))
            QZ_TRACE_I(L"JOB_OBJECT_LIMIT_BREAKAWAY_OK is not set for a job\n");
    }
    return ShouldBreakAwayFromJob(bInJob != FALSE, nLimitFlags);
}

class SystemAccountCalls : public AccountCalls
{
public:
    bool LogOnUser(const AccountName& acc, const std::wstring& wstrPassword, void** phToken) override
    {
        HANDLE hToken = nullptr;
        const BOOL b = ::LogonUserW(acc.wstrUser.c_str(), acc.wstrDomain.c_str(), wstrPassword.c_str(),
                                    LOGON32_LOGON_NETWORK_CLEARTEXT, LOGON32_PROVIDER_DEFAULT, &hToken);
        *phToken = hToken;
        return b != FALSE;
    }
    bool RevertToSelf() override { return ::RevertToSelf() != FALSE; }
};

// A program created suspended, owned until it runs: a failure on the way (the job, the waiter, undoing
// the impersonation, the resume) ends it with exit code 3, because a suspended process would hang for
// ever holding its files, and closes its handles.
class SuspendedProcess
{
public:
    explicit SuspendedProcess(const PROCESS_INFORMATION& pi)
        : m_hProcess(pi.hProcess), m_hThread(pi.hThread), m_dwPid(pi.dwProcessId)
    {
    }
    SuspendedProcess(SuspendedProcess&&) = default;
    ~SuspendedProcess()
    {
        if (m_hThread.IsValid() && m_hProcess.IsValid()) {
            const DWORD dwErr = ::GetLastError();
            ::TerminateProcess(m_hProcess.Get(), 3);
            ::SetLastError(dwErr);
        }
    }
    HANDLE Process() const { return m_hProcess.Get(); }
    DWORD Pid() const { return m_dwPid; }
    void Resume()
    {
        if (::ResumeThread(m_hThread.Get()) == static_cast<DWORD>(-1))
            QZ_THROW_SYSTEM();
        m_hThread.Reset();
    }

private:
    ScopedHandle m_hProcess;
    ScopedHandle m_hThread;  // valid while the program is suspended
    DWORD m_dwPid;
};

// The arguments of the process creation that both paths share.
struct Creation
{
    std::wstring wstrApp;
    std::wstring wstrCmd;
    BOOL bInherit = FALSE;
    DWORD dwFlags = 0;
    std::vector<wchar_t> vecEnv;
    std::wstring wstrCurDir;
    STARTUPINFOW* pStartup = nullptr;

    const wchar_t* App() const { return wstrApp.empty() ? nullptr : wstrApp.c_str(); }
    void* Env() { return vecEnv.empty() ? nullptr : vecEnv.data(); }
    const wchar_t* CurDir() const { return wstrCurDir.empty() ? nullptr : wstrCurDir.c_str(); }
};

SuspendedProcess CreateDirect(Creation& c)
{
    PROCESS_INFORMATION pi = {};
    if (!::CreateProcessW(c.App(), c.wstrCmd.data(), nullptr, nullptr, c.bInherit, c.dwFlags, c.Env(),
                          c.CurDir(), c.pStartup, &pi))
        QZ_THROW_SYSTEM();
    return SuspendedProcess(pi);
}

// Logs on, creates the program on the account's primary token while impersonating it, and reverts.
// The keeper restores the thread's token however this ends.
SuspendedProcess CreateAsUser(Creation& c, const LaunchOptions& options, AccountCalls& calls)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::LaunchAsync");
    QZWAT::CImpersonationKeeper keeper;
    const AccountName acc = SplitUserName(options.m_wstrUser);
    QZ_TRACE_I(L"%hs: user '%ls', domain '%ls', password of %d characters", QZ_SCOPE_NAME, acc.wstrUser,
               acc.wstrDomain, static_cast<int>(options.m_wstrPassword.size()));
    void* pvToken = nullptr;
    if (!calls.LogOnUser(acc, options.m_wstrPassword, &pvToken))
        QZ_THROW_SYSTEM();
    ScopedHandle hToken(static_cast<HANDLE>(pvToken));
    HANDLE hRaw = nullptr;
    if (!::DuplicateTokenEx(hToken.Get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary,
                            &hRaw))
        QZ_THROW_SYSTEM();
    ScopedHandle hPrimary(hRaw);
    if (!::ImpersonateLoggedOnUser(hToken.Get()))
        QZ_THROW_SYSTEM();
    PROCESS_INFORMATION pi = {};
    if (!::CreateProcessAsUserW(hPrimary.Get(), c.App(), c.wstrCmd.data(), nullptr, nullptr, c.bInherit,
                                c.dwFlags, c.Env(), c.CurDir(), c.pStartup, &pi))
        QZ_THROW_SYSTEM();
    SuspendedProcess process(pi);
    if (!calls.RevertToSelf())
        QZ_THROW_SYSTEM();
    return process;
}

}  // namespace

void LaunchAsync(const LaunchOptions& options, QZSTD::LaunchWaiter** ppLaunchWaiter)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::LaunchAsync");
    const std::wstring wstrErr = Detail::BeginLaunch(options, ppLaunchWaiter);
    const QZSTD::ShutdownSignal& shutdown = Detail::ShutdownOf(options);

    Creation c;
    c.wstrCmd = options.m_wstrCommandLine;
    c.wstrCurDir = options.m_wstrCurDir;
    if (options.m_bUseCmd) {
        wchar_t szSysDir[SYSTEM_DIR_CHARS] = {};
        const UINT nLen = ::GetSystemDirectoryW(szSysDir, SYSTEM_DIR_CHARS);
        if (nLen == 0 || nLen >= SYSTEM_DIR_CHARS)
            QZ_THROW_SYSTEM();
        c.wstrApp = std::wstring(szSysDir) + L"\\cmd.exe";
        c.wstrCmd = L" /c " + options.m_wstrCommandLine;
    }
    Detail::TraceApplication(c.wstrApp, c.wstrCmd, c.wstrCurDir);
    if (options.m_pEnvironmentAddition) {
        QZ_TRACE_I(L"pEnvironmentAddition described below\n");
        QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(options.m_pEnvironmentAddition));
        c.vecEnv = QZSTD::Win::BuildEnvironmentBlock(options.m_pEnvironmentAddition);
    }

    ScopedHandle hOut = QZSTD::Win::OpenStdStream(L"NUL", true);
    ScopedHandle hErr = QZSTD::Win::OpenStdStream(wstrErr, true);
    ScopedHandle hIn = QZSTD::Win::OpenStdStream(L"NUL", false);
    std::vector<HANDLE> vecHandles;
    for (const ScopedHandle* p : {&hOut, &hErr, &hIn}) {
        if (p->IsValid())
            vecHandles.push_back(p->Get());
    }
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    QZSTD::CAutoPtr<QZSTD::ProcessHandleList> pHandleList;
    QZSTD::CreateProcessHandleList(&pHandleList);
    c.pStartup = &si;
    if (!vecHandles.empty()) {
        si.dwFlags |= STARTF_USESTDHANDLES;
        si.hStdOutput = hOut.Get();
        si.hStdError = hErr.Get();
        si.hStdInput = hIn.Get();
        c.bInherit = TRUE;
        if (STARTUPINFOEXW* pEx = pHandleList->GetHandleList(vecHandles, si))
            c.pStartup = &pEx->StartupInfo;
    }
    c.dwFlags = BASE_CREATION_FLAGS | pHandleList->GetCreationFlags();
    if (AgentMayBreakAway())
        c.dwFlags |= CREATE_BREAKAWAY_FROM_JOB;

    SystemAccountCalls systemCalls;
    SuspendedProcess process =
        options.m_wstrUser.empty()
            ? CreateDirect(c)
            : CreateAsUser(c, options, options.m_pAccountCalls ? *options.m_pAccountCalls : systemCalls);
    QZ_TRACE_I(L"%hs: created Pid=%lu suspended, flags 0x%X", QZ_SCOPE_NAME, process.Pid(), c.dwFlags);

    QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter = QZSTD::CAutoPtr<QZSTD::LaunchWaiter>::Adopt(
        Detail::CreateJobWaiter(std::make_unique<JobTargetWin>(process.Process(), process.Pid(), shutdown),
                                options.m_nWaitMode, options.m_vecWaitImages, shutdown));
    process.Resume();
    pHandleList->FreeHandleList();
    *ppLaunchWaiter = pWaiter.Detach();
}

std::wstring ScriptCommandLine(const std::wstring& wstrScriptPath)
{
    return L"\"\"" + wstrScriptPath + L"\"\"";
}

std::wstring WrapCommandLineToStoreProcessResult(const std::wstring& wstrCommandLine,
                                                 const std::wstring& wstrCurDir,
                                                 const std::wstring& wstrFolder,
                                                 const std::wstring& wstrResultFile)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::WrapCommandLineToStoreProcessResult");
    const std::wstring wstrScript = BuildResultBatchScript(wstrCommandLine, wstrCurDir, wstrResultFile);
    // cmd.exe reads a batch file in the OEM code page.
    std::string strBytes;
    if (!wstrScript.empty()) {
        const int nBytes =
            ::WideCharToMultiByte(CP_OEMCP, 0, wstrScript.data(), static_cast<int>(wstrScript.size()),
                                  nullptr, 0, nullptr, nullptr);
        strBytes.resize(static_cast<size_t>(nBytes));
        ::WideCharToMultiByte(CP_OEMCP, 0, wstrScript.data(), static_cast<int>(wstrScript.size()),
                              strBytes.data(), nBytes, nullptr, nullptr);
    }
    std::wstring wstrPath;
    ScopedHandle hFile;
    for (unsigned n = 0;; ++n) {
        wstrPath = wstrFolder + L"\\qzprocrslt_" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
                   std::to_wstring(n) + L".bat";
        hFile.Reset(::CreateFileW(wstrPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
        if (hFile.IsValid())
            break;
        if (::GetLastError() != ERROR_FILE_EXISTS || n >= 10000)
            QZ_THROW_SYSTEM();
    }
    QZ_TRACE_I(L"Cmd file path: %ls\n", wstrPath);
    DWORD dwWritten = 0;
    if (!::WriteFile(hFile.Get(), strBytes.data(), static_cast<DWORD>(strBytes.size()), &dwWritten,
                     nullptr) ||
        dwWritten != strBytes.size())
        QZ_THROW_SYSTEM();
    QZ_TRACE_I(L"Script:\n%ls\n", wstrScript);
    return wstrPath;
}

}  // namespace QZRI
