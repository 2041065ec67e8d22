// The installation driver, its steps in the order it takes them.
#include "qzri/riwrap/driver.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "common/msisetup/msisetup.h"
#include "common/rilaunch.h"
#include "common/ristrutils.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservice.h"
#include "qzri/riwrap/askuser.h"
#include "qzri/riwrap/autostart.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/competitorrun.h"
#include "qzri/riwrap/download.h"
#include "qzri/riwrap/driverservices.h"
#include "qzri/riwrap/msidriver.h"
#include "qzri/riwrap/reports.h"
#include "qzri/riwrap/resultcheck.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/waits.h"
#include "std/cmdline.h"
#include "std/error.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* SCOPE = "RunExecutable";
// [Product] "Name" of a package that installs an operating-system image for network boot.
constexpr const wchar_t* OS_IMAGE_PACKAGE = L"pxe_osimage_package";

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

// An error nobody expected: the service goes, and the report names the error, so that an administrator
// reads "General error. Exec format error (8)" and not only that something failed.
int32_t FinishWithError(RiWrpData& data, const std::exception& e, const AgentServices& services)
{
    const auto* pError = dynamic_cast<const QZSTD::QZError*>(&e);
    const std::wstring wstrText = std::wstring(MSG_GENERAL_ERROR.m_szText) + L" " +
                                  (pError ? pError->GetMessage() : QZSTD::Utf8ToWide(e.what()));
    return Finish(data, RiMessage{MSG_GENERAL_ERROR.m_szId, wstrText.c_str()}, QZRI_RSLT_GENERAL_ERROR,
                  services);
}

// A part this build lacks: said plainly, never a pretended success.
int32_t NotAvailable(RiWrpData& data, const wchar_t* szWhat, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    QZ_TRACE_E(L"%hs: %ls is not available in this build.\n", QZ_SCOPE_NAME, szWhat);
    return Finish(data, MSG_NOT_AVAILABLE, QZRI_RSLT_NOT_AVAILABLE, services);
}

enum class UninstallMode
{
    NONE,
    SINGLE,
    GROUP,
};

// The uninstall modes: nothing to do unless the companion names a product in [Uninstall].
UninstallMode NeedsUninstall(const RiWrpData& data)
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
    if (wstrProduct == ALL_CONTROLLED_PRODUCTS && wstrVersion == ALL_CONTROLLED_PRODUCTS)
        return UninstallMode::GROUP;
    QZ_TRACE_I(L"%hs: Run single-product uninstallation\n", QZ_SCOPE_NAME);
    return wstrProduct.empty() ? UninstallMode::NONE : UninstallMode::SINGLE;
}

// ---- group uninstallation ----

constexpr const wchar_t* UNINSTALL_SECTION = L"Uninstall";

// The uninstaller takes its product from [Uninstall] of the package description: the companion is
// written, made visible to other processes, and read again into the run data.
bool WriteUninstallTarget(RiWrpData& data, const std::wstring& wstrQud, const std::wstring& wstrProduct,
                          const std::wstring& wstrVersion, const std::wstring& wstrName)
{
    bool bWritten = QZSTD::WriteProfileString(wstrQud, UNINSTALL_SECTION, L"Product", wstrProduct.c_str());
    bWritten =
        QZSTD::WriteProfileString(wstrQud, UNINSTALL_SECTION, L"Version", wstrVersion.c_str()) && bWritten;
    bWritten =
        QZSTD::WriteProfileString(wstrQud, UNINSTALL_SECTION, L"LocalizedName", wstrName.c_str()) && bWritten;
    QZSTD::FlushProfile(wstrQud);
    data.m_pQpd->Read(data.m_pQpd->GetPath());
    return bWritten;
}

// Puts the group back into the companion however the group uninstallation ends, so that the task run
// again uninstalls the whole group, not the product that happened to be written last. Reverted before
// the run's report (the report may copy the companion for the server) and, on an exception, on the way
// out.
class GroupQudRevert
{
public:
    GroupQudRevert(RiWrpData& data, std::wstring wstrQud) : m_data(data), m_wstrQud(std::move(wstrQud)) {}
    ~GroupQudRevert()
    {
        try {
            Revert();
        } catch (const std::exception& e) {
            QZ_TRACE_SCOPE(MODULE, SCOPE);
            QZ_TRACE_EXCEPTION(e);
        }
    }
    GroupQudRevert(const GroupQudRevert&) = delete;
    GroupQudRevert& operator=(const GroupQudRevert&) = delete;

