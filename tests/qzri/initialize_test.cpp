// RiWrpData::Initialize against fakes of the sessions, the server id and the report sink, with the
// package folder and its files in a private temporary folder.
#include <gtest/gtest.h>

#include "qzri/riwrap/riwrpdata.h"
#include "std/cmdline.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Report = std::pair<std::wstring, std::wstring>;

class InitializeTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_wstrPkg = m_folder.MakeSubFolder(L"pkg");
        m_os.m_wstrModulePath = m_wstrPkg + L"qzriwrap.exe";
        WriteQpd("[Setup]\r\nExecutable=setup.exe\r\n");
        ASSERT_TRUE(QZSTD::TraceOpen(TracePath(), QZSTD::TL_DEBUG, false));
    }
    void TearDown() override { QZSTD::TraceClose(); }

    std::wstring TracePath() const { return m_folder.Path() + L"trace.txt"; }
    void WriteQpd(const std::string& strContent)
    {
        QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd", strContent);
    }
    void WriteRunParams(const wchar_t* szAction, const wchar_t* szCounter, const std::wstring& wstrCmdLine)
    {
        const std::wstring wstrIni = m_wstrPkg + RUN_PARAMS_FILE;
        ASSERT_TRUE(QZSTD::WriteProfileString(wstrIni, L"Setup", L"action", szAction));
        ASSERT_TRUE(QZSTD::WriteProfileString(wstrIni, L"Setup", L"start_counter", szCounter));
        ASSERT_TRUE(QZSTD::WriteProfileString(wstrIni, L"Setup", L"cmdline", wstrCmdLine.c_str()));
    }
    InitServices Services() { return {&m_os, &m_sessions, &m_serverIds, &m_reports}; }
    bool Initialize(const std::wstring& wstrArgs)
    {
        m_wstrCmdLine = L"\"" + m_os.m_wstrModulePath + L"\" " + wstrArgs;
        return m_data.Initialize(QZSTD::SplitCommandLine(m_wstrCmdLine), m_wstrCmdLine, Services());
    }
    std::vector<std::string> Records()
    {
        QZSTD::TraceClose();
        return QZRITEST::TraceRecords(TracePath());
    }
    std::string InitLine(const std::string& strText) { return "QZRIWRP I RiWrpData::Initialize: " + strText; }

    QZTEST::TempFolder m_folder;
    std::wstring m_wstrPkg;
    std::wstring m_wstrCmdLine;
    QZRITEST::TestOs m_os;
    QZRITEST::FakeSessions m_sessions;
    QZRITEST::FakeServerId m_serverIds;
    QZRITEST::RecordingReports m_reports;
    RiWrpData m_data;
};

TEST_F(InitializeTest, FreshStartTakesEverythingFromTheCommandLine)
{
    ASSERT_TRUE(Initialize(L"TASK_ID=T-17 RI_ID=r1 MASTER_SERVICE_ID=m1 QZRI_START_CNT=3 PxgRequest"));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::OK);
    EXPECT_EQ(m_data.m_wstrDirPath, m_wstrPkg);
    EXPECT_EQ(m_data.m_wstrExecDirPath, m_wstrPkg);
    EXPECT_EQ(m_data.m_wstrTaskId, L"T-17");
    EXPECT_EQ(m_data.m_wstrRiId, L"r1");
    EXPECT_EQ(m_data.m_wstrMasterServiceId, L"m1");
    EXPECT_TRUE(m_data.m_bPxgRequest);
    EXPECT_FALSE(m_data.m_bRestartedAsService);
    EXPECT_FALSE(m_data.m_bSilentModeCmdLine);
    EXPECT_EQ(m_data.m_eAct, QZRI_ACTION_RUN);
    EXPECT_EQ(m_data.m_nStartCounter, 3);
    EXPECT_EQ(m_data.m_wstrSavedCmdLine, m_wstrCmdLine);
    EXPECT_EQ(m_data.m_wstrQpdFilePath, m_wstrPkg + L"package.qpd");
    EXPECT_TRUE(m_reports.m_vecReports.empty());

    const std::string strPkg = QZSTD::WideToUtf8(m_wstrPkg);
    const std::vector<std::string> vecRecords = Records();
    EXPECT_TRUE(
        QZRITEST::ContainsInOrder(vecRecords,
                                  {
                                      InitLine("m_wstrDirPath = " + strPkg + "."),
                                      InitLine("Use m_wstrDirPath as m_wstrExecDirPath."),
                                      InitLine("m_wstrTaskId = 'T-17'"),
                                      "QZWSSN I RiWrpData::Initialize: Ready to get sessions.",
                                      InitLine("m_eAct set to 0 (3)"),
                                      InitLine("wstrQpdFilePath = " + strPkg + "package.qpd."),
                                      InitLine("m_bAskUser = false."),
                                      InitLine("nNeedMgdByOtherSrv = 'RI_MGD_BY_OTHER_SERVER_ALWAYS'"),
                                  }))
        << QZRITEST::Joined(vecRecords);
}

