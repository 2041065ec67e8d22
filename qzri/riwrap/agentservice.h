// The agent's own Windows service for one task: registered before a setup that may reboot the computer
// or before a planned reboot, so that the agent starts again afterwards with the action stored in
// "$qzriwrp.ini"; removed on every path that ends the task. Also the clean-up of services that agents
// of earlier or other tasks left behind.
#pragma once

#include <string>

#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/autostart.h"

namespace QZRI {

class RiWrpData;

// The service-name prefixes of two older deployment agents, whose ghosts are cleaned up as well.
inline constexpr const wchar_t* OLDER_SERVICE_PREFIXES[] = {L"QZ Remote Installation Agent",
                                                            L"QZ Package Wrapper"};
// A service whose agent executable came to the computer longer ago than this is a ghost: no task keeps
// an agent waiting across reboots for that long.
inline constexpr int GHOST_AGE_DAYS = 30;
// ERROR_SERVICE_MARKED_FOR_DELETE: the previous instance of the service has not gone yet.
inline constexpr int SERVICE_MARKED_FOR_DELETE = 1072;
inline constexpr int INSTALL_RETRIES = 10;

// The id of this run's service: the one it was restarted with, else the master service id the server
// gave, else a new one (kept in the run data for the rest of the run).
const std::wstring& ServiceIdOf(RiWrpData& data);

// The service's command line: the agent's path (quoted when it holds a blank), " QZRI$ID=" and the id.
std::wstring ServiceBinaryPath(const std::wstring& wstrAgentPath, const std::wstring& wstrServiceId);

// Writes the run parameters for eAction and creates the service; false with the system error in
// *pnError when the service could not be created.
bool InstallService(RiWrpData& data, QzriAction eAction, int* pnError, const AgentServices& services);

// The autostart of the agent through its service. Registers only for a local package folder (longer than
// two characters, not "//" or "\\\\"): a restarted agent could not reach a network share before the user
// logs on. 1072 is retried every 2 s, 10 times at most, and a stop of the agent ends the retries.
class ServiceAutostart : public Autostart
{
public:
    explicit ServiceAutostart(const AgentServices& services) : m_services(services) {}
    bool RegisterAutostart(RiWrpData& data, QzriAction eAction) override;
    void UnregisterAutostart(RiWrpData& data) override;

private:
    const AgentServices& m_services;
};

// Deletes the ghosts among the agent services except the one with wstrExceptId: services whose name
// begins with "QZ Deployment Wrapper" or an older agent's prefix, whose executable is missing or came
// longer ago than GHOST_AGE_DAYS. szFrom and wstrService name the caller in the trace.
void CleanupGhostRIServices(const std::wstring& wstrExceptId, const wchar_t* szFrom,
                            const std::wstring& wstrService, const AgentServices& services);

// One service: true when it is an agent's ghost that was (asked to be) deleted.
bool CheckCleanupGhostRIService(const std::wstring& wstrName, const std::wstring& wstrExceptId,
                                const AgentServices& services);

}  // namespace QZRI
