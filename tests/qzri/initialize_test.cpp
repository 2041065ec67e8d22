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

TEST_F(InitializeTest, RestartWithoutRunParamsIsAFreshStartWithCounterZero)
{
    ASSERT_TRUE(Initialize(L"QZRI$ID=svc1 QZRI_START_CNT=6"));
    EXPECT_TRUE(m_data.m_bRestartedAsService);
    EXPECT_EQ(m_data.m_eAct, QZRI_ACTION_RUN);
    EXPECT_EQ(m_data.m_nStartCounter, 0);
    EXPECT_EQ(m_data.m_wstrSavedCmdLine, L"");
}

TEST_F(InitializeTest, RestartTakesItsStateFromTheRunParams)
{
    WriteRunParams(L"2", L"4", L"$HEX_610020006200");
    ASSERT_TRUE(Initialize(L"QZRI$ID=svc1 QZRI_START_CNT=6"));
    EXPECT_EQ(m_data.m_eAct, QZRI_ACTION_CHECK_RESULT);
    EXPECT_EQ(m_data.m_nStartCounter, 4);
    EXPECT_EQ(m_data.m_wstrSavedCmdLine, L"a b");
}

TEST_F(InitializeTest, RestartWhileTheSetupRanReportsAnUnexpectedReboot)
{
    WriteRunParams(L"1", L"0", L"");
    EXPECT_FALSE(Initialize(L"QZRI$ID=svc1"));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::UNEXPECTED_REBOOT);
    EXPECT_EQ(m_reports.m_vecReports,
              (std::vector<Report>{{L"QZRI_MSG_DATA_UNEXPECTED_REBOOT", L"Unexpected reboot."}}));
}

TEST_F(InitializeTest, FreshStartIgnoresARunningSetupLeftInTheRunParams)
{
    WriteRunParams(L"1", L"0", L"");
    EXPECT_TRUE(Initialize(L"TASK_ID=T-1"));
    EXPECT_EQ(m_data.m_eAct, QZRI_ACTION_RUN);
    EXPECT_TRUE(m_reports.m_vecReports.empty());
}

TEST_F(InitializeTest, CorruptRunParamsFailTheRunWithATraceLine)
{
    WriteRunParams(L"0", L"0", L"$HEX_6100ZZ00");
    EXPECT_FALSE(Initialize(L"QZRI$ID=svc1"));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::FAILED);
    const std::string strRecords = QZRITEST::Joined(Records());
    EXPECT_NE(strRecords.find("QZRIWRP E RiWrpData::Initialize: #1187 (QZSTD)"), std::string::npos)
        << strRecords;
}

TEST_F(InitializeTest, MissingPackageDescriptionIsReported)
{
    QZTEST::TempFolder empty;
    m_os.m_wstrModulePath = empty.Path() + L"qzriwrap.exe";
    EXPECT_FALSE(Initialize(L"TASK_ID=T-1"));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::NO_PACKAGE_DESCRIPTION);
    EXPECT_EQ(m_data.m_wstrQpdFilePath, L"");
    EXPECT_EQ(m_reports.m_vecReports,
              (std::vector<Report>{{L"QZRI_MSG_DATA_FILE_NOT_EXISTS", L"File does not exist."}}));
}

TEST_F(InitializeTest, SeveralDescriptionsGiveTheFirstByName)
{
    QZTEST::WriteFileBytes(m_wstrPkg + L"a_first.qpd", "[Setup]\r\n");
    ASSERT_TRUE(Initialize(L""));
    EXPECT_EQ(m_data.m_wstrQpdFilePath, m_wstrPkg + L"a_first.qpd");
}

TEST_F(InitializeTest, GuiProcessReadsNoTaskKeysAndNeedsNoPackageDescription)
{
    QZTEST::TempFolder empty;
    m_os.m_wstrModulePath = empty.Path() + L"qzriwrap.exe";
    ASSERT_TRUE(Initialize(L"QZRI$GUI TASK_ID=T-1 QZRI$ID=svc1 PxgRequest"));
    EXPECT_TRUE(m_data.m_bGuiProcess);
    EXPECT_TRUE(m_data.m_bPxgRequest);
    EXPECT_EQ(m_data.m_wstrTaskId, L"");
    EXPECT_FALSE(m_data.m_bRestartedAsService);
    EXPECT_EQ(m_sessions.m_nCalls, 0);
    EXPECT_FALSE(m_data.m_bAskUser);
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

TEST_F(InitializeTest, AskUserComesFromTheSetupSection)
{
    WriteQpd("[Setup]\r\nAskUser=1\r\n");
    ASSERT_TRUE(Initialize(L"QZRIWRAP_RUN_AS_PATCH"));
    EXPECT_TRUE(m_data.m_bAskUser);
    EXPECT_TRUE(m_data.m_bRunAsPatch);
    EXPECT_TRUE(QZRITEST::ContainsInOrder(Records(), {InitLine("m_bAskUser = true.")}));
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
}

TEST_F(InitializeTest, ManagedByAnotherServerTracesPolicyAndBothIds)
{
    WriteQpd("[ExtendedSettings]\r\nMgdByOtherSrv=1\r\nServerID=srv-A\r\n");
    m_serverIds.m_wstrId = L"srv-B";
    EXPECT_FALSE(Initialize(L""));
    const std::vector<std::string> vecRecords = Records();
    EXPECT_TRUE(QZRITEST::ContainsInOrder(
        vecRecords, {InitLine("nNeedMgdByOtherSrv = 'RI_MGD_BY_OTHER_SERVER_NEVER'"),
                     InitLine("wstrParentServerID = 'srv-A'"), InitLine("wstrCurrentServerID = 'srv-B'")}))
        << QZRITEST::Joined(vecRecords);
}

TEST_F(InitializeTest, UnknownOwnPathFailsTheRun)
{
    m_os.m_bModulePathFails = true;
    EXPECT_FALSE(Initialize(L""));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::FAILED);
}

}  // namespace
