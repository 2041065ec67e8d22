// QZCS_Main: the top-level sequence and decision of one start of the agent.
#include "qzri/riwrap/qzcsmain.h"

#include <exception>
#include <optional>

#include "common/ristrutils.h"
#include "qzri/riwrap/agentactions.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/runtime.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/tracefiles.h"
#include "std/error.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* MAIN_SCOPE = "QZCS_Main";

// g_pData points at the run's data for exactly as long as QZCS_Main runs.
class RunDataPublisher
{
public:
    explicit RunDataPublisher(RiWrpData& data) { g_pData = &data; }
    ~RunDataPublisher() { g_pData = nullptr; }
    RunDataPublisher(const RunDataPublisher&) = delete;
    RunDataPublisher& operator=(const RunDataPublisher&) = delete;
};

int ExitCodeOf(InitResult eResult)
{
    switch (eResult) {
        case InitResult::OK:
            return QZRI_RSLT_NO_ERROR;
        case InitResult::NO_PACKAGE_DESCRIPTION:
            return QZRI_RSLT_NO_PACKAGE_DESCRIPTION;
        case InitResult::UNEXPECTED_REBOOT:
            return QZRI_RSLT_UNEXPECTED_REBOOT;
        case InitResult::MANAGED_BY_OTHER_SERVER:
            return QZRI_RSLT_MANAGED_BY_OTHER_SERVER;
        case InitResult::DAMAGED_STATE:
            return QZRI_RSLT_DAMAGED_STATE;
        case InitResult::FAILED:
            break;
    }
    return QZRI_RSLT_INIT_FAILED;
}

// A restart of the agent's service that is to rerun the setup first removes the services that earlier
// or other agents left behind, keeping its own.
int ContinueAsService(RiWrpData& data, const std::wstring& wstrCmdLine, AgentActions& actions)
{
    QZ_TRACE_SCOPE(MODULE, MAIN_SCOPE);
    QZ_TRACE_I(L"%hs: Require to work as a service.\n", QZ_SCOPE_NAME);
    if (data.m_eAct == QZRI_ACTION_RUN) {
        QZ_TRACE_I(L"%hs: Cleanup another RI services.\n", QZ_SCOPE_NAME);
        if (const std::optional<int> nEnd =
                actions.CleanupOtherServices(GetKeyValue(wstrCmdLine, Keys::SERVICE_RESTART)))
            return *nEnd;
    }
    return actions.RunAsService(data);
}

int RunInstallation(RiWrpData& data, const std::wstring& wstrCmdLine, AgentActions& actions)
{
    QZ_TRACE_SCOPE(MODULE, MAIN_SCOPE);
    QZ_TRACE_I(L"%hs: Ready to run executable.\n", QZ_SCOPE_NAME);
    if (data.m_bSilentModeCmdLine) {
        QZ_TRACE_I(L"%hs: Silent mode is enabled, cleanup another RI service id '%ls'.\n", QZ_SCOPE_NAME,
                   data.m_wstrMasterServiceId);
        if (const std::optional<int> nEnd = actions.CleanupOtherServices(data.m_wstrMasterServiceId))
            return *nEnd;
    }
    const DriverResult result = actions.RunExecutable(data);
    if (result.m_bDeleteOtherWrappers) {
        QZ_TRACE_I(L"%hs: Require to delete all another wrappers.\n", QZ_SCOPE_NAME);
        if (const std::optional<int> nEnd =
                actions.CleanupOtherServices(GetKeyValue(wstrCmdLine, Keys::SERVICE_ID)))
            return *nEnd;
    }
    return result.m_nResult;
}

