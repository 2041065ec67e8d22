// The cycle that asks the users in their sessions, with the consent dialogue's process manager, against a
// scripted desktop: which processes start, what ends the cycle, and that every handle is closed.
#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <tuple>

#include "common/winsessions.h"
#include "qzri/riwrap/askuser.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/qzbase.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "std/wformat.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using QZWSSN::Handle;

// What happens in one wait of the cycle.
struct Step
{
    enum Kind
    {
        ENDS,       // the process of the session ends with the code
        TIMES_OUT,  // the slice passes
        LOGS_ON,    // the session appears in the list, and the slice passes
        WITHDRAWN,  // the package folder loses its description, and the slice passes
        QUIT,       // WM_QUIT is in the queue before the wait
        SHUTDOWN,   // the agent is stopped during the slice
    } m_eKind;
    unsigned long m_nSession = 0;
    uint32_t m_nCode = 0;
};
Step Ends(unsigned long nSession, uint32_t nCode)
{
    return {Step::ENDS, nSession, nCode};
}
const Step TIMES_OUT{Step::TIMES_OUT}, WITHDRAWN{Step::WITHDRAWN}, QUIT{Step::QUIT}, SHUTDOWN{Step::SHUTDOWN};
Step LogsOn(unsigned long nSession)
{
    return {Step::LOGS_ON, nSession};
}

// Processes are numbered handles; the script says how each wait ends. Once the script is used up every
// slice passes, and the cycle must end on its own (the test's limit on slices fails it otherwise).
class ScriptedDesktop : public QZWSSN::SessionDesktop
{
public:
    int GetPlatform(bool* pbIsolated) override
    {
        *pbIsolated = true;
        return 2;
    }
    Handle CreateDummyEvent() override { return Open(0); }
    bool DrainMessages() override
    {
        if (m_steps.empty() || m_steps.front().m_eKind != Step::QUIT)
            return false;
        m_steps.pop_front();
        return true;
    }
    uint32_t MsgWaitAny(const std::vector<Handle>& vecHandles, uint32_t nMs, uint32_t nWakeMask) override
    {
        m_vecWaits.emplace_back(vecHandles.size(), nMs, nWakeMask);
        if (m_vecWaits.size() > 50)
            QZ_THROW_SYSTEM_CODE(1460);  // the cycle did not end: fail the row instead of hanging
        EXPECT_EQ(m_setOpen.count(vecHandles.back()), 1u) << "the dummy event is last";
        if (m_steps.empty())
            return QZWSSN::WAIT_TIMED_OUT;
        const Step step = m_steps.front();
        m_steps.pop_front();
        switch (step.m_eKind) {
            case Step::ENDS:
                for (size_t n = 0; n + 1 < vecHandles.size(); ++n)
                    if (m_mapSessionOf[vecHandles[n]] == step.m_nSession) {
                        m_mapExitCode[vecHandles[n]] = step.m_nCode;
                        return QZWSSN::WAIT_OBJECT_FIRST + static_cast<uint32_t>(n);
                    }
                ADD_FAILURE() << "no process waited for in session " << step.m_nSession;
                break;
            case Step::LOGS_ON:
                m_pSessions->m_vecSessions.push_back({step.m_nSession, L"RDP-Tcp#1"});
                break;
            case Step::WITHDRAWN:
                QZTEST::RemoveAll(m_wstrWatched);
                break;
            case Step::SHUTDOWN:
                m_bShutdown = true;
                break;
            default:
                break;
        }
        return QZWSSN::WAIT_TIMED_OUT;
    }
    bool GetExitCode(Handle h, uint32_t* pnCode) override
    {
        *pnCode = m_mapExitCode.at(h);
        return true;
    }
    void CloseHandle(Handle h) override { EXPECT_EQ(m_setOpen.erase(h), 1u) << "closed twice"; }
    Handle CreateProcessForSession(unsigned long nSessionId, const std::wstring& wstrCmdLine) override
    {
        m_vecStarted.push_back(nSessionId);
        m_vecCmdLines.push_back(wstrCmdLine);
        if (m_bCannotStart)
            return nullptr;
        return Open(nSessionId);
    }
    bool IsShutdownRaised() override { return m_bShutdown; }

