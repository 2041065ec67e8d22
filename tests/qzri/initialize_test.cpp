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
using Reports = std::vector<std::pair<std::wstring, std::wstring>>;

class InitializeTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_wstrPkg = m_folder.MakeSubFolder(L"pkg");
        m_fakes.m_os.m_wstrModulePath = m_wstrPkg + L"qzriwrap.exe";
        WriteQpd("[Setup]\r\nExecutable=setup.exe\r\n");
        ASSERT_TRUE(QZSTD::TraceOpen(TracePath(), QZSTD::TL_DEBUG, false));
    }
    void TearDown() override { QZSTD::TraceClose(); }

    std::wstring TracePath() const { return m_folder.Path() + L"trace.txt"; }
    void WriteQpd(const std::string& strContent, const char* szQud = nullptr)
    {
        QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd", strContent);
        QZTEST::RemoveAll(m_wstrPkg + L"package.qud");
        if (szQud)
            QZTEST::WriteFileBytes(m_wstrPkg + L"package.qud", szQud);
    }
    void WriteRunParams(const wchar_t* szAction, const wchar_t* szCounter, const std::wstring& wstrCmdLine)
    {
        const std::wstring wstrIni = m_wstrPkg + RUN_PARAMS_FILE;
        ASSERT_TRUE(QZSTD::WriteProfileString(wstrIni, L"Setup", L"action", szAction));
        ASSERT_TRUE(QZSTD::WriteProfileString(wstrIni, L"Setup", L"start_counter", szCounter));
        ASSERT_TRUE(QZSTD::WriteProfileString(wstrIni, L"Setup", L"cmdline", wstrCmdLine.c_str()));
    }
    // A fresh record and fresh reports for each run.
    bool Initialize(const std::wstring& wstrArgs)
    {
        m_data = RiWrpData();
        m_fakes.m_reports.m_vecReports.clear();
        m_wstrCmdLine = L"x.exe " + wstrArgs;
        return m_data.Initialize(QZSTD::SplitCommandLine(m_wstrCmdLine), m_wstrCmdLine, m_fakes.Get());
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
    QZRITEST::TestServices m_fakes;
    RiWrpData m_data;
};

TEST_F(InitializeTest, FreshStartTakesEverythingFromTheCommandLine)
{
    ASSERT_TRUE(Initialize(L"TASK_ID=T-17 RI_ID=r1 MASTER_SERVICE_ID=m1 QZRI_START_CNT=3 PxgRequest"));
    EXPECT_EQ(m_data.m_wstrDirPath, m_wstrPkg);
    EXPECT_EQ(m_data.m_wstrExecDirPath, m_wstrPkg);
    EXPECT_EQ(m_data.m_wstrTaskId, L"T-17");
    EXPECT_EQ(m_data.m_wstrRiId, L"r1");
    EXPECT_EQ(m_data.m_wstrMasterServiceId, L"m1");
    EXPECT_TRUE(m_data.m_bPxgRequest);
    EXPECT_FALSE(m_data.m_bSilentModeCmdLine);
    EXPECT_EQ(m_data.m_nStartCounter, 3);
    EXPECT_EQ(m_data.m_wstrSavedCmdLine, m_wstrCmdLine);
    EXPECT_TRUE(m_fakes.m_reports.m_vecReports.empty());

    // The silent switch is a word of its own.
    ASSERT_TRUE(Initialize(L"TASK_ID=/s \"/S\""));
    EXPECT_TRUE(m_data.m_bSilentModeCmdLine);
    ASSERT_TRUE(Initialize(L"TASK_ID=/s -silent"));
    EXPECT_FALSE(m_data.m_bSilentModeCmdLine);

    const std::string strPkg = QZSTD::WideToUtf8(m_wstrPkg);
    EXPECT_TRUE(QZRITEST::HasInOrder(
        Records(),
        {InitLine("m_wstrDirPath = " + strPkg + "."), InitLine("Use m_wstrDirPath as m_wstrExecDirPath."),
         InitLine("m_wstrTaskId = 'T-17'"), "QZWSSN I RiWrpData::Initialize: Ready to get sessions.",
         InitLine("m_eAct set to 0 (3)"), InitLine("wstrQpdFilePath = " + strPkg + "package.qpd."),
         InitLine("m_bAskUser = false."), InitLine("nNeedMgdByOtherSrv = 'RI_MGD_BY_OTHER_SERVER_ALWAYS'")}));
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
        {"corrupt command line", L"0", L"0", L"$HEX_6100ZZ00", L"QZRI$ID=svc1", InitResult::FAILED,
         QZRI_ACTION_RUN, 0, L"", nullptr, nullptr},
        {"unknown action", L"7", L"0", L"", L"QZRI$ID=svc1", InitResult::DAMAGED_STATE, QZRI_ACTION_RUN, 0,
         L"", nullptr, nullptr},
        {"negative action", L"-1", L"0", L"", L"QZRI$ID=svc1", InitResult::DAMAGED_STATE, QZRI_ACTION_RUN, 0,
         L"", nullptr, nullptr},
        {"fresh start ignores an unknown action", L"7", L"0", L"", L"", InitResult::OK, QZRI_ACTION_RUN, 0,
         L"x.exe ", nullptr, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szWhat);
        QZTEST::RemoveAll(m_wstrPkg + RUN_PARAMS_FILE);
        if (row.szAction)
            WriteRunParams(row.szAction, row.szCounter, row.szCmdLine);
        EXPECT_EQ(Initialize(row.szArgs), row.eResult == InitResult::OK);
        EXPECT_EQ(m_data.m_eInitResult, row.eResult);
        EXPECT_EQ(m_fakes.m_reports.m_vecReports,
                  (row.szReport ? Reports{{row.szReport, row.szReportText}} : Reports{}));
        EXPECT_EQ(m_data.m_wstrServiceId, m_data.m_bRestartedAsService ? L"svc1" : L"");
        if (row.eResult != InitResult::OK)
            continue;
        EXPECT_EQ(m_data.m_eAct, row.eAct);
        EXPECT_EQ(m_data.m_nStartCounter, row.nCounter);
        EXPECT_EQ(m_data.m_wstrSavedCmdLine, row.szSavedCmdLine);
    }
    // A restart reports as a silent run, under the first start's task id.
    WriteRunParams(L"2", L"1", L"x.exe TASK_ID=T-9");
    EXPECT_TRUE(Initialize(L"QZRI$ID=svc1"));
    EXPECT_TRUE(m_data.m_bSilentModeCmdLine);
    EXPECT_EQ(m_data.m_wstrTaskId, L"T-9");

    const std::string strRecords = QZRITEST::Joined(Records());
    EXPECT_NE(strRecords.find("QZRIWRP E RiWrpData::Initialize: #1187 (QZSTD)"), std::string::npos)
        << strRecords;
    EXPECT_NE(
        strRecords.find("holds action 7, which is none of the known actions: the saved state is damaged"),
        std::string::npos)
        << strRecords;
}