    void Revert()
    {
        if (m_bReverted)
            return;
        m_bReverted = true;
        QZ_TRACE_SCOPE(MODULE, SCOPE);
        QZ_TRACE_I(L"Revert qud-file '%ls'\n", m_wstrQud);
        if (!WriteUninstallTarget(m_data, m_wstrQud, ALL_CONTROLLED_PRODUCTS, ALL_CONTROLLED_PRODUCTS,
                                  ALL_CONTROLLED_PRODUCTS))
            QZ_TRACE_E(L"%hs: '%ls' could not be written.\n", QZ_SCOPE_NAME, m_wstrQud);
    }

private:
    RiWrpData& m_data;
    std::wstring m_wstrQud;
    bool m_bReverted = false;
};

bool IsManagementAgent(const ControlledProduct& product)
{
    return product.m_wstrName == MANAGEMENT_AGENT_PRODUCT &&
           product.m_wstrVersion == MANAGEMENT_AGENT_VERSION;
}

// True when the administration server is on this host. Otherwise the management agent goes last: the
// reports about the other products travel through it.
bool OrderForGroupUninstall(std::vector<ControlledProduct>& vecProducts)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    QZ_TRACE_I(L"hs: Move nagent to the end of list and check is server local\n");
    for (const ControlledProduct& product : vecProducts) {
        QZ_TRACE_I(L"Check product: name = '%ls', version = '%ls'\n", product.m_wstrName,
                   product.m_wstrVersion);
        if (product.m_wstrName == ADMIN_SERVER_PRODUCT) {
            QZ_TRACE_I(L"Server found (so cancel uninstall task)\n");
            return true;
        }
        if (IsManagementAgent(product))
            QZ_TRACE_I(L"Nagent found (move to the end of list)\n");
    }
    std::stable_partition(vecProducts.begin(), vecProducts.end(),
                          [](const ControlledProduct& product) { return !IsManagementAgent(product); });
    return false;
}

// One product's result under the task id with "_USR_UNFIN": the server shows the progress of the group
// while the task goes on. Only where the run's final result goes to the task's entries too (a silent run
// for a task); a report never changes the result.
void ReportProductResult(const RiWrpData& data, const ControlledProduct& product, int32_t nCode,
                         const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    if (!data.m_bSilentModeCmdLine || data.m_wstrTaskId.empty()) {
        QZ_TRACE_I(L"%hs: No task in silent mode: no report about '%ls'.\n", QZ_SCOPE_NAME,
                   product.m_wstrDisplayName);
        return;
    }
    RiResult rslt;
    rslt.m_nResultCode = nCode;
    rslt.m_nScriptResultCode = nCode;
    rslt.m_wstrDescription = nCode == QZRI_RSLT_NO_ERROR
                                 ? L"Uninstalled '" + product.m_wstrDisplayName + L"'."
                                 : L"Uninstalling '" + product.m_wstrDisplayName + L"' failed with " +
                                       DescribeResultCode(nCode) + L".";
    try {
        ReportResultSS(data.m_wstrTaskId + UNFINISHED_TASK_SUFFIX, rslt, std::wstring(), services);
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
    }
}

// Waits until the management agent's connection is set up again, so that the report about this product
// reaches the server before the next product goes. False when the agent is being stopped.
bool WaitForConnInstalled(const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    for (int nPoll = 0;; ++nPoll) {
        const std::optional<bool> bConn = services.m_pProducts->ConnInstalled();
        if (!bConn) {
            QZ_TRACE_I(L"%hs: %ls cannot be read: nobody to wait for.\n", QZ_SCOPE_NAME,
                       CONN_INSTALLED_VALUE);
            return true;
        }
        if (*bConn)
            return true;
        if (nPoll == CONN_MAX_POLLS) {
            QZ_TRACE_W(L"%hs: %ls is still false after %d ms: going on.\n", QZ_SCOPE_NAME,
                       CONN_INSTALLED_VALUE, CONN_MAX_POLLS * static_cast<int>(CONN_POLL_MS));
            return true;
        }
        if (services.m_pWaits->WaitForStop(CONN_POLL_MS)) {
            QZ_TRACE_I(L"%hs: Stopped.\n", QZ_SCOPE_NAME);
            return false;
        }
    }
}

