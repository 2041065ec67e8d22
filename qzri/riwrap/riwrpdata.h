// The run data of one agent process: what this start has to do and for which task, filled from the
// command line, the package folder and the run-parameters file "$qzriwrp.ini" that carries the state
// of a task across service restarts and reboots. QZCS_Main owns the one instance; every other part
// of the agent reaches it through g_pData while the run lasts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/qpdfile.h"
#include "common/winsessions.h"
#include "qzri/riwrap/agentservices.h"
#include "std/process/launch.h"

namespace QZRI {

// What this start of the agent must do; stored as "action" in "$qzriwrp.ini".
enum QzriAction : int32_t
{
    // A fresh start, or a rerun after a reboot that the setup asked for.
    QZRI_ACTION_RUN = 0,
    // The setup is running. A service restart that finds it means the computer rebooted meanwhile.
    QZRI_ACTION_RUNNING_SETUP = 1,
    // Only the setup's result is to be checked after a reboot; the setup is not run again.
    QZRI_ACTION_CHECK_RESULT = 2,
    // The logged-on user must agree before the setup starts.
    QZRI_ACTION_ASK_USER = 3,
};

// "QZRI_ACTION_RUN" ...; "unknown" for a value outside the four.
const wchar_t* ActionName(int nAction);
// One of the four actions above.
bool IsKnownAction(int nAction);

// How Initialize ended; QZCS_Main turns it into the exit code.
enum class InitResult
{
    OK,
    FAILED,
    NO_PACKAGE_DESCRIPTION,
    UNEXPECTED_REBOOT,
    MANAGED_BY_OTHER_SERVER,
    // A service restart found an action in "$qzriwrp.ini" that is none of the four: the saved state
    // is damaged, and guessing what it meant could install the package a second time.
    DAMAGED_STATE,
};

inline constexpr const wchar_t* RUN_PARAMS_FILE = L"$qzriwrp.ini";

class RiWrpData
{
public:
    // Fills the record (see docs/agent.md for the steps). False when this run must not go on: the
    // package description is missing, the computer rebooted while the setup ran, another server
    // manages the host, the saved state is damaged, or an error was raised; m_eInitResult says which.
    // Errors are traced, never thrown.
    bool Initialize(const std::vector<std::wstring>& vecArgs, const std::wstring& wstrCmdLine,
                    const AgentServices& services);

    // Reads m_eAct, m_nStartCounter and m_wstrSavedCmdLine from "$qzriwrp.ini" in m_wstrDirPath. A
    // missing file or key gives action 0, counter 0 and an empty command line. A "cmdline" value that
    // is not a valid "$HEX_" string raises QZError 1187 (QZSTD) "value".
    void GetServiceRunParams();
    // Writes the action, for QZRI_ACTION_RUN the counter raised by one (a planned rerun; the other
    // actions leave it alone), and m_wstrSavedCmdLine. Changes only the file, not this record. False
    // when the file could not be written.
    bool SetServiceRunParams(QzriAction eAction);
    std::wstring RunParamsFilePath() const { return m_wstrDirPath + RUN_PARAMS_FILE; }

    // Folder of the agent and its package, with its trailing separator.
    std::wstring m_wstrDirPath;
    // Folder of the setup executable; m_wstrDirPath unless one is given.
    std::wstring m_wstrExecDirPath;
    bool m_bSilentModeCmdLine = false;
    bool m_bPxgRequest = false;
    // The GUI process started in a user's session: the task keys are not read.
    bool m_bGuiProcess = false;
    std::wstring m_wstrTaskId;
    std::wstring m_wstrRiId;
    std::wstring m_wstrMasterServiceId;
    // Started by the agent's own service: the state comes from "$qzriwrp.ini".
    bool m_bRestartedAsService = false;
    // The id of this run's service, the value of "QZRI$ID" on a service restart.
    std::wstring m_wstrServiceId;
    QzriAction m_eAct = QZRI_ACTION_RUN;
    int32_t m_nStartCounter = 0;
    // The command line of the first start, which service restarts run with.
    std::wstring m_wstrSavedCmdLine;
    std::wstring m_wstrQpdFilePath;
    bool m_bRunAsPatch = false;
    bool m_bAskUser = false;
    bool m_bRebootImmediately = false;
    // Set by the package download; read by the result evaluation.
    bool m_bIsMsi = false;
    std::wstring m_wstrParentServerID;
    std::wstring m_wstrCurrentServerID;

    // The result file and the two description files of the file channel; empty: "setup.log",
    // "ovxsetup.rep", "setuplog.txt".
    std::wstring m_wstrResultFileName;
    std::wstring m_wstrDescrFileName;
    std::wstring m_wstrUnicodeDescrFileName;
    // The setup process the driver started, while the agent waits for it; null otherwise.
    QZSTD::CAutoPtr<QZSTD::LaunchWaiter> m_pSetupWaiter;
    // What Windows Installer said about a failed installation ("Action InstallFiles failed: ..."); the
    // result's description carries it beside the code.
    std::wstring m_wstrInstallerFailure;
    // The package description, read once; null for a GUI process, which reads none.
    QZSTD::CAutoPtr<QpdFile> m_pQpd;
    // The interactive user sessions at start-up, for the processes that ask or tell users something.
    std::vector<UserSession> m_vecUserSessions;
    InitResult m_eInitResult = InitResult::FAILED;

private:
    InitResult InitializeSteps(const std::vector<std::wstring>& vecArgs, const std::wstring& wstrCmdLine,
                               const AgentServices& services);
    void InitDirPaths(AgentOs& os);
    void ReadTaskKeys(const std::wstring& wstrCmdLine);
    void TakeUserSessions(SessionList& sessions);
    void ReadStartState(const std::wstring& wstrCmdLine);
    void AdoptFirstStartReportKeys();
    bool IsDamagedState() const;
    bool FindPackageDescription(AgentOs& os);
    void ReadPackageDescription(FilesProvider* pFiles);
    bool IsUnexpectedReboot() const;
    int32_t PackageInt(const wchar_t* szSection, const wchar_t* szKey) const;
    void ReadPackageOptions(const std::wstring& wstrCmdLine, AgentOs& os);
    void ReadRebootAgentSettings(AgentOs& os);
    bool IsSkippedForOtherServer(ServerIdSource& serverIds);
};

// The run data of the running agent; null outside QZCS_Main.
extern RiWrpData* g_pData;

}  // namespace QZRI
