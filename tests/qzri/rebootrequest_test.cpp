// The reboot-request worker against a scripted server: delivery once, the decision, the retry rules, the
// shutdown, the attempt limit, and what it leaves in the package folder.
#include "qzri/riwrap/rebootrequest.h"

#include <gtest/gtest.h>

#include <tuple>

#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/qzcsmain.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Server = QZRITEST::ScriptedServer;

// Records the length of every wait; the shutdown is raised at the wait numbered m_nStopAt (from 1; a
// zero-length wait is the flag's test and counts too once the shutdown is raised).
class CountingWaits : public Waits
{
public:
    Slice PumpMessagesAndWait(uint32_t) override { return Slice::ELAPSED; }
    bool WaitForStop(uint32_t nMs) override
    {
        if (nMs > 0)
            m_vecWaits.push_back(nMs);
        return m_nStopAt > 0 && m_vecWaits.size() >= m_nStopAt;
    }
    uint32_t TickCount() override { return 0; }
    std::vector<uint32_t> m_vecWaits;
    size_t m_nStopAt = 0;
};

class RebootRequestTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    void SetUp() override
    {
        m_data.m_wstrDirPath = m_folder.MakeSubFolder(L"pkg");
        m_fakes.m_os.m_wstrModulePath = m_data.m_wstrDirPath + L"qzriwrap.exe";
        m_services = m_fakes.Get();
        m_services.m_pWaits = &m_waits;
    }
    // Requests a reboot for task "T1" as the first instance does, then runs the worker on the request.
    WorkerEnd Run(const PollLimits& limits = {})
    {
        m_wstrRequest = RequestPxgReboot(m_data, L"T1", RiResult{0, 3010, 0, 32, L"done", 1}, m_services);
        EXPECT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        const WorkerEnd eEnd = RequestPxgRebootWorker(m_data, m_wstrRequest, limits, m_services);
        QZSTD::TraceClose();
        m_vecRecords = QZRITEST::TraceRecords(m_folder.Join(L"trace.txt"));
        return eEnd;
    }
    size_t Count(const std::wstring& wstrCall) const
    {
        return std::count(m_fakes.m_server.m_vecCalls.begin(), m_fakes.m_server.m_vecCalls.end(), wstrCall);
    }
    bool ForceRebootFileMade() const { return QZTEST::PathExists(m_data.m_wstrDirPath + FORCE_REBOOT_FILE); }

    QZTEST::TempFolder m_folder;
    QZRITEST::TestServices m_fakes;
    CountingWaits m_waits;
    AgentServices m_services;
    RiWrpData m_data;
    std::wstring m_wstrRequest;
};

const std::wstring POLL = L"ShouldForceReboot2(host-1,T1)";
const std::string SCOPE = "QZRI I QZRI::RequestPxgRebootWorker: ";

