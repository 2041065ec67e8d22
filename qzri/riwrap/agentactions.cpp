// The hand-overs of this build: each one says plainly that the part is missing and ends the run.
// Their lines are written under QZCS_Main, which is where the run ends.
#include "qzri/riwrap/agentactions.h"

#include "qzri/riwrap/riresult.h"
#include "std/trace.h"

namespace QZRI {

int UnavailableActions::StartNewRebootWorker(RiWrpData&)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(L"%hs: The new reboot worker is not available in this build.\n", QZ_SCOPE_NAME);
    return QZRI_RSLT_REBOOT_WORKER_NOT_AVAILABLE;
}

int UnavailableActions::RunAsService(RiWrpData&)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(L"%hs: The service mode is not available in this build.\n", QZ_SCOPE_NAME);
    return QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE;
}

int UnavailableActions::AskUserForStart(RiWrpData&)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(L"%hs: AskUserForStart is not available in this build.\n", QZ_SCOPE_NAME);
    return QZRI_RSLT_ASK_USER_NOT_AVAILABLE;
}

DriverResult UnavailableActions::RunExecutable(RiWrpData&)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(L"%hs: RunExecutable is not available in this build.\n", QZ_SCOPE_NAME);
    return DriverResult{QZRI_RSLT_RUN_EXECUTABLE_NOT_AVAILABLE, false};
}

std::optional<int> UnavailableActions::CleanupOtherServices(const std::wstring& wstrKeepServiceId)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(L"%hs: Deleting other agents' services (keeping '%ls') is not available in this build.\n",
               QZ_SCOPE_NAME, wstrKeepServiceId);
    return QZRI_RSLT_SERVICE_CLEANUP_NOT_AVAILABLE;
}

}  // namespace QZRI