TEST_F(InitializeTest, SilentSwitchIsAWordOfItsOwn)
{
    ASSERT_TRUE(Initialize(L"TASK_ID=/s \"/S\""));
    EXPECT_TRUE(m_data.m_bSilentModeCmdLine);
    RiWrpData other;
    const std::wstring wstrLine = L"x.exe TASK_ID=/s -silent";
    ASSERT_TRUE(other.Initialize(QZSTD::SplitCommandLine(wstrLine), wstrLine, Services()));
    EXPECT_FALSE(other.m_bSilentModeCmdLine);
}

// A restart as a service takes its state from the run parameters; a fresh start ignores them.
TEST_F(InitializeTest, RunParamsDecideTheStateOfARestart)
{
    struct Row
    {
        const char* szWhat;
        const wchar_t* szAction;  // nullptr: no run parameters file
        const wchar_t* szCounter;
        const wchar_t* szCmdLine;
        const wchar_t* szArgs;
        InitResult eResult;
        QzriAction eAct;
        int nCounter;
        const wchar_t* szSavedCmdLine;
        const wchar_t* szReport;  // nullptr: nothing reported
        const wchar_t* szReportText;
    };
    const Row rows[] = {
        {"restart without run params", nullptr, L"", L"", L"QZRI$ID=svc1 QZRI_START_CNT=6", InitResult::OK,
         QZRI_ACTION_RUN, 0, L"", nullptr, nullptr},
        {"restart with run params", L"2", L"4", L"$HEX_610020006200", L"QZRI$ID=svc1 QZRI_START_CNT=6",
         InitResult::OK, QZRI_ACTION_CHECK_RESULT, 4, L"a b", nullptr, nullptr},
        {"restart while the setup ran", L"1", L"0", L"", L"QZRI$ID=svc1", InitResult::UNEXPECTED_REBOOT,
         QZRI_ACTION_RUNNING_SETUP, 0, L"", L"QZRI_MSG_DATA_UNEXPECTED_REBOOT", L"Unexpected reboot."},
        {"fresh start ignores a running setup", L"1", L"0", L"", L"TASK_ID=T-1 QZRI_START_CNT=2",
         InitResult::OK, QZRI_ACTION_RUN, 2, L"x.exe TASK_ID=T-1 QZRI_START_CNT=2", nullptr, nullptr},
        {"corrupt run params", L"0", L"0", L"$HEX_6100ZZ00", L"QZRI$ID=svc1", InitResult::FAILED,
         QZRI_ACTION_RUN, 0, L"", nullptr, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szWhat);
        QZTEST::RemoveAll(m_wstrPkg + RUN_PARAMS_FILE);
        if (row.szAction)
            WriteRunParams(row.szAction, row.szCounter, row.szCmdLine);
        QZRITEST::RecordingReports reports;
        RiWrpData data;
        const std::wstring wstrLine = std::wstring(L"x.exe ") + row.szArgs;
        EXPECT_EQ(data.Initialize(QZSTD::SplitCommandLine(wstrLine), wstrLine,
                                  {&m_os, &m_sessions, &m_serverIds, &reports}),
                  row.eResult == InitResult::OK);
        EXPECT_EQ(data.m_eInitResult, row.eResult);
        const std::vector<Report> vecNone,
            vecExpected{{row.szReport ? row.szReport : L"", row.szReportText ? row.szReportText : L""}};
        EXPECT_EQ(reports.m_vecReports, row.szReport ? vecExpected : vecNone);
        EXPECT_EQ(data.m_bRestartedAsService, wstrLine.find(L"QZRI$ID") != std::wstring::npos);
        if (row.eResult != InitResult::OK)
            continue;
        EXPECT_EQ(data.m_eAct, row.eAct);
        EXPECT_EQ(data.m_nStartCounter, row.nCounter);
        EXPECT_EQ(data.m_wstrSavedCmdLine, row.szSavedCmdLine);
    }
    const std::string strRecords = QZRITEST::Joined(Records());
    EXPECT_NE(strRecords.find("QZRIWRP E RiWrpData::Initialize: #1187 (QZSTD)"), std::string::npos)
        << strRecords;
}

