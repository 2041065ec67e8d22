// The installation driver's group uninstallation, the setup's command line, the run parameters in the
// companion and the file opened after the installation, against package files in a private folder and
// stand-ins for the management agent's products, the uninstaller and the shell.
#include "qzri/riwrap/driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "common/msisetup/msisetup.h"
#include "common/ristrutils.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/par/paramshelpers.h"
#include "std/profile.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Names = std::vector<std::wstring>;
using Lines = std::vector<std::string>;

const ControlledProduct A{L"2001", L"1.0", L"Endpoint A"}, B{L"2002", L"2.0", L"Endpoint B"};
const ControlledProduct AGENT{L"1103", L"1.0.0.0", L"Management agent"}, SERVER{L"1093", L"15.0", L"Server"};
constexpr const char* GROUP_QUD =
    "[Uninstall]\r\nProduct=AllControlledProducts\r\n"
    "Version=AllControlledProducts\r\nLocalizedName=All products\r\n";

class DriverTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    // A fresh run of a silent task over the package; the shared folder receives the task's entries.
    void Package(const std::string& strQpd, const std::string& strQud, const wchar_t* szQpd = L"package.qpd")
    {
        m_wstrPkg = m_folder.MakeSubFolder(L"pkg" + std::to_wstring(++m_nPackages));
        QZTEST::RemoveAll(m_folder.Path() + L"Data");
        QZTEST::MakeFolder(m_folder.Path() + L"Data");
        QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd", strQpd);
        if (!strQud.empty())
            QZTEST::WriteFileBytes(Qud(), strQud);
        m_data = std::make_unique<RiWrpData>();
        m_data->m_wstrDirPath = m_data->m_wstrExecDirPath = m_wstrPkg;
        m_data->m_wstrQpdFilePath = m_wstrPkg + szQpd;
        m_data->m_bSilentModeCmdLine = true;
        m_data->m_wstrTaskId = L"T1";
        m_data->m_pQpd = QpdFile::Create(m_wstrPkg + szQpd);
        m_fakes = std::make_unique<QZRITEST::TestServices>();
        m_fakes->m_registry.m_wstrSharedFolder = m_folder.Path();
    }
    // What fn returns, with the trace of the call kept.
    template <class F>
    auto WithTrace(F fn)
    {
        EXPECT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        const auto result = fn();
        QZSTD::TraceClose();
        m_vecRecords = QZRITEST::TraceRecords(m_folder.Join(L"trace.txt"));
        return result;
    }
    int32_t Run(const AgentServices& services)
    {
        return WithTrace([&] { return RunExecutable(*m_data, services).m_nResult; });
    }
    std::wstring Qud() const { return m_wstrPkg + L"package.qud"; }
    std::wstring E2s() const { return m_folder.Path() + L"Data/e2s_subscription.xml"; }
    std::wstring Uninstall(const wchar_t* szKey) const
    {
        return QZSTD::GetProfileString(Qud(), L"Uninstall", szKey, L"");
    }
    std::string RevertLine() const { return "QZRIWRP I Revert qud-file '" + QZSTD::WideToUtf8(Qud()) + "'"; }

    QZTEST::TempFolder m_folder;
    int m_nPackages = 0;
    std::wstring m_wstrPkg;
    std::unique_ptr<RiWrpData> m_data;
    std::unique_ptr<QZRITEST::TestServices> m_fakes;
};

