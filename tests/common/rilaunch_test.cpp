// The agent's launcher: the decisions against tables, the job waiter's modes against real process trees
// (the test executable re-runs itself as setup program and installer, tests/std/process/testchild.h),
// and the result-file wrapper run for real. The same tests run natively and under Wine.
#include "common/rilaunch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include "tests/std/process/testchild.h"

#include "std/shutdown.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

#ifdef _WIN32
#include "common/win32_handlelist.h"
#include "std/process/launch_win.h"
#include "std/win/scopedhandle.h"

#include <tlhelp32.h>
#endif

namespace {

using QZSTD::CAutoPtr;
using QZSTD::LaunchWaiter;
using QZTEST::ErrorCodeOf;
using QZTEST::SelfCommand;

CAutoPtr<QZPAR::Params> ChildEnv(const std::wstring& wstrMode, const std::filesystem::path& marker,
                                 const std::filesystem::path& copyDir)
{
    return QZTEST::EnvOf({{L"QZ_TEST_CHILD", wstrMode},
                          {L"QZ_TEST_MARKER", marker.wstring()},
                          {L"QZ_TEST_COPYDIR", copyDir.wstring()}});
}

#ifdef _WIN32
// Child mode "in-job-launch": the agent placed in a job without BREAKAWAY_OK launches a setup program
// that leaves a grandchild behind, in mode 1. Exit 0: created, and waited for the program alone.
int RunInJobLaunchChild()
{
    const char* szTrace = std::getenv("QZ_TEST_TRACE");
    const char* szMarker = std::getenv("QZ_TEST_MARKER");
    if (!szTrace || !szMarker)
        return 40;
    QZSTD::TraceOpen(QZSTD::Utf8ToWide(szTrace), QZSTD::TL_DEBUG, false);
    QZ_TRACE_SCOPE("QZRI", "InJobLaunchChild");
    try {
        QZRI::LaunchOptions options;
        options.m_wstrCommandLine = SelfCommand();
        CAutoPtr<QZPAR::Params> pEnv = ChildEnv(L"spawn:5000", szMarker, "");
        options.m_pEnvironmentAddition = pEnv;
        options.m_nWaitMode = QZRI::WAIT_WHOLE_JOB;
        CAutoPtr<LaunchWaiter> pWaiter;
        QZRI::LaunchAsync(options, &pWaiter);
        if (!pWaiter->Wait(-1))
            return 41;
        const bool bGrandchildDone = std::filesystem::exists(szMarker);
        const uint32_t nCode = pWaiter->ExitCode();
        QZSTD::TraceClose();
        return nCode != 7 ? 42 : bGrandchildDone ? 43 : 0;
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
        QZSTD::TraceClose();
        return 44;
    }
}

const bool g_bInJobChild = [] {
    const char* szMode = std::getenv("QZ_TEST_CHILD");
    if (szMode && std::string(szMode) == "in-job-launch")
        QZTEST::EndChild(RunInJobLaunchChild());
    return false;
}();

const wchar_t* const EXE_SUFFIX = L".exe";
#else
const wchar_t* const EXE_SUFFIX = L"";
#endif

const bool g_bChildMode = QZTEST::RunChildModeIfAsked();

// Waits (up to a hang-detecting bound) until the file exists.
bool AppearsWithin(const std::filesystem::path& path, std::chrono::seconds sec)
{
    const auto tpEnd = std::chrono::steady_clock::now() + sec;
    while (!std::filesystem::exists(path)) {
        if (std::chrono::steady_clock::now() > tpEnd)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// Logons without an account database: a logon that fails as a wrong password does, or that hands out
// this process's own token; and a revert that can be made to fail after it reverted.
class FakeAccountCalls : public QZRI::AccountCalls
{
public:
    bool LogOnUser(const QZRI::AccountName& account, const std::wstring&, void** phToken) override
    {
        m_vecLogons.push_back(account);
#ifdef _WIN32
        if (m_bLogonWithOwnToken) {
            HANDLE h = nullptr;
            const BOOL b = ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, &h);
            *phToken = h;
            return b != FALSE;
        }
        ::SetLastError(1326);  // ERROR_LOGON_FAILURE
#endif
        *phToken = nullptr;
        return false;
    }
    bool RevertToSelf() override
    {
#ifdef _WIN32
        const BOOL b = ::RevertToSelf();
        if (m_bRevertFails) {
            ::SetLastError(ERROR_ACCESS_DENIED);
            return false;
        }
        return b != FALSE;
#else
        return true;
#endif
    }
    std::vector<QZRI::AccountName> m_vecLogons;
    bool m_bLogonWithOwnToken = false;
    bool m_bRevertFails = false;
};

class RiLaunchTest : public ::testing::Test
{
protected:
    QZRI::LaunchOptions Options(const std::wstring& wstrMode, int nWaitMode = QZRI::WAIT_PROCESS_ONLY)
    {
        QZRI::LaunchOptions options;
        options.m_wstrCommandLine = SelfCommand();
        m_vecEnvs.push_back(ChildEnv(wstrMode, Marker(), m_dir));
        options.m_pEnvironmentAddition = m_vecEnvs.back();
        options.m_nWaitMode = nWaitMode;
        options.m_pShutdown = &m_shutdown;
        options.m_pAccountCalls = &m_accounts;
        return options;
    }
    CAutoPtr<LaunchWaiter> Start(const QZRI::LaunchOptions& options)
    {
        CAutoPtr<LaunchWaiter> pWaiter;
        QZRI::LaunchAsync(options, &pWaiter);
        return pWaiter;
    }
    std::filesystem::path Marker() const { return m_dir / m_wstrMarkerName; }

    QZTEST::TempFolder m_folder;
    const std::filesystem::path m_dir = std::filesystem::path(m_folder.Path());
    std::wstring m_wstrMarkerName = L"grandchild.done";
    QZSTD::ShutdownSignal m_shutdown;
    FakeAccountCalls m_accounts;
    std::vector<CAutoPtr<QZPAR::Params>> m_vecEnvs;  // the options only point at their environment
};

TEST(SplitUserNameTest, SplitsDomainAndUserAsWritten)
{
    using QZRI::AccountName;
    const std::pair<const wchar_t*, AccountName> rows[] = {
        {L"DOMAIN\\user", {L"user", L"DOMAIN"}},
        {L"user@domain.example", {L"user", L"domain.example"}},
        {L"user", {L"user", L""}},
        {L"DOM\\us@er", {L"us@er", L"DOM"}},
        {L"\\user", {L"user", L""}},
        {L"user@", {L"user", L""}},
        {L"", {L"", L""}},
    };
    for (const auto& [szIn, expected] : rows)
        EXPECT_EQ(expected, QZRI::SplitUserName(szIn)) << szIn;
}

TEST(BreakawayDecisionTest, OnlyAJobWithoutBreakawayOkKeepsTheFlagOff)
{
    EXPECT_TRUE(QZRI::ShouldBreakAwayFromJob(false, 0));
    EXPECT_TRUE(QZRI::ShouldBreakAwayFromJob(true, 0x800));
    EXPECT_FALSE(QZRI::ShouldBreakAwayFromJob(true, 0x2000));  // kill-on-close alone
    EXPECT_FALSE(QZRI::ShouldBreakAwayFromJob(true, 0x1000));  // silent breakaway is another flag
}

TEST(ResultScriptTest, BatchLinesQuoteTheResultFileShellFormQuotesEveryWord)
{
    EXPECT_EQ(
        L"echo off\r\n"
        L"cd \"C:\\pkg dir\"\r\n"
        L"call setup.exe /s\r\n"
        L"set cmd_proc_rslt=%errorLevel%\r\n"
        L"echo [cmd_proc_rslt] > \"C:\\Program Files (x86)\\r.ini\"\r\n"
        L"echo result=%cmd_proc_rslt% >> \"C:\\Program Files (x86)\\r.ini\"\r\n"
        L"echo ready=1 >> \"C:\\Program Files (x86)\\r.ini\"\r\n",
        QZRI::BuildResultBatchScript(L"setup.exe /s", L"C:\\pkg dir", L"C:\\Program Files (x86)\\r.ini"));
    EXPECT_EQ(0u, QZRI::BuildResultBatchScript(L"a", L"", L"r").find(L"echo off\r\ncall a\r\n"));
    const std::wstring wstr = QZRI::BuildResultShellScript(L"\"/opt/my app\" it's", L"/d", L"/r 1.ini");
    EXPECT_NE(std::wstring::npos, wstr.find(L"\ncd '/d'\n'/opt/my app' 'it'\\''s'\ncmd_proc_rslt=$?\n"));
    EXPECT_NE(std::wstring::npos, wstr.find(L"echo \"result=$cmd_proc_rslt\" >> '/r 1.ini'\n"));
    // The script goes into the folder asked for, each under a name of its own. Running it from a folder
    // with a blank and a parenthesis is proven by the task's setup run in qztsk_test.cpp.
    QZTEST::TempFolder folder;
    const std::wstring wstrScript =
        QZRI::WrapCommandLineToStoreProcessResult(L"x", L"", folder.Path(), folder.Join(L"r.ini"));
    EXPECT_EQ(std::filesystem::path(folder.Path()).parent_path(),
              std::filesystem::path(wstrScript).parent_path());
    EXPECT_NE(wstrScript,
              QZRI::WrapCommandLineToStoreProcessResult(L"x", L"", folder.Path(), folder.Join(L"r.ini")));
}

TEST_F(RiLaunchTest, WhatCannotBeLaunchedIsRefusedBeforeAnythingStarts)
{
    ASSERT_FALSE(g_bChildMode);
    QZRI::LaunchOptions options = Options(L"exit:0");
    options.m_nWaitMode = QZRI::WAIT_MODE_RESERVED;
    EXPECT_EQ(QZSTD::Err::NOT_IMPLEMENTED, ErrorCodeOf([&] { Start(options); }));
    options.m_nWaitMode = 4;
    EXPECT_EQ(QZSTD::Err::BAD_PARAM, ErrorCodeOf([&] { Start(options); }));
    options.m_nWaitMode = 0;
    // The options' own signal is asked (launch_test.cpp: raising it leaves the process's alone).
    m_shutdown.Raise();
    EXPECT_EQ(QZSTD::Err::SHUTDOWN, ErrorCodeOf([&] { Start(options); }));
}

TEST_F(RiLaunchTest, ModeOneWaitsForTheGrandchildTimesOutAndStopsOnShutdown)
{
    CAutoPtr<LaunchWaiter> pWaiter = Start(Options(L"spawn:6000", QZRI::WAIT_WHOLE_JOB));
    EXPECT_FALSE(pWaiter->Wait(0));
    EXPECT_FALSE(pWaiter->Wait(300));
    // After a time-out the grandchild that still runs is named: image and pid.
    const std::wstring wstrSelf = QZTEST::SelfPath().filename().wstring();
    EXPECT_NE(QZRI::DescribeRunningProcesses(pWaiter).find(wstrSelf + L" (pid "), std::wstring::npos)
        << QZSTD::WideToUtf8(QZRI::DescribeRunningProcesses(pWaiter));
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { pWaiter->Wait(-2); }));
    std::thread t([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        m_shutdown.Raise();
    });
    EXPECT_EQ(QZSTD::Err::SHUTDOWN, ErrorCodeOf([&] { pWaiter->Wait(-1); }));
    t.join();
    EXPECT_FALSE(std::filesystem::exists(Marker()));