TEST_F(InitializeTest, MissingPackageDescriptionFailsAllButTheGuiProcess)
{
    QZTEST::TempFolder empty;
    m_os.m_wstrModulePath = empty.Path() + L"qzriwrap.exe";
    EXPECT_FALSE(Initialize(L"TASK_ID=T-1"));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::NO_PACKAGE_DESCRIPTION);
    EXPECT_EQ(m_data.m_wstrQpdFilePath, L"");
    EXPECT_EQ(m_reports.m_vecReports,
              (std::vector<Report>{{L"QZRI_MSG_DATA_FILE_NOT_EXISTS", L"File does not exist."}}));

    // The GUI process reads no task keys and asks for no sessions.
    RiWrpData gui;
    const std::wstring wstrLine = L"x.exe QZRI$GUI TASK_ID=T-1 QZRI$ID=svc1 PxgRequest";
    m_sessions.m_nCalls = 0;
    ASSERT_TRUE(gui.Initialize(QZSTD::SplitCommandLine(wstrLine), wstrLine, Services()));
    EXPECT_TRUE(gui.m_bGuiProcess);
    EXPECT_TRUE(gui.m_bPxgRequest);
    EXPECT_EQ(gui.m_wstrTaskId, L"");
    EXPECT_FALSE(gui.m_bRestartedAsService);
    EXPECT_EQ(m_sessions.m_nCalls, 0);
    EXPECT_FALSE(gui.m_bAskUser);
}

TEST_F(InitializeTest, FirstDescriptionByNameAndAskUserFromItsSetupSection)
{
    QZTEST::WriteFileBytes(m_wstrPkg + L"a_first.qpd", "[Setup]\r\nAskUser=1\r\n");
    ASSERT_TRUE(Initialize(L"QZRIWRAP_RUN_AS_PATCH"));
    EXPECT_EQ(m_data.m_wstrQpdFilePath, m_wstrPkg + L"a_first.qpd");
    EXPECT_TRUE(m_data.m_bAskUser);
    EXPECT_TRUE(m_data.m_bRunAsPatch);
    EXPECT_TRUE(QZRITEST::ContainsInOrder(Records(), {InitLine("m_bAskUser = true.")}));
}

TEST_F(InitializeTest, SessionsAreKeptAndAFailedListIsNoFailure)
{
    m_sessions.m_vecSessions = {{1, L"Console"}, {3, L"RDP-Tcp#0"}};
    ASSERT_TRUE(Initialize(L""));
    EXPECT_EQ(m_data.m_vecUserSessions.size(), 2u);

    m_sessions.m_bFails = true;
    RiWrpData other;
    ASSERT_TRUE(other.Initialize({L"x"}, L"x", Services()));
    EXPECT_TRUE(other.m_vecUserSessions.empty());
}