// Each script: the delivery's answer first, then the polls'. Every case delivers exactly once.
TEST_F(RebootRequestTest, TheServersAnswersEndTheWorkerByItsRules)
{
    struct Case
    {
        const char* szName;
        std::vector<int> vecAnswers;
        int nFailingConnects;
        WorkerEnd eEnd;
        size_t nPolls;
        size_t nConnects;
        std::vector<std::string> vecTrace;
    };
    const Case cases[] = {
        {"accepted at the third poll",
         {0, 0, 0, 1},
         0,
         WorkerEnd::ACCEPTED,
         3,
         1,
         {SCOPE + "Lets pool reboot accepting",
          SCOPE + "Pooling iteration 288 is finished, go to next attempt, sleep for 300 seconds.",
          SCOPE + "Pooling iteration 287 is finished, go to next attempt, sleep for 300 seconds.",
          SCOPE + "Finish pooling, reboot accepted", SCOPE + "Exit. Attempts counter value is 286."}},
        {"cancelled", {0, 2}, 0, WorkerEnd::CANCELLED, 1, 1, {SCOPE + "Finish pooling, request canceled"}},
        {"an old server",
         {0, Server::OLD_SERVER},
         0,
         WorkerEnd::OLD_SERVER,
         1,
         1,
         {SCOPE + "Finish pooling, old qzserver detected", SCOPE + "Exit. Attempts counter value is 288."}},
        {"access denied on the connection",
         {0, 0, Server::DENIED},
         0,
         WorkerEnd::ACCESS_DENIED,
         2,
         1,
         {SCOPE + "Exit in case of access denied error on already created connection on 287 attempt.",
          SCOPE + "Exit. Attempts counter value is 0."}},
        {"a delivery that failed is made again on a new connection",
         {Server::UNREACHABLE, 0, 1},
         0,
         WorkerEnd::ACCEPTED,
         1,
         2,
         {SCOPE + "Sleep for 300 seconds after error was caught."}},
        {"a failed poll reconnects without delivering again",
         {0, Server::UNREACHABLE, 1},
         0,
         WorkerEnd::ACCEPTED,
         2,
         2,
         {SCOPE + "Sleep for 300 seconds after error was caught."}},
        {"no connection settings at first",
         {0, 1},
         2,
         WorkerEnd::ACCEPTED,
         1,
         3,
         {SCOPE + "Sleep for 300 seconds after error was caught.",
          SCOPE + "Exit. Attempts counter value is 286."}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.szName);
        SetUp();
        m_fakes.m_server = {};
        m_fakes.m_server.m_vecAnswers = c.vecAnswers;
        m_fakes.m_server.m_nFailingConnects = c.nFailingConnects;
        EXPECT_EQ(Run(), c.eEnd);
        EXPECT_EQ(Count(POLL), c.nPolls);
        EXPECT_EQ(Count(L"Connect"), c.nConnects);
        EXPECT_GE(Count(L"SetRiTaskResults"), 1u);
        EXPECT_EQ(ForceRebootFileMade(), c.eEnd == WorkerEnd::ACCEPTED);
        EXPECT_TRUE(Traced(c.vecTrace));
        // Delivered: the request is done with; the next worker would not deliver it again.
        EXPECT_FALSE(QZTEST::PathExists(m_wstrRequest));
        QZTEST::RemoveAll(m_data.m_wstrDirPath);
    }
}

// The limits come from the package description when it has them.
TEST_F(RebootRequestTest, AServerThatNeverDecidesIsAsked288Times300SecondsApartOrAsThePackageSays)
{
    EXPECT_EQ(Run(), WorkerEnd::EXHAUSTED);
    EXPECT_EQ(Count(POLL), 288u);
    EXPECT_EQ(m_waits.m_vecWaits, std::vector<uint32_t>(288, 300000u));
    EXPECT_TRUE(Traced({SCOPE + "Exit. Attempts counter value is 0."}));
    EXPECT_FALSE(ForceRebootFileMade());
    m_waits.m_vecWaits.clear();
    QZTEST::WriteFileBytes(m_data.m_wstrDirPath + L"p.qpd",
                           "[ExtendedSettings]\r\nRebootPollAttempts=3\r\nRebootPollIntervalSec=2\r\n");
    m_data.m_pQpd = QpdFile::Create(m_data.m_wstrDirPath + L"p.qpd");
    EXPECT_EQ(Run(ReadPollLimits(m_data)), WorkerEnd::EXHAUSTED);
    EXPECT_EQ(m_waits.m_vecWaits, std::vector<uint32_t>(3, 2000u));
}

TEST_F(RebootRequestTest, AShutdownDuringAWaitEndsItAndAnUndeliveredRequestStays)
{
    m_fakes.m_server.m_vecAnswers = {Server::UNREACHABLE};
    m_waits.m_nStopAt = 1;
    EXPECT_EQ(Run(), WorkerEnd::SHUTDOWN);
    EXPECT_EQ(Count(L"Connect"), 1u);
    EXPECT_TRUE(Traced({SCOPE + "Finish pooling, shutdown flag detected"}));
    QZSTD::CAutoPtr<QZPAR::Params> pRequest = QZPAR::ReadParamsFile(m_wstrRequest);
    EXPECT_TRUE(QZPAR::GetBoolValue(pRequest, L"QZRI_SRVRI_SEND"));
}

TEST_F(RebootRequestTest, AMissingRequestEndsAtOnceWithoutCallingTheServer)
{
    EXPECT_EQ(
        RequestPxgRebootWorker(m_data, m_data.m_wstrDirPath + L"$qzriwrp_srvri_none.par", {}, m_services),
        WorkerEnd::NO_REQUEST);
    EXPECT_TRUE(m_fakes.m_server.m_vecCalls.empty());
}

