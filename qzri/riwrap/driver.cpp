// The installation driver, its steps in the order it takes them.
#include "qzri/riwrap/driver.h"

#include "common/rilaunch.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservice.h"
#include "qzri/riwrap/askuser.h"
#include "qzri/riwrap/autostart.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/reports.h"
#include "qzri/riwrap/resultcheck.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servicecontrol.h"
#include "std/profile.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* SCOPE = "RunExecutable";
constexpr const wchar_t* PACKAGE_SOURCE_CONFIG = L"qzriwrap.cfg";

bool EndsWithNoCase(const std::wstring& wstr, const wchar_t* szSuffix)
{
    const std::wstring wstrSuffix = szSuffix;
    if (wstr.size() < wstrSuffix.size())
        return false;
    for (size_t n = 0; n < wstrSuffix.size(); ++n) {
        wchar_t c = wstr[wstr.size() - wstrSuffix.size() + n];
        if (c >= L'A' && c <= L'Z')
            c = static_cast<wchar_t>(c - L'A' + L'a');
        if (c != wstrSuffix[n])
            return false;
    }
    return true;
}

// Ends a run: the service goes (no autostart remains), the result is reported.
int32_t Finish(RiWrpData& data, const RiMessage& msg, int32_t nCode, const AgentServices& services)
{
    RemoveService(*services.m_pServices, ServiceIdOf(data));
    services.m_pReports->ReportResult(data, msg, nCode);
    return nCode;
}

// The time-out's report names what of the setup's tree still runs, so that an administrator sees which
// dialog or child hung.
int32_t TimedOut(RiWrpData& data, const std::wstring& wstrRunning, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    RiResult rslt;
    rslt.m_nResultCode = QZRI_RSLT_TIMEOUT;
    rslt.m_nScriptResultCode = QZRI_RSLT_TIMEOUT;
    rslt.m_wstrDescription = MSG_TIMEOUT_EXPIRED.m_szText;
    if (!wstrRunning.empty())
        rslt.m_wstrDescription += L" Still running: " + wstrRunning + L".";
    QZ_TRACE_W(L"%hs: %ls \"%ls\"\n", QZ_SCOPE_NAME, MSG_TIMEOUT_EXPIRED.m_szId, rslt.m_wstrDescription);
    RemoveService(*services.m_pServices, ServiceIdOf(data));
    RiwrapReportResult(data, rslt, services);
    return QZRI_RSLT_TIMEOUT;
}

// Nothing when the user agreed; else the run ends, its service removed, with the answer's result.
std::optional<int32_t> AskUserOrEnd(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    const Consent eConsent = AskUserForStart(data, services);
    if (eConsent == Consent::AGREED)
        return std::nullopt;
    QZ_TRACE_E(L"%hs: !AskUserForStart - unregister autostart.\n", QZ_SCOPE_NAME);
    if (eConsent == Consent::DECLINED)
        return Finish(data, MSG_USER_DECLINED, QZRI_RSLT_USER_DECLINED, services);
    return Finish(data, MSG_USER_NOT_ASKED, QZRI_RSLT_USER_NOT_ASKED, services);
}

// A part this build lacks: said plainly, never a pretended success.
int32_t NotAvailable(RiWrpData& data, const wchar_t* szWhat, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    QZ_TRACE_E(L"%hs: %ls is not available in this build.\n", QZ_SCOPE_NAME, szWhat);
    return Finish(data, MSG_NOT_AVAILABLE, QZRI_RSLT_NOT_AVAILABLE, services);
}

// The uninstall modes: nothing to do unless the companion names a product in [Uninstall].
bool NeedsUninstall(const RiWrpData& data, const wchar_t** pszWhat)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    QZ_TRACE_I(L"%hs: Check groups-uninstallation mode.\n", QZ_SCOPE_NAME);
    const std::wstring wstrQud = data.m_pQpd->GetCompanionPath();
    const std::wstring wstrProduct =
        wstrQud.empty() ? std::wstring() : QZSTD::GetProfileString(wstrQud, L"Uninstall", L"Product", L"");
    const std::wstring wstrVersion =
        wstrQud.empty() ? std::wstring() : QZSTD::GetProfileString(wstrQud, L"Uninstall", L"Version", L"");
    QZ_TRACE_I(L"%hs: wstrUninstProductName = '%ls', wstrUninstProductVersion = '%ls'.\n", QZ_SCOPE_NAME,
               wstrProduct, wstrVersion);
    if (wstrProduct == ALL_CONTROLLED_PRODUCTS && wstrVersion == ALL_CONTROLLED_PRODUCTS) {
        *pszWhat = L"Group uninstallation";
        return true;
    }
    QZ_TRACE_I(L"%hs: Run single-product uninstallation\n", QZ_SCOPE_NAME);
    *pszWhat = L"Uninstalling a previous product";
    return !wstrProduct.empty();
}

