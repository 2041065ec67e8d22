// The standard launcher and waiter against real child processes: the test executable re-runs itself as
// the child (tests/std/process/testchild.h). The same tests run natively and under Wine.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "std/par/paramshelpers.h"
#include "std/process/launch.h"
#include "std/shutdown.h"
#include "tests/std/process/testchild.h"
#include "tests/testutil/errorof.h"

namespace {

const bool g_bChildMode = QZTEST::RunChildModeIfAsked();

using QZSTD::CAutoPtr;
using QZSTD::LaunchWaiter;
using QZTEST::SelfCommand;

CAutoPtr<LaunchWaiter> StartChild(const wchar_t* szMode, const QZSTD::ShutdownSignal* pShutdown = nullptr)
{
    return QZTEST::StartSelf({{L"QZ_TEST_CHILD", szMode}}, pShutdown);
}

// A launch of szCommand without output files or environment addition.
void Launch(const wchar_t* szCommand, LaunchWaiter** ppWaiter)
{
    QZSTD_LaunchAsync(szCommand, nullptr, nullptr, nullptr, nullptr, nullptr, ppWaiter);
}

using QZTEST::ErrorCodeOf;

class LaunchTest : public ::testing::Test
{
protected:
    QZSTD::ShutdownSignal m_shutdown;
};

// A running child: a wait of 0 says so and its exit code is not there yet; a shutdown raised from another
// thread ends an endless wait with 1199; the face without shutdown still waits it out. An endless wait
// without shutdown is in the interface test.
TEST_F(LaunchTest, TimeoutZeroAndShutdownFromAnotherThreadEndTheWaitOfARunningChild)
{
    CAutoPtr<LaunchWaiter> pWaiter = StartChild(L"sleep:4000", &m_shutdown);
    CAutoPtr<QZSTD::LaunchWaiter2> pWaiter2 = QZSTD::QueryInterface<QZSTD::LaunchWaiter2>(pWaiter);
    ASSERT_TRUE(pWaiter2);
    EXPECT_FALSE(pWaiter->Wait(0));
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { pWaiter->Wait(-2); }));
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { pWaiter2->Wait(-1); }));
    EXPECT_EQ(QZSTD::Err::UNSUPPORTED, ErrorCodeOf([&] { pWaiter->ExitCode(); }));
    std::thread t([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        m_shutdown.Raise();
    });
    const auto tpStart = std::chrono::steady_clock::now();
    EXPECT_EQ(QZSTD::Err::SHUTDOWN, ErrorCodeOf([&] { pWaiter->Wait(-1); }));
    t.join();
    // Only a hang detector: the child sleeps 4 s, the wait must have ended long before it exits.
    EXPECT_LT(std::chrono::steady_clock::now() - tpStart, std::chrono::seconds(10));
    EXPECT_FALSE(pWaiter2->Wait(0));
    EXPECT_TRUE(pWaiter2->Wait(60000));
    EXPECT_EQ(0u, pWaiter->ExitCode());
    EXPECT_TRUE(pWaiter2->Wait(0));
}

// The waiter's faces, and the child's exit code through them.
TEST_F(LaunchTest, InterfaceLookupAnswersExactlyItsNamesAndWaitReportsTheExitCode)
{
    ASSERT_FALSE(g_bChildMode);
#ifdef _WIN32
    const uint32_t nCode = 3010;  // kept whole on Windows
#else
    const uint32_t nCode = 42;
#endif
    CAutoPtr<LaunchWaiter> pWaiter = StartChild((L"exit:" + std::to_wstring(nCode)).c_str());
    for (const char* szIid :
         {"QZSTD::QZBaseQI", "QZSTD::LaunchWaiter", "QZSTD::LaunchWaiter2", "QZSTD::ProcessPid"}) {
        void* pv = nullptr;
        EXPECT_TRUE(pWaiter->QueryInterface(szIid, &pv)) << szIid;
        ASSERT_NE(nullptr, pv);
        pWaiter->Release();  // the reference the lookup took, on the same object
    }
    void* pv = nullptr;
    EXPECT_FALSE(pWaiter->QueryInterface("QZSTD::LaunchWaiterImpl", &pv));
    EXPECT_FALSE(pWaiter->QueryInterface("QZPAR::Params", &pv));
    EXPECT_EQ(nullptr, pv);
    EXPECT_EQ(QZSTD::Err::ASSERTION,
              ErrorCodeOf([&] { pWaiter->QueryInterface("QZSTD::LaunchWaiter", nullptr); }));
    EXPECT_TRUE(pWaiter->Wait(-1));
    EXPECT_TRUE(pWaiter->Wait(0));
    // The looked-up pointers are the faces themselves (found above, so not null).
    EXPECT_TRUE(QZSTD::QueryInterface<QZSTD::LaunchWaiter2>(pWaiter)->Wait(0));
    EXPECT_GT(QZSTD::QueryInterface<QZSTD::ProcessPid>(pWaiter)->GetPid(), 0);
    EXPECT_EQ(nCode, pWaiter->ExitCode());
}