int RunDecidedBranch(RiWrpData& data, const std::wstring& wstrCmdLine, AgentActions& actions)
{
    QZ_TRACE_SCOPE(MODULE, MAIN_SCOPE);
    switch (DecideMainBranch(IsNewRebootWorkerRequired(wstrCmdLine), data)) {
        case MainBranch::NEW_REBOOT_WORKER:
            QZ_TRACE_I(L"%hs: Call for new reboot worker.\n", QZ_SCOPE_NAME);
            return actions.StartNewRebootWorker(data);
        case MainBranch::REBOOT_REQUEST:
            QZ_TRACE_I(L"%hs: Deliver the result and wait for the server's reboot decision.\n",
                       QZ_SCOPE_NAME);
            return actions.RunRebootRequestWorker(data);
        case MainBranch::SERVICE:
            return ContinueAsService(data, wstrCmdLine, actions);
        case MainBranch::ASK_USER:
            QZ_TRACE_I(L"%hs: Ask user for decision.\n", QZ_SCOPE_NAME);
            return actions.AskUserForStart(data);
        case MainBranch::RUN_EXECUTABLE:
            break;
    }
    return RunInstallation(data, wstrCmdLine, actions);
}

// A damaged state or a reboot during the setup must not bring the agent back at the next boot either:
// the service that would restart it goes.
int EndInitialization(const RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, MAIN_SCOPE);
    QZ_TRACE_E(L"%hs: Initialization failed...\n", QZ_SCOPE_NAME);
    if (data.m_eInitResult == InitResult::DAMAGED_STATE ||
        data.m_eInitResult == InitResult::UNEXPECTED_REBOOT)
        RemoveService(*services.m_pServices, data.m_wstrServiceId);
    return ExitCodeOf(data.m_eInitResult);
}

int RunSteps(const std::wstring& wstrCmdLine, const std::vector<std::wstring>& vecArgs,
             const AgentServices& services, AgentActions& actions)
{
    QZ_TRACE_SCOPE(MODULE, MAIN_SCOPE);
    StartTrace(wstrCmdLine, *services.m_pOs);
    QZ_TRACE_I(L"%hs: Command line: %ls\n", QZ_SCOPE_NAME, MaskPasswords(wstrCmdLine));
    RiWrpData data;
    RunDataPublisher publisher(data);
    if (!data.Initialize(vecArgs, wstrCmdLine, services))
        return EndInitialization(data, services);
    RemoveForceRebootFile(*services.m_pOs, data.m_wstrDirPath);
    return RunDecidedBranch(data, wstrCmdLine, actions);
}

}  // namespace

MainBranch DecideMainBranch(bool bNewRebootWorker, const RiWrpData& data)
{
    if (bNewRebootWorker)
        return MainBranch::NEW_REBOOT_WORKER;
    if (data.m_bPxgRequest)
        return MainBranch::REBOOT_REQUEST;
    if (data.m_bRestartedAsService)
        return MainBranch::SERVICE;
    if (data.m_eAct == QZRI_ACTION_ASK_USER)
        return MainBranch::ASK_USER;
    return MainBranch::RUN_EXECUTABLE;
}

bool IsNewRebootWorkerRequired(const std::wstring& wstrCmdLine)
{
    return HasKey(wstrCmdLine, Keys::NEW_REBOOT_WORKER);
}

void RemoveForceRebootFile(AgentOs& os, const std::wstring& wstrDirPath)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::RemoveForceRebootFile");
    const std::wstring wstrPath = wstrDirPath + FORCE_REBOOT_FILE;
    QZ_TRACE_I(L"%hs: Remove force-reboot file: '%ls'\n", QZ_SCOPE_NAME, wstrPath);
    if (!os.RemoveFile(wstrPath))
        QZ_TRACE_W(L"%hs: '%ls' could not be removed.\n", QZ_SCOPE_NAME, wstrPath);
}

int QZCS_Main(const std::wstring& wstrCmdLine, const std::vector<std::wstring>& vecArgs,
              const AgentServices& services, AgentActions& actions)
{
    QZ_TRACE_SCOPE(MODULE, MAIN_SCOPE);
    QZINITMAIN::InitInstallerTrace("Installer");
    QZINITMAIN::CInitMainUt_Init initMain("qzriwrap");
    int nExitCode = QZRI_RSLT_GENERAL_ERROR;
    try {
        nExitCode = RunSteps(wstrCmdLine, vecArgs, services, actions);
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    initMain.TearDown();
    QZ_TRACE_I(L"%hs: Exit code: %ls.\n", QZ_SCOPE_NAME, DescribeResultCode(nExitCode));
    return nExitCode;
}

}  // namespace QZRI
