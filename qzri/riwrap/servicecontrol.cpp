// Removing the agent's service: the trace lines a support engineer looks for, for every outcome.
#include "qzri/riwrap/servicecontrol.h"

#include "std/trace.h"

namespace QZRI {

std::wstring ServiceNameOf(const std::wstring& wstrServiceId)
{
    return SERVICE_NAME_PREFIX + wstrServiceId;
}

void RemoveService(ServiceControl& services, const std::wstring& wstrServiceId)
{
    QZ_TRACE_SCOPE("QZRIWRP", "RemoveService");
    const std::wstring wstrName = ServiceNameOf(wstrServiceId);
    QZ_TRACE_I(L"%hs: Trying to remove service %ls.\n", QZ_SCOPE_NAME, wstrName);
    if (services.IsOwnService(wstrName)) {
        QZ_TRACE_I(L"%hs: Report service stopped.\n", QZ_SCOPE_NAME);
        services.ReportOwnServiceStopped();
    }
    const std::optional<ServiceFailure> failure = services.DeleteService(wstrName);
    if (!failure) {
        QZ_TRACE_I(L"%hs: Service removed.\n", QZ_SCOPE_NAME);
        return;
    }
    switch (failure->m_eStep) {
        case ServiceFailure::OPEN_SCM:
            QZ_TRACE_E(L"%hs: OpenSCManager failed - %d\n", QZ_SCOPE_NAME, failure->m_nError);
            break;
        case ServiceFailure::OPEN_SERVICE:
            QZ_TRACE_E(L"%hs: OpenService failed - %d\n", QZ_SCOPE_NAME, failure->m_nError);
            break;
        case ServiceFailure::DELETE_SERVICE:
        default:
            QZ_TRACE_E(L"%hs: DeleteService failed - %d\n", QZ_SCOPE_NAME, failure->m_nError);
            break;
    }
}

}  // namespace QZRI
