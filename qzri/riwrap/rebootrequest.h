// A result with a pending reboot goes to the administration server, which decides whether the computer
// reboots now. The run that has the result writes a request file and starts a second instance of the
// agent ("PxgRequest=<request file name>"), so that it can end; the second instance delivers the result
// once and asks for the decision until the server gives one, the attempts run out or the agent must stop.
//
// The request file: "$qzriwrp_srvri_<task id>.par" in the package folder, a Params file with
// "QZRI_SRVRI_TASK_ID", "QZRI_SRVRI_RES_DESCR", "QZRI_SRVRI_RES_CODE", "QZRI_SRVRI_QUD" (the path of a
// copy of the package's ".qud" companion, empty when there was none) and "QZRI_SRVRI_SEND" (a boolean,
// true while the result is still to be delivered).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace QZRI {

class AgentOs;
class RiWrpData;
struct AgentServices;
struct RiResult;

// Starts another instance of the agent, not waited for.
class InstanceStarter
{
public:
    virtual ~InstanceStarter() = default;
    // The agent's executable that the instance runs.
    virtual std::wstring AgentPath() = 0;
    virtual void StartInstance(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir) = 0;
};
// Instances of the running agent (its own file, asked for when one is started).
std::unique_ptr<InstanceStarter> CreateSystemInstanceStarter(AgentOs& os);
// Instances of the agent at wstrAgentPath, for the programs that report as the agent does.
std::unique_ptr<InstanceStarter> CreateSystemInstanceStarter(const std::wstring& wstrAgentPath);

// With reboot state 1: writes the request and starts the second instance; returns the request file's
// path. Any other reboot state: nothing to ask, an empty path.
std::wstring RequestPxgReboot(const RiWrpData& data, const std::wstring& wstrTaskId, const RiResult& rslt,
                              const AgentServices& services);

// How often and how far apart the worker asks. An administrator may shorten both with the package
// description's [ExtendedSettings] "RebootPollAttempts" and "RebootPollIntervalSec" (a value below 1
// keeps the default).
struct PollLimits
{
    int32_t m_nAttempts = 288;
    int32_t m_nIntervalSec = 300;
};
PollLimits ReadPollLimits(const RiWrpData& data);

enum class WorkerEnd
{
    ACCEPTED,  // the force-reboot marker was made
    CANCELLED,
    SHUTDOWN,
    OLD_SERVER,  // the server lacks the decision call
    ACCESS_DENIED,
    EXHAUSTED,   // the attempts ran out
    NO_REQUEST,  // the request file could not be read
};

// The second instance's work on the request file wstrRequestPath; never throws.
WorkerEnd RequestPxgRebootWorker(const RiWrpData& data, const std::wstring& wstrRequestPath,
                                 const PollLimits& limits, const AgentServices& services);

// The request file that "PxgRequest=<name>" names when it is one of this agent's requests
// ("$qzriwrp_srvri_<...>.par", without a folder: it lies in the package folder); empty otherwise.
std::wstring RequestFileNameOf(const std::wstring& wstrCmdLine);

// The second instance: runs the worker on a thread of its own while this thread keeps taking window
// messages (WM_QUIT raises the shutdown). The request file is "PxgRequest=<name>" in the package folder.
// Returns the exit code: 0 once the worker ran, QZRI_RSLT_INIT_FAILED without a usable request.
int RunRebootRequestInstance(const RiWrpData& data, const std::wstring& wstrCmdLine,
                             const AgentServices& services);

}  // namespace QZRI
