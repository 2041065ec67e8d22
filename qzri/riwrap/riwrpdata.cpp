// RiWrpData::Initialize: the run data from the command line, the package folder and, for a service
// restart, the run-parameters file. The steps run in the order below; each is traced so that a support
// engineer can follow from the trace what the agent concluded and why.
#include "qzri/riwrap/riwrpdata.h"

#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/pkgsettings.h"
#include "qzri/riwrap/reports.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/serverid.h"
#include "std/error.h"
#include "std/profile.h"
#include "std/trace.h"

namespace QZRI {

RiWrpData* g_pData = nullptr;

namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* SESSIONS_MODULE = "QZWSSN";
constexpr const char* INIT_SCOPE = "RiWrpData::Initialize";
// The reboot agent's settings in the package folder.
constexpr const wchar_t* REBOOT_AGENT_INI = L"qzrbtagt.ini";

const wchar_t* BoolText(bool b)
{
    return b ? L"true" : L"false";
}

}  // namespace

bool RiWrpData::Initialize(const std::vector<std::wstring>& vecArgs, const std::wstring& wstrCmdLine,
                           const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    try {
        m_eInitResult = InitializeSteps(vecArgs, wstrCmdLine, services);
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        m_eInitResult = InitResult::FAILED;
    }
    return m_eInitResult == InitResult::OK;
}

InitResult RiWrpData::InitializeSteps(const std::vector<std::wstring>& vecArgs,
                                      const std::wstring& wstrCmdLine, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    InitDirPaths(*services.m_pOs);
    m_bSilentModeCmdLine = HasSilentSwitch(vecArgs);
    m_bPxgRequest = HasKey(wstrCmdLine, Keys::PXG_REQUEST);
    m_bGuiProcess = HasKey(wstrCmdLine, Keys::GUI_PROCESS);
    if (m_bGuiProcess) {
        QZ_TRACE_I(L"%hs: GUI process: the task keys are not read.\n", QZ_SCOPE_NAME);
    } else {
        ReadTaskKeys(wstrCmdLine);
        TakeUserSessions(*services.m_pSessions);
        ReadStartState(wstrCmdLine);
        if (IsDamagedState())
            return InitResult::DAMAGED_STATE;
        if (!FindPackageDescription(*services.m_pOs)) {
            services.m_pReports->ReportResult(*this, MSG_FILE_NOT_EXISTS, QZRI_RSLT_NO_PACKAGE_DESCRIPTION);
            return InitResult::NO_PACKAGE_DESCRIPTION;
        }
        ReadPackageDescription(services.m_pFiles);
    }
    if (IsUnexpectedReboot()) {
        services.m_pReports->ReportResult(*this, MSG_UNEXPECTED_REBOOT, QZRI_RSLT_UNEXPECTED_REBOOT);
        return InitResult::UNEXPECTED_REBOOT;
    }
    ReadPackageOptions(wstrCmdLine, *services.m_pOs);
    if (IsSkippedForOtherServer(*services.m_pServerIds)) {
        services.m_pReports->ReportResult(*this, MSG_COMPLETE_SKIPPED, QZRI_RSLT_MANAGED_BY_OTHER_SERVER);
        return InitResult::MANAGED_BY_OTHER_SERVER;
    }
    return InitResult::OK;
}

void RiWrpData::InitDirPaths(AgentOs& os)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    m_wstrDirPath = DirectoryOf(os.GetModuleFilePath());
    QZ_TRACE_I(L"%hs: m_wstrDirPath = %ls.\n", QZ_SCOPE_NAME, m_wstrDirPath);
    QZ_CHECK_ARG(!m_wstrDirPath.empty(), "m_wstrDirPath");
    if (m_wstrExecDirPath.empty()) {
        QZ_TRACE_I(L"%hs: Use m_wstrDirPath as m_wstrExecDirPath.\n", QZ_SCOPE_NAME);
        m_wstrExecDirPath = m_wstrDirPath;
    }
}

