// The reboot-request worker against the test administration server (adminserver.py, started by
// adminserver_run.sh) over real TLS: natively with OpenSSL and under Wine with Schannel. The connection
// comes from the package's ss_install.xml, the host id and the management agent's identity from its
// local settings storage, as on a managed computer.
#ifdef _WIN32
#include <windows.h>  // first, so that its macros rename the profile calls everywhere alike
#endif

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/download.h"
#include "qzri/riwrap/qzcsmain.h"
#include "qzri/riwrap/rebootrequest.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servcon.h"
#include "qzri/riwrap/waits.h"
#include "std/par/paramshelpers.h"
#include "std/shutdown.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"
#include "tools/qzpkg/qzpkgverbs.h"

namespace {

using namespace QZRI;

constexpr const wchar_t* AGENT_ID = L"Canary-agent-id-4711";

void WriteSection(const std::wstring& wstrFile, const wchar_t* szSection, QZPAR::Params* pEntries)
{
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage = QZSTD::SettingsStorage::OpenOrCreate(wstrFile);
    pStorage->CreateSection(L"1103", L"1.0.0.0", szSection);
    pStorage->ReplaceEntries(L"1103", L"1.0.0.0", szSection, pEntries);
}

class ServerLinkTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(QZTEST::GetEnv("QZ_TEST_ADMIN_PORT").empty())
            << "run through tests/qzri/adminserver_run.sh";
        m_data.m_wstrDirPath = m_folder.MakeSubFolder(L"pkg");
        m_fakes.m_os.m_wstrModulePath = m_data.m_wstrDirPath + L"qzriwrap.exe";
        QZSTD::CAutoPtr<QZPAR::Params> pIds = QZPAR::CreateParams();
        QZPAR::SetStringValue(pIds, L"QZNAG_HOSTID", L"host-42");
        QZPAR::SetStringValue(pIds, L"QZNAG_AUTH_NAGENT_ID", AGENT_ID);
        QZPAR::SetStringValue(pIds, L"QZNAG_AUTH_NAGENT_NAME", L"agent-name");
        WriteSection(Storage(), L"QZNAG_HOSTID_SECTION", pIds);
        m_pLink = CreateServerLink(Storage(), m_proxy);
        m_pWaits = CreateSystemWaits(m_shutdown);
        m_services = m_fakes.Get();
        m_services.m_pServerLink = m_pLink.get();
        m_services.m_pWaits = m_pWaits.get();
        Install(QZTEST::GetEnv("QZ_TEST_CA"));
    }
    std::wstring Storage() const { return m_folder.Path() + L"local_ss.xml"; }
    void Install(const std::wstring& wstrServerCert)
    {
        QZSTD::CAutoPtr<QZPAR::Params> p = QZPAR::CreateParams();
        QZPAR::SetStringValue(p, L"ServerName", L"localhost");
        QZPAR::SetIntValue(p, L"ServerSSLPort", std::stoi(QZTEST::GetEnv("QZ_TEST_ADMIN_PORT")));
        QZPAR::SetBoolValue(p, L"UseSSLConnection", true);
        QZPAR::SetStringValue(p, L"ServerCert", wstrServerCert);
        WriteSection(m_data.m_wstrDirPath + ServCon::SS_INSTALL_FILE, ServCon::SS_INSTALL_SECTION, p);
    }
    // Runs the worker on a fresh request for task "T9" against the server's script.
    WorkerEnd Run(const std::string& strScript, PollLimits limits = {3, 1})
    {
        const std::wstring wstrDir = QZTEST::GetEnv("QZ_TEST_ADMIN_DIR");
        QZTEST::WriteFileBytes(wstrDir + L"script", strScript);
        QZTEST::RemoveAll(wstrDir + L"calls.log");
        QZTEST::RemoveAll(m_data.m_wstrDirPath + FORCE_REBOOT_FILE);
        const std::wstring wstrRequest =
            RequestPxgReboot(m_data, L"T9", RiResult{0, 3010, 0, 32, L"done", 1}, m_services);
        EXPECT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        const WorkerEnd eEnd = RequestPxgRebootWorker(m_data, wstrRequest, limits, m_services);
        QZSTD::TraceClose();
        m_vecRecords = QZRITEST::TraceRecords(m_folder.Join(L"trace.txt"));
        m_strCalls =
            QZTEST::PathExists(wstrDir + L"calls.log") ? QZTEST::ReadFileBytes(wstrDir + L"calls.log") : "";
        return eEnd;
    }
    // How many calls of the operation the server saw, and how many of them it answered with success.
    size_t Calls(const std::string& strOp, const char* szAnswer = nullptr) const
    {
        size_t n = 0;
        std::istringstream lines(m_strCalls);
        for (std::string strLine; std::getline(lines, strLine);)
            if (strLine.find("\"op\": \"" + strOp + "\"") != std::string::npos &&
                (!szAnswer ||
                 strLine.find(std::string("\"answer\": \"") + szAnswer + "\"") != std::string::npos))
                ++n;
        return n;
    }
    bool ForceRebootFileMade() const { return QZTEST::PathExists(m_data.m_wstrDirPath + FORCE_REBOOT_FILE); }

    QZTEST::TempFolder m_folder;
    QZRITEST::TestServices m_fakes;
    QZRITEST::NoProxy m_proxy;
    QZSTD::ShutdownSignal m_shutdown;
    std::unique_ptr<ServerLink> m_pLink;
    std::unique_ptr<Waits> m_pWaits;
    AgentServices m_services;
    RiWrpData m_data;
    std::string m_strCalls;
};

