// Installing, removing and cleaning up the agent's services.
#include "qzri/riwrap/agentservice.h"

#include <chrono>
#include <random>

#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/clock.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/waits.h"
#include "std/cmdline.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";

bool StartsWith(const std::wstring& wstr, const wchar_t* szPrefix)
{
    return wstr.rfind(szPrefix, 0) == 0;
}

bool IsAgentServiceName(const std::wstring& wstrName)
{
    if (StartsWith(wstrName, SERVICE_NAME_PREFIX))
        return true;
    for (const wchar_t* szPrefix : OLDER_SERVICE_PREFIXES)
        if (StartsWith(wstrName, szPrefix))
            return true;
    return false;
}

// The executable of a service's command line: its first word.
std::wstring ExecutableOf(const std::wstring& wstrCmdLine)
{
    const std::vector<std::wstring> vecWords = QZSTD::SplitCommandLine(wstrCmdLine);
    return vecWords.empty() ? std::wstring() : vecWords.front();
}

bool IsLocalFolder(const std::wstring& wstrPath)
{
    return wstrPath.size() > 2 && !StartsWith(wstrPath, L"//") && !StartsWith(wstrPath, L"\\\\");
}

}  // namespace

const std::wstring& ServiceIdOf(RiWrpData& data)
{
    if (data.m_wstrServiceId.empty())
        data.m_wstrServiceId = data.m_wstrMasterServiceId;
    if (data.m_wstrServiceId.empty()) {
        std::random_device rd;
        data.m_wstrServiceId = std::to_wstring(rd()) + std::to_wstring(rd());
    }
    return data.m_wstrServiceId;
}

std::wstring ServiceBinaryPath(const std::wstring& wstrAgentPath, const std::wstring& wstrServiceId)
{
    const std::wstring wstrExe =
        wstrAgentPath.find(L' ') == std::wstring::npos ? wstrAgentPath : L"\"" + wstrAgentPath + L"\"";
    return wstrExe + L" QZRI$ID=" + wstrServiceId;
}

bool InstallService(RiWrpData& data, QzriAction eAction, int* pnError, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "InstallService");
    QZ_TRACE_I(L"Starting InstallService(%d, %d)...\n", static_cast<int>(eAction), data.m_nStartCounter);
    data.SetServiceRunParams(eAction);
    const std::wstring wstrName = ServiceNameOf(ServiceIdOf(data));
    QZ_TRACE_I(L"%hs: qzriwrap service name is '%ls' %d\n", QZ_SCOPE_NAME, wstrName,
               static_cast<int>(eAction));
    const std::wstring wstrBinary =
        ServiceBinaryPath(services.m_pOs->GetModuleFilePath(), data.m_wstrServiceId);
    QZ_TRACE_I(L"InstallService commandline: '%s'\n", wstrBinary);
    const std::optional<ServiceFailure> failure = services.m_pServices->CreateService(wstrName, wstrBinary);
    if (!failure) {
        QZ_TRACE_I(L"Service installed.\n");
        return true;
    }
    *pnError = failure->m_nError;
    if (failure->m_eStep == ServiceFailure::OPEN_SCM)
        QZ_TRACE_E(L"OpenSCManager failed - %d%ls\n", failure->m_nError,
                   failure->m_nError == 1193 ? L" (unsupported on this operating system)" : L"");
    else
        QZ_TRACE_E(L"Service install failed - %d\n", failure->m_nError);
    return false;
}

