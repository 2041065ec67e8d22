// The result evaluation against a package description and result files in a private folder, with a
// recording stand-in for the autostart registration.
#include "qzri/riwrap/resultcheck.h"

#ifdef _WIN32
#include <windows.h>
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <tuple>

#include "qzri/riwrap/riwrpdata.h"
#include "std/profile.h"
#include "std/shutdown.h"
#include "std/strconv.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Calls = std::vector<std::wstring>;

class ResultCheckTest : public testing::Test
{
protected:
    void SetUp() override { m_data.m_wstrDirPath = m_folder.Path(); }
    void Package(const std::string& strQpd)
    {
        QZTEST::WriteFileBytes(m_folder.Join(L"p.qpd"), strQpd);
        m_data.m_pQpd = QpdFile::Create(m_folder.Join(L"p.qpd"));
    }
    std::string AskUsrCode()
    {
        return std::to_string(
            QZSTD::GetProfileInt(m_folder.Join(L"askusr.log"), L"ResponseResult", L"ResultCode", 0));
    }

    QZTEST::TempFolder m_folder;
    QZRITEST::TestServices m_fakes;
    RiWrpData m_data;
};

// Class 32 reruns after the restart, 33 only checks the result; the final check also reports the user
// action; any other class does nothing.
TEST_F(ResultCheckTest, OnlyClasses32And33AskForARestart)
{
    const std::tuple<int32_t, bool, bool, const wchar_t*, const char*> rows[] = {
        {31, true, false, nullptr, "0"},       {32, false, true, L"Register(0)", "0"},
        {32, true, true, L"Register(0)", "6"}, {33, true, true, L"Register(2)", "7"},
        {34, true, false, nullptr, "0"},
    };
    for (const auto& [nClass, bFinal, bRestart, szCall, szUserAction] : rows) {
        SCOPED_TRACE(nClass);
        m_fakes.m_autostart.m_vecCalls.clear();
        QZTEST::RemoveAll(m_folder.Join(L"askusr.log"));
        EXPECT_EQ(CheckNeedRebootAndRerun(m_data, nClass, bFinal, m_fakes.Get()), bRestart);
        EXPECT_EQ(m_fakes.m_autostart.m_vecCalls, szCall ? Calls{szCall} : Calls{});
        EXPECT_EQ(AskUsrCode(), szUserAction);
    }
}

// The decision's order: no processing, result files, plain uninstaller, an unreadable Windows Installer
// code, the need-reboot list, and else the setup's own code.
TEST_F(ResultCheckTest, CheckResultDecidesInItsOrder)
{
    Package(
        "[SetupProcessResult_NeedReboot]\r\n3010=1\r\n[SetupProcessResult_ErrorCodes]\r\n1603=Fatal error\r\n"
        "[SetupMainResult]\r\nFile=" +
        QZSTD::WideToUtf8(m_folder.Join(L"main.ini")) + "\r\nSection=Result\r\n");
    QZTEST::WriteFileBytes(m_folder.Join(L"main.ini"), "[Result]\r\nResultCode=77\r\n");
    const CheckInput kPlainUninstaller{true, false, true, 3010, false, false, false, true, true};
    // What is decided, the input, whether the package is a Windows Installer one, what CheckResult
    // returns, the exit code, the error class, the description and the autostart calls.
    using Row = std::tuple<const char*, CheckInput, bool, bool, int32_t, int32_t, const wchar_t*, Calls>;
    const Row rows[] = {
        {"nothing to process", {false}, false, false, 0, 0, L"", {}},
        {"result files", {true, false, true, 5, false, false, true}, false, true, 77, 0, L"77", {}},
        {"plain uninstaller", kPlainUninstaller, false, true, 3010, 0, L"", {}},
        {"installer code unknown", {true, false, true, -1}, true, true, 0, 33, L"", {L"Register(2)"}},
        {"need-reboot list", {true, false, true, 3010}, false, true, 0, 33, L"", {L"Register(2)"}},
        {"listed error", {true, false, true, 1603, true}, false, true, 1603, 0, L"Fatal error", {}},
        {"unlisted", {true, false, true, 12}, false, true, 12, 0, L"12", {}},
    };
    for (const auto& [szWhat, in, bMsi, bReturn, nExpectedExitCode, nErrClass, szDescr, vecCalls] : rows) {
        SCOPED_TRACE(szWhat);
        m_fakes.m_autostart.m_vecCalls.clear();
        m_data.m_bIsMsi = bMsi;
        RiResult rslt;
        int32_t nExitCode = -7;
        const bool b = CheckResult(m_data, in, rslt, nExitCode, m_fakes.Get());
        EXPECT_EQ(std::tuple(b, nExitCode, rslt.m_nErrClass, rslt.m_wstrDescription,
                             m_fakes.m_autostart.m_vecCalls),
                  std::tuple(bReturn, nExpectedExitCode, nErrClass, szDescr, vecCalls));
    }
    // A silent final check takes the registration back first.
    m_data.m_bSilentModeCmdLine = true;
    m_fakes.m_autostart.m_vecCalls.clear();
    RiResult rslt;
    int32_t nExitCode = 0;
    CheckResult(m_data, CheckInput{true, false, true, 0, true}, rslt, nExitCode, m_fakes.Get());
    EXPECT_EQ(m_fakes.m_autostart.m_vecCalls, Calls{L"Unregister"});
}

