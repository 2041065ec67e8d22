// The agent's own launcher: starts a program suspended, places it in a job object of its own and hands
// out a waiter that can also wait for what the program leaves behind (a setup program that hands over
// to a second installer process and exits at once). Beside it: the wrapper script that records a
// command's exit code in a small result file.
//
// Platform differences:
// - Windows: a job object with only JOB_OBJECT_LIMIT_BREAKAWAY_OK (closing it never ends anything).
// - POSIX: the program heads a new process group, which stands in for the job: whatever it starts
//   stays in the group unless it leaves on its own (setsid/setpgid), as a grandchild may leave a job
//   that allows breakaway. Mode 2 matches the file name of /proc/<pid>/exe (or /proc/<pid>/comm when
//   the link cannot be read). Credentials are refused with QZError 1193: there is no logon here, and
//   running the program as the agent's own user instead would be wrong silently.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "std/process/launch.h"

namespace QZSTD {
class ShutdownSignal;
}

namespace QZRI {

// What LaunchJobWaiterImpl::Wait waits for once the started program has ended.
enum WaitMode : int
{
    WAIT_PROCESS_ONLY = 0,   // the started program only
    WAIT_WHOLE_JOB = 1,      // then every process left in its job
    WAIT_LISTED_IMAGES = 2,  // then only while a process with a listed image file name is alive in it
    WAIT_MODE_RESERVED = 3,  // refused with QZError 1194 before anything starts
};

// The job waiter's slice: a raised shutdown or a reached time-out is seen within it.
inline constexpr long JOB_WAIT_SLICE_MS = 200;
// The first pause while the job outlives its program; each next one doubles, up to JOB_WAIT_SLICE_MS.
inline constexpr long JOB_FIRST_PAUSE_MS = 10;
// The console host that the program's new console brings into its job; mode 1 does not wait for it.
inline constexpr const wchar_t* CONSOLE_HOST_IMAGE = L"conhost.exe";

// The parts of an account name for the logon: "DOMAIN\user" and "user@domain" split at the first
// separator (a backslash wins over an at sign); a bare name has an empty domain.
struct AccountName
{
    std::wstring wstrUser;
    std::wstring wstrDomain;
    bool operator==(const AccountName&) const = default;
};
AccountName SplitUserName(const std::wstring& wstrUserName);

// The account calls of the credentials path that may fail for reasons of the account or the system
// (Windows: LogonUserW with LOGON32_LOGON_NETWORK_CLEARTEXT, and RevertToSelf). Each returns false with
// the thread's last error set. The launcher uses the system's own unless the options name others.
class AccountCalls
{
public:
    virtual ~AccountCalls() = default;
    virtual bool LogOnUser(const AccountName& account, const std::wstring& wstrPassword, void** phToken) = 0;
    virtual bool RevertToSelf() = 0;
};

// What a launch starts and how its waiter waits. A call site sets only what differs from the defaults.
struct LaunchOptions
{
    // Required.
    std::wstring m_wstrCommandLine;
    // Empty: the agent's own.
    std::wstring m_wstrCurDir;
    // The file that receives the program's standard error; empty: "NUL". Output and input are "NUL".
    std::wstring m_wstrStdErr;
    // Name/value strings set over the inherited environment; may be null.
    QZPAR::Params* m_pEnvironmentAddition = nullptr;
    // Runs the line through "cmd.exe /c" (POSIX: "/bin/sh -c").
    bool m_bUseCmd = false;
    // Empty: the agent's own account; otherwise "DOMAIN\user", "user@domain" or "user" with the password.
    std::wstring m_wstrUser;
    std::wstring m_wstrPassword;
    // WaitMode 0..2.
    int m_nWaitMode = WAIT_PROCESS_ONLY;
    // The image file names (e.g. "msiexec.exe") that mode 2 waits for; ASCII case ignored.
    std::vector<std::wstring> m_vecWaitImages;
    // The signal that ends the waiter's waits; null: the process's. It must outlive the waiter.
    const QZSTD::ShutdownSignal* m_pShutdown = nullptr;
    // The account calls of the credentials path; null: the system's.
    AccountCalls* m_pAccountCalls = nullptr;
};

// Starts the program of the options. *ppLaunchWaiter must be null (assertion "ppLaunchWaiter"); it
// receives the waiter with one reference. Raises QZError 1199 when shutdown is raised, 1194 for mode 3,
// system errors of the failing call. The program is never left suspended: any failure after it was
// created ends it with exit code 3 and closes its handles.
void LaunchAsync(const LaunchOptions& options, QZSTD::LaunchWaiter** ppLaunchWaiter);

// For a waiter of this launcher, the processes of the started program's tree that are still alive, as
// "image (pid n), ...": after a time-out they name what hangs. Empty for an ended tree or another waiter.
std::wstring DescribeRunningProcesses(QZSTD::LaunchWaiter* pWaiter);

// Whether the program may be created with CREATE_BREAKAWAY_FROM_JOB: yes unless the agent itself runs
// in a job whose limit flags lack JOB_OBJECT_LIMIT_BREAKAWAY_OK (0x800), which would fail the creation.
bool ShouldBreakAwayFromJob(bool bAgentInJob, uint32_t nJobLimitFlags);

// Writes a script into wstrFolder that runs the command line (after changing to wstrCurDir when given)
// and stores its exit code in wstrResultFile as section [cmd_proc_rslt] with result=<code> and
// ready=1; returns the script's full path, to be launched instead of the command line.
// Windows: "qzprocrslt_<pid>_<n>.bat" run by cmd.exe; POSIX: "qzprocrslt_<pid>_<n>.sh" (executable,
// run by /bin/sh), <n> the first number whose file does not exist yet.
std::wstring WrapCommandLineToStoreProcessResult(const std::wstring& wstrCommandLine,
                                                 const std::wstring& wstrCurDir,
                                                 const std::wstring& wstrFolder,
                                                 const std::wstring& wstrResultFile);

// The command line that runs such a script through the command interpreter (LaunchOptions::m_bUseCmd).
// Windows: the quoted path inside one more pair of quotes. "cmd.exe /c" keeps the quotes of its text
// only when they hold no special character, and "C:\Program Files (x86)" holds two; otherwise it drops
// the first and the last quote, which here leaves the quoted path. POSIX: the quoted path.
std::wstring ScriptCommandLine(const std::wstring& wstrScriptPath);

// The lines of the ".bat" form, each ended by "\r\n". The result file's path stands in double quotes:
// in a folder such as "C:\Program Files\..." an unquoted path would end at the blank, and the exit
// code would be written somewhere else.
std::wstring BuildResultBatchScript(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                                    const std::wstring& wstrResultFile);
// The lines of the POSIX shell form, each ended by "\n"; the command line is split by the Windows rules
// and every word single-quoted.
std::wstring BuildResultShellScript(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                                    const std::wstring& wstrResultFile);

}  // namespace QZRI