void RiWrpData::ReadTaskKeys(const std::wstring& wstrCmdLine)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    m_wstrTaskId = GetKeyValue(wstrCmdLine, Keys::TASK_ID);
    QZ_TRACE_I(L"%hs: m_wstrTaskId = '%ls'\n", QZ_SCOPE_NAME, m_wstrTaskId);
    m_wstrRiId = GetKeyValue(wstrCmdLine, Keys::RI_ID);
}

// The sessions are needed only later, to ask or tell users something; a list that cannot be taken
// leaves the run without them rather than failing it.
void RiWrpData::TakeUserSessions(SessionList& sessions)
{
    QZ_TRACE_SCOPE(SESSIONS_MODULE, INIT_SCOPE);
    QZ_TRACE_I(L"%hs: Ready to get sessions.\n", QZ_SCOPE_NAME);
    try {
        m_vecUserSessions = sessions.GetInteractiveSessions();
        QZ_TRACE_I(L"%hs: %d interactive user session(s).\n", QZ_SCOPE_NAME,
                   static_cast<int>(m_vecUserSessions.size()));
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        QZ_TRACE_W(L"%hs: Going on without user sessions.\n", QZ_SCOPE_NAME);
        m_vecUserSessions.clear();
    }
}

void RiWrpData::ReadStartState(const std::wstring& wstrCmdLine)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    m_bRestartedAsService = HasKey(wstrCmdLine, Keys::SERVICE_RESTART);
    m_wstrServiceId = GetKeyValue(wstrCmdLine, Keys::SERVICE_RESTART);
    m_wstrMasterServiceId = GetKeyValue(wstrCmdLine, Keys::MASTER_SERVICE_ID);
    if (m_bRestartedAsService) {
        GetServiceRunParams();
        AdoptFirstStartReportKeys();
        return;
    }
    m_eAct = QZRI_ACTION_RUN;
    m_wstrSavedCmdLine = wstrCmdLine;
    m_nStartCounter = ParseDecimal(GetKeyValue(wstrCmdLine, Keys::START_COUNTER));
    QZ_TRACE_I(L"%hs: m_eAct set to %d (%d)\n", QZ_SCOPE_NAME, static_cast<int>(m_eAct), m_nStartCounter);
}

// The service's own command line holds only its id, and nobody watches a service: a restart reports
// as a silent run does, under the first start's task id, so that a result found after a reboot,
// "Unexpected reboot." included, reaches the administrator even when the first start was interactive.
void RiWrpData::AdoptFirstStartReportKeys()
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    ReadTaskKeys(m_wstrSavedCmdLine);
    m_bSilentModeCmdLine = true;
    QZ_TRACE_I(L"%hs: A service restart reports as a silent run.\n", QZ_SCOPE_NAME);
}

bool RiWrpData::FindPackageDescription(AgentOs& os)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    const QpdChoice choice = ChooseQpdFile(os.ListFiles(m_wstrDirPath));
    if (choice.m_nCandidates == 0)
        QZ_TRACE_E(L"%hs: No package description (*.qpd) in '%ls'.\n", QZ_SCOPE_NAME, m_wstrDirPath);
    if (choice.m_nCandidates > 1)
        QZ_TRACE_W(L"%hs: %d package descriptions in '%ls'; taking '%ls', the first by name.\n",
                   QZ_SCOPE_NAME, static_cast<int>(choice.m_nCandidates), m_wstrDirPath,
                   choice.m_wstrFileName);
    m_wstrQpdFilePath =
        choice.m_wstrFileName.empty() ? std::wstring() : m_wstrDirPath + choice.m_wstrFileName;
    QZ_TRACE_I(L"%hs: wstrQpdFilePath = %ls.\n", QZ_SCOPE_NAME, m_wstrQpdFilePath);
    return os.FileExists(m_wstrQpdFilePath);
}