// Uninstalls the products the management agent controls, one by one, the management agent last; never
// on the administration server's host. The first failure ends the group.
int32_t RunGroupUninstall(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    const std::wstring wstrQud = data.m_pQpd->GetCompanionPath();
    GroupQudRevert revert(data, wstrQud);
    QZ_TRACE_I(L"%hs: Enumerate all products for groups-uninstall\n", QZ_SCOPE_NAME);
    if (!services.m_pProducts) {
        revert.Revert();
        return NotAvailable(data, L"Listing the controlled products", services);
    }
    std::vector<ControlledProduct> vecProducts = services.m_pProducts->List();
    QZ_TRACE_I(L"%hs: %d product(s) with a display name.\n", QZ_SCOPE_NAME,
               static_cast<int>(vecProducts.size()));
    if (OrderForGroupUninstall(vecProducts)) {
        revert.Revert();
        return Finish(data, MSG_LOCAL_SERVER_WRN, QZRI_RSLT_LOCAL_SERVER, services);
    }

    RiResult rslt;
    int nUninstalled = 0;
    bool bInitialized = false;
    for (const ControlledProduct& product : vecProducts) {
        QZ_TRACE_I(L"Replace product name and version in new qud-file (using '%ls')\n", wstrQud);
        if (!bInitialized) {
            QZ_TRACE_I(L"Lets initialize main qud-file content\n");
            QZ_TRACE_I(L"%hs: Product = '%ls', Version = '%ls', LocalizedName = '%ls'.\n", QZ_SCOPE_NAME,
                       QZSTD::GetProfileString(wstrQud, UNINSTALL_SECTION, L"Product", L""),
                       QZSTD::GetProfileString(wstrQud, UNINSTALL_SECTION, L"Version", L""),
                       QZSTD::GetProfileString(wstrQud, UNINSTALL_SECTION, L"LocalizedName", L""));
            bInitialized = true;
        }
        QZ_TRACE_I(L"Lets replace qud-file content\n");
        if (!WriteUninstallTarget(data, wstrQud, product.m_wstrName, product.m_wstrVersion,
                                  product.m_wstrDisplayName)) {
            // The uninstaller would read another product than this one.
            QZ_TRACE_E(L"%hs: '%ls' could not be written.\n", QZ_SCOPE_NAME, wstrQud);
            revert.Revert();
            return Finish(data, MSG_GENERAL_ERROR, QZRI_RSLT_GENERAL_ERROR, services);
        }
        QZ_TRACE_I(L"Uninstall product using '%ls'\n", wstrQud);
        if (!services.m_pUninstaller) {
            revert.Revert();
            return NotAvailable(data, L"Uninstalling a product", services);
        }
        bool bNeedRestart = false;
        const int32_t nExitCode = services.m_pUninstaller->Uninstall(data, &bNeedRestart);
        QZ_TRACE_I(L"nExitCode = %d, bNeedRestart = %d\n", nExitCode, bNeedRestart ? 1 : 0);
        rslt.m_nResultCode = nExitCode;
        if (bNeedRestart)
            rslt.m_rebootState = 1;
        QZ_TRACE_I(L"%hs: Report about uninstalling product and wait\n", QZ_SCOPE_NAME);
        ReportProductResult(data, product, nExitCode, services);
        const bool bGoOn = WaitForConnInstalled(services);
        QZ_TRACE_I(L"Report about uninstalling product and wait complete!\n");
        if (nExitCode != QZRI_RSLT_NO_ERROR) {
            QZ_TRACE_I(L"nExitCode != QZRI_RSLT_NO_ERROR\n");
            rslt.m_wstrDescription = L"Uninstalling '" + product.m_wstrDisplayName + L"' failed with " +
                                     DescribeResultCode(nExitCode) + L".";
            if (const std::wstring wstrWhy = services.m_pUninstaller->Description(); !wstrWhy.empty())
                rslt.m_wstrDescription += L" " + wstrWhy;
            break;
        }
        ++nUninstalled;
        if (!bGoOn && nUninstalled < static_cast<int>(vecProducts.size())) {
            // Stopped: the products left stay installed, the task run again takes them.
            rslt.m_nResultCode = QZRI_RSLT_GENERAL_ERROR;
            rslt.m_wstrDescription = L"Stopped after " + std::to_wstring(nUninstalled) + L" of " +
                                     std::to_wstring(vecProducts.size()) + L" products were uninstalled.";
            break;
        }
    }
    if (rslt.m_nResultCode == QZRI_RSLT_NO_ERROR)
        rslt.m_wstrDescription = std::to_wstring(nUninstalled) + L" product(s) uninstalled.";
    rslt.m_nScriptResultCode = rslt.m_nResultCode;
    revert.Revert();
    RemoveService(*services.m_pServices, ServiceIdOf(data));
    RiwrapReportResult(data, rslt, services);
    QZ_TRACE_I(L"%hs: nExitCode = %d\n", QZ_SCOPE_NAME, rslt.m_nResultCode);
    return rslt.m_nResultCode;
}

