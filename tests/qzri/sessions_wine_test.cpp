// The consent question with the real process start in a session and the real message-aware wait (under
// Wine, whose session enumeration lists nobody, the test's own session is given through the list). The
// example setup program stands in for "qzrbtagt.exe": it exits at once with the code its ini names and
// records its command line; the dialogue itself is tested under Xvfb (gui_xvfb_test.sh).
#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "common/winsessions.h"
#include "qzri/riwrap/askuser.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/shutdown.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;

class OwnSession : public SessionList
{
public:
    std::vector<UserSession> GetInteractiveSessions() override
    {
        DWORD dwSession = 0;
        if (!::ProcessIdToSessionId(::GetCurrentProcessId(), &dwSession))
            QZ_THROW_SYSTEM();
        return {{dwSession, L"Console"}};
    }
};

class SessionsWineTest : public testing::Test
{
protected:
    // A package folder whose "qzrbtagt.exe" exits with the code after the seconds given.
    void Package(const char* szExitCode, const char* szSleepSec = "0")
    {
        m_data.m_wstrDirPath = m_folder.Path();
        m_data.m_wstrQpdFilePath = m_folder.Join(L"package.qpd");
        QZTEST::WriteFileBytes(m_data.m_wstrQpdFilePath, "[Setup]\r\nAskUser=1\r\n");
        std::filesystem::copy_file(QZ_EXAMPLE_SETUP_PATH, m_folder.Join(CONSENT_PROGRAM));
        QZTEST::WriteFileBytes(
            m_folder.Join(L"examplesetup.ini"),
            std::string("[Result]\r\nExitCode=") + szExitCode + "\r\nSleepSec=" + szSleepSec + "\r\n");
    }
    std::optional<uint32_t> Ask()
    {
        const std::unique_ptr<QZWSSN::SessionDesktop> pDesktop =
            QZWSSN::CreateSystemSessionDesktop(m_shutdown);
        SessionConsentDialog dialog(m_sessions, *pDesktop, m_os);
        const DWORD dwStart = ::GetTickCount();
        const std::optional<uint32_t> nAnswer = dialog.Ask(m_data);
        m_nElapsedMs = ::GetTickCount() - dwStart;
        return nAnswer;
    }
    int Runs() { return std::stoi("0" + QZTEST::ReadFileBytes(m_folder.Join(L"setup-runs.txt"))); }

    QZTEST::TempFolder m_folder;
    RiWrpData m_data;
    OwnSession m_sessions;
    QZRITEST::TestOs m_os;
    QZSTD::ShutdownSignal m_shutdown;
    DWORD m_nElapsedMs = 0;
};

TEST_F(SessionsWineTest, TheAnswerOfTheProcessInTheSessionDecides)
{
    Package("6");
    EXPECT_EQ(Ask(), 6u);
    EXPECT_EQ(Runs(), 1);
    DWORD dwSession = 0;
    ::ProcessIdToSessionId(::GetCurrentProcessId(), &dwSession);
    EXPECT_NE(QZTEST::ReadFileBytes(m_folder.Join(L"setup-ran.txt"))
                  .find("PreInstall=1 SID=" + std::to_string(dwSession)),
              std::string::npos);
}

TEST_F(SessionsWineTest, AMissingProgramEndsWithinThreeSlices)
{
    Package("6");
    ASSERT_TRUE(::DeleteFileW(m_folder.Join(CONSENT_PROGRAM).c_str()));
    EXPECT_EQ(Ask(), std::nullopt);
    EXPECT_LT(m_nElapsedMs, 3 * QZWSSN::CYCLE_SLICE_MS + 1000);
}

// The answers that start the dialogue again, a dialogue that exits at once every time and a task withdrawn
// while the user thinks are rows of SessionCycleTest.TheFirstAnswerDecidesOtherCodesStartTheDialogueAgain.
TEST_F(SessionsWineTest, AStoppedAgentEndsTheWaitForAnUnansweredDialogue)
{
    Package("6", "4");
    std::thread stop([this] {
        ::Sleep(300);
        m_shutdown.Raise();
    });
    // Timed here: Ask() leaves by the error, before it notes its time.
    const DWORD dwStart = ::GetTickCount();
    EXPECT_EQ(QZTEST::ErrorCodeOf([this] { Ask(); }), QZSTD::Err::SHUTDOWN);
    EXPECT_LT(::GetTickCount() - dwStart, QZWSSN::CYCLE_SLICE_MS + 1000);
    stop.join();
    // The unanswered dialogues end on their own; their folder is removed after them.
    ::Sleep(4000);
}

}  // namespace
