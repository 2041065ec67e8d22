// The report channels against real files in a private folder: the result file, the description
// files, the user-action file, the settings storage of the task channel and the request for the server.
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/rebootrequest.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "tests/std/process/testchild.h"

#ifndef _WIN32
#include <signal.h>
#endif

#include "qzri/riwrap/riwrpdata.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/process/launch.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;

// Child modes: "report:<task id>" reports a result for the task into the storage of the shared folder
// QZ_TEST_SHARED, as one of many agents at once; "write-loop" writes setup.log in QZ_TEST_SHARED over and
// over, alternating two results, until it is killed.
const bool g_bReportChild = [] {
    const char* szMode = std::getenv("QZ_TEST_CHILD");
    const char* szShared = std::getenv("QZ_TEST_SHARED");
    if (!szMode || !szShared)
        return false;
    const std::string strMode = szMode;
    if (strMode.rfind("report:", 0) != 0 && strMode != "write-loop")
        return false;
    try {
        QZRITEST::TestServices fakes;
        fakes.m_registry.m_wstrSharedFolder = QZSTD::Utf8ToWide(szShared);
        RiResult rslt;
        rslt.m_nScriptResultCode = 1;
        if (strMode != "write-loop")
            ReportResultSS(QZSTD::Utf8ToWide(szMode + 7), rslt, L"", fakes.Get());
        for (int n = 0; strMode == "write-loop"; ++n) {
            rslt.m_nResultCode = n % 2 == 0 ? QZRI_RSLT_NO_ERROR : QZRI_RSLT_CLEANER_RESTART_NEEDED;
            rslt.m_nScriptResultCode = n;
            WriteSetupLog(fakes.m_registry.m_wstrSharedFolder, rslt, L"", L"", L"", fakes.Get());
        }
    } catch (...) {
        QZTEST::EndChild(3);
    }
    QZTEST::EndChild(0);
}();

// Ends a child process at once (SIGKILL, TerminateProcess).
void KillChild(long lPid)
{
#ifdef _WIN32
    const HANDLE h = ::OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(lPid));
    ::TerminateProcess(h, 9);
    ::CloseHandle(h);
#else
    ::kill(static_cast<pid_t>(lPid), SIGKILL);
#endif
}

// "key=value" of the file's lines, in their order, line ends and blanks around '=' cut.
std::vector<std::string> KeyLines(const std::wstring& wstrFile)
{
    std::vector<std::string> vecLines;
    std::istringstream in(QZTEST::ReadFileBytes(wstrFile));
    for (std::string str; std::getline(in, str);) {
        std::erase_if(str, [](char c) { return c == '\r' || c == ' '; });
        if (!str.empty() && str[0] != '[')
            vecLines.push_back(str);
    }
    return vecLines;
}

class ResultReportTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_data.m_wstrDirPath = m_folder.MakeSubFolder(L"pkg");
        m_data.m_bSilentModeCmdLine = true;
        m_fakes.m_registry.m_wstrSharedFolder = m_folder.MakeSubFolder(L"shared");
        QZTEST::MakeFolder(m_fakes.m_registry.m_wstrSharedFolder + L"Data");
        // No management agent's storage names a writable folder: the registry's shared folder is taken.
        QZTEST::SetEnv("QZ_LOCAL_SS_PATH", m_folder.Path() + L"none/local_ss.xml");
    }
    void TearDown() override { QZTEST::SetEnv("QZ_LOCAL_SS_PATH", L""); }
    std::wstring Pkg(const wchar_t* szName) const { return m_data.m_wstrDirPath + szName; }
    std::wstring E2s() const { return m_fakes.m_registry.m_wstrSharedFolder + L"Data/e2s_subscription.xml"; }
    QZSTD::CAutoPtr<QZPAR::Params> TaskEntries()
    {
        return QZSTD::SettingsStorage::OpenReadOnly(E2s())->ReadSection(L".core", L".independent",
                                                                        L"SubscriptionData");
    }

    QZTEST::TempFolder m_folder;
    QZRITEST::TestServices m_fakes;
    RiWrpData m_data;
};

