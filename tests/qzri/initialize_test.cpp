// RiWrpData::Initialize against fakes of the sessions, the server id and the report sink, with the
// package folder and its files in a private temporary folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

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

TEST_F(InitializeTest, FreshStartTakesEverythingFromTheCommandLineAndTheSessions)
{
    ASSERT_TRUE(Initialize(L"TASK_ID=T-17 RI_ID=r1 MASTER_SERVICE_ID=m1 QZRI_START_CNT=3 PxgRequest"));
    EXPECT_EQ(std::tuple(m_data.m_wstrDirPath, m_data.m_wstrExecDirPath, m_data.m_wstrTaskId,
                         m_data.m_wstrRiId, m_data.m_wstrMasterServiceId, m_data.m_bPxgRequest,
                         m_data.m_bSilentModeCmdLine, m_data.m_nStartCounter, m_data.m_wstrSavedCmdLine),
              std::tuple(m_wstrPkg, m_wstrPkg, L"T-17", L"r1", L"m1", true, false, 3, m_wstrCmdLine));
    EXPECT_TRUE(m_fakes.m_reports.m_vecReports.empty());

    // The silent switch is a word of its own.
    ASSERT_TRUE(Initialize(L"TASK_ID=/s \"/S\""));
    EXPECT_TRUE(m_data.m_bSilentModeCmdLine);
    // The sessions are kept; a failed list is no failure.
    m_fakes.m_sessions.m_vecSessions = {{1, L"Console"}, {3, L"RDP-Tcp#0"}};
    ASSERT_TRUE(Initialize(L""));
    EXPECT_EQ(m_data.m_vecUserSessions.size(), 2u);
    m_fakes.m_sessions.m_bFails = true;
    ASSERT_TRUE(Initialize(L""));
    EXPECT_TRUE(m_data.m_vecUserSessions.empty());

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
    // What is tried, the action, counter and command line of the run parameters (no action: no file), the
    // arguments, the result, and when it is OK the action, the counter and the saved command line.
    using Row = std::tuple<const char*, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                           InitResult, QzriAction, int, const wchar_t*>;
    const Row rows[] = {
        {"restart without run params", nullptr, L"", L"", L"QZRI$ID=svc1 QZRI_START_CNT=6", InitResult::OK,
         QZRI_ACTION_RUN, 0, L""},
        {"restart with run params", L"2", L"4", L"$HEX_610020006200", L"QZRI$ID=svc1 QZRI_START_CNT=6",
         InitResult::OK, QZRI_ACTION_CHECK_RESULT, 4, L"a b"},
        {"restart while the setup ran", L"1", L"0", L"", L"QZRI$ID=svc1", InitResult::UNEXPECTED_REBOOT,
         QZRI_ACTION_RUNNING_SETUP, 0, L""},
        {"fresh start ignores a running setup", L"1", L"0", L"", L"TASK_ID=T-1 QZRI_START_CNT=2",
         InitResult::OK, QZRI_ACTION_RUN, 2, L"x.exe TASK_ID=T-1 QZRI_START_CNT=2"},
        {"corrupt command line", L"0", L"0", L"$HEX_6100ZZ00", L"QZRI$ID=svc1", InitResult::FAILED,
         QZRI_ACTION_RUN, 0, L""},
        {"unknown action", L"7", L"0", L"", L"QZRI$ID=svc1", InitResult::DAMAGED_STATE, QZRI_ACTION_RUN, 0,
         L""},
        {"negative action", L"-1", L"0", L"", L"QZRI$ID=svc1", InitResult::DAMAGED_STATE, QZRI_ACTION_RUN, 0,
         L""},
        {"fresh start ignores an unknown action", L"7", L"0", L"", L"", InitResult::OK, QZRI_ACTION_RUN, 0,
         L"x.exe "},
    };
    for (const auto& [szWhat, szAction, szCounter, szCmdLine, szArgs, eResult, eAct, nCounter, szSaved] :
         rows) {
        SCOPED_TRACE(szWhat);
        QZTEST::RemoveAll(m_wstrPkg + RUN_PARAMS_FILE);
        if (szAction)
            WriteRunParams(szAction, szCounter, szCmdLine);
        EXPECT_EQ(Initialize(szArgs), eResult == InitResult::OK);
        EXPECT_EQ(m_data.m_eInitResult, eResult);
        // Only the unexpected reboot is reported.
        EXPECT_EQ(m_fakes.m_reports.m_vecReports,
                  (eResult == InitResult::UNEXPECTED_REBOOT
                       ? Reports{{L"QZRI_MSG_DATA_UNEXPECTED_REBOOT", L"Unexpected reboot."}}
                       : Reports{}));
        EXPECT_EQ(m_data.m_wstrServiceId, m_data.m_bRestartedAsService ? L"svc1" : L"");
        if (eResult == InitResult::OK) {
            EXPECT_EQ(std::tuple(m_data.m_eAct, m_data.m_nStartCounter, m_data.m_wstrSavedCmdLine),
                      std::tuple(eAct, nCounter, szSaved));
        }
    }
    // A restart reports as a silent run, under the first start's task id.
    WriteRunParams(L"2", L"1", L"x.exe TASK_ID=T-9");
    EXPECT_TRUE(Initialize(L"QZRI$ID=svc1"));
    EXPECT_TRUE(m_data.m_bSilentModeCmdLine);
    EXPECT_EQ(m_data.m_wstrTaskId, L"T-9");

    const std::string strRecords = QZRITEST::Joined(Records());
    EXPECT_THAT(strRecords, testing::HasSubstr("QZRIWRP E RiWrpData::Initialize: #1187 (QZSTD)"));
    EXPECT_THAT(
        strRecords,
        testing::HasSubstr("holds action 7, which is none of the known actions: the saved state is damaged"));
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
    EXPECT_EQ(std::tuple(m_data.m_bGuiProcess, m_data.m_bPxgRequest, m_data.m_wstrTaskId,
                         m_data.m_bRestartedAsService, m_fakes.m_sessions.m_nCalls, m_data.m_bAskUser),
              std::tuple(true, true, L"", false, 0, false));
}

