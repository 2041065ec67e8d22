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

// Starts wstrCommandLine (required). wstrCurDir empty: the agent's own. Standard output and input are
// "NUL"; standard error goes to wstrStdErr (empty: "NUL"). pEnvironmentAddition (may be null) sets
// name/value strings over the inherited environment. bUseCmd runs the line through "cmd.exe /c"
// (POSIX: "/bin/sh -c"). wstrUser empty: the agent's own account; otherwise "DOMAIN\user",
// "user@domain" or "user" with wstrPassword. nWaitMode: WaitMode 0..2. vecWaitImages: the image file
// names (e.g. "msiexec.exe") that mode 2 waits for; compared without regard to ASCII case.
// *ppLaunchWaiter must be null (assertion "ppLaunchWaiter"); it receives the waiter with one reference.
// Raises QZError 1199 when shutdown is raised, 1194 for mode 3, system errors of the failing call.
// The program is never left suspended: if it cannot be resumed it is ended with exit code 3.
void LaunchAsync(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                 const std::wstring& wstrStdErr, QZPAR::Params* pEnvironmentAddition, bool bUseCmd,
                 const std::wstring& wstrUser, const std::wstring& wstrPassword, int nWaitMode,
                 QZSTD::LaunchWaiter** ppLaunchWaiter, const std::vector<std::wstring>& vecWaitImages = {});

// The parts of an account name for the logon: "DOMAIN\user" and "user@domain" split at the first
// separator (a backslash wins over an at sign); a bare name has an empty domain.
struct AccountName
{
    std::wstring wstrUser;
    std::wstring wstrDomain;
    bool operator==(const AccountName&) const = default;
};
AccountName SplitUserName(const std::wstring& wstrUserName);

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

// The lines of the ".bat" form, each ended by "\r\n".
std::wstring BuildResultBatchScript(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                                    const std::wstring& wstrResultFile);
// The lines of the POSIX shell form, each ended by "\n"; the command line is split by the Windows rules
// and every word single-quoted.
std::wstring BuildResultShellScript(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir,
                                    const std::wstring& wstrResultFile);

// FOR TESTS ONLY: replaces the account logon (LogonUserW) with pfn, which returns nonzero with a token
// handle in *phToken or zero with the thread's last error set; nullptr restores LogonUserW. Returns the
// previous replacement. A test sees through it that a launch without a user never logs on.
using LogonUserFn = int (*)(const wchar_t* szUser, const wchar_t* szDomain, const wchar_t* szPassword,
                            void** phToken);
LogonUserFn SetLogonUserForTests(LogonUserFn pfn);

}  // namespace QZRI
