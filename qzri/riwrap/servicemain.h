// The agent as its own Windows service after a reboot: the service control manager starts
// "qzriwrap.exe QZRI$ID=<id>", QZCS_Main finds the run parameters and hands over here. For a planned
// rerun (QZRI_ACTION_RUN) the service starts the package's "setup.exe" again with the first start's
// command line, silently and with the next start counter, waits for it up to two minutes, starts the
// reboot agent "qzrbtagt.exe", and then waits until it is stopped or the setup has ended. For a check
// after the reboot (QZRI_ACTION_CHECK_RESULT) or a question to the user (QZRI_ACTION_ASK_USER) the
// service runs the installation driver itself, which removes the service when the task ends.
#pragma once

#include <string>

#include "qzri/riwrap/agentservices.h"

namespace QZRI {

class RiWrpData;

inline constexpr const wchar_t* PACKAGE_SETUP = L"setup.exe";
inline constexpr const wchar_t* REBOOT_AGENT = L"qzrbtagt.exe";
// How long the service waits for the relaunched setup before it goes on.
inline constexpr unsigned long RELAUNCH_WAIT_MS = 120000;

// The relaunched setup's command line: "setup.exe" of the package folder, the arguments of the saved
// command line without "QZRI$ID", "MASTER_SERVICE_ID" and "QZRI_START_CNT", then
// "MASTER_SERVICE_ID=<service id>" (the relaunched run keeps this service and removes it when the task
// ends), "/s" unless a silent switch is there, and "QZRI_START_CNT=<counter>".
std::wstring BuildRelaunchCommandLine(const std::wstring& wstrSetupPath, const std::wstring& wstrSavedCmdLine,
                                      const std::wstring& wstrServiceId, int nStartCounter);

// The service's state as the control handler reports it (the fields of SERVICE_STATUS it changes).
struct ServiceState
{
    unsigned long m_nState = 2;  // start pending
    unsigned long m_nWaitHintMs = 0;
    unsigned long m_nCheckPoint = 0;
    unsigned long m_nControlsAccepted = 0;
};

// What the control handler does with a control: stop (1) and shutdown (5) move the service to stop
// pending (3) with a wait hint of 10 s and the next check point, accept nothing more, and answer true:
// the service's work must end. Any other control leaves the state as it is, to be reported again.
bool HandleServiceControl(unsigned long nControl, ServiceState& state);

// Connects to the service control manager and runs the service (Windows). Returns the run's result
// code once the service has stopped. Elsewhere there is no service control manager: the service mode
// ends at once with QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE.
int RunServiceDispatcher(RiWrpData& data, const AgentServices& services);

}  // namespace QZRI