TEST_F(InitializeTest, RebootAgentSettingsDecideRebootImmediately)
{
    struct Row
    {
        const char* szIni;  // nullptr: no qzrbtagt.ini
        bool bExpected;
    };
    const Row rows[] = {
        {nullptr, false},
        {"[Action]\r\nRebootImmediately=1\r\n", true},
        {"[Action]\r\nRebootImmediately=0\r\nAskReboot=1\r\n", true},
        {"[Action]\r\nRebootImmediately=-1\r\nAskReboot=0\r\n", false},
        {"[Action]\r\n", false},
    };
    for (const Row& row : rows) {
        const std::wstring wstrIni = m_wstrPkg + L"qzrbtagt.ini";
        QZTEST::RemoveAll(wstrIni);
        if (row.szIni)
            QZTEST::WriteFileBytes(wstrIni, row.szIni);
        RiWrpData data;
        ASSERT_TRUE(data.Initialize({L"x"}, L"x", Services()));
        EXPECT_EQ(data.m_bRebootImmediately, row.bExpected) << (row.szIni ? row.szIni : "(no file)");
    }
}

TEST_F(InitializeTest, ManagedByAnotherServerOnlyWithPolicyOneAndTwoDifferentIds)
{
    struct Row
    {
        const char* szExtended;  // the [ExtendedSettings] lines
        const wchar_t* szCurrent;
        bool bSkipped;
        int nServerIdReads;
    };
    const Row rows[] = {
        {"", L"srv-B", false, 0},
        {"MgdByOtherSrv=0\r\nServerID=srv-A\r\n", L"srv-B", false, 0},
        {"MgdByOtherSrv=2\r\nServerID=srv-A\r\n", L"srv-B", false, 0},
        {"MgdByOtherSrv=1\r\n", L"srv-B", false, 1},
        {"MgdByOtherSrv=1\r\nServerID=srv-A\r\n", L"", false, 1},
        {"MgdByOtherSrv=1\r\nServerID=srv-A\r\n", L"srv-A", false, 1},
        {"MgdByOtherSrv=1\r\nServerID=srv-A\r\n", L"srv-B", true, 1},
    };
    for (const Row& row : rows) {
        WriteQpd(std::string("[Setup]\r\n[ExtendedSettings]\r\n") + row.szExtended);
        QZRITEST::FakeServerId serverIds;
        serverIds.m_wstrId = row.szCurrent;
        QZRITEST::RecordingReports reports;
        RiWrpData data;
        const bool bOk = data.Initialize({L"x"}, L"x", {&m_os, &m_sessions, &serverIds, &reports});
        SCOPED_TRACE(std::string(row.szExtended) + " current=" + QZSTD::WideToUtf8(row.szCurrent));
        EXPECT_EQ(bOk, !row.bSkipped);
        EXPECT_EQ(serverIds.m_nCalls, row.nServerIdReads);
        if (row.bSkipped) {
            EXPECT_EQ(data.m_eInitResult, InitResult::MANAGED_BY_OTHER_SERVER);
            EXPECT_EQ(
                reports.m_vecReports,
                (std::vector<Report>{{L"QZRI_MSG_DATA_COMPLETE_SKIPPED",
                                      L"Installation is not required. Host is managed by another Server"}}));
        } else {
            EXPECT_TRUE(reports.m_vecReports.empty());
        }
    }
    // The last row's policy and both ids are traced.
    const std::vector<std::string> vecRecords = Records();
    EXPECT_TRUE(QZRITEST::ContainsInOrder(
        vecRecords, {InitLine("nNeedMgdByOtherSrv = 'RI_MGD_BY_OTHER_SERVER_NEVER'"),
                     InitLine("wstrParentServerID = 'srv-A'"), InitLine("wstrCurrentServerID = 'srv-B'")}))
        << QZRITEST::Joined(vecRecords);
}

}  // namespace
