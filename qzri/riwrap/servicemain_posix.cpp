// No service control manager here: the service mode ends at once.
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/servicemain.h"
#include "std/trace.h"

namespace QZRI {

int RunServiceDispatcher(RiWrpData&, const AgentServices&)
{
    QZ_TRACE_SCOPE("QZRIWRP", "QZCS_Main");
    QZ_TRACE_E(
        L"%hs: The service mode is not available in this build: this system has no service control "
        L"manager.\n",
        QZ_SCOPE_NAME);
    return QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE;
}

}  // namespace QZRI