    // Without a shutdown the wait ends only after the grandchild, with the first program's exit code.
    QZSTD::ShutdownSignal quiet;
    m_wstrMarkerName = L"second.done";
    QZRI::LaunchOptions options = Options(L"spawn:1000", QZRI::WAIT_WHOLE_JOB);
    options.m_pShutdown = &quiet;
    pWaiter = Start(options);
    EXPECT_TRUE(pWaiter->Wait(-1));
    EXPECT_TRUE(std::filesystem::exists(Marker()));
    EXPECT_EQ(7u, pWaiter->ExitCode());
}

TEST_F(RiLaunchTest, ModeTwoWaitsForListedImagesOnly)
{
    const std::wstring wstrListed = std::wstring(L"QzListed") + EXE_SUFFIX;
    QZRI::LaunchOptions options = Options(L"spawn-named:qzlisted:1000", QZRI::WAIT_LISTED_IMAGES);
    options.m_vecWaitImages = {L"other.exe", wstrListed};
    CAutoPtr<LaunchWaiter> pWaiter = Start(options);
    EXPECT_TRUE(pWaiter->Wait(-1));
    EXPECT_TRUE(std::filesystem::exists(Marker()));
    EXPECT_EQ(7u, pWaiter->ExitCode());
    std::filesystem::remove(Marker());

    options = Options(L"spawn-named:qzunlisted:6000", QZRI::WAIT_LISTED_IMAGES);
    options.m_vecWaitImages = {wstrListed};
    pWaiter = Start(options);
    EXPECT_TRUE(pWaiter->Wait(-1));
    EXPECT_FALSE(std::filesystem::exists(Marker()));
    EXPECT_TRUE(AppearsWithin(Marker(), std::chrono::seconds(60)));
}