    std::deque<Step> m_steps;
    QZRITEST::FakeSessions* m_pSessions = nullptr;
    std::wstring m_wstrWatched;
    bool m_bCannotStart = false;
    bool m_bShutdown = false;
    std::vector<unsigned long> m_vecStarted;
    std::vector<std::wstring> m_vecCmdLines;
    std::vector<std::tuple<size_t, uint32_t, uint32_t>> m_vecWaits;  // handles, ms, wake mask
    std::set<Handle> m_setOpen;

private:
    Handle Open(unsigned long nSession)
    {
        const Handle h = reinterpret_cast<Handle>(++m_nNext);
        m_setOpen.insert(h);
        m_mapSessionOf[h] = nSession;
        return h;
    }
    uintptr_t m_nNext = 0x100;
    std::map<Handle, unsigned long> m_mapSessionOf;
    std::map<Handle, uint32_t> m_mapExitCode;
};

class SessionCycleTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    void SetUp() override
    {
        m_data.m_wstrDirPath = m_folder.Path();
        m_data.m_wstrQpdFilePath = m_folder.Join(L"package.qpd");
        QZTEST::WriteFileBytes(m_data.m_wstrQpdFilePath, "[Setup]\r\nAskUser=1\r\n");
        m_desktop.m_pSessions = &m_fakes.m_sessions;
        m_desktop.m_wstrWatched = m_data.m_wstrQpdFilePath;
    }
    std::optional<uint32_t> Run()
    {
        EXPECT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        std::optional<uint32_t> nAnswer;
        try {
            SessionConsentDialog dialog(m_fakes.m_sessions, m_desktop, m_fakes.m_os);
            nAnswer = dialog.Ask(m_data);
        } catch (const QZSTD::QZError& e) {
            m_nError = e.GetCode();
        }
        QZSTD::TraceClose();
        m_vecRecords = QZRITEST::TraceRecords(m_folder.Join(L"trace.txt"));
        EXPECT_TRUE(m_desktop.m_setOpen.empty()) << "handles left open";
        return nAnswer;
    }
    QZTEST::TempFolder m_folder;
    QZRITEST::TestServices m_fakes;
    RiWrpData m_data;
    ScriptedDesktop m_desktop;
    int m_nError = 0;
};

TEST_F(SessionCycleTest, TheFirstAnswerDecidesOtherCodesStartTheDialogueAgain)
{
    // What happens, the sessions listed at first, the script, the answer, the sessions a start was tried
    // in, and whether the dialogue cannot be started at all.
    using Row = std::tuple<const char*, std::vector<unsigned long>, std::vector<Step>,
                           std::optional<uint32_t>, std::vector<unsigned long>, bool>;
    const Row rows[] = {
        {"closed, then install now", {3}, {Ends(3, 1), Ends(3, 6)}, 6, {3, 3}, false},
        {"a running dialogue is not started twice", {3}, {TIMES_OUT, TIMES_OUT, Ends(3, 4)}, 4, {3}, false},
        {"two users, the second answers", {3, 5}, {Ends(5, 4)}, 4, {3, 5}, false},
        {"a user who logs on later is asked", {}, {TIMES_OUT, LogsOn(4), Ends(4, 6)}, 6, {4}, false},
        {"the dialogue exits at once, every time",
         {3},
         {Ends(3, 0), Ends(3, 259), Ends(3, 1)},
         std::nullopt,
         {3, 3, 3},
         false},
        {"the dialogue cannot be started", {3}, {}, std::nullopt, {3, 3, 3}, true},
        {"the task is withdrawn while the user thinks",
         {3},
         {TIMES_OUT, WITHDRAWN},
         std::nullopt,
         {3},
         false},
        {"WM_QUIT", {3}, {QUIT}, std::nullopt, {3}, false},
    };
    for (const auto& [szWhat, vecSessions, vecSteps, nAnswer, vecStarted, bCannotStart] : rows) {
        SCOPED_TRACE(szWhat);
        m_desktop = ScriptedDesktop();
        SetUp();
        m_fakes.m_sessions.m_vecSessions.clear();
        for (const unsigned long nId : vecSessions)
            m_fakes.m_sessions.m_vecSessions.push_back({nId, L"Console"});
        m_desktop.m_steps.assign(vecSteps.begin(), vecSteps.end());
        m_desktop.m_bCannotStart = bCannotStart;
        EXPECT_EQ(Run(), nAnswer) << Dump();
        EXPECT_EQ(m_desktop.m_vecStarted, vecStarted) << Dump();
        for (const auto& [nHandles, nMs, nMask] : m_desktop.m_vecWaits) {
            EXPECT_EQ(nMs, QZWSSN::CYCLE_SLICE_MS);
            EXPECT_EQ(nMask, 0x5FFu);
        }
    }
}

