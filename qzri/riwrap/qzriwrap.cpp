// The composition root: the real objects of one agent process, built once and handed down.
#include "qzri/riwrap/qzriwrap.h"

#include <memory>

#include "common/msisetup/msisetup.h"
#include "common/registry.h"
#include "common/winsessions.h"
#include "qzri/riwrap/agentactions.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservice.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/askuser.h"
#include "qzri/riwrap/clock.h"
#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/download.h"
#include "qzri/riwrap/driverservices.h"
#include "qzri/riwrap/qzcsmain.h"
#include "qzri/riwrap/rebootrequest.h"
#include "qzri/riwrap/reports.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/runtime.h"
#include "qzri/riwrap/servcon.h"
#include "qzri/riwrap/serverid.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/uninstall.h"
#include "qzri/riwrap/waits.h"
#include "std/cmdline.h"
#include "std/shutdown.h"
#include "std/ss/settingsstorage.h"
#include "std/trace.h"

namespace QZRI {
namespace {

// Shuts the runtime down however the run ends.
class RuntimeSession
{
public:
    explicit RuntimeSession(ModuleRuntime& runtime) : m_runtime(runtime) { m_runtime.Start(); }
    ~RuntimeSession() { m_runtime.Shutdown(); }
    RuntimeSession(const RuntimeSession&) = delete;
    RuntimeSession& operator=(const RuntimeSession&) = delete;

private:
    ModuleRuntime& m_runtime;
};

int RunWithSystemServices(const ModuleRuntime& runtime)
{
    std::unique_ptr<AgentOs> pOs = CreateSystemAgentOs();
    std::unique_ptr<SessionList> pSessions = CreateSystemSessionList();
    std::unique_ptr<ServiceControl> pServices = CreateSystemServiceControl();
    LocalStorageServerId serverIds(QZSTD::GetLocalSettingsStoragePath());
    SystemClock clock;
    std::unique_ptr<QZWSSN::SessionDesktop> pDesktop = QZWSSN::CreateSystemSessionDesktop(QZSTD::ProcessShutdown());
    SessionConsentDialog consent(*pSessions, *pDesktop, *pOs);
    std::unique_ptr<WindowsInstaller> pInstaller = CreateSystemWindowsInstaller();
    std::unique_ptr<Waits> pWaits = CreateSystemWaits(QZSTD::ProcessShutdown());
    LocalStorageProducts products(QZSTD::GetLocalSettingsStoragePath());
    std::unique_ptr<ShellOpener> pShell = CreateSystemShellOpener();
    std::unique_ptr<Transfer> pTransfer = CreateCurlTransfer();
    std::unique_ptr<ProxySource> pProxy = CreateProxySource(QZSTD::GetLocalSettingsStoragePath());
    std::unique_ptr<ServerLink> pServerLink = CreateServerLink(QZSTD::GetLocalSettingsStoragePath(), *pProxy);
    std::unique_ptr<InstanceStarter> pStarter = CreateSystemInstanceStarter(*pOs);

    AgentServices services;
    services.m_pOs = pOs.get();
    services.m_pRegistry = &SystemRegistry();
    services.m_pServices = pServices.get();
    services.m_pSessions = pSessions.get();
    services.m_pServerIds = &serverIds;
    services.m_pClock = &clock;
    services.m_pWaits = pWaits.get();
    services.m_pConsent = &consent;
    services.m_pInstaller = pInstaller.get();
    services.m_pProducts = &products;
    services.m_pShell = pShell.get();
    services.m_pTransfer = pTransfer.get();
    services.m_pProxy = pProxy.get();
    services.m_pServerLink = pServerLink.get();
    services.m_pStarter = pStarter.get();
    // The previous product's removal reads the registry, Windows Installer and the agent's folder.
    std::unique_ptr<MsiProducts> pMsiProducts = CreateSystemMsiProducts();
    AgentUninstaller uninstaller(UninstallDepsOf(services, *pMsiProducts));
    services.m_pUninstaller = &uninstaller;
    // Incompatible software: the removal engine beside the agent.
    QZRIWRP::CompetitorEnv competitorEnv = QZRIWRP::SystemCompetitorEnv(pOs->GetModuleFilePath());
    services.m_pCompetitorEnv = &competitorEnv;
    // These three act through the services themselves.
    ServiceAutostart autostart(services);
    services.m_pAutostart = &autostart;
    AgentReportSink reports(services);
    services.m_pReports = &reports;
    ThisBuildActions actions(services);
    return QZCS_Main(runtime.CommandLine(), runtime.Arguments(), services, actions);
}

}  // namespace

int RunProcess(const std::wstring& wstrCmdLine) noexcept
{
    try {
        ModuleRuntime& runtime = TheModuleRuntime();
        runtime.SetArguments(wstrCmdLine, QZSTD::SplitCommandLine(wstrCmdLine));
        RuntimeSession session(runtime);
        return RunWithSystemServices(runtime);
    } catch (const std::exception& e) {
        QZ_TRACE_SCOPE("QZRIWRP", "QZRI::RunProcess");
        QZ_TRACE_EXCEPTION(e);
    } catch (...) {
    }
    return QZRI_RSLT_GENERAL_ERROR;
}

}  // namespace QZRI
