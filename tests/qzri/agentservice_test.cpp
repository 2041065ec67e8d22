// The agent's service: the autostart registration and the clean-up of ghosts, against a map of services
// natively and against the service control manager under Wine.
#include "qzri/riwrap/agentservice.h"

#include <gtest/gtest.h>

#include <tuple>

#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/servicemain.h"
#include "std/profile.h"
#include "tests/qzri/childprocess.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Names = std::vector<std::wstring>;
using Services = std::map<std::wstring, std::wstring>;

class AgentServiceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_data.m_wstrDirPath = m_folder.MakeSubFolder(L"pkg dir");
        m_data.m_wstrMasterServiceId = L"m1";
        m_fakes.m_os.m_wstrModulePath = m_data.m_wstrDirPath + L"qzriwrap.exe";
    }
    QZTEST::TempFolder m_folder;
    QZRITEST::TestServices m_fakes;
    RiWrpData m_data;
};

// A local folder only; 1072 is tried again every 2 s up to ten times, any other error ends it, and a
// stop ends the retries.
TEST_F(AgentServiceTest, AutostartIsAServiceOfALocalFolderRetriedWhileMarkedForDeletion)
{
    // What is tried, the folder (nullptr: the package folder), the errors of the creations in turn,
    // whether a stop is raised, whether the service is registered and the waits for the stop.
    using Row = std::tuple<const char*, const wchar_t*, std::vector<int>, bool, bool, int>;
    const Row rows[] = {
        {"at once", nullptr, {}, false, true, 0},
        {"after two attempts", nullptr, {1072, 1072}, false, true, 4},
        {"never", nullptr, std::vector<int>(11, 1072), false, false, 20},
        {"another error ends it", nullptr, {5, 0}, false, false, 0},
        {"a stop ends the retries", nullptr, {1072, 0}, true, false, 1},
        {"network share", L"\\\\srv\\share\\", {}, false, false, 0},
        {"network share with slashes", L"//srv/share/", {}, false, false, 0},
        {"too short", L"C:", {}, false, false, 0},
    };
    for (const auto& [szWhat, szDir, vecCreateErrors, bStopped, bRegistered, nStopWaits] : rows) {
        SCOPED_TRACE(szWhat);
        RiWrpData data;
        data.m_wstrDirPath = szDir ? szDir : m_data.m_wstrDirPath;
        data.m_wstrMasterServiceId = L"m1";
        data.m_nStartCounter = 4;
        m_fakes.m_serviceControl = QZRITEST::FakeServiceControl();
        m_fakes.m_serviceControl.m_vecCreateErrors = vecCreateErrors;
        m_fakes.m_waits = QZRITEST::ScriptedWaits();
        m_fakes.m_waits.m_bStopped = bStopped;
        const AgentServices services = m_fakes.Get();
        ServiceAutostart autostart(services);
        EXPECT_EQ(autostart.RegisterAutostart(data, QZRI_ACTION_RUN), bRegistered);
        EXPECT_EQ(m_fakes.m_waits.m_nStopWaits, nStopWaits);
        const std::wstring wstrCmdLine = L"\"" + m_data.m_wstrDirPath + L"qzriwrap.exe\" QZRI$ID=m1";
        EXPECT_EQ(m_fakes.m_serviceControl.m_mapServices,
                  (bRegistered ? Services{{L"QZ Deployment Wrapperm1", wstrCmdLine}} : Services{}));
        if (!bRegistered)
            continue;
        EXPECT_EQ(QZSTD::GetProfileInt(data.RunParamsFilePath(), L"Setup", L"start_counter", 0), 5);
        autostart.UnregisterAutostart(data);
        EXPECT_TRUE(m_fakes.m_serviceControl.m_mapServices.empty());
    }
}

// Ghosts are agent services whose executable is gone or came too long ago; this run's service, live
// agents and other services stay.
TEST_F(AgentServiceTest, CleanupDeletesOnlyTheGhostsOfAgents)
{
    const std::wstring wstrLive = m_folder.Join(L"live.exe");
    const std::wstring wstrOld = m_folder.Join(L"old.exe");
    QZTEST::WriteFileBytes(wstrLive, "x");
    QZTEST::WriteFileBytes(wstrOld, "x");
    const auto tpNow = m_fakes.m_clock.Now();
    m_fakes.m_os.m_mapArrival[wstrLive] = tpNow - std::chrono::hours(24 * 2);
    m_fakes.m_os.m_mapArrival[wstrOld] = tpNow - std::chrono::hours(24 * 40);
    m_fakes.m_serviceControl.m_mapServices = {
        {L"QZ Deployment Wrapperm1", m_folder.Join(L"gone.exe") + L" QZRI$ID=m1"},
        {L"QZ Deployment Wrapperlive", wstrLive + L" QZRI$ID=live"},
        {L"QZ Deployment Wrapperghost", m_folder.Join(L"gone.exe") + L" QZRI$ID=ghost"},
        {L"QZ Package Wrapper 7", L"\"" + wstrOld + L"\" /service"},
        {L"Spooler", m_folder.Join(L"gone.exe")},
    };
    CleanupGhostRIServices(L"m1", L"QZCS_Main", L"QZ Deployment Wrapperm1", m_fakes.Get());
    EXPECT_EQ(m_fakes.m_serviceControl.m_vecDeleted,
              (Names{L"QZ Deployment Wrapperghost", L"QZ Package Wrapper 7"}));
}

