// Where the outcome of a run goes. Two channels, chosen by whether the agent runs for a server task:
// - with a task id: five entries under the task id in "e2s_subscription.xml" in the local writable
//   folder, beside the entries of other tasks; a pending reboot is also handed on for delivery to the
//   administration server;
// - without: "setup.log" (section "ResponseResult") and two description files in the agent's folder,
//   which the caller that started the agent reads.
// Nothing is written in interactive mode (no silent switch), by design. A report never changes the
// agent's exit code: errors while writing are traced and the run goes on.
#pragma once

#include <cstdint>
#include <string>

#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/riresult.h"

namespace QZRI {

class RiWrpData;

inline constexpr const wchar_t* SETUP_LOG_FILE = L"setup.log";
inline constexpr const wchar_t* DESCR_FILE = L"ovxsetup.rep";
inline constexpr const wchar_t* UNICODE_DESCR_FILE = L"setuplog.txt";
inline constexpr const wchar_t* USER_ACTION_FILE = L"askusr.log";
inline constexpr const wchar_t* RESPONSE_SECTION = L"ResponseResult";
inline constexpr const wchar_t* E2S_SUBSCRIPTION_FILE = L"e2s_subscription.xml";

// The user's answers, reported under a virtual task id: the task id and the code's suffix.
enum UserAction : int32_t
{
    USER_ACTION_ASK = 1,
    USER_ACTION_DEFER = 2,
    USER_ACTION_OK = 3,
    USER_ACTION_FORCE = 4,
    USER_ACTION_SKIP_SERVER = 5,
    USER_ACTION_REBOOT_NOW = 6,
    USER_ACTION_REBOOT_LATER = 7,
};
// "_USR_ASK" ... "_USR_RBTP"; empty for any other code (the task id itself is used).
const wchar_t* UserActionSuffix(int32_t nUserAction);
// 1 for the two reboot answers (6, 7), else 0.
int32_t UserActionRebootState(int32_t nUserAction);

// The agent's entry point for a final result: ReportResult, then, in silent mode for a task whose
// setup gave a result, RequestPxgReboot. Returns what ReportResult returned.
int32_t RiwrapReportResult(const RiWrpData& data, const RiResult& rslt, const AgentServices& services);

// Chooses the channel and writes; returns the process result.
int32_t ReportResult(const RiWrpData& data, const RiResult& rslt, const AgentServices& services);

// The five entries of the task (see docs/agent.md) merged into "SubscriptionData" of the storage in
// the local writable folder; nothing without such a folder (traced).
void ReportResultSS(const std::wstring& wstrTaskId, const RiResult& rslt, const std::wstring& wstrZombiePath,
                    const AgentServices& services);

// The file channel: the description files when there is a description, then the result file, written
// under a temporary name and moved onto its own, so that it is never seen half-written. Empty names take
// the defaults. Returns the process result.
int32_t WriteSetupLog(const std::wstring& wstrFolder, const RiResult& rslt,
                      const std::wstring& wstrResultFile, const std::wstring& wstrDescrFile,
                      const std::wstring& wstrUnicodeDescrFile, const AgentServices& services);

// "askusr.log" in the folder: "ResultCode" and "ResultTime", written as the result file is.
void WriteUserActionSetupLog(const std::wstring& wstrFolder, int32_t nUserAction,
                             const AgentServices& services);

// A user's answer: into "askusr.log" without a task id, else under the virtual task id into the storage
// and on to the administration server. Never throws.
void ReportUserAction(const RiWrpData& data, int32_t nUserAction, const AgentServices& services);

// "<whole seconds since 1970>.<milliseconds, three digits>" of the clock's time.
std::wstring ResultTimeText(const AgentServices& services);

}  // namespace QZRI