// The server's host cancels; the management agent goes last; the first failure, a missing uninstaller
// or an exception ends the group. Every way out puts the group back into the companion.
TEST_F(DriverTest, GroupUninstallationEndsRevertedOnEveryPath)
{
    // What is tried, the products, the uninstaller's codes by product (-1: it raises), whether there is an
    // uninstaller, the result, the products uninstalled, what ended the run through the report sink
    // (nullptr: the final report) and the records traced ("REVERT": the companion put back).
    using Row = std::tuple<const char*, std::vector<ControlledProduct>, std::map<std::wstring, int32_t>, bool,
                           int32_t, Names, const wchar_t*, Lines>;
    const Row rows[] = {
        Row("server on the host", {A, SERVER, AGENT}, {}, true, QZRI_RSLT_LOCAL_SERVER, {},
            L"QZRI_MSG_DATA_LOCAL_SERVER_WRN",
            {"QZRIWRP I hs: Move nagent to the end of list and check is server local",
             "QZRIWRP I Check product: name = '2001', version = '1.0'",
             "QZRIWRP I Server found (so cancel uninstall task)", "REVERT"}),
        Row("agent last", {AGENT, A, B}, {}, true, 0, {L"2001", L"2002", L"1103"}, nullptr,
            {"QZRIWRP I Nagent found (move to the end of list)",
             "QZRIWRP I Lets initialize main qud-file content",
             "QZRIWRP I RunExecutable: Product = 'AllControlledProducts', Version = 'AllControlledProducts', "
             "LocalizedName = 'All products'.",
             "QZRIWRP I Lets replace qud-file content", "QZRIWRP I nExitCode = 0, bNeedRestart = 0",
             "QZRIWRP I RunExecutable: Report about uninstalling product and wait",
             "QZRIWRP I Report about uninstalling product and wait complete!", "REVERT"}),
        Row("failing product", {A, B}, {{L"2001", 1603}}, true, 1603, {L"2001"}, nullptr,
            {"QZRIWRP I nExitCode = 1603, bNeedRestart = 0", "QZRIWRP I nExitCode != QZRI_RSLT_NO_ERROR",
             "REVERT"}),
        Row("no uninstaller", {A}, {}, false, QZRI_RSLT_NOT_AVAILABLE, {}, L"QZRI_MSG_DATA_NOT_AVAILABLE",
            {"QZRIWRP I Lets replace qud-file content", "REVERT",
             "QZRIWRP E RunExecutable: Uninstalling a product is not available in this build."}),
        Row("uninstaller raises", {A}, {{L"2001", -1}}, true, QZRI_RSLT_GENERAL_ERROR, {L"2001"},
            L"QZRI_MSG_DATA_GENERAL_ERROR", {"REVERT", "QZRIWRP E RunExecutable: process general error."}),
    };
    for (const auto& [szWhat, vecProducts, mapCodes, bUninstaller, nResult, vecUninstalled, szReport,
                      vecLines] : rows) {
        SCOPED_TRACE(szWhat);
        Package("[Setup]\r\nExecutable=setup.exe\r\n", GROUP_QUD);
        m_fakes->m_products.m_vecProducts = vecProducts;
        m_fakes->m_products.m_vecConn = {true};
        m_fakes->m_uninstaller.m_mapCodes = mapCodes;
        AgentServices services = m_fakes->Get();
        if (!bUninstaller)
            services.m_pUninstaller = nullptr;
        EXPECT_EQ(Run(services), nResult);
        EXPECT_EQ(m_fakes->m_uninstaller.m_vecProducts, vecUninstalled);
        Lines vecTraced = vecLines;
        std::replace(vecTraced.begin(), vecTraced.end(), std::string("REVERT"), RevertLine());
        EXPECT_TRUE(Traced(vecTraced));
        for (const wchar_t* szKey : {L"Product", L"Version", L"LocalizedName"})
            EXPECT_EQ(Uninstall(szKey), ALL_CONTROLLED_PRODUCTS) << szKey;
        Names vecReported;
        for (const auto& report : m_fakes->m_reports.m_vecReports)
            vecReported.push_back(report.first);
        EXPECT_EQ(vecReported, szReport ? Names{szReport} : Names{});
        EXPECT_FALSE(m_fakes->m_serviceControl.m_vecDeleted.empty());
        if (szReport == nullptr) {
            // The last product's result under the task with "_USR_UNFIN", and the group's under the task.
            QZSTD::CAutoPtr<QZPAR::Params> pCodes =
                QZPAR::GetParamsValue(QZSTD::SettingsStorage::OpenReadOnly(E2s())->ReadSection(
                                          L".core", L".independent", L"SubscriptionData"),
                                      L"TASK_ID_RSLT_CODE");
            EXPECT_EQ(QZPAR::GetIntValue(pCodes, L"T1_USR_UNFIN"), nResult);
            EXPECT_EQ(QZPAR::GetIntValue(pCodes, L"T1"), nResult);
        }
    }
}