bool NeedsDownload(const RiWrpData& data, const AgentServices& services)
{
    const std::wstring wstrConfig = data.m_wstrDirPath + PACKAGE_SOURCE_CONFIG;
    return services.m_pOs->FileExists(wstrConfig) &&
           QZSTD::GetProfileInt(wstrConfig, L"qzpkgsrc", L"should_download", 1) != 0;
}

long SetupTimeoutMs(const RiWrpData& data)
{
    const long lSeconds = data.m_pQpd->GetInt(L"Setup", L"TimeoutSec", 0);
    return (lSeconds > 0 ? lSeconds : DEFAULT_SETUP_TIMEOUT_SEC) * 1000;
}

// Starts the setup and waits for it and what it leaves in its job; false on time-out, with the processes
// of its tree that are still alive in *pwstrRunning (they are left running).
bool RunSetup(RiWrpData& data, const std::wstring& wstrSetup, long lTimeoutMs, uint32_t* pnExitCode,
              std::wstring* pwstrRunning)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    LaunchOptions options;
    options.m_wstrCommandLine = L"\"" + wstrSetup + L"\"";
    if (data.m_pQpd->GetString(L"Product", L"Name", L"") == L"1103")
        options.m_wstrCommandLine += L" RI_ID=" + data.m_wstrRiId;
    options.m_wstrCurDir = DirectoryOf(wstrSetup);
    options.m_wstrStdErr = data.m_wstrExecDirPath + SETUP_STDERR_FILE;
    options.m_nWaitMode = WAIT_WHOLE_JOB;
    LaunchAsync(options, &data.m_pSetupWaiter);
    const bool bFinished = data.m_pSetupWaiter->Wait(lTimeoutMs);
    if (bFinished)
        *pnExitCode = data.m_pSetupWaiter->ExitCode();
    else
        *pwstrRunning = DescribeRunningProcesses(data.m_pSetupWaiter);
    data.m_pSetupWaiter.Reset();
    return bFinished;
}

// Judges the setup's code (or its result files) at the final check, and reports.
int32_t FinalCheck(RiWrpData& data, int32_t nProcessCode, bool bCheckProcessResult,
                   const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    RiResult rslt;
    CheckInput in;
    in.bCheckProcessResult = bCheckProcessResult;
    in.lProcessResultCode = nProcessCode;
    in.bIsFinalCheck = true;
    in.bIsFirstPackage = true;
    in.bNeedWaitForResult = !ResultFilePathOf(data, MAIN_RESULT_KIND).empty() ||
                            !ResultFilePathOf(data, PROCESS_RESULT_KIND).empty();
    int32_t nExitCode = QZRI_RSLT_NO_ERROR;
    CheckResult(data, in, rslt, nExitCode, services);
    if (rslt.m_nErrClass == ERR_CLASS_REBOOT_AND_RERUN || rslt.m_nErrClass == ERR_CLASS_REBOOT_AND_CHECK) {
        // The registration CheckResult made stays: the agent goes on after the restart.
        QZ_TRACE_I(L"%hs: finish after reboot.\n", QZ_SCOPE_NAME);
        rslt.m_rebootState = 1;
    } else {
        if (nExitCode == QZRI_RSLT_NO_ERROR)
            QZ_TRACE_I(L"%hs: final result has no error.\n", QZ_SCOPE_NAME);
        if (!services.m_pOs->FileExists(data.m_wstrQpdFilePath))
            QZ_TRACE_W(L"%hs: QPD file not available any longer! Unregister service.\n", QZ_SCOPE_NAME);
        RemoveService(*services.m_pServices, ServiceIdOf(data));
    }
    rslt.m_nResultCode = nExitCode;
    rslt.m_nScriptResultCode = nExitCode;
    RiwrapReportResult(data, rslt, services);
    QZ_TRACE_I(L"%hs: nExitCode = %d\n", QZ_SCOPE_NAME, nExitCode);
    return nExitCode;
}

// A package that names a restart result: its result files are evaluated with the restart decision (and
// the reboot-loop guard). The setup has ended, so the files are checked, not waited for. False when
// they decide nothing, and the final check judges the setup instead.
bool ReportResultFiles(RiWrpData& data, const AgentServices& services, int32_t* pnResult)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    if (ResultFilePathOf(data, RESTART_RESULT_KIND).empty())
        return false;
    RiResult rslt;
    if (!ReportWaitAndProcessResult(data, 0, true, rslt, services))
        return false;
    if (rslt.m_rebootState != 0)
        QZ_TRACE_I(L"%hs: finish after reboot.\n", QZ_SCOPE_NAME);
    else
        RemoveService(*services.m_pServices, ServiceIdOf(data));
    QZ_TRACE_I(L"%hs: nExitCode = %d\n", QZ_SCOPE_NAME, rslt.m_nResultCode);
    *pnResult = rslt.m_nResultCode;
    return true;
}