// Nothing when the previous product is gone and the setup may run; else the run's end.
std::optional<int32_t> RunSingleUninstall(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    if (!services.m_pUninstaller)
        return NotAvailable(data, L"Uninstalling a previous product", services);
    bool bNeedRestart = false;
    const int32_t nExitCode = services.m_pUninstaller->Uninstall(data, &bNeedRestart);
    QZ_TRACE_I(L"nExitCode = %d, bNeedRestart = %d\n", nExitCode, bNeedRestart ? 1 : 0);
    if (nExitCode == QZRI_RSLT_NO_ERROR)
        return std::nullopt;
    RiResult rslt;
    rslt.m_nResultCode = nExitCode;
    rslt.m_nScriptResultCode = nExitCode;
    rslt.m_wstrDescription =
        L"Uninstalling the previous product failed with " + DescribeResultCode(nExitCode) + L".";
    if (const std::wstring wstrWhy = services.m_pUninstaller->Description(); !wstrWhy.empty())
        rslt.m_wstrDescription += L" " + wstrWhy;
    RemoveService(*services.m_pServices, ServiceIdOf(data));
    RiwrapReportResult(data, rslt, services);
    return nExitCode;
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
    options.m_wstrCommandLine = BuildSetupCommandLine(data, wstrSetup);
    SaveParamsToIni(data);
    options.m_wstrCurDir = DirectoryOf(wstrSetup);
    options.m_wstrStdErr = data.m_wstrExecDirPath + SETUP_STDERR_FILE;
    // An operating-system image for network boot leaves the services that serve it running: only its
    // setup process is waited for, and its result is that process's alone.
    const bool bOsImage = data.m_pQpd->GetString(L"Product", L"Name", L"") == OS_IMAGE_PACKAGE;
    if (bOsImage)
        QZ_TRACE_I(L"%hs: operating-system image package: only the setup process is waited for.\n",
                   QZ_SCOPE_NAME);
    options.m_nWaitMode = bOsImage ? WAIT_PROCESS_ONLY : WAIT_WHOLE_JOB;
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
                   const AgentServices& services, bool* pbRestartPending)
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
        *pbRestartPending = true;
    } else {
        if (nExitCode == QZRI_RSLT_NO_ERROR)
            QZ_TRACE_I(L"%hs: final result has no error.\n", QZ_SCOPE_NAME);
        if (!services.m_pOs->FileExists(data.m_wstrQpdFilePath))
            QZ_TRACE_W(L"%hs: QPD file not available any longer! Unregister service.\n", QZ_SCOPE_NAME);
        RemoveService(*services.m_pServices, ServiceIdOf(data));
    }
    rslt.m_nResultCode = nExitCode;
    rslt.m_nScriptResultCode = nExitCode;
    if (nExitCode != QZRI_RSLT_NO_ERROR && !data.m_wstrInstallerFailure.empty())
        rslt.m_wstrDescription +=
            (rslt.m_wstrDescription.empty() ? L"" : L". ") + data.m_wstrInstallerFailure;
    RiwrapReportResult(data, rslt, services);
    QZ_TRACE_I(L"%hs: nExitCode = %d\n", QZ_SCOPE_NAME, nExitCode);
    return nExitCode;
}

// A package that names a restart result: its result files are evaluated with the restart decision (and
// the reboot-loop guard). The setup has ended, so the files are checked, not waited for. False when
// they decide nothing, and the final check judges the setup instead.
bool ReportResultFiles(RiWrpData& data, const AgentServices& services, int32_t* pnResult,
                       bool* pbRestartPending)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    if (ResultFilePathOf(data, RESTART_RESULT_KIND).empty())
        return false;
    RiResult rslt;
    if (!ReportWaitAndProcessResult(data, 0, true, rslt, services))
        return false;
    *pbRestartPending = rslt.m_rebootState != 0;
    if (*pbRestartPending)
        QZ_TRACE_I(L"%hs: finish after reboot.\n", QZ_SCOPE_NAME);
    else
        RemoveService(*services.m_pServices, ServiceIdOf(data));
    QZ_TRACE_I(L"%hs: nExitCode = %d\n", QZ_SCOPE_NAME, rslt.m_nResultCode);
    *pnResult = rslt.m_nResultCode;
    return true;
}