// The keys and their order follow the process result, the result code (-50 counts as 0) and whether a
// reboot left a zombie file; the description files only with a description.
TEST_F(ResultReportTest, SetupLogKeysFollowTheResult)
{
    const std::string strScr = "ScriptResultCode=7";
    const std::string strZombie = "RebootZombieFile=" + QZSTD::WideToUtf8(Pkg(L"$qzriwrp_zombie.tmp"));
    // The result (a description or none) and the keys of setup.log.
    const std::pair<RiResult, std::vector<std::string>> rows[] = {
        {{0, 0, 7, 0, L"", 0}, {"ProcessResultCode=0", "ResultCode=0", strScr}},
        {{0, 5, 7, 32, L"", 0}, {"ProcessResultCode=0", "ResultCode=5", "ErrorClass=32"}},
        {{0, -50, 7, 33, L"x", 1},
         {"ProcessResultCode=0", "ResultCode=-50", "ErrorClass=33", strZombie, strScr}},
        {{0, -100, 7, 0, L"", 1}, {"ProcessResultCode=0", "ResultCode=-100"}},
        {{1603, 5, 7, 32, L"x", 0}, {"ProcessResultCode=1603"}},
    };
    for (const auto& [rslt, vecKeys] : rows) {
        SCOPED_TRACE(vecKeys.back());
        QZTEST::RemoveAll(Pkg(L"ovxsetup.rep"));
        EXPECT_EQ(ReportResult(m_data, rslt, m_fakes.Get()), rslt.m_nProcessResult);
        EXPECT_EQ(KeyLines(Pkg(L"setup.log")), vecKeys);
        EXPECT_EQ(QZTEST::PathExists(Pkg(L"ovxsetup.rep")), !rslt.m_wstrDescription.empty());
        EXPECT_FALSE(QZTEST::PathExists(Pkg(L"setup.log.tmp~")));
    }
    WriteSetupLog(m_data.m_wstrDirPath, RiResult{0, 0, 0, 0, L"Fertig \u20AC \u4E2D", 0}, L"r.log", L"d.txt",
                  L"u.txt", m_fakes.Get());
    EXPECT_EQ(QZTEST::ReadFileBytes(Pkg(L"d.txt")), "Fertig \x80 ?");
    // UTF-16LE with its byte-order mark (\376 is 0xFE, which \x would run on into the F).
    EXPECT_EQ(QZTEST::ReadFileBytes(Pkg(L"u.txt")),
              std::string("\xFF\376F\0e\0r\0t\0i\0g\0 \0\xAC\x20 \0\x2D\x4E", 22));
}

