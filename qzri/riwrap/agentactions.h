// The work that QZCS_Main hands a run over to once it has decided what this start has to do: the
// installation driver, the service mode, asking the user, the reboot worker and the clean-up of other
// agents' services. QZCS_Main only decides; these do.
//
// ThisBuildActions hands over to the real driver, service mode, consent question and ghost clean-up; the
// new reboot worker is not in this build yet, and such a run ends with a trace line that says so and a
// result code of its own (qzri/riwrap/riresult.h). Tests put a recording fake here to check the
// decisions.
#pragma once

#include <optional>
#include <string>

namespace QZRI {

class RiWrpData;

// What the installation driver gives back.
struct DriverResult
{
    // The run's result, which becomes the exit code.
    int m_nResult = 0;
    // The driver asks for all other agents' services to be deleted except the one named by "service_id".
    bool m_bDeleteOtherWrappers = false;
};

class AgentActions
{
public:
    virtual ~AgentActions() = default;

    // Each returns the run's exit code.
    virtual int StartNewRebootWorker(RiWrpData& data) = 0;
    // The second instance that delivers a pending reboot's result ("PxgRequest=<request file>").
    virtual int RunRebootRequestWorker(RiWrpData& data) = 0;
    virtual int RunAsService(RiWrpData& data) = 0;
    virtual int AskUserForStart(RiWrpData& data) = 0;
    virtual DriverResult RunExecutable(RiWrpData& data) = 0;

    // Deletes every agent service except the one with the given id. Returns nothing when the run goes
    // on, or the exit code to end the run with.
    virtual std::optional<int> CleanupOtherServices(const std::wstring& wstrKeepServiceId) = 0;
};

struct AgentServices;

class ThisBuildActions : public AgentActions
{
public:
    // The services must outlive the actions.
    explicit ThisBuildActions(const AgentServices& services) : m_services(services) {}
    int StartNewRebootWorker(RiWrpData& data) override;
    int RunRebootRequestWorker(RiWrpData& data) override;
    int RunAsService(RiWrpData& data) override;
    int AskUserForStart(RiWrpData& data) override;
    DriverResult RunExecutable(RiWrpData& data) override;
    std::optional<int> CleanupOtherServices(const std::wstring& wstrKeepServiceId) override;

private:
    const AgentServices& m_services;
};

}  // namespace QZRI