// The package's file to open once it is installed. Only the run whose check ends the task without error
// opens it: with a restart pending the setup runs again or its result is checked after the restart, and
// that run opens it. A failure to open is the shell's business, never the installation's result.
void OpenAfterInstall(const RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    std::wstring wstrFile = data.m_pQpd->GetString(L"Setup", OPEN_AFTER_INSTALL_KEY, L"");
    if (wstrFile.empty())
        return;
    if (!IsAbsolutePath(wstrFile))
        wstrFile = data.m_wstrDirPath + wstrFile;
    const std::wstring wstrParams = data.m_pQpd->GetString(L"Setup", OPEN_AFTER_INSTALL_PARAMS_KEY, L"");
    QZ_TRACE_I(L"%hs: shell execute '%ls' with cmdline '%ls'.\n", QZ_SCOPE_NAME, wstrFile, wstrParams);
    if (!services.m_pShell) {
        QZ_TRACE_W(L"%hs: No shell to open '%ls' with.\n", QZ_SCOPE_NAME, wstrFile);
        return;
    }
    if (const int nError = services.m_pShell->Open(L"open", wstrFile, wstrParams, data.m_wstrDirPath))
        QZ_TRACE_E(L"%hs: '%ls' could not be opened (error %d).\n", QZ_SCOPE_NAME, wstrFile, nError);
}

// The run's end once the setup (or an earlier run's setup) has finished: the restart result files when
// they are to be read and the package names them, else the final check; then the file to open.
int32_t JudgeInstallation(RiWrpData& data, int32_t nProcessCode, bool bCheckProcessResult,
                          bool bReadRestartResult, const AgentServices& services)
{
    bool bRestartPending = false;
    int32_t nResult = QZRI_RSLT_NO_ERROR;
    if (!bReadRestartResult || !ReportResultFiles(data, services, &nResult, &bRestartPending))
        nResult = FinalCheck(data, nProcessCode, bCheckProcessResult, services, &bRestartPending);
    if (nResult == QZRI_RSLT_NO_ERROR && !bRestartPending)
        OpenAfterInstall(data, services);
    return nResult;
}

// A Windows Installer package or patch, installed in this process; its answer is judged like a setup's
// exit code, through the package's code lists. A busy installer past its limit is "retry later".
int32_t InstallMsi(RiWrpData& data, const std::wstring& wstrPackage, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    SaveParamsToIni(data);
    const MsiRun run = RunMsiSetup(data, wstrPackage, services);
    if (run.m_nResult == MSI_ERROR_INSTALL_ALREADY_RUNNING)
        return Finish(data, MSG_INSTALLER_BUSY, QZRI_RSLT_INSTALLER_BUSY, services);
    data.m_wstrInstallerFailure = run.m_wstrFailure;
    return JudgeInstallation(data, static_cast<int32_t>(run.m_nResult), true, true, services);
}