TEST_F(InitializeTest, MissingPackageDescriptionFailsAllButTheGuiProcess)
{
    QZTEST::TempFolder empty;
    m_fakes.m_os.m_wstrModulePath = empty.Path() + L"qzriwrap.exe";
    EXPECT_FALSE(Initialize(L"TASK_ID=T-1"));
    EXPECT_EQ(m_data.m_eInitResult, InitResult::NO_PACKAGE_DESCRIPTION);
    EXPECT_EQ(m_fakes.m_reports.m_vecReports,
              (Reports{{L"QZRI_MSG_DATA_FILE_NOT_EXISTS", L"File does not exist."}}));

    // The GUI process reads no task keys and asks for no sessions.
    m_fakes.m_sessions.m_nCalls = 0;
    ASSERT_TRUE(Initialize(L"QZRI$GUI TASK_ID=T-1 QZRI$ID=svc1 PxgRequest"));
    EXPECT_TRUE(m_data.m_bGuiProcess);
    EXPECT_TRUE(m_data.m_bPxgRequest);
    EXPECT_EQ(m_data.m_wstrTaskId, L"");
    EXPECT_FALSE(m_data.m_bRestartedAsService);
    EXPECT_EQ(m_fakes.m_sessions.m_nCalls, 0);
    EXPECT_FALSE(m_data.m_bAskUser);
}

TEST_F(InitializeTest, SessionsAreKeptAndAFailedListIsNoFailure)
{
    m_fakes.m_sessions.m_vecSessions = {{1, L"Console"}, {3, L"RDP-Tcp#0"}};
    ASSERT_TRUE(Initialize(L""));
    EXPECT_EQ(m_data.m_vecUserSessions.size(), 2u);
    m_fakes.m_sessions.m_bFails = true;
    ASSERT_TRUE(Initialize(L""));
    EXPECT_TRUE(m_data.m_vecUserSessions.empty());
}