// Only a service restart reads the action from the file. A number that is none of the known actions
// cannot be told apart from a first start by guessing, and a wrong guess installs the package twice.
bool RiWrpData::IsDamagedState() const
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    if (!m_bRestartedAsService || IsKnownAction(m_eAct))
        return false;
    QZ_TRACE_E(
        L"%hs: '%ls' holds action %d, which is none of the known actions: the saved state is "
        L"damaged, and the setup is not run.\n",
        QZ_SCOPE_NAME, RunParamsFilePath(), static_cast<int>(m_eAct));
    return true;
}

void RiWrpData::ReadPackageDescription(FilesProvider* pFiles)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    m_pQpd = QpdFile::Create(m_wstrQpdFilePath, pFiles);
}

// An integer setting of the package description, with its ".qud" companion first; 0 when absent or
// when there is no description (a GUI process).
int32_t RiWrpData::PackageInt(const wchar_t* szSection, const wchar_t* szKey) const
{
    return m_pQpd ? m_pQpd->GetInt(szSection, szKey, 0) : 0;
}

// The service restarts the agent after a reboot; finding the action that is written just before the
// setup starts means the computer went down while the setup ran.
bool RiWrpData::IsUnexpectedReboot() const
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    const bool bUnexpected = m_bRestartedAsService && m_eAct == QZRI_ACTION_RUNNING_SETUP;
    if (bUnexpected)
        QZ_TRACE_E(L"%hs: Restarted while the setup was running: the computer was rebooted meanwhile.\n",
                   QZ_SCOPE_NAME);
    return bUnexpected;
}

void RiWrpData::ReadPackageOptions(const std::wstring& wstrCmdLine, AgentOs& os)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    m_bRunAsPatch = HasKey(wstrCmdLine, Keys::RUN_AS_PATCH);
    m_bAskUser = PackageInt(L"Setup", L"AskUser") != 0;
    QZ_TRACE_I(L"%hs: m_bAskUser = %ls.\n", QZ_SCOPE_NAME, BoolText(m_bAskUser));
    ReadRebootAgentSettings(os);
}

void RiWrpData::ReadRebootAgentSettings(AgentOs& os)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    const std::wstring wstrIni = m_wstrDirPath + REBOOT_AGENT_INI;
    if (!os.FileExists(wstrIni))
        return;
    if (QZSTD::GetProfileInt(wstrIni, L"Action", L"RebootImmediately", 0) > 0)
        m_bRebootImmediately = true;
    else
        m_bRebootImmediately = QZSTD::GetProfileInt(wstrIni, L"Action", L"AskReboot", 0) > 0;
    QZ_TRACE_I(L"%hs: m_bRebootImmediately = %ls.\n", QZ_SCOPE_NAME, BoolText(m_bRebootImmediately));
}

bool RiWrpData::IsSkippedForOtherServer(ServerIdSource& serverIds)
{
    QZ_TRACE_SCOPE(MODULE, INIT_SCOPE);
    const int nPolicy = PackageInt(L"ExtendedSettings", L"MgdByOtherSrv");
    QZ_TRACE_I(L"%hs: nNeedMgdByOtherSrv = '%ls'\n", QZ_SCOPE_NAME, MgdByOtherSrvPolicyName(nPolicy));
    if (nPolicy != MGD_BY_OTHER_SERVER_NEVER)
        return false;
    m_wstrParentServerID = m_pQpd ? m_pQpd->GetString(L"ExtendedSettings", L"ServerID", L"") : std::wstring();
    QZ_TRACE_I(L"%hs: wstrParentServerID = '%ls'\n", QZ_SCOPE_NAME, m_wstrParentServerID);
    m_wstrCurrentServerID = serverIds.GetCurrentServerId();
    QZ_TRACE_I(L"%hs: wstrCurrentServerID = '%ls'\n", QZ_SCOPE_NAME, m_wstrCurrentServerID);
    return IsManagedByAnotherServer(m_wstrParentServerID, m_wstrCurrentServerID);
}

}  // namespace QZRI