// Mode 0 returns when the started program ends, not waiting for its grandchild.
TEST_F(RiLaunchTest, ModeZeroWaiterAnswersOnlyTheBaseInterfacesAndWaitsForTheProgramAlone)
{
    CAutoPtr<LaunchWaiter> pWaiter = Start(Options(L"spawn:6000"));
    void* pv = nullptr;
    EXPECT_FALSE(pWaiter->QueryInterface("QZSTD::LaunchWaiter2", &pv));
    EXPECT_FALSE(pWaiter->QueryInterface("QZSTD::ProcessPid", &pv));
    EXPECT_EQ(nullptr, pv);
    ASSERT_TRUE(pWaiter->QueryInterface("QZSTD::QZBaseQI", &pv));
    ASSERT_EQ(static_cast<void*>(pWaiter.Get()), pv);
    pWaiter->Release();
    EXPECT_EQ(QZSTD::Err::ASSERTION,
              ErrorCodeOf([&] { pWaiter->QueryInterface("QZSTD::LaunchWaiter", nullptr); }));
    EXPECT_TRUE(pWaiter->Wait(-1));
    EXPECT_EQ(7u, pWaiter->ExitCode());
    // The grandchild sleeps 6 s; the wait above did not wait for it.
    EXPECT_FALSE(std::filesystem::exists(Marker()));
    EXPECT_TRUE(AppearsWithin(Marker(), std::chrono::seconds(60)));
}

