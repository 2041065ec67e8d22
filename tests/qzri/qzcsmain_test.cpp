// QZCS_Main's sequence and decisions with a recording stand-in for the work it hands over to.
#include "qzri/riwrap/qzcsmain.h"

#include <gtest/gtest.h>

#include <tuple>

#include "qzri/riwrap/agentactions.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/tracefiles.h"
#include "std/cmdline.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Calls = std::vector<std::wstring>;

TEST(DecideMainBranchTest, ChecksAreMadeInTheirOrder)
{
    // A reboot worker, restarted as a service, the action, a reboot request, and the branch.
    const std::tuple<bool, bool, QzriAction, bool, MainBranch> rows[] = {
        {true, true, QZRI_ACTION_ASK_USER, true, MainBranch::NEW_REBOOT_WORKER},
        {true, false, QZRI_ACTION_RUN, false, MainBranch::NEW_REBOOT_WORKER},
        {false, true, QZRI_ACTION_RUN, true, MainBranch::REBOOT_REQUEST},
        {false, false, QZRI_ACTION_ASK_USER, true, MainBranch::REBOOT_REQUEST},
        {false, true, QZRI_ACTION_ASK_USER, false, MainBranch::SERVICE},
        {false, true, QZRI_ACTION_RUN, false, MainBranch::SERVICE},
        {false, false, QZRI_ACTION_ASK_USER, false, MainBranch::ASK_USER},
        {false, false, QZRI_ACTION_RUN, false, MainBranch::RUN_EXECUTABLE},
        {false, false, QZRI_ACTION_RUNNING_SETUP, false, MainBranch::RUN_EXECUTABLE},
        {false, false, QZRI_ACTION_CHECK_RESULT, false, MainBranch::RUN_EXECUTABLE},
    };
    for (const auto& [bWorker, bRestarted, eAct, bPxgRequest, eExpected] : rows) {
        RiWrpData data;
        data.m_bPxgRequest = bPxgRequest;
        data.m_bRestartedAsService = bRestarted;
        data.m_eAct = eAct;
        EXPECT_EQ(DecideMainBranch(bWorker, data), eExpected) << bWorker << bRestarted << eAct << bPxgRequest;
    }
}

class QzcsMainTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    void SetUp() override
    {
        m_wstrPkg = m_folder.MakeSubFolder(L"pkg");
        m_wstrTraceFolder = m_folder.MakeSubFolder(L"trace");
        m_fakes.m_os.m_wstrModulePath = m_wstrPkg + L"qzriwrap.exe";
        m_fakes.m_os.m_mapEnv[TRACE_FOLDER_ENV] = m_wstrTraceFolder;
        QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd", "[Setup]\r\nExecutable=setup.exe\r\n");
    }
    void TearDown() override { QZSTD::TraceClose(); }

    void WriteRunParams(const wchar_t* szAction)
    {
        ASSERT_TRUE(QZSTD::WriteProfileString(m_wstrPkg + RUN_PARAMS_FILE, L"Setup", L"action", szAction));
    }
    int Run(const std::wstring& wstrArgs, AgentActions& actions)
    {
        const std::wstring wstrCmdLine = L"qzriwrap.exe " + wstrArgs;
        const int n = QZCS_Main(wstrCmdLine, QZSTD::SplitCommandLine(wstrCmdLine), m_fakes.Get(), actions);
        QZSTD::TraceClose();
        m_vecRecords = QZRITEST::TraceRecords(m_wstrTraceFolder + TRACE_FILE);
        return n;
    }
    int Run(const std::wstring& wstrArgs) { return Run(wstrArgs, m_actions); }

    QZTEST::TempFolder m_folder;
    std::wstring m_wstrPkg;
    std::wstring m_wstrTraceFolder;
    QZRITEST::TestServices m_fakes;
    QZRITEST::RecordingActions m_actions;
};