// The package's settings and the reboot agent's file (that the companion wins is QpdFile's, checked in
// qpdfile_test; ManagedByAnotherServer... reads it through Initialize).
TEST_F(InitializeTest, PackageSettingsComeFromTheDescriptionAndTheRebootAgentsFile)
{
    // The description and qzrbtagt.ini (nullptr: no such file), m_bAskUser and m_bRebootImmediately.
    const std::tuple<const char*, const char*, bool, bool> rows[] = {
        {"[Setup]\r\nAskUser=1\r\n", nullptr, true, false},
        {"[Setup]\r\n", "[Action]\r\nRebootImmediately=1\r\n", false, true},
        {"[Setup]\r\n", "[Action]\r\nRebootImmediately=0\r\nAskReboot=1\r\n", false, true},
        {"[Setup]\r\n", "[Action]\r\nRebootImmediately=-1\r\nAskReboot=0\r\n", false, false},
    };
    for (const auto& [szQpd, szRebootIni, bAskUser, bRebootImmediately] : rows) {
        SCOPED_TRACE(std::string(szQpd) + (szRebootIni ? szRebootIni : ""));
        WriteQpd(szQpd);
        QZTEST::RemoveAll(m_wstrPkg + L"qzrbtagt.ini");
        if (szRebootIni)
            QZTEST::WriteFileBytes(m_wstrPkg + L"qzrbtagt.ini", szRebootIni);
        ASSERT_TRUE(Initialize(L"QZRIWRAP_RUN_AS_PATCH"));
        EXPECT_EQ(std::tuple(m_data.m_bRunAsPatch, m_data.m_bAskUser, m_data.m_bRebootImmediately),
                  std::tuple(true, bAskUser, bRebootImmediately));
    }
    // Several descriptions: the first by name is taken.
    QZTEST::WriteFileBytes(m_wstrPkg + L"a_first.qpd", "[Setup]\r\nAskUser=1\r\n");
    ASSERT_TRUE(Initialize(L""));
    EXPECT_EQ(m_data.m_wstrQpdFilePath, m_wstrPkg + L"a_first.qpd");
    EXPECT_TRUE(QZRITEST::HasInOrder(Records(), {InitLine("m_bAskUser = true.")}));
}

TEST_F(InitializeTest, ManagedByAnotherServerOnlyWithPolicyOneAndTwoDifferentIds)
{
    // The [ExtendedSettings] lines of the qpd file, the companion (nullptr: none), the current server id
    // and whether the installation is skipped.
    const std::tuple<const char*, const char*, const wchar_t*, bool> rows[] = {
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
    for (const auto& [szExtended, szQud, szCurrent, bSkipped] : rows) {
        SCOPED_TRACE(std::string(szExtended) + (szQud ? szQud : "") +
                     " current=" + QZSTD::WideToUtf8(szCurrent));
        WriteQpd(std::string("[Setup]\r\n[ExtendedSettings]\r\n") + szExtended, szQud);
        m_fakes.m_serverIds.m_wstrId = szCurrent;
        EXPECT_EQ(Initialize(L""), !bSkipped);
        EXPECT_EQ(m_fakes.m_reports.m_vecReports,
                  (bSkipped ? Reports{{L"QZRI_MSG_DATA_COMPLETE_SKIPPED",
                                       L"Installation is not required. Host is managed by another Server"}}
                            : Reports{}));
    }
    // The last row's policy and both ids are traced.
    EXPECT_TRUE(QZRITEST::HasInOrder(
        Records(), {InitLine("nNeedMgdByOtherSrv = 'RI_MGD_BY_OTHER_SERVER_NEVER'"),
                    InitLine("wstrParentServerID = 'srv-A'"), InitLine("wstrCurrentServerID = 'srv-B'")}));
}

}  // namespace