TEST_F(LaunchTest, SyncLaunchCapturesOutputAndErrorAndPassesTheEnvironment)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrOut = folder.Join(L"out.txt");
    uint32_t nExitCode = 99;
    ASSERT_TRUE(QZSTD_LaunchSync(SelfCommand().c_str(), nullptr, wstrOut.c_str(),
                                 QZTEST::EnvOf({{L"QZ_TEST_CHILD", L"echo"}}), 60000, &nExitCode));
    EXPECT_EQ(0u, nExitCode);
    std::wstring wstrText;
    QZSTD_ReadLaunchOutput(wstrOut.c_str(), &wstrText);
    EXPECT_NE(std::wstring::npos, wstrText.find(L"out-line"));
    EXPECT_NE(std::wstring::npos, wstrText.find(L"err-line"));

    CAutoPtr<QZPAR::Params> pEnv =
        QZTEST::EnvOf({{L"QZ_TEST_CHILD", L"env:QZ_TEST_VALUE"}, {L"QZ_TEST_VALUE", L"value-42"}});
    ASSERT_TRUE(QZSTD_LaunchSync(SelfCommand().c_str(), nullptr, wstrOut.c_str(), pEnv, 60000, &nExitCode));
    QZSTD_ReadLaunchOutput(wstrOut.c_str(), &wstrText);
    EXPECT_EQ(L"value-42", wstrText);
}

// Nothing starts when the launch cannot be made: bad arguments, a missing program, a raised shutdown.
TEST_F(LaunchTest, WhatCannotBeLaunchedIsRefused)
{
    LaunchWaiter* pNull = nullptr;
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { Launch(nullptr, &pNull); }));
    CAutoPtr<LaunchWaiter> pWaiter = StartChild(L"exit:0");
    LaunchWaiter* pRaw = pWaiter.Get();
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { Launch(SelfCommand().c_str(), &pRaw); }));
    // ERROR_FILE_NOT_FOUND and ENOENT are both 2.
    EXPECT_EQ(2, ErrorCodeOf([&] { Launch(L"qz-no-such-program-4711", &pNull); }, QZSTD::SYSTEM_MODULE));
    m_shutdown.Raise();
    EXPECT_EQ(QZSTD::Err::SHUTDOWN, ErrorCodeOf([&] { StartChild(L"exit:0", &m_shutdown); }));
    EXPECT_FALSE(QZSTD::IsShutdownRaised()) << "the test's own signal, not the process's";
    EXPECT_EQ(nullptr, pNull);
    std::wstring wstrText;
    EXPECT_EQ(QZSTD::Err::ASSERTION, ErrorCodeOf([&] { QZSTD_ReadLaunchOutput(nullptr, &wstrText); }));
    EXPECT_EQ(QZSTD::Err::FILE_NOT_FOUND,
              ErrorCodeOf([&] { QZSTD_ReadLaunchOutput(L"qz-no-such-output-4711", &wstrText); }));
    EXPECT_TRUE(pWaiter->Wait(-1));
}

TEST(MergeEnvironmentTest, AdditionReplacesByNameAndAppendsTheRestANameWithEqualsSignIsRefused)
{
    CAutoPtr<QZPAR::Params> pEnv = QZPAR::CreateParams();
    QZPAR::SetStringValue(pEnv, L"path", L"C:\\new");
    QZPAR::SetStringValue(pEnv, L"EXTRA", L"a=b");
    const std::vector<std::wstring> vecBase = {L"=C:=C:\\dir", L"PATH=C:\\old", L"TEMP=x"};
    EXPECT_EQ((std::vector<std::wstring>{L"=C:=C:\\dir", L"path=C:\\new", L"TEMP=x", L"EXTRA=a=b"}),
              QZSTD::MergeEnvironment(vecBase, pEnv, true));
    EXPECT_EQ((std::vector<std::wstring>{L"=C:=C:\\dir", L"PATH=C:\\old", L"TEMP=x", L"EXTRA=a=b",
                                         L"path=C:\\new"}),
              QZSTD::MergeEnvironment(vecBase, pEnv, false));
    EXPECT_EQ(vecBase, QZSTD::MergeEnvironment(vecBase, nullptr, true));
    QZPAR::SetStringValue(pEnv, L"A=B", L"1");  // a name with an equals sign is refused
    EXPECT_EQ(QZSTD::Err::BAD_PARAM, ErrorCodeOf([&] { QZSTD::MergeEnvironment({}, pEnv, true); }));
}

}  // namespace