int32_t RunSteps(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    if (data.m_bSilentModeCmdLine)
        QZ_TRACE_I(L"%hs: silent mode is enabled.\n", QZ_SCOPE_NAME);
    bool bCheckProcessResult = true;
    QZ_TRACE_I(L"bCheckProcessResult = %ls.\n", L"true");
    const UninstallMode eUninstall = NeedsUninstall(data);
    if (eUninstall == UninstallMode::GROUP)
        return RunGroupUninstall(data, services);
    if (eUninstall == UninstallMode::SINGLE) {
        if (const std::optional<int32_t> nEnd = RunSingleUninstall(data, services))
            return *nEnd;
    }
    QZ_TRACE_I(L"%hs: QZRIWRP::CCompetitorSoftwareUninstall::IfUninstall(..)\n", QZ_SCOPE_NAME);
    if (HasKey(data.m_wstrSavedCmdLine, Keys::COMPETITOR_REMOVAL)) {
        if (const std::optional<int32_t> nEnd = RunCompetitorRemoval(data, services))
            return *nEnd;
    }

    QZ_TRACE_I(L"%hs: data.m_eAct = %d.\n", QZ_SCOPE_NAME, static_cast<int>(data.m_eAct));
    if (data.m_eAct == QZRI_ACTION_CHECK_RESULT) {
        QZ_TRACE_I(L"data.m_eAct = QZRI_ACTION_CHECK_RESULT, so: bCheckProcessResult = false.\n");
        bCheckProcessResult = false;
        // The reboot the restart result asked for has happened: that file is not read again as a new
        // request, or a package that asked to be checked after a reboot would reboot for ever.
        return JudgeInstallation(data, 0, bCheckProcessResult, false, services);
    }
    DownloadFailure failure;
    if (CheckAndDownloadExecutableIfNeeded(data, &failure, services) != EResult::SUCCESS) {
        QZ_TRACE_E(L"Download failed.\n");
        return Finish(data, failure.m_msg, failure.m_nCode, services);
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
        return InstallMsi(data, wstrSetup, services);

    uint32_t nExitCode = 0;
    std::wstring wstrRunning;
    if (!RunSetup(data, wstrSetup, SetupTimeoutMs(data), &nExitCode, &wstrRunning)) {
        QZ_TRACE_E(L"%hs: timeout elapsed during setup call.\n", QZ_SCOPE_NAME);
        return TimedOut(data, wstrRunning, services);
    }
    return JudgeInstallation(data, static_cast<int32_t>(nExitCode), bCheckProcessResult, true, services);
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

namespace {

// The words after the program name that begin with "AKINSTALL".
std::vector<std::wstring> AgentRemovalWords(const std::wstring& wstrCmdLine)
{
    std::vector<std::wstring> vecWords;
    if (!HasKey(wstrCmdLine, AGENT_REMOVAL_KEY_PREFIX))
        return vecWords;
    const std::vector<std::wstring> vecArgs = QZSTD::SplitCommandLine(wstrCmdLine);
    for (size_t n = 1; n < vecArgs.size(); ++n)
        if (std::wstring_view(vecArgs[n]).substr(0, AGENT_REMOVAL_KEY_PREFIX.size()) ==
            AGENT_REMOVAL_KEY_PREFIX)
            vecWords.push_back(vecArgs[n]);
    return vecWords;
}

}  // namespace

std::wstring BuildSetupCommandLine(const RiWrpData& data, const std::wstring& wstrSetup)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    std::wstring wstrLine = L"\"" + wstrSetup + L"\"";
    if (data.m_pQpd->GetString(L"Product", L"Name", L"") == MANAGEMENT_AGENT_PRODUCT)
        wstrLine += L" RI_ID=" + data.m_wstrRiId;
    std::wstring wstrTraced;
    for (const std::wstring& wstrWord : AgentRemovalWords(data.m_wstrSavedCmdLine)) {
        wstrLine += L" " + QZSTD::QuoteCommandLineArg(wstrWord);
        wstrTraced += (wstrTraced.empty() ? L"" : L" ") + MaskPasswords(QZSTD::QuoteCommandLineArg(wstrWord));
    }
    if (!wstrTraced.empty())
        QZ_TRACE_I(L"%hs: Nagent removing params - '%ls'.\n", QZ_SCOPE_NAME, wstrTraced);
    return wstrLine;
}

bool SaveParamsToIni(const RiWrpData& data)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    const std::wstring wstrQud = data.m_pQpd->GetQudPath();
    if (wstrQud.empty()) {
        QZ_TRACE_W(L"%hs: SaveParamsToIni: no companion file.\n", QZ_SCOPE_NAME);
        return false;
    }
    QZ_TRACE_I(L"%hs: SaveParamsToIni into '%ls'.\n", QZ_SCOPE_NAME, wstrQud);
    const std::pair<const wchar_t*, std::wstring> keys[] = {
        {L"TaskId", data.m_wstrTaskId},
        {L"RiId", data.m_wstrRiId},
        {L"StartCounter", std::to_wstring(data.m_nStartCounter)},
        {L"CommandLine", EncodeHexString(MaskPasswords(data.m_wstrSavedCmdLine))},
    };
    bool bWritten = true;
    for (const auto& [szKey, wstrValue] : keys)
        bWritten =
            QZSTD::WriteProfileString(wstrQud, RUN_PARAMS_SECTION, szKey, wstrValue.c_str()) && bWritten;
    // The setup is another process: it must find what was written.
    QZSTD::FlushProfile(wstrQud);
    if (!bWritten)
        QZ_TRACE_E(L"%hs: '%ls' could not be written.\n", QZ_SCOPE_NAME, wstrQud);
    return bWritten;
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
        result.m_nResult = FinishWithError(data, e, services);
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
        result.m_nResult = FinishWithError(data, e, services);
    }
    return result;
}

}  // namespace QZRI