// Removing the service this process runs as tells the service control manager that it has stopped;
// removing another one does not.
TEST_F(AgentServiceTest, RemovingItsOwnServiceReportsItStopped)
{
    int nStopReports = 0;
    m_fakes.m_serviceControl.AttachOwnService(L"QZ Deployment Wrappermine", [&] { ++nStopReports; });
    RemoveService(m_fakes.m_serviceControl, L"other");
    EXPECT_EQ(nStopReports, 0);
    RemoveService(m_fakes.m_serviceControl, L"mine");
    EXPECT_EQ(nStopReports, 1);
    m_fakes.m_serviceControl.DetachOwnService();
    RemoveService(m_fakes.m_serviceControl, L"mine");
    EXPECT_EQ(nStopReports, 1);
}

#ifdef _WIN32
// The service control manager under Wine: the service is created with its command line and removed.
TEST_F(AgentServiceTest, TheSystemServiceIsCreatedAndRemoved)
{
    std::unique_ptr<ServiceControl> pServices = CreateSystemServiceControl();
    AgentServices services = m_fakes.Get();
    services.m_pServices = pServices.get();
    m_data.m_wstrMasterServiceId = L"test" + std::to_wstring(QZRITEST::CurrentProcessId());
    ServiceAutostart autostart(services);
    ASSERT_TRUE(autostart.RegisterAutostart(m_data, QZRI_ACTION_CHECK_RESULT));
    std::optional<ServiceFailure> failure;
    const std::wstring wstrName = ServiceNameOf(m_data.m_wstrMasterServiceId);
    EXPECT_EQ(pServices->QueryBinaryPath(wstrName, failure),
              L"\"" + m_data.m_wstrDirPath + L"qzriwrap.exe\" QZRI$ID=" + m_data.m_wstrMasterServiceId);
    const Names vecNames = pServices->EnumServiceNames(failure);
    EXPECT_NE(std::find(vecNames.begin(), vecNames.end(), wstrName), vecNames.end());
    // Its executable does not exist: to any other run it is a ghost.
    CleanupGhostRIServices(L"other", L"test", L"", services);
    failure.reset();
    pServices->QueryBinaryPath(wstrName, failure);
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->m_nError, 1060);
    autostart.UnregisterAutostart(m_data);
}
#endif

// The relaunch keeps the first start's arguments, drops the keys of earlier services and counters, and
// always runs silently.
TEST(RelaunchCommandLineTest, SavedArgumentsSilentlyWithTheNextCounter)
{
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"a.exe TASK_ID=T1", L"s.exe TASK_ID=T1 MASTER_SERVICE_ID=id /s QZRI_START_CNT=3"},
        {L"a.exe TASK_ID=T1 -S", L"s.exe TASK_ID=T1 -S MASTER_SERVICE_ID=id QZRI_START_CNT=3"},
        {L"a.exe QZRI$ID=x MASTER_SERVICE_ID=m QZRI_START_CNT=1 \"X=a b\"",
         L"s.exe \"X=a b\" MASTER_SERVICE_ID=id /s QZRI_START_CNT=3"},
        {L"", L"s.exe MASTER_SERVICE_ID=id /s QZRI_START_CNT=3"},
    };
    for (const auto& [szSaved, szExpected] : rows)
        EXPECT_EQ(QZRI::BuildRelaunchCommandLine(L"s.exe", szSaved, L"id", 3), szExpected) << szSaved;
}

// Stop and shutdown (which Wine never delivers) end the service's work with the next check point; any
// other control leaves the state alone.
TEST(ServiceControlHandlerTest, StopAndShutdownEndTheWorkOthersReReport)
{
    ServiceState state;
    state.m_nState = 4;
    state.m_nControlsAccepted = 1;
    EXPECT_FALSE(HandleServiceControl(4, state));
    EXPECT_EQ(std::tuple(state.m_nState, state.m_nCheckPoint), std::tuple(4u, 0u));
    for (const unsigned long nControl : {5ul, 1ul}) {
        EXPECT_TRUE(HandleServiceControl(nControl, state)) << nControl;
        EXPECT_EQ(std::tuple(state.m_nState, state.m_nWaitHintMs, state.m_nControlsAccepted),
                  std::tuple(3u, 10000u, 0u));
    }
    EXPECT_EQ(state.m_nCheckPoint, 2u);
}

}  // namespace