TEST_F(RiLaunchTest, CredentialsGoToTheLogonSplitOrAreRefusedWhereThereIsNone)
{
    EXPECT_TRUE(Start(Options(L"exit:5"))->Wait(-1));  // no user: no logon
    EXPECT_TRUE(m_accounts.m_vecLogons.empty());
    QZRI::LaunchOptions options = Options(L"sleep:0");
    options.m_wstrUser = L"DOM\\someone";
    options.m_wstrPassword = L"pw";
    CAutoPtr<LaunchWaiter> pWaiter;
#ifdef _WIN32
    EXPECT_EQ(1326, ErrorCodeOf([&] { QZRI::LaunchAsync(options, &pWaiter); }, QZSTD::SYSTEM_MODULE));
    EXPECT_EQ(m_accounts.m_vecLogons, (std::vector<QZRI::AccountName>{{L"someone", L"DOM"}}));
#else
    EXPECT_EQ(QZSTD::Err::UNSUPPORTED, ErrorCodeOf([&] { QZRI::LaunchAsync(options, &pWaiter); }));
    EXPECT_TRUE(m_accounts.m_vecLogons.empty());
#endif
    EXPECT_FALSE(pWaiter);
    // Nothing was started: no program ran to write the marker.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(std::filesystem::exists(Marker()));
}

#ifdef _WIN32
// The ids of the running processes that this process started.
std::set<DWORD> ChildrenOfThisProcess()
{
    std::set<DWORD> setPids;
    QZSTD::Win::ScopedHandle hSnap(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL b = ::Process32FirstW(hSnap.Get(), &entry); b; b = ::Process32NextW(hSnap.Get(), &entry))
        if (entry.th32ParentProcessID == ::GetCurrentProcessId())
            setPids.insert(entry.th32ProcessID);
    return setPids;
}

// The program runs under the logon's token and the impersonation is undone; a failure after the program
// was created must not leave it suspended for ever.
TEST_F(RiLaunchTest, CredentialsPathUndoesTheImpersonationAndAFailedRevertEndsTheProgramWithExitCodeThree)
{
    m_accounts.m_bLogonWithOwnToken = true;
    QZRI::LaunchOptions options = Options(L"exit:5");
    options.m_wstrUser = L"someone@example.test";
    CAutoPtr<LaunchWaiter> pWaiter = Start(options);
    EXPECT_EQ(m_accounts.m_vecLogons, (std::vector<QZRI::AccountName>{{L"someone", L"example.test"}}));
    EXPECT_TRUE(pWaiter->Wait(-1));
    EXPECT_EQ(5u, pWaiter->ExitCode());
    HANDLE hToken = nullptr;
    EXPECT_FALSE(::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &hToken));
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_TOKEN), ::GetLastError());

    m_accounts.m_bRevertFails = true;
    const std::set<DWORD> setBefore = ChildrenOfThisProcess();
    pWaiter = nullptr;
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorCodeOf([&] { QZRI::LaunchAsync(options, &pWaiter); }, QZSTD::SYSTEM_MODULE));
    EXPECT_FALSE(pWaiter);
    for (const DWORD dwPid : ChildrenOfThisProcess()) {
        if (setBefore.count(dwPid))
            continue;
        QZSTD::Win::ScopedHandle hChild(
            ::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE, FALSE, dwPid));
        if (!hChild.IsValid())
            continue;  // already gone
        const bool bEnded = ::WaitForSingleObject(hChild.Get(), 10000) == WAIT_OBJECT_0;
        EXPECT_TRUE(bEnded) << "Pid " << dwPid << " was left suspended";
        if (!bEnded) {
            ::TerminateProcess(hChild.Get(), 99);
            continue;
        }
        DWORD dwCode = 0;
        ASSERT_TRUE(::GetExitCodeProcess(hChild.Get(), &dwCode));
        EXPECT_EQ(3u, dwCode);
    }
}