// "ConnInstalled" is awaited after each product until it is true, cannot be read, or the limit passes; a
// stop ends the group with the products left installed.
TEST_F(DriverTest, ConnInstalledWaitEndsOnTrueUnreadableLimitOrStop)
{
    // The answers to "ConnInstalled", whether a stop is raised, the waits for it, the products
    // uninstalled, the result and the record traced.
    using Row = std::tuple<std::vector<std::optional<bool>>, bool, int, size_t, int32_t, const char*>;
    const char* const DONE = "QZRI I QZRI::ReportResult: Description: '2 product(s) uninstalled.'";
    const Row rows[] = {
        Row({true}, false, 0, 2, 0, DONE),
        Row({false, false, true}, false, 2, 2, 0, DONE),
        Row({}, false, 0, 2, 0, "QZRIWRP I RunExecutable: ConnInstalled cannot be read: nobody to wait for."),
        Row({false}, false, 2 * CONN_MAX_POLLS, 2, 0,
            "QZRIWRP W RunExecutable: ConnInstalled is still false after 300000 ms: going on."),
        Row({false}, true, 1, 1, QZRI_RSLT_GENERAL_ERROR, "QZRIWRP I RunExecutable: Stopped."),
    };
    for (const auto& [vecConn, bStopped, nWaits, nUninstalled, nResult, szTraced] : rows) {
        SCOPED_TRACE(nWaits);
        Package("[Setup]\r\nExecutable=setup.exe\r\n", GROUP_QUD);
        m_fakes->m_products.m_vecProducts = {A, B};
        m_fakes->m_products.m_vecConn = vecConn;
        m_fakes->m_waits.m_bStopped = bStopped;
        EXPECT_EQ(Run(m_fakes->Get()), nResult);
        EXPECT_EQ(m_fakes->m_waits.m_nStopWaits, nWaits);
        EXPECT_EQ(m_fakes->m_uninstaller.m_vecProducts.size(), nUninstalled);
        EXPECT_TRUE(Traced({szTraced}));
    }
}

// RI_ID for the management agent's package; the first start's AKINSTALL words (case as written) go on
// to the setup, and the trace shows only their passwords' lengths.
TEST_F(DriverTest, SetupCommandLineCarriesRiIdAndAgentRemovalWords)
{
    const std::tuple<const char*, const wchar_t*, const wchar_t*, const char*> rows[] = {
        {"1103", L"x.exe TASK_ID=T1", L"\"S\" RI_ID=r1", nullptr},
        {"2001", L"x.exe /s AKINSTALL_PWD=s3cret \"AKINSTALLSRV=a b\" akinstall=1 OTHER=1",
         L"\"S\" AKINSTALL_PWD=s3cret \"AKINSTALLSRV=a b\"",
         "'AKINSTALL_PWD=<password of 6 characters> \"AKINSTALLSRV=a b\"'."},
        {"1103", L"x.exe AKINSTALLPassword=pw", L"\"S\" RI_ID=r1 AKINSTALLPassword=pw",
         "'AKINSTALLPassword=<password of 2 characters>'."},
    };
    for (const auto& [szProduct, szSaved, szLine, szTraced] : rows) {
        SCOPED_TRACE(QZSTD::WideToUtf8(szSaved));
        Package(std::string("[Product]\r\nName=") + szProduct + "\r\n", "");
        m_data->m_wstrRiId = L"r1";
        m_data->m_wstrSavedCmdLine = szSaved;
        EXPECT_EQ(WithTrace([&] { return BuildSetupCommandLine(*m_data, L"S"); }), szLine);
        EXPECT_EQ(m_vecRecords,
                  szTraced
                      ? Lines{std::string("QZRIWRP I RunExecutable: Nagent removing params - ") + szTraced}
                      : Lines{});
    }
}

