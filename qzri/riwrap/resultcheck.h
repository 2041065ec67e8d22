// Judging a setup's outcome: its exit code or the codes in the result files the package names, the
// package's code lists that classify them and give them a text, and whether the computer must restart
// and the agent run again afterwards.
//
// The package description names, for each result kind ("SetupProcessResult", "SetupMainResult",
// "SetupDetailedResult"), a section <kind> with "File" (the result file), "Section" and "Value" (where
// the code stands in it; "Value" defaults to "ResultCode"), "DescriptionFileU" / "DescriptionFile"
// and "FailReasonValue", and the lists <kind>_SuccessCodes, _ErrorCodes, _WarningCodes (code -> text)
// and _FailReasons (code -> reason). "SetupProcessResult_NeedReboot" lists the setup's codes that mean
// "installed, restart needed".
#pragma once

#include <cstdint>
#include <string>

#include "common/qpdfile.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/riresult.h"

namespace QZRI {

class RiWrpData;

// The error classes that ask for a restart: 32, restart and run the setup again (the agent restarts with
// QZRI_ACTION_RUN); 33, restart and only check the result (QZRI_ACTION_CHECK_RESULT).
inline constexpr int32_t ERR_CLASS_REBOOT_AND_RERUN = 32;
inline constexpr int32_t ERR_CLASS_REBOOT_AND_CHECK = 33;

inline constexpr const wchar_t* PROCESS_RESULT_KIND = L"SetupProcessResult";
inline constexpr const wchar_t* MAIN_RESULT_KIND = L"SetupMainResult";
inline constexpr const wchar_t* DETAILED_RESULT_KIND = L"SetupDetailedResult";
inline constexpr const wchar_t* NEED_REBOOT_SECTION = L"SetupProcessResult_NeedReboot";

enum class CodeClass
{
    LISTED_SUCCESS,
    LISTED_WARNING,
    LISTED_ERROR,
    // In no list: the code itself is the description.
    UNLISTED,
};

struct ClassifiedCode
{
    CodeClass eClass = CodeClass::UNLISTED;
    std::wstring wstrDescription;
};

// The kind's result file ("File"); a relative path is taken against the folder of the setup. Empty
// when the package names none.
std::wstring ResultFilePathOf(const RiWrpData& data, const std::wstring& wstrKind);

// The code in the package's lists of the kind: the error list first, then warnings, then successes.
// An unlisted code is its own description, except QZRI_RSLT_MANAGED_BY_OTHER_SERVER, which has its
// fixed text.
ClassifiedCode ClassifyCode(const QpdFile& qpd, const std::wstring& wstrKind, int32_t nCode);

struct ParsedResult
{
    // False when the result file or the code in it is missing (traced).
    bool bFound = false;
    int32_t nCode = 0;
    ClassifiedCode classified;
    // -1 when none is set.
    int32_t nFailReason = -1;
    // When no code was found: what was wrong, for the report.
    std::wstring wstrProblem;
};

// Reads the code of the kind from wstrResultFile and classifies it; the fail reason from the package's
// list, else from the result file where "FailReasonValue" says; a description file the package names
// for the kind replaces the list's text.
ParsedResult ParseResultCode(const QpdFile& qpd, const std::wstring& wstrKind,
                             const std::wstring& wstrResultFile);

// The reboot-loop guard: [Setup] "MaxRestarts" of the package (default 5) planned reruns at most. A
// setup that asks for a reboot and a rerun once more ends with QZRI_RSLT_REBOOT_LOOP instead.
inline constexpr int32_t DEFAULT_MAX_RESTARTS = 5;
int32_t RestartLimitOf(const RiWrpData& data);
// True when class 32 would exceed the limit (m_nStartCounter counts the reruns so far).
bool RebootLoopTrips(const RiWrpData& data, int32_t lErrClass);

// Class 32 registers the agent to start again with QZRI_ACTION_RUN, class 33 with
// QZRI_ACTION_CHECK_RESULT; at the final check the user action 6 or 7 is reported. True for those two
// classes; any other class does nothing.
bool CheckNeedRebootAndRerun(RiWrpData& data, int32_t lErrClass, bool bIsFinalCheck,
                             const AgentServices& services);

// What CheckResult judges.
struct CheckInput
{
    bool bNeedProcessing = true;
    bool bIsNagentUninstall = false;
    // The setup's process code is to be judged (else only the result files).
    bool bCheckProcessResult = true;
    int32_t lProcessResultCode = 0;
    bool bIsFinalCheck = false;
    bool bIsFirstPackage = false;
    // The package names result files to evaluate ("File" of its result kinds).
    bool bNeedWaitForResult = false;
    // An uninstallation by a plain uninstaller: its exit code is the result as it stands.
    bool bIsUninstall = false;
    bool bPrimitiveUninst = false;
};

// The decision on a setup's outcome, in its order (docs/agent.md, "Judging the result"). Returns whether the
// result needs processing; nExitCode receives the run's result code, rslt the description and error class.
bool CheckResult(RiWrpData& data, const CheckInput& in, RiResult& rslt, int32_t& nExitCode,
                 const AgentServices& services);

// ---- waiting for result files ----

inline constexpr const wchar_t* RESTART_RESULT_KIND = L"SetupRestartResult";
// The setup's error stream in its folder, the description of last resort.
inline constexpr const wchar_t* SETUP_STDERR_FILE = L"qz.vx.ri.stderr.txt";
// One wait slice while a result file is awaited.
inline constexpr uint32_t RESULT_WAIT_SLICE_MS = 2000;

enum class ResultWaitEnd
{
    READY,
    NOT_NAMED,  // the package names no file for the kind
    TIMEOUT,
    STOPPED,      // the agent is shutting down
    QUIT,         // WM_QUIT reached the main thread
    QPD_DELETED,  // the package was withdrawn
};

struct ResultWait
{
    ResultWaitEnd eEnd = ResultWaitEnd::NOT_NAMED;
    std::wstring wstrFile;
    // The number at the kind's "Section"/"Value" once READY (0 when it is not a number).
    int32_t nValue = 0;
};

// Waits for the kind's result file: checks, takes window messages, waits one slice, and ends when the
// file is there, on WM_QUIT, on shutdown, when the package description is gone, or when more than
// lTimeoutMs (0: check once; negative: no limit) went by on the tick counter (a wrap of the counter does
// no harm).
ResultWait WaitForResultFile(const RiWrpData& data, const std::wstring& wstrKind, long lTimeoutMs,
                             const AgentServices& services);

struct ProcessedResult
{
    bool bTimeout = false;
    // Stopped, WM_QUIT or the package withdrawn: nothing more is evaluated.
    bool bInterrupted = false;
    bool bFound = false;
    ParsedResult parsed;
    std::wstring wstrDescription;
    // From the restart result: 0, or the class of the restart it asks for (32 or 33).
    int32_t nErrClass = 0;
    std::wstring wstrZombieFile;
};

// The main result, else the detailed one; the setup's error stream when no description was found; then
// the restart result (a value of 32 or 33 is that class, any other non-zero value class 33).
ProcessedResult WaitAndProcessResult(const RiWrpData& data, long lTimeoutMs, const AgentServices& services);

// Evaluates the result files and reports: a time-out as QZRI_RSLT_TIMEOUT ("QZRI_MSG_DATA_TIMEOUT_EXPIRED",
// "Timeout elapsed."); otherwise the result with the restart decision. True when the run must end now;
// false when the package names no result file (the setup's exit code decides).
bool ReportWaitAndProcessResult(RiWrpData& data, long lTimeoutMs, bool bIsFinalCheck, RiResult& rslt,
                                const AgentServices& services);

// Waits for the setup process of the run data in slices of 1000 ms until it ends or the agent stops.
// False when it ended with a non-zero code (written by LogSetupProcessFailure); true when it ended with 0
// or there is no setup process. A stop of the agent raises QZError 1199.
bool WaitForSetupProcess(const RiWrpData& data);

// "ProcessResultCode" in "setup.log" of the agent's folder.
void LogSetupProcessFailure(const RiWrpData& data, int32_t nCode);

}  // namespace QZRI