TEST_F(ResultCheckTest, ParseResultCodeClassifiesAndFindsTheFailReason)
{
    const std::string strDescrU = QZSTD::WideToUtf8(m_folder.Join(L"d.txt"));
    Package("[SetupMainResult]\r\nSection=R\r\nValue=Code\r\nFailReasonValue=Why\r\nDescriptionFileU=" +
            strDescrU + "\r\n[SetupMainResult_ErrorCodes]\r\n5=Denied\r\n[SetupMainResult_WarningCodes]\r\n" +
            "5=Not this\r\n6=Careful\r\n[SetupMainResult_SuccessCodes]\r\n6=Not this either\r\n0=Done\r\n" +
            "[SetupMainResult_FailReasons]\r\n6=42\r\n");
    const std::wstring wstrResult = m_folder.Join(L"r.ini");
    const std::tuple<const char*, bool, CodeClass, const wchar_t*, int32_t> rows[] = {
        {"[R]\r\nCode=5\r\nWhy=9\r\n", true, CodeClass::LISTED_ERROR, L"Denied", 9},
        {"[R]\r\nCode=6\r\nWhy=9\r\n", true, CodeClass::LISTED_WARNING, L"Careful", 42},
        {"[R]\r\nCode=0\r\n", true, CodeClass::LISTED_SUCCESS, L"Done", -1},
        {"[R]\r\nCode=536871108\r\n", true, CodeClass::UNLISTED,
         L"Installation is not required. Host is managed by another Server", -1},
        {"[R]\r\nOther=1\r\n", false, CodeClass::UNLISTED, L"", -1},
        {"[R]\r\nCode=abc\r\n", false, CodeClass::UNLISTED, L"", -1},
    };
    for (const auto& [szFile, bFound, eClass, szDescr, nReason] : rows) {
        SCOPED_TRACE(szFile);
        QZTEST::WriteFileBytes(wstrResult, szFile);
        const ParsedResult parsed = ParseResultCode(*m_data.m_pQpd, MAIN_RESULT_KIND, wstrResult);
        EXPECT_EQ(std::tuple(parsed.bFound, parsed.classified.eClass, parsed.classified.wstrDescription,
                             parsed.nFailReason),
                  std::tuple(bFound, eClass, szDescr, nReason));
    }
    // The setup's own description file replaces the list's text.
    QZTEST::WriteFileBytes(m_folder.Join(L"d.txt"), std::string("\xFF\xFEO\0k\0\r\0\n\0", 10));
    QZTEST::WriteFileBytes(wstrResult, "[R]\r\nCode=5\r\n");
    EXPECT_EQ(ParseResultCode(*m_data.m_pQpd, MAIN_RESULT_KIND, wstrResult).classified.wstrDescription,
              L"Ok");
    EXPECT_FALSE(ParseResultCode(*m_data.m_pQpd, MAIN_RESULT_KIND, m_folder.Join(L"none.ini")).bFound);
    QZTEST::WriteFileBytes(wstrResult, "[R]\r\nCode=abc\r\n");
    EXPECT_THAT(ParseResultCode(*m_data.m_pQpd, MAIN_RESULT_KIND, wstrResult).wstrProblem,
                testing::HasSubstr(L"The result code 'abc' at [R] Code of '"));
}

using Slice = Waits::Slice;