TEST_F(SessionCycleTest, WithoutSessionsTheCycleWakesEverySliceForTheStopTest)
{
    m_desktop.m_steps = {TIMES_OUT, TIMES_OUT, TIMES_OUT, WITHDRAWN};
    EXPECT_EQ(Run(), std::nullopt);
    ASSERT_EQ(m_desktop.m_vecWaits.size(), 4u);
    for (const auto& [nHandles, nMs, nMask] : m_desktop.m_vecWaits)
        EXPECT_EQ(nHandles, 1u) << "the dummy event alone";
    EXPECT_TRUE(m_desktop.m_vecStarted.empty());
    EXPECT_GE(m_fakes.m_sessions.m_nCalls, 4) << "the list is taken again each slice";
}

TEST_F(SessionCycleTest, TracesTheCycleAndTheCommandLine)
{
    m_fakes.m_sessions.m_vecSessions = {{3, L"Console"}};
    m_desktop.m_steps = {TIMES_OUT, Ends(3, 6)};
    EXPECT_EQ(Run(), 6u);
    const std::wstring wstrCmd = L"\"" + m_folder.Path() + L"qzrbtagt.exe\" PreInstall=1 SID=3";
    EXPECT_EQ(m_desktop.m_vecCmdLines, std::vector<std::wstring>{wstrCmd});
    // The process handle as the trace prints pointers on this platform.
    const std::string strProcess = QZSTD::WideToUtf8(QZSTD::FormatW(L"%p", reinterpret_cast<void*>(0x102)));
    EXPECT_TRUE(Traced({
        "QZWSSN I Platform Id = 2",
        "QZWSSN I Ready to get sessions.",
        "QZWSSN I Running main cycle.",
        "QZWSSN I Creating GUI process for session 3 (terminal sessions supported)...",
        "QZWSSN I GUIProcManImpl::CreateGUIProcess: Command line: " + QZSTD::WideToUtf8(wstrCmd) + ".",
        "QZWSSN I Ready to wait for process: " + strProcess,
        "QZWSSN I Run PeekMessage() cycle",
        "QZWSSN I ...Result: 258",
        "QZWSSN I Skipping session 3...",
        "QZWSSN I ...Result: 0",
        "QZWSSN I Process " + strProcess + " stopped.",
        "QZWSSN I Process result code: 6.",
        "QZWSSN I Should stop!",
        "QZWSSN I ...bShouldUpdateProcesses = false; break",
        "QZWSSN I Should stop the main cycle!",
    })) << Dump();
}

TEST_F(SessionCycleTest, AStopOfTheAgentEndsTheCycleWithinASlice)
{
    m_fakes.m_sessions.m_vecSessions = {{3, L"Console"}};
    m_desktop.m_steps = {TIMES_OUT, SHUTDOWN, Ends(3, 6)};
    EXPECT_EQ(Run(), std::nullopt);
    EXPECT_EQ(m_nError, QZSTD::Err::SHUTDOWN);
    EXPECT_EQ(m_desktop.m_vecWaits.size(), 2u);
}

TEST(GUIProcManImplTest, OnlyFourAndSixAnswer)
{
    RiWrpData data;
    QZRITEST::TestOs os;
    ScriptedDesktop desktop;
    QZSTD::RcClassImpl<GUIProcManImpl> man(&data, desktop, os);
    // Exit code, then the flags it gives.
    const std::tuple<uint32_t, bool, bool> rows[] = {
        {6, false, true}, {4, false, true}, {0, true, false},   {1, true, false},
        {5, true, false}, {7, true, false}, {259, true, false}, {0xC0000005, true, false},
    };
    for (const auto& [nCode, bUpdate, bStop] : rows) {
        bool bUpd = false, bStp = true;
        man.AnalyzeProcessResult(nCode, &bUpd, &bStp);
        EXPECT_EQ(std::make_pair(bUpd, bStp), std::make_pair(bUpdate, bStop)) << nCode;
    }
}

}  // namespace