// Which hand-overs run, in which order, and which exit code the run ends with.
TEST_F(QzcsMainTest, HandOversFollowTheBranchAndTheDriversAnswers)
{
    // What is tried, the run parameters' action (nullptr: no file), the arguments, the driver's result and
    // whether it asks to delete the other agents, the cleanup's end (0: the run goes on), the service's
    // result, the exit code, the hand-overs and the record traced ("": none asked for).
    using Row = std::tuple<const char*, const wchar_t*, const wchar_t*, int, bool, int, int, int,
                           const wchar_t*, const char*>;
    const Row rows[] = {
        {"fresh start", nullptr, L"TASK_ID=T-17", 1603, false, 0, 0, 1603, L"RunExecutable", ""},
        {"silent start cleans up first", nullptr, L"/s MASTER_SERVICE_ID=m1", 0, false, 0, 0, 0,
         L"Cleanup(m1) RunExecutable", "Silent mode is enabled, cleanup another RI service id 'm1'."},
        {"cleanup ends the run", nullptr, L"-S MASTER_SERVICE_ID=m1", 0, false, 24, 0, 24, L"Cleanup(m1)",
         ""},
        {"driver asks for cleanup", nullptr, L"service_id=s9 MASTER_SERVICE_ID=m1", 7, true, 0, 0, 7,
         L"RunExecutable Cleanup(s9)", "Require to delete all another wrappers."},
        {"service restart for a rerun", L"0", L"QZRI$ID=svc1 /s MASTER_SERVICE_ID=m1", 0, false, 0, 5, 5,
         L"Cleanup(svc1) RunAsService", "Cleanup another RI services."},
        {"service restart to check the result", L"2", L"QZRI$ID=svc1", 0, false, 0, 0, 0, L"RunAsService",
         "Require to work as a service."},
        {"new reboot worker first", L"0", L"QZRI$ID=svc1 QZRI$RBTWRK /s", 0, false, 0, 0, 0,
         L"StartNewRebootWorker", "Call for new reboot worker."},
    };
    for (const auto& [szWhat, szAction, szArgs, nDriver, bDeletes, nCleanupEnd, nService, nExit, szCalls,
                      szTraced] : rows) {
        SCOPED_TRACE(szWhat);
        QZTEST::RemoveAll(m_wstrPkg + RUN_PARAMS_FILE);
        if (szAction)
            WriteRunParams(szAction);
        QZRITEST::RecordingActions actions;
        actions.m_driverResult = {nDriver, bDeletes};
        if (nCleanupEnd)
            actions.m_nCleanupEnd = nCleanupEnd;
        actions.m_nResult = nService;
        EXPECT_EQ(Run(szArgs, actions), nExit);
        std::wstring wstrCalls;
        for (const std::wstring& wstrCall : actions.m_vecCalls)
            wstrCalls += (wstrCalls.empty() ? L"" : L" ") + wstrCall;
        EXPECT_EQ(wstrCalls, szCalls);
        if (*szTraced) {
            EXPECT_TRUE(Traced({std::string("QZRIWRP I QZCS_Main: ") + szTraced}));
        }
        EXPECT_EQ(actions.m_bRunDataPublished, nCleanupEnd == 0);
        EXPECT_EQ(g_pData, nullptr);
    }
    EXPECT_TRUE(
        Traced({"QZRIWRP I QZCS_Main: Command line: qzriwrap.exe QZRI$ID=svc1 QZRI$RBTWRK /s",
                "Installer I QZINITMAIN::CInitMainUt_Init: main module 'qzriwrap' torn down; no cloud "
                "storage was set up.",
                "QZRIWRP I QZCS_Main: Exit code: QZRI_RSLT_NO_ERROR (0, 0x0, the agent's own)."}));
    EXPECT_TRUE(m_fakes.m_serviceControl.m_vecDeleted.empty());
}

// A failed initialization hands nothing over and leaves the force-reboot marker, which goes once a run is
// initialized.
TEST_F(QzcsMainTest, FailedInitializationEndsWithItsOwnExitCodeAndHandsNothingOver)
{
    const std::wstring wstrMarker = m_wstrPkg + FORCE_REBOOT_FILE;
    QZTEST::WriteFileBytes(wstrMarker, "1");
    WriteRunParams(L"1");
    EXPECT_EQ(Run(L"QZRI$ID=svc1"), QZRI_RSLT_UNEXPECTED_REBOOT);
    EXPECT_TRUE(m_actions.m_vecCalls.empty());
    EXPECT_TRUE(QZTEST::PathExists(wstrMarker)) << "the marker goes only once the run data is complete";
    // The service that restarted the agent would do so at every boot.
    EXPECT_EQ(m_fakes.m_serviceControl.m_vecDeleted, std::vector<std::wstring>{L"QZ Deployment Wrappersvc1"});
    m_fakes.m_serviceControl.m_vecDeleted.clear();
    EXPECT_TRUE(Traced({"QZRIWRP E QZCS_Main: Initialization failed..."}));

    m_fakes.m_os.m_bModulePathFails = true;
    EXPECT_EQ(Run(L""), QZRI_RSLT_INIT_FAILED);
    EXPECT_TRUE(m_actions.m_vecCalls.empty());
    EXPECT_TRUE(m_fakes.m_serviceControl.m_vecDeleted.empty());

    // Once the run data is complete, the marker goes.
    m_fakes.m_os.m_bModulePathFails = false;
    QZTEST::RemoveAll(m_wstrPkg + RUN_PARAMS_FILE);
    Run(L"");
    EXPECT_FALSE(QZTEST::PathExists(wstrMarker));
    EXPECT_TRUE(Traced({"QZRI I QZRI::RemoveForceRebootFile: Remove force-reboot file: '" +
                            QZSTD::WideToUtf8(wstrMarker) + "'",
                        "QZRIWRP I QZCS_Main: Ready to run executable."}));
}

TEST_F(QzcsMainTest, AnErrorRaisedByAHandOverIsAGeneralError)
{
    m_actions.m_bThrows = true;
    EXPECT_EQ(Run(L""), QZRI_RSLT_GENERAL_ERROR);
    EXPECT_EQ(g_pData, nullptr);
}

}  // namespace