// The run parameters go into the companion, or into the description when that is a ".qud" file itself.
TEST_F(DriverTest, SaveParamsToIniWritesTheRunIntoTheCompanion)
{
    for (const wchar_t* szQpd : {L"package.qpd", L"package.qud"}) {
        Package("[Setup]\r\nExecutable=setup.exe\r\n", "[Setup]\r\nExecutable=setup.exe\r\n", szQpd);
        m_data->m_wstrRiId = L"r1";
        m_data->m_nStartCounter = 2;
        m_data->m_wstrSavedCmdLine = L"x.exe TASK_ID=T1 AKINSTALLPWD=s3cret";
        ASSERT_TRUE(SaveParamsToIni(*m_data));
        const auto Value = [&](const wchar_t* szKey) {
            return QZSTD::GetProfileString(Qud(), L"RunParams", szKey, L"");
        };
        EXPECT_EQ(Value(L"TaskId") + L" " + Value(L"RiId") + L" " + Value(L"StartCounter"), L"T1 r1 2");
        EXPECT_EQ(DecodeHexString(Value(L"CommandLine")),
                  L"x.exe TASK_ID=T1 AKINSTALLPWD=<password of 6 characters>");
    }
}

// The file opens after a check without error, with the shell's failure traced but not reported; never
// after a failure.
TEST_F(DriverTest, FileOpensAfterAnInstallationWithoutErrorOnly)
{
    const std::tuple<const wchar_t*, const char*, int, int32_t, bool> rows[] = {
        {L"/x", "", 0, 0, true},
        {L"", "", 5, 0, true},
        {L"", "[SetupMainResult]\r\nFile=r.ini\r\nSection=R\r\n", 0, 1603, false},
    };
    for (const auto& [szParams, szResult, nShellError, nResult, bOpened] : rows) {
        SCOPED_TRACE(nResult);
        Package("[Setup]\r\nExecutable=setup.exe\r\nOpenAfterInstall=readme.txt\r\nOpenAfterInstallParams=" +
                    QZSTD::WideToUtf8(szParams) + "\r\n" + szResult,
                "");
        QZTEST::WriteFileBytes(m_wstrPkg + L"r.ini", "[R]\r\nResultCode=1603\r\n");
        m_data->m_eAct = QZRI_ACTION_CHECK_RESULT;
        m_fakes->m_shell.m_nError = nShellError;
        EXPECT_EQ(Run(m_fakes->Get()), nResult);
        const std::wstring wstrCall = L"open|" + m_wstrPkg + L"readme.txt|" + szParams + L"|" + m_wstrPkg;
        EXPECT_EQ(m_fakes->m_shell.m_vecCalls, bOpened ? Names{wstrCall} : Names{});
        EXPECT_EQ(QZRITEST::ContainsInOrder(m_vecRecords,
                                            {"QZRIWRP E RunExecutable: '" + QZSTD::WideToUtf8(m_wstrPkg) +
                                             "readme.txt' could not be opened (error 5)."}),
                  nShellError != 0);
    }
}

