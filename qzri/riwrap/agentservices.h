// The operating-system services that the agent's routines use, as one structure of small interfaces.
// The composition root (qzriwrap.cpp) builds the real ones once and hands the structure down; nothing
// else creates them, and tests build the same structure with fakes. Each interface is added here when
// its first user lands.
#pragma once

namespace QZRIWRP {
struct CompetitorEnv;
}

namespace QZRI {

class AgentOs;
class Autostart;
class Clock;
class ConsentDialog;
class ControlledProducts;
class ReportSink;
class ServerIdSource;
class ServiceControl;
class SessionList;
class Waits;
class WindowsInstaller;
struct FilesProvider;
struct Registry;

struct AgentServices
{
    // The agent's own file, the environment, the temporary folder, file operations.
    AgentOs* m_pOs = nullptr;
    // How the ini and package-description readers get the package's files; null: from the disk.
    FilesProvider* m_pFiles = nullptr;
    // HKEY_LOCAL_MACHINE in the 32-bit or the 64-bit view.
    Registry* m_pRegistry = nullptr;
    // The service control manager: the agent's own Windows service.
    ServiceControl* m_pServices = nullptr;
    // The interactive user sessions.
    SessionList* m_pSessions = nullptr;
    // The administration server that manages this host now.
    ServerIdSource* m_pServerIds = nullptr;
    // Where results are reported.
    ReportSink* m_pReports = nullptr;
    // The wall clock.
    Clock* m_pClock = nullptr;
    // Registering the agent to start again after a reboot.
    Autostart* m_pAutostart = nullptr;
    // Windows Installer, for packages and patches installed in this process.
    WindowsInstaller* m_pInstaller = nullptr;
    // The consent dialogue in a user's session.
    ConsentDialog* m_pConsent = nullptr;
    // The main thread's waits (message-pumping on Windows) and its tick counter.
    Waits* m_pWaits = nullptr;
    // The products the management agent controls on this host (driverservices.h).
    ControlledProducts* m_pProducts = nullptr;
    // Uninstalls one product; null: this build cannot, and the driver says so.
    class ProductUninstaller* m_pUninstaller = nullptr;
    // Opens a file through the shell after an installation.
    class ShellOpener* m_pShell = nullptr;
    // Downloads a package's setup files (download.h), through the proxy the source names.
    class Transfer* m_pTransfer = nullptr;
    class ProxySource* m_pProxy = nullptr;
    // The administration server, for the reboot-request worker (servcon.h).
    class ServerLink* m_pServerLink = nullptr;
    // Starts the second instance that delivers a pending reboot's result (rebootrequest.h).
    class InstanceStarter* m_pStarter = nullptr;
    // Where the removal of incompatible software finds its engine and keeps its work (competitor.h);
    // null: this build cannot remove it, and the driver says so.
    QZRIWRP::CompetitorEnv* m_pCompetitorEnv = nullptr;
};

}  // namespace QZRI