// The package's settings, its ".qud" companion first, and the reboot agent's file.
TEST_F(InitializeTest, PackageSettingsComeFromTheDescriptionAndItsCompanion)
{
    struct Row
    {
        const char* szQpd;
        const char* szQud;        // nullptr: no companion
        const char* szRebootIni;  // nullptr: no qzrbtagt.ini
        bool bAskUser;
        bool bRebootImmediately;
    };
    const Row rows[] = {
        {"[Setup]\r\nAskUser=1\r\n", nullptr, nullptr, true, false},
        {"[Setup]\r\nAskUser=0\r\n", "[Setup]\r\nAskUser=1\r\n", nullptr, true, false},
        {"[Setup]\r\nAskUser=1\r\n", "[Setup]\r\nAskUser=0\r\n", nullptr, false, false},
        {"[Setup]\r\n", nullptr, "[Action]\r\nRebootImmediately=1\r\n", false, true},
        {"[Setup]\r\n", nullptr, "[Action]\r\nRebootImmediately=0\r\nAskReboot=1\r\n", false, true},
        {"[Setup]\r\n", nullptr, "[Action]\r\nRebootImmediately=-1\r\nAskReboot=0\r\n", false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.szQpd) + (row.szQud ? row.szQud : "") +
                     (row.szRebootIni ? row.szRebootIni : ""));
        WriteQpd(row.szQpd, row.szQud);
        const std::wstring wstrIni = m_wstrPkg + L"qzrbtagt.ini";
        QZTEST::RemoveAll(wstrIni);
        if (row.szRebootIni)
            QZTEST::WriteFileBytes(wstrIni, row.szRebootIni);
        ASSERT_TRUE(Initialize(L"QZRIWRAP_RUN_AS_PATCH"));
        EXPECT_TRUE(m_data.m_bRunAsPatch);
        EXPECT_EQ(m_data.m_bAskUser, row.bAskUser);
        EXPECT_EQ(m_data.m_bRebootImmediately, row.bRebootImmediately);
    }
    // Several descriptions: the first by name is taken.
    QZTEST::WriteFileBytes(m_wstrPkg + L"a_first.qpd", "[Setup]\r\nAskUser=1\r\n");
    ASSERT_TRUE(Initialize(L""));
    EXPECT_EQ(m_data.m_wstrQpdFilePath, m_wstrPkg + L"a_first.qpd");
    EXPECT_TRUE(QZRITEST::HasInOrder(Records(), {InitLine("m_bAskUser = true.")}));
}

TEST_F(InitializeTest, ManagedByAnotherServerOnlyWithPolicyOneAndTwoDifferentIds)
{
    struct Row
    {
        const char* szExtended;  // the [ExtendedSettings] lines of the qpd file
        const char* szQud;       // the companion's, nullptr: none
        const wchar_t* szCurrent;
        bool bSkipped;
    };
    const Row rows[] = {
        {"", nullptr, L"srv-B", false},
        {"MgdByOtherSrv=0\r\nServerID=srv-A\r\n", nullptr, L"srv-B", false},
        {"MgdByOtherSrv=2\r\nServerID=srv-A\r\n", nullptr, L"srv-B", false},
        {"MgdByOtherSrv=1\r\n", nullptr, L"srv-B", false},
        {"MgdByOtherSrv=1\r\nServerID=srv-A\r\n", nullptr, L"", false},
        {"MgdByOtherSrv=1\r\nServerID=srv-A\r\n", nullptr, L"srv-A", false},
        {"MgdByOtherSrv=0\r\nServerID=srv-B\r\n",
         "[ExtendedSettings]\r\nMgdByOtherSrv=1\r\nServerID=srv-A\r\n", L"srv-A", false},
        {"MgdByOtherSrv=1\r\nServerID=srv-A\r\n", nullptr, L"srv-B", true},
        {"MgdByOtherSrv=0\r\n", "[ExtendedSettings]\r\nMgdByOtherSrv=1\r\nServerID=srv-A\r\n", L"srv-B",
         true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.szExtended) + (row.szQud ? row.szQud : "") +
                     " current=" + QZSTD::WideToUtf8(row.szCurrent));
        WriteQpd(std::string("[Setup]\r\n[ExtendedSettings]\r\n") + row.szExtended, row.szQud);
        m_fakes.m_serverIds.m_wstrId = row.szCurrent;
        EXPECT_EQ(Initialize(L""), !row.bSkipped);
        EXPECT_EQ(
            m_fakes.m_reports.m_vecReports,
            (row.bSkipped ? Reports{{L"QZRI_MSG_DATA_COMPLETE_SKIPPED",
                                     L"Installation is not required. Host is managed by another Server"}}
                          : Reports{}));
    }
    // The last row's policy and both ids are traced.
    EXPECT_TRUE(QZRITEST::HasInOrder(
        Records(), {InitLine("nNeedMgdByOtherSrv = 'RI_MGD_BY_OTHER_SERVER_NEVER'"),
                    InitLine("wstrParentServerID = 'srv-A'"), InitLine("wstrCurrentServerID = 'srv-B'")}));
}

}  // namespace