// Windows Installer answering in turn (then 0); each run first plays an action start and, for a failure,
// an error message, as the real installer does.
class ScriptedInstaller : public WindowsInstaller
{
public:
    uint32_t MsiDllVersion() override { return 5u << 16; }
    std::wstring LogFolder() override { return L""; }
    std::wstring LocalTimeStamp() override { return L"t"; }
    uint32_t EnableLog(uint32_t, const std::wstring&) override { return 0; }
    uint32_t SetRecordHandler(MsiMessageSink*, uint32_t) override { return 0; }
    void SetStringHandlerAndNoUi(MsiMessageSink*, uint32_t) override {}
    void RestoreHandlers(bool) override {}
    uint32_t InstallProduct(const std::wstring&, const std::wstring& wstrCmdLine) override
    {
        m_vecCmdLines.push_back(wstrCmdLine);
        const uint32_t nResult = m_nRuns < m_vecResults.size() ? m_vecResults[m_nRuns] : 0;
        ++m_nRuns;
        CurrentMsiSetup()->OnRecordMessage(MSI_MESSAGE_ACTIONSTART, {},
                                           L"Action 10:00:00: InstallFiles. Copying");
        if (nResult == MSI_ERROR_INSTALL_FAILURE)
            CurrentMsiSetup()->OnStringMessage(MSI_MESSAGE_ERROR, L"Error 1310. Cannot write C:\\f");
        return nResult;
    }
    uint32_t ApplyPatch(const std::wstring&, const std::wstring&) override { return 1; }
    std::vector<uint32_t> m_vecResults;
    std::vector<std::wstring> m_vecCmdLines;
    size_t m_nRuns = 0;
};

// The installer's answer is judged through the package's lists like a setup's exit code; a failure
// is explained; a busy installer past the package's limit is "retry later", not a failure.
TEST_F(DriverTest, WindowsInstallerAnswersAreJudgedExplainedOrRetriedLater)
{
    // What is tried, the installer's answers, the result, the autostart calls past the first
    // registration and the record traced (nullptr: none asked for).
    using Row = std::tuple<const char*, std::vector<uint32_t>, int32_t, Names, const char*>;
    const Row rows[] = {
        Row("installed", {0}, QZRI_RSLT_NO_ERROR, {}, "QZRIWRP I RunExecutable: final result has no error."),
        Row("restart needed, listed", {3010}, QZRI_RSLT_NO_ERROR, {L"Register(2)"},
            "QZRIWRP I RunExecutable: finish after reboot."),
        Row("failed", {1603}, 1603, {},
            "QZRIWRP I RunExecutable: Windows Installer returned 1603: Action InstallFiles failed: Error "
            "1310. "
            "Cannot write C:\\f; its log is '$msisetup-t.txt'."),
        Row("busy past the limit", {1618, 1618, 1618}, QZRI_RSLT_INSTALLER_BUSY, {}, nullptr),
    };
    for (const auto& [szWhat, vecResults, nResult, vecAutostartCalls, szTraced] : rows) {
        SCOPED_TRACE(szWhat);
        Package(
            "[Setup]\r\nExecutable=setup.msi\r\nMsiProperties=A=1 /qn\r\nMsiBusyTimeoutSec=7\r\n"
            "[SetupProcessResult_NeedReboot]\r\n3010=1\r\n",
            "");
        QZTEST::WriteFileBytes(m_wstrPkg + L"setup.msi", "msi");
        m_data->m_bSilentModeCmdLine = false;
        ScriptedInstaller installer;
        installer.m_vecResults = vecResults;
        AgentServices services = m_fakes->Get();
        services.m_pInstaller = &installer;
        EXPECT_EQ(Run(services), nResult) << Dump();
        EXPECT_EQ(installer.m_vecCmdLines.front(), L" A=\"1\" REBOOT=\"ReallySuppress\"");
        Names vecAutostart = m_fakes->m_autostart.m_vecCalls;
        std::erase(vecAutostart, L"Register(1)");
        EXPECT_EQ(vecAutostart, vecAutostartCalls);
        if (szTraced) {
            EXPECT_TRUE(Traced({szTraced}));
        }
    }
    EXPECT_TRUE(
        Traced({"QZRIWRP W RunExecutable: warnings generated - '/qn is no property and is ignored'."}));
}

}  // namespace
