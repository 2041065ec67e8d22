// QZCS_Main: what one start of the agent does. It opens the trace, fills the run data, removes a stale
// force-reboot marker and then decides, in this order, between handing over to a new reboot worker,
// delivering a pending reboot's result to the administration server, continuing as the agent's Windows service, asking the user, and running the installation driver.
#pragma once

#include <string>
#include <vector>

#include "qzri/riwrap/riwrpdata.h"

namespace QZRI {

class AgentActions;

enum class MainBranch
{
    NEW_REBOOT_WORKER,
    REBOOT_REQUEST,
    SERVICE,
    ASK_USER,
    RUN_EXECUTABLE,
};

// The decision of QZCS_Main once the run data is filled, in the order the checks are made.
MainBranch DecideMainBranch(bool bNewRebootWorker, const RiWrpData& data);

// The new-reboot-worker hand-over is asked for with the flag "QZRI$RBTWRK" on the command line. Nothing
// passes it until the service mode and the reboot worker are in place.
bool IsNewRebootWorkerRequired(const std::wstring& wstrCmdLine);

// The force-reboot marker of the package: the reboot worker creates it when the administration server
// accepted a reboot; a marker from an earlier task must not force a reboot in this one.
inline constexpr const wchar_t* FORCE_REBOOT_FILE = L"$qzriwrp_frb.flg";
void RemoveForceRebootFile(AgentOs& os, const std::wstring& wstrDirPath);

// One run with the given command line (raw text and its split words), the operating-system services
// and the hand-overs; returns the exit code (qzri/riwrap/riresult.h). Never throws. g_pData points at
// the run data while it runs.
int QZCS_Main(const std::wstring& wstrCmdLine, const std::vector<std::wstring>& vecArgs,
              const AgentServices& services, AgentActions& actions);

}  // namespace QZRI