bool ServiceAutostart::RegisterAutostart(RiWrpData& data, QzriAction eAction)
{
    QZ_TRACE_SCOPE(MODULE, "RegisterAutostart");
    QZ_TRACE_I(L"RegisterAutostart(%d)...\n", static_cast<int>(eAction));
    if (!IsLocalFolder(data.m_wstrDirPath)) {
        QZ_TRACE_W(L"%hs: '%ls' is not a local folder: no autostart.\n", QZ_SCOPE_NAME, data.m_wstrDirPath);
        return false;
    }
    UnregisterAutostart(data);
    int nError = 0;
    if (InstallService(data, eAction, &nError, m_services))
        return true;
    // The previous instance of the service is still marked for deletion: it goes once it has stopped.
    for (int nAttempt = 0; nError == SERVICE_MARKED_FOR_DELETE && nAttempt < INSTALL_RETRIES; ++nAttempt) {
        if (m_services.m_pWaits->WaitForStop(10) || m_services.m_pWaits->WaitForStop(1990))
            return false;
        QZ_TRACE_I(L"%hs: Doing '%d' attempt to install the service.\n", QZ_SCOPE_NAME, nAttempt);
        if (InstallService(data, eAction, &nError, m_services))
            return true;
    }
    return false;
}

void ServiceAutostart::UnregisterAutostart(RiWrpData& data)
{
    RemoveService(*m_services.m_pServices, ServiceIdOf(data));
}

bool CheckCleanupGhostRIService(const std::wstring& wstrName, const std::wstring& wstrExceptId,
                                const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::CheckCleanupGhostRIService");
    if (!IsAgentServiceName(wstrName))
        return false;
    QZ_TRACE_I(L"Found RI service: %ls\n", wstrName);
    if (wstrName == ServiceNameOf(wstrExceptId))
        return false;
    std::optional<ServiceFailure> failure;
    const std::wstring wstrCmdLine = services.m_pServices->QueryBinaryPath(wstrName, failure);
    if (failure) {
        QZ_TRACE_E(L"%hs: QueryServiceConfig failed wwith code '%d'.", QZ_SCOPE_NAME, failure->m_nError);
        return false;
    }
    const std::wstring wstrExe = ExecutableOf(wstrCmdLine);
    QZ_TRACE_I(L"Cmd line: %ls\n", wstrCmdLine);
    QZ_TRACE_I(L"Executable: %ls\n", wstrExe);
    const auto tpArrived = services.m_pOs->GetFileArrivalTime(wstrExe);
    if (!tpArrived) {
        QZ_TRACE_I(L"Executable \"%ls\" not found!\n", wstrExe);
    } else {
        const int nDays = static_cast<int>(
            std::chrono::duration_cast<std::chrono::hours>(services.m_pClock->Now() - *tpArrived).count() /
            24);
        if (nDays <= GHOST_AGE_DAYS)
            return false;
        QZ_TRACE_I(L"Executable \"%ls\" is too old (%d).\n", wstrExe, nDays);
    }
    QZ_TRACE_I(L"%hs: require to delete service.", QZ_SCOPE_NAME);
    QZ_TRACE_I(L"%hs: service is going to be deleted.", QZ_SCOPE_NAME);
    if (const std::optional<ServiceFailure> deleted = services.m_pServices->DeleteService(wstrName)) {
        QZ_TRACE_E(L"%hs: DeleteService failed - %d\n", QZ_SCOPE_NAME, deleted->m_nError);
        return false;
    }
    return true;
}

void CleanupGhostRIServices(const std::wstring& wstrExceptId, const wchar_t* szFrom,
                            const std::wstring& wstrService, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::CleanupGhostRIServices");
    QZ_TRACE_I(L"CleanupGhostRIServices(%ls, from: %ls, service: %ls)\n", wstrExceptId, szFrom, wstrService);
    QZ_TRACE_I(L"%hs: Lets enumerate services", QZ_SCOPE_NAME);
    std::optional<ServiceFailure> failure;
    const std::vector<std::wstring> vecNames = services.m_pServices->EnumServiceNames(failure);
    if (failure) {
        QZ_TRACE_E(L"%hs: EnumServicesStatusEx failed.", QZ_SCOPE_NAME);
        return;
    }
    QZ_TRACE_I(L"%hs: dwServicesReturned = %d", QZ_SCOPE_NAME, static_cast<int>(vecNames.size()));
    for (const std::wstring& wstrName : vecNames)
        CheckCleanupGhostRIService(wstrName, wstrExceptId, services);
}

}  // namespace QZRI