// A dropped connection, a broken body and a value of the wrong type are errors that the worker sleeps
// over and then connects again; the result is delivered once, a slow answer is waited for, and the
// acceptance makes the force-reboot file. The other answers of the server (cancelled, an old server,
// access denied, never deciding) are rows of RebootRequestTest, and remotecall_test maps the wire's 403
// and 1194 to their errors; the qzpkg case below meets a 403 over TLS too.
TEST_F(ServerLinkTest, ErrorsThenRecoveryOnANewConnection)
{
    EXPECT_EQ(Run("drop,broken,0,wrongtype,slow,1", {10, 1}), WorkerEnd::ACCEPTED);
    EXPECT_EQ(Calls("SetRiTaskResults", "0"), 1u);
    EXPECT_EQ(Calls("ShouldForceReboot2"), 3u);
    EXPECT_TRUE(ForceRebootFileMade());
    EXPECT_TRUE(Traced({"QZRI I QZRI::RequestPxgRebootWorker: Sleep for 1 seconds after error was caught.",
                        "QZRI I QZRI::RequestPxgRebootWorker: Exit. Attempts counter value is 6."}));
    // The result and the caller's identity reached the server; the identity is not in the trace.
    EXPECT_NE(m_strCalls.find("\"QZRI_SRVRI_TASK_ID\": {\"str\": \"T9\"}"), std::string::npos) << m_strCalls;
    EXPECT_NE(m_strCalls.find("\"wstrHostID\": {\"str\": \"host-42\"}"), std::string::npos);
    EXPECT_NE(m_strCalls.find("\"X-QZ-Component\": \"QZCS_COMPONENT_QZRIWRAP\""), std::string::npos);
    EXPECT_NE(m_strCalls.find(QZSTD::WideToUtf8(AGENT_ID)), std::string::npos);
    EXPECT_EQ(Dump().find(QZSTD::WideToUtf8(AGENT_ID)), std::string::npos);
}

TEST_F(ServerLinkTest, AServerWhoseCertificateIsNotTheGivenOneIsNeverTalkedTo)
{
    Install(QZTEST::GetEnv("QZ_TEST_OTHER_CA"));
    EXPECT_EQ(Run("1", {2, 1}), WorkerEnd::EXHAUSTED);
    EXPECT_EQ(m_strCalls, "");
    EXPECT_FALSE(ForceRebootFileMade());
}

TEST_F(ServerLinkTest, AShutdownDuringAWaitEndsTheWorker)
{
    std::thread stopper([&] {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        m_shutdown.Raise();
    });
    // Without the shutdown this would wait 288 times 10 minutes.
    EXPECT_EQ(Run("0", {288, 600}), WorkerEnd::SHUTDOWN);
    stopper.join();
    EXPECT_EQ(Calls("ShouldForceReboot2"), 1u);
}

// The administrators' check of a package folder's server: the real connection, the failure in plain words.
TEST_F(ServerLinkTest, QzpkgServerSaysWhetherTheServerAnswersThisHost)
{
    QZTEST::SetEnv("QZ_LOCAL_SS_PATH", Storage());
    const auto Check = [&](const char* szScript) {
        QZTEST::WriteFileBytes(QZTEST::GetEnv("QZ_TEST_ADMIN_DIR") + L"script", szScript);
        std::wostringstream out, err;
        const int nExit =
            QZPKG::RunTool({{L"qzpkg", L"server", m_data.m_wstrDirPath, L"T9"}, L"", nullptr}, out, err);
        return std::to_wstring(nExit) + L" " + out.str();
    };
    EXPECT_NE(Check("1").find(L"decision:    1 for task 'T9' (reboot accepted)\nok:"), std::wstring::npos);
    EXPECT_NE(Check("403").find(L"failed:      the server refused this host's management agent"),
              std::wstring::npos);
    Install(QZTEST::GetEnv("QZ_TEST_OTHER_CA"));
    const std::wstring wstrRefused = Check("1");
    EXPECT_EQ(wstrRefused.rfind(L"1 server:", 0), 0u) << wstrRefused;
    EXPECT_NE(wstrRefused.find(L"its certificate is not the one the settings trust"), std::wstring::npos);
    QZTEST::SetEnv("QZ_LOCAL_SS_PATH", L"");
}

}  // namespace