TEST_F(ResultReportTest, TheChannelIsChosenBySilenceTaskIdAndProcessResult)
{
    m_data.m_bSilentModeCmdLine = false;
    ReportResult(m_data, RiResult{}, m_fakes.Get());
    EXPECT_EQ(QZTEST::FileNamesIn(m_data.m_wstrDirPath), std::vector<std::string>{})
        << "interactive: nothing";

    m_data.m_bSilentModeCmdLine = true;
    m_data.m_wstrTaskId = L"T1";
    ReportResult(m_data, RiResult{1603, 0, 0, 0, L"", 0}, m_fakes.Get());
    EXPECT_FALSE(QZTEST::PathExists(E2s())) << "no process result: nothing";

    // Another task's entries stay beside this task's.
    m_data.m_wstrTaskId = L"T0";
    ReportResult(m_data, RiResult{0, 0, 4, 0, L"old", 0}, m_fakes.Get());
    m_data.m_wstrTaskId = L"T1";
    ReportResult(m_data, RiResult{0, 0, 7, 33, L"", 1}, m_fakes.Get());
    QZSTD::CAutoPtr<QZPAR::Params> p = TaskEntries();
    const auto Nested = [&](const wchar_t* szEntry) { return QZPAR::GetParamsValue(p, szEntry); };
    EXPECT_FALSE(QZPAR::GetBoolValue(Nested(L"TASK_ID"), L"T1"));
    EXPECT_EQ(QZPAR::GetIntValue(Nested(L"TASK_ID_RSLT_CODE"), L"T1"), 7);
    EXPECT_EQ(QZPAR::GetIntValue(Nested(L"TASK_ID_RSLT_CODE"), L"T0"), 4);
    EXPECT_EQ(QZPAR::GetIntValue(Nested(L"TASK_ID_ERR_CLASS"), L"T1"), 33);
    EXPECT_EQ(QZPAR::GetStringValue(Nested(L"TASK_ID_RSLT_DESCR"), L"T0"), L"old");
    EXPECT_FALSE(QZPAR::FindValue(Nested(L"TASK_ID_RSLT_DESCR"), L"T1")) << "empty description: no value";
    EXPECT_EQ(QZPAR::GetStringValue(Nested(L"TASK_ID_DEL_ON_RESTART"), L"T1"), Pkg(L"$qzriwrp_zombie.tmp"));

    // Without a local writable folder nothing is written, and the run goes on.
    m_fakes.m_registry.m_wstrSharedFolder.clear();
    QZTEST::RemoveAll(E2s());
    EXPECT_EQ(RiwrapReportResult(m_data, RiResult{}, m_fakes.Get()), 0);
}

TEST_F(ResultReportTest, UserActionsGoToAskusrOrUnderTheVirtualTaskId)
{
    ReportUserAction(m_data, USER_ACTION_DEFER, m_fakes.Get());
    EXPECT_EQ(KeyLines(Pkg(L"askusr.log")),
              (std::vector<std::string>{"ResultCode=2", "ResultTime=1763894400.042"}));

    m_data.m_wstrTaskId = L"T1";
    ReportUserAction(m_data, USER_ACTION_REBOOT_NOW, m_fakes.Get());
    ReportUserAction(m_data, 9, m_fakes.Get());
    QZSTD::CAutoPtr<QZPAR::Params> p = TaskEntries();
    EXPECT_EQ(QZPAR::GetStringValue(QZPAR::GetParamsValue(p, L"TASK_ID_RSLT_DESCR"), L"T1_USR_RBTR"),
              L"1763894400.042");
    EXPECT_TRUE(QZPAR::FindValue(QZPAR::GetParamsValue(p, L"TASK_ID"), L"T1"));
    // The reboot answer reaches the server through the request; action 9 has reboot state 0 and none.
    QZSTD::CAutoPtr<QZPAR::Params> pRequest = QZPAR::ReadParamsFile(Pkg(L"$qzriwrp_srvri_T1_USR_RBTR.par"));
    EXPECT_EQ(QZPAR::GetStringValue(pRequest, L"QZRI_SRVRI_TASK_ID"), L"T1_USR_RBTR");
    EXPECT_TRUE(QZPAR::GetBoolValue(pRequest, L"QZRI_SRVRI_SEND"));
    EXPECT_FALSE(QZTEST::PathExists(Pkg(L"$qzriwrp_srvri_T1.par")));
}