class ResultWaitTest : public ResultCheckTest
{
protected:
    void SetUp() override
    {
        ResultCheckTest::SetUp();
        m_data.m_wstrQpdFilePath = m_folder.Join(L"p.qpd");
        m_data.m_wstrExecDirPath = m_folder.Path();
        MainResultPackage();
    }
    std::wstring Result() const { return m_folder.Join(L"main.ini"); }
    // A package whose main result file is Result(), section R, with strMore after it.
    void MainResultPackage(const std::string& strMore = "", const std::string& strBefore = "")
    {
        Package(strBefore + "[SetupMainResult]\r\nFile=" + QZSTD::WideToUtf8(Result()) + "\r\nSection=R\r\n" +
                strMore);
    }
    std::function<Slice()> Step(std::function<void()> fn, Slice e = Slice::ELAPSED)
    {
        return [fn, e] {
            fn();
            return e;
        };
    }
};

// Each way a wait for a result file ends, on a scripted message loop whose tick counter wraps.
TEST_F(ResultWaitTest, TheWaitEndsOnTheFileQuitStopWithdrawalOrTimeOut)
{
    const auto Nothing = [] {};
    const auto Appears = [this] { QZTEST::WriteFileBytes(Result(), "[R]\r\nResultCode=5\r\n"); };
    const auto Withdrawn = [this] { QZTEST::RemoveAll(m_folder.Join(L"p.qpd")); };
    // What ends the wait, the second step of the message loop and its answer, the time-out, how the wait
    // ends and the slices it took.
    using Row = std::tuple<const char*, std::function<void()>, Slice, long, ResultWaitEnd, size_t>;
    const Row rows[] = {
        {"appears", Appears, Slice::ELAPSED, -1, ResultWaitEnd::READY, 2},
        {"quit", Nothing, Slice::QUIT, -1, ResultWaitEnd::QUIT, 2},
        {"stopped", Nothing, Slice::STOPPED, -1, ResultWaitEnd::STOPPED, 2},
        {"withdrawn", Withdrawn, Slice::ELAPSED, -1, ResultWaitEnd::QPD_DELETED, 2},
        {"time-out across the counter's wrap", Nothing, Slice::ELAPSED, 5000, ResultWaitEnd::TIMEOUT, 3},
        {"checked once", Nothing, Slice::ELAPSED, 0, ResultWaitEnd::TIMEOUT, 1},
    };
    for (const auto& [szWhat, fnStep2, eStep2, lTimeout, eEnd, nSlices] : rows) {
        SCOPED_TRACE(szWhat);
        QZTEST::RemoveAll(Result());
        MainResultPackage();
        m_fakes.m_waits = QZRITEST::ScriptedWaits();
        m_fakes.m_waits.m_nTick = 0xFFFFF000u;
        m_fakes.m_waits.m_vecSteps = {Step(Nothing), Step(fnStep2, eStep2)};
        const ResultWait wait = WaitForResultFile(m_data, MAIN_RESULT_KIND, lTimeout, m_fakes.Get());
        EXPECT_EQ(std::tuple(wait.eEnd, m_fakes.m_waits.m_nSlices, wait.nValue),
                  std::tuple(eEnd, nSlices, eEnd == ResultWaitEnd::READY ? 5 : 0));
    }
    EXPECT_EQ(WaitForResultFile(m_data, DETAILED_RESULT_KIND, -1, m_fakes.Get()).eEnd,
              ResultWaitEnd::NOT_NAMED);
}