int32_t RunSteps(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    if (data.m_bSilentModeCmdLine)
        QZ_TRACE_I(L"%hs: silent mode is enabled.\n", QZ_SCOPE_NAME);
    bool bCheckProcessResult = true;
    QZ_TRACE_I(L"bCheckProcessResult = %ls.\n", L"true");
    const wchar_t* szUninstall = nullptr;
    if (NeedsUninstall(data, &szUninstall))
        return NotAvailable(data, szUninstall, services);
    QZ_TRACE_I(L"%hs: QZRIWRP::CCompetitorSoftwareUninstall::IfUninstall(..)\n", QZ_SCOPE_NAME);
    if (HasKey(data.m_wstrSavedCmdLine, Keys::COMPETITOR_REMOVAL))
        return NotAvailable(data, L"Removing incompatible software", services);

    QZ_TRACE_I(L"%hs: data.m_eAct = %d.\n", QZ_SCOPE_NAME, static_cast<int>(data.m_eAct));
    if (data.m_eAct == QZRI_ACTION_CHECK_RESULT) {
        QZ_TRACE_I(L"data.m_eAct = QZRI_ACTION_CHECK_RESULT, so: bCheckProcessResult = false.\n");
        bCheckProcessResult = false;
        int32_t nResult = QZRI_RSLT_NO_ERROR;
        if (ReportResultFiles(data, services, &nResult))
            return nResult;
        return FinalCheck(data, 0, bCheckProcessResult, services);
    }
    if (NeedsDownload(data, services)) {
        QZ_TRACE_E(L"Download failed.\n");
        return NotAvailable(data, L"Downloading the package", services);
    }
    const std::wstring wstrSetup = SetupPathOf(data);
    if (!services.m_pOs->FileExists(wstrSetup)) {
        QZ_TRACE_E(L"File '%ls' does not exist.\n", wstrSetup);
        return Finish(data, MSG_SETUP_NOT_EXISTS, QZRI_RSLT_SETUP_NOT_FOUND, services);
    }
    QZ_TRACE_I(L"%hs: data.m_bSilentModeCmdLine = %d.\n", QZ_SCOPE_NAME, data.m_bSilentModeCmdLine ? 1 : 0);
    // A reboot while the setup runs is then seen by the restarted agent ("Unexpected reboot.").
    if (!data.m_bSilentModeCmdLine)
        services.m_pAutostart->RegisterAutostart(data, QZRI_ACTION_RUNNING_SETUP);
    if (data.m_bAskUser) {
        if (const std::optional<int32_t> nEnd = AskUserOrEnd(data, services))
            return *nEnd;
    }
    if (EndsWithNoCase(wstrSetup, L".msi") || EndsWithNoCase(wstrSetup, L".msp"))
        return NotAvailable(data, L"Installing a Windows Installer package", services);

    uint32_t nExitCode = 0;
    std::wstring wstrRunning;
    if (!RunSetup(data, wstrSetup, SetupTimeoutMs(data), &nExitCode, &wstrRunning)) {
        QZ_TRACE_E(L"%hs: timeout elapsed during setup call.\n", QZ_SCOPE_NAME);
        return TimedOut(data, wstrRunning, services);
    }
    int32_t nResult = QZRI_RSLT_NO_ERROR;
    if (ReportResultFiles(data, services, &nResult))
        return nResult;
    return FinalCheck(data, static_cast<int32_t>(nExitCode), bCheckProcessResult, services);
}

}  // namespace

std::wstring SetupPathOf(const RiWrpData& data)
{
    if (!data.m_pQpd->GetExecutablePath().empty())
        return data.m_pQpd->GetExecutablePath();
    const std::wstring wstrExe = data.m_pQpd->GetString(L"Setup", L"Executable", L"");
    if (wstrExe.empty() || IsAbsolutePath(wstrExe))
        return wstrExe;
    return data.m_wstrExecDirPath + wstrExe;
}

DriverResult AskUserThenRunExecutable(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    DriverResult result;
    try {
        if (const std::optional<int32_t> nEnd = AskUserOrEnd(data, services)) {
            result.m_nResult = *nEnd;
            return result;
        }
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
        result.m_nResult = Finish(data, MSG_GENERAL_ERROR, QZRI_RSLT_GENERAL_ERROR, services);
        return result;
    }
    // Asked once: the driver does not ask again.
    data.m_bAskUser = false;
    return RunExecutable(data, services);
}

DriverResult RunExecutable(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    DriverResult result;
    try {
        result.m_nResult = RunSteps(data, services);
    } catch (const std::exception& e) {
        QZ_TRACE_E(L"%hs: process general error.\n", QZ_SCOPE_NAME);
        QZ_TRACE_EXCEPTION(e);
        QZ_TRACE_I(L"%hs: unregister service in case of error.\n", QZ_SCOPE_NAME);
        result.m_nResult = Finish(data, MSG_GENERAL_ERROR, QZRI_RSLT_GENERAL_ERROR, services);
    }
    return result;
}

}  // namespace QZRI