TEST_F(RiLaunchTest, AnAgentInAJobWithoutBreakawayWaitsForTheProgramAlone)
{
    const std::filesystem::path trace = m_dir / "child-trace.txt";
    QZSTD::Win::ScopedHandle hJob(::CreateJobObjectW(nullptr, nullptr));
    ASSERT_TRUE(hJob.IsValid());
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION info = {};
    info.BasicLimitInformation.LimitFlags = 0;  // no JOB_OBJECT_LIMIT_BREAKAWAY_OK
    ASSERT_TRUE(
        ::SetInformationJobObject(hJob.Get(), JobObjectExtendedLimitInformation, &info, sizeof(info)));

    QZTEST::SetEnv("QZ_TEST_TRACE", trace.wstring());
    QZTEST::SetEnv("QZ_TEST_MARKER", Marker().wstring());
    QZTEST::SetEnv("QZ_TEST_CHILD", L"in-job-launch");
    std::wstring wstrCmd = SelfCommand();
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    const BOOL bCreated = ::CreateProcessW(nullptr, wstrCmd.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                                           nullptr, nullptr, &si, &pi);
    QZTEST::SetEnv("QZ_TEST_CHILD", L"");
    ASSERT_TRUE(bCreated);
    QZSTD::Win::ScopedHandle hProcess(pi.hProcess);
    QZSTD::Win::ScopedHandle hThread(pi.hThread);
    if (!::AssignProcessToJobObject(hJob.Get(), hProcess.Get())) {
        ::TerminateProcess(hProcess.Get(), 3);
        FAIL() << "AssignProcessToJobObject: " << ::GetLastError();
    }
    ASSERT_NE(static_cast<DWORD>(-1), ::ResumeThread(hThread.Get()));
    ASSERT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(hProcess.Get(), 120000));  // hang detector only
    DWORD dwCode = 99;
    ASSERT_TRUE(::GetExitCodeProcess(hProcess.Get(), &dwCode));
    const std::string strTrace = QZTEST::ReadFileBytes(trace.wstring());
    EXPECT_EQ(0u, dwCode) << strTrace;
    for (const char* szLine :
         {"Process is already in a job", "JOB_OBJECT_LIMIT_BREAKAWAY_OK is not set for a job",
          "Process already in job. Can't handle process tree", "App: NULL, CommandLine: '"})
        EXPECT_NE(std::string::npos, strTrace.find(szLine)) << szLine << "\n" << strTrace;
    // The grandchild was left to run; it ends on its own.
    EXPECT_TRUE(AppearsWithin(Marker(), std::chrono::seconds(60)));
}

TEST(ProcessHandleListTest, BuildsAListForTheGivenHandlesAndFreesIt)
{
    CAutoPtr<QZSTD::ProcessHandleList> pList;
    QZSTD::CreateProcessHandleList(&pList);
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    si.dwFlags = STARTF_USESTDHANDLES;
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { pList->GetHandleList({}, si); }));
    QZSTD::Win::ScopedHandle hNul = QZSTD::Win::OpenStdStream(L"NUL", true);
    STARTUPINFOEXW* pEx = pList->GetHandleList({hNul.Get()}, si);
    ASSERT_NE(nullptr, pEx);  // every supported Windows (and Wine) has the attribute-list functions
    EXPECT_EQ(sizeof(STARTUPINFOEXW), pEx->StartupInfo.cb);
    EXPECT_NE(nullptr, pEx->lpAttributeList);
    EXPECT_EQ(static_cast<DWORD>(EXTENDED_STARTUPINFO_PRESENT), pList->GetCreationFlags());
    pList->FreeHandleList();
    EXPECT_EQ(0u, pList->GetCreationFlags());
}
#endif

}  // namespace