TEST_F(ResultReportTest, ARebootRequestCarriesTheResultAndACopyOfTheCompanion)
{
    QZTEST::WriteFileBytes(Pkg(L"p.qpd"), "[Setup]\r\n");
    QZTEST::WriteFileBytes(Pkg(L"p.qud"), "[Product]\r\nName=X\r\n");
    m_data.m_pQpd = QpdFile::Create(Pkg(L"p.qpd"));
    m_data.m_wstrTaskId = L"task/7";
    EXPECT_EQ(
        RequestPxgReboot(m_data, m_data.m_wstrTaskId, RiResult{0, 3010, 0, 32, L"done", 0}, m_fakes.Get()),
        L"");
    const std::wstring wstrPath =
        RequestPxgReboot(m_data, m_data.m_wstrTaskId, RiResult{0, 3010, 0, 32, L"done", 1}, m_fakes.Get());
    EXPECT_EQ(wstrPath, Pkg(L"$qzriwrp_srvri_task_7.par"));
    QZSTD::CAutoPtr<QZPAR::Params> p = QZPAR::ReadParamsFile(wstrPath);
    EXPECT_EQ(QZPAR::GetStringValue(p, L"QZRI_SRVRI_RES_DESCR"), L"done");
    EXPECT_EQ(QZPAR::GetIntValue(p, L"QZRI_SRVRI_RES_CODE"), 3010);
    EXPECT_EQ(QZTEST::ReadFileBytes(QZPAR::GetStringValue(p, L"QZRI_SRVRI_QUD")), "[Product]\r\nName=X\r\n");
    // Only the second call started the instance that delivers it, by the request's name in this folder.
    EXPECT_EQ(m_fakes.m_starter.m_vecCommandLines,
              std::vector<std::wstring>{L"\"C:\\pkg\\qzriwrap.exe\" PxgRequest=$qzriwrp_srvri_task_7.par"});
}

// Agents of many tasks report into one storage at once: every task's entries are there afterwards.
TEST_F(ResultReportTest, ThirtyTwoProcessesReportingAtOnceLoseNothing)
{
    ASSERT_FALSE(g_bReportChild);
    constexpr int PROCESSES = 32;
    std::vector<QZSTD::CAutoPtr<QZSTD::LaunchWaiter>> vecWaiters;
    for (int n = 0; n < PROCESSES; ++n)
        vecWaiters.push_back(QZTEST::StartSelf({{L"QZ_TEST_CHILD", L"report:task" + std::to_wstring(n)},
                                                {L"QZ_TEST_SHARED", m_fakes.m_registry.m_wstrSharedFolder}}));
    for (QZSTD::CAutoPtr<QZSTD::LaunchWaiter>& pWaiter : vecWaiters) {
        ASSERT_TRUE(pWaiter->Wait(120000));  // a hang detector only
        EXPECT_EQ(pWaiter->ExitCode(), 0u);
    }
    QZSTD::CAutoPtr<QZPAR::Params> pCodes = QZPAR::GetParamsValue(TaskEntries(), L"TASK_ID_RSLT_CODE");
    std::vector<std::wstring> vecIds;
    pCodes->GetNames(vecIds);
    EXPECT_EQ(vecIds.size(), static_cast<size_t>(PROCESSES));
}

// A writer killed at any moment leaves the previous result file or the new one, never part of one.
TEST_F(ResultReportTest, AKilledWriterLeavesAWholeResultFile)
{
    int nWholeFiles = 0;
    for (int nRound = 0; nRound < 6; ++nRound) {
        QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter =
            QZTEST::StartSelf({{L"QZ_TEST_CHILD", L"write-loop"}, {L"QZ_TEST_SHARED", m_data.m_wstrDirPath}});
        std::this_thread::sleep_for(std::chrono::milliseconds(150 + 37 * nRound));
        KillChild(QZSTD::QueryInterface<QZSTD::ProcessPid>(pWaiter)->GetPid());
        ASSERT_TRUE(pWaiter->Wait(60000));  // a hang detector only
        const std::vector<std::string> vecKeys = KeyLines(Pkg(L"setup.log"));
        if (vecKeys.empty())
            continue;  // killed before its first write
        ASSERT_EQ(vecKeys.size(), 3u) << nRound;
        ++nWholeFiles;
        EXPECT_EQ(vecKeys[0], "ProcessResultCode=0");
        // Both values come from the same write: an even script result goes with 0, an odd one with -50.
        ASSERT_EQ(vecKeys[2].rfind("ScriptResultCode=", 0), 0u) << vecKeys[2];
        const bool bEven = std::stoi(vecKeys[2].substr(17)) % 2 == 0;
        EXPECT_EQ(vecKeys[1], bEven ? "ResultCode=0" : "ResultCode=-50") << vecKeys[2];
    }
    EXPECT_GT(nWholeFiles, 0) << "the writer was always killed before its first write";
}

}  // namespace