TEST_F(ResultWaitTest, ATimeOutIsReportedAndARestartResultAsksForTheRestart)
{
    m_data.m_bSilentModeCmdLine = true;
    RiResult rslt;
    EXPECT_TRUE(ReportWaitAndProcessResult(m_data, 0, true, rslt, m_fakes.Get()));
    EXPECT_EQ(rslt.m_nResultCode, QZRI_RSLT_TIMEOUT);
    EXPECT_EQ(m_fakes.m_reports.m_vecReports.at(0).first, L"QZRI_MSG_DATA_TIMEOUT_EXPIRED");

    const std::string strRestart =
        "[SetupRestartResult]\r\nFile=" + QZSTD::WideToUtf8(m_folder.Join(L"restart.ini")) +
        "\r\nSection=R\r\nValue=Class\r\n";
    MainResultPackage("[SetupMainResult_ErrorCodes]\r\n5=Denied\r\n" + strRestart);
    QZTEST::WriteFileBytes(Result(), "[R]\r\nResultCode=5\r\n");
    QZTEST::WriteFileBytes(m_folder.Join(L"restart.ini"), "[R]\r\nClass=32\r\n");
    rslt = RiResult();
    EXPECT_TRUE(ReportWaitAndProcessResult(m_data, -1, true, rslt, m_fakes.Get()));
    EXPECT_EQ(std::tuple(rslt.m_nResultCode, rslt.m_wstrDescription, rslt.m_nErrClass, rslt.m_rebootState),
              std::tuple(5, L"Denied", 32, 1));
    EXPECT_EQ(m_fakes.m_autostart.m_vecCalls, (Calls{L"Register(0)"}));

    // The reboot-loop guard: with the counter at the limit another rerun is refused, distinctly.
    const std::pair<const char*, int32_t> rows[] = {{"", QZRI_RSLT_REBOOT_LOOP}, {"MaxRestarts=9\r\n", 5}};
    for (const auto& [szLimit, nResult] : rows) {
        MainResultPackage(strRestart, "[Setup]\r\n" + std::string(szLimit));
        m_data.m_nStartCounter = DEFAULT_MAX_RESTARTS;
        m_fakes.m_autostart.m_vecCalls.clear();
        rslt = RiResult();
        EXPECT_TRUE(ReportWaitAndProcessResult(m_data, -1, true, rslt, m_fakes.Get()));
        EXPECT_EQ(rslt.m_nResultCode, nResult) << szLimit;
        EXPECT_EQ(m_fakes.m_autostart.m_vecCalls,
                  nResult == QZRI_RSLT_REBOOT_LOOP ? Calls{L"Unregister"} : Calls{L"Register(0)"});
    }
    EXPECT_EQ(rslt.m_rebootState, 1);

    // No result file named: the setup's exit code decides.
    Package("[Setup]\r\n");
    EXPECT_FALSE(ReportWaitAndProcessResult(m_data, -1, true, rslt, m_fakes.Get()));
}

// The real wait of this platform: a file that appears is taken within one slice, WM_QUIT ends the wait
// (Windows), a raised shutdown ends it.
TEST_F(ResultWaitTest, TheSystemWaitTakesAFileAndEndsOnQuitAndShutdown)
{
    QZSTD::ShutdownSignal shutdown;
    std::unique_ptr<Waits> pWaits = CreateSystemWaits(shutdown);
    AgentServices services = m_fakes.Get();
    services.m_pWaits = pWaits.get();
    std::thread t([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        QZTEST::WriteFileBytes(Result(), "[R]\r\nResultCode=9\r\n");
    });
    const ResultWait wait = WaitForResultFile(m_data, MAIN_RESULT_KIND, 60000, services);
    t.join();
    EXPECT_EQ(std::tuple(wait.eEnd, wait.nValue), std::tuple(ResultWaitEnd::READY, 9));
    QZTEST::RemoveAll(Result());
#ifdef _WIN32
    ::PostQuitMessage(0);
    EXPECT_EQ(WaitForResultFile(m_data, MAIN_RESULT_KIND, 60000, services).eEnd, ResultWaitEnd::QUIT);
#endif
    shutdown.Raise();
    EXPECT_EQ(WaitForResultFile(m_data, MAIN_RESULT_KIND, 60000, services).eEnd, ResultWaitEnd::STOPPED);
}

// A setup process that runs for a few slices and then ends with its code.
class ScriptedSetupWaiter : public QZSTD::LaunchWaiter
{
public:
    ScriptedSetupWaiter(int nSlices, uint32_t nCode) : m_nSlices(nSlices), m_nCode(nCode) {}
    bool QueryInterface(const char*, void**) override { return false; }
    bool Wait(long lTimeout) override
    {
        EXPECT_EQ(lTimeout, 1000);
        return --m_nSlices <= 0;
    }
    uint32_t ExitCode() override { return m_nCode; }

private:
    int m_nSlices;
    uint32_t m_nCode;
};

TEST_F(ResultCheckTest, WaitForSetupProcessLogsOnlyAFailure)
{
    EXPECT_TRUE(WaitForSetupProcess(m_data)) << "no setup process";
    m_data.m_pSetupWaiter =
        QZSTD::CAutoPtr<QZSTD::LaunchWaiter>::Adopt(new QZSTD::RcClassImpl<ScriptedSetupWaiter>(3, 0));
    EXPECT_TRUE(WaitForSetupProcess(m_data));
    EXPECT_FALSE(QZTEST::PathExists(m_folder.Join(L"setup.log")));
    m_data.m_pSetupWaiter =
        QZSTD::CAutoPtr<QZSTD::LaunchWaiter>::Adopt(new QZSTD::RcClassImpl<ScriptedSetupWaiter>(2, 1603));
    EXPECT_FALSE(WaitForSetupProcess(m_data));
    EXPECT_EQ(QZSTD::GetProfileInt(m_folder.Join(L"setup.log"), L"ResponseResult", L"ProcessResultCode", 0),
              1603);
}

}  // namespace