TEST(ServerConnectorTest, EmptyIdsAndANullRequestAreRefusedBeforeAnyCall)
{
    QZRITEST::ScriptedServer server;
    ServCon::ServerConnector connector(server.Connect(L""), L"host-1");
    const auto RefusedArgument = [](auto fn) {
        const std::optional<QZSTD::QZError> error = QZTEST::ErrorOf(fn);
        return error && error->Is(QZSTD::Err::MODULE, QZSTD::Err::BAD_PARAM) ? error->GetArgs().at(0) : L"";
    };
    EXPECT_EQ(RefusedArgument([&] { connector.CallShouldForceReboot(L"", L"T1"); }), L"wstrHostID");
    EXPECT_EQ(RefusedArgument([&] { connector.CallShouldForceReboot(L"h", L""); }), L"wstrTaskID");
    EXPECT_EQ(RefusedArgument([&] { connector.CallSetRiTaskResults(nullptr); }), L"pData");
    EXPECT_EQ(server.m_vecCalls, std::vector<std::wstring>{L"Connect"});
}

}  // namespace

// Where the connection comes from, and what an unusable ss_install.xml or management agent profile says.
TEST(ServerConnectionTest, FromTheInstallSettingsOrTheAgentsProfileOrAClearError)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrPkg = folder.MakeSubFolder(L"pkg");
    const std::wstring wstrStorage = folder.Path() + L"local_ss.xml";
    QZRITEST::NoProxy proxy;
    const auto Write = [](const std::wstring& wstrFile, const wchar_t* szSection,
                          const std::string& strValues) {
        QZTEST::WriteFileBytes(wstrFile,
                               "<?xml version=\"1.0\"?><settings_storage format=\"1\"><product name=\"1103\">"
                               "<version name=\"1.0.0.0\"><section name=\"" +
                                   QZSTD::WideToUtf8(szSection) + "\">" + strValues +
                                   "</section></version></product></settings_storage>");
    };
    const std::string strName = "<value name=\"ServerName\" type=\"STRING_T\" value=\"srv\"/>";
    const std::string strSsl = "<value name=\"UseSSLConnection\" type=\"BOOL_T\" value=\"true\"/>";
    const std::string strNag = "<value name=\"ServerAddress\" type=\"STRING_T\" value=\"nag\"/>";
    // The install settings' values (empty: no file); the management agent's profile (empty: none); the
    // base or the error.
    using Case = std::tuple<std::string, std::string, std::string>;
    const Case cases[] = {
        {"", "", "QZTRANSPORT 2006"},
        {"",
         strNag + "<value name=\"UseSsl\" type=\"BOOL_T\" value=\"true\"/><value name=\"ServerSslPorts\" "
                  "type=\"ARRAY_T\"><item type=\"INT_T\" value=\"13000\"/><item type=\"INT_T\" "
                  "value=\"13001\"/></value>",
         "https://nag:13000"},
        {"", strNag, "QZTRANSPORT 2006"},
        {strName + "<value name=\"ServerPort\" type=\"INT_T\" value=\"14000\"/>", "", "http://srv:14000"},
        {strName + strSsl + "<value name=\"ServerSSLPort\" type=\"INT_T\" value=\"13000\"/>", "",
         "https://srv:13000"},
        // SSL without its port.
        {strName + strSsl + "<value name=\"ServerPort\" type=\"INT_T\" value=\"1\"/>", "", "QZPAR 1044"},
        {strName + "<value name=\"ServerPort\" type=\"STRING_T\" value=\"14000\"/>", "", "QZPAR"},
        // Hosted, over http.
        {"<value name=\"HOSTED_MODE\" type=\"BOOL_T\" value=\"true\"/><value name=\"HdsUrl\" "
         "type=\"STRING_T\" value=\"http://h\"/>",
         "", "QZSTD 1187"},
    };
    for (const auto& [strInstall, strProfile, strExpected] : cases) {
        SCOPED_TRACE(strInstall + strProfile);
        QZTEST::RemoveAll(wstrPkg + L"ss_install.xml");
        QZTEST::RemoveAll(wstrStorage);
        if (!strInstall.empty())
            Write(wstrPkg + L"ss_install.xml", L"SS_INSTALL", strInstall);
        if (!strProfile.empty())
            Write(wstrStorage, L"SSP_SETTINGS",
                  "<value name=\"QZNLA_CUR_PROFILE\" type=\"PARAMS_T\">" + strProfile + "</value>");
        std::string strGot;
        try {
            strGot = ServCon::GetServerConnection(wstrPkg, wstrStorage, proxy).m_endpoint.m_strBase;
        } catch (const QZSTD::QZError& e) {
            strGot = e.GetModule() + " " + std::to_string(e.GetCode());
        }
        EXPECT_EQ(strGot.substr(0, strExpected.size()), strExpected);
    }
}
