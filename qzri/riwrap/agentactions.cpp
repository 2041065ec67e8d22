// The hand-overs of this build: the clean-up of other agents' services, and for the parts that are
// missing a plain statement that ends the run.
// Their lines are written under QZCS_Main, which is where the run ends.
#include "qzri/riwrap/agentactions.h"

#include "qzri/riwrap/agentservice.h"
#include "qzri/riwrap/driver.h"
#include "qzri/riwrap/rebootrequest.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/servicemain.h"

#include "qzri/riwrap/riresult.h"
#include "std/trace.h"

namespace QZRI {

int ThisBuildActions::StartNewRebootWorker(RiWrpData&)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(L"%hs: The new reboot worker is not available in this build.\n", QZ_SCOPE_NAME);
    return QZRI_RSLT_REBOOT_WORKER_NOT_AVAILABLE;
}

int ThisBuildActions::RunRebootRequestWorker(RiWrpData& data)
{
    return RunRebootRequestInstance(data, data.m_wstrSavedCmdLine, m_services);
}

int ThisBuildActions::RunAsService(RiWrpData& data)
{
    return RunServiceDispatcher(data, m_services);
}

int ThisBuildActions::AskUserForStart(RiWrpData& data)
{
    return AskUserThenRunExecutable(data, m_services).m_nResult;
}

DriverResult ThisBuildActions::RunExecutable(RiWrpData& data)
{
    return QZRI::RunExecutable(data, m_services);
}

// Only the ghosts go: services of agents whose executable is gone or came too long ago. A live agent
// of another task keeps its service.
std::optional<int> ThisBuildActions::CleanupOtherServices(const std::wstring& wstrKeepServiceId)
{
    CleanupGhostRIServices(wstrKeepServiceId, L"QZCS_Main", ServiceNameOf(wstrKeepServiceId), m_services);
    return std::nullopt;
}

}  // namespace QZRI
