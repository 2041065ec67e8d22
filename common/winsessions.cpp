// Portable part of the sessions: which sessions count as a user's desktop, and the cycle that waits for
// the GUI processes in them.
#include "common/winsessions.h"

#include <exception>

#include "std/error.h"
#include "std/trace.h"

namespace QZRI {

bool IsInteractiveUserSession(unsigned long nSessionId, SessionState eState)
{
    return nSessionId != 0 && eState == SessionState::ACTIVE;
}

}  // namespace QZRI

namespace QZWSSN {
namespace {

constexpr const char* MODULE = "QZWSSN";

// The handles the cycle owns, closed however it ends.
class CycleHandles
{
public:
    explicit CycleHandles(SessionDesktop& desktop) : m_desktop(desktop) {}
    ~CycleHandles()
    {
        for (const Running& running : m_vecRunning)
            m_desktop.CloseHandle(running.m_hProcess);
        if (m_hDummy)
            m_desktop.CloseHandle(m_hDummy);
    }
    CycleHandles(const CycleHandles&) = delete;
    CycleHandles& operator=(const CycleHandles&) = delete;

    struct Running
    {
        unsigned long m_nSessionId;
        Handle m_hProcess;
    };
    bool RunsIn(unsigned long nSessionId) const
    {
        for (const Running& running : m_vecRunning)
            if (running.m_nSessionId == nSessionId)
                return true;
        return false;
    }
    // The processes, then the dummy event last.
    std::vector<Handle> WaitList() const
    {
        std::vector<Handle> vecHandles;
        for (const Running& running : m_vecRunning)
            vecHandles.push_back(running.m_hProcess);
        vecHandles.push_back(m_hDummy);
        return vecHandles;
    }

    Handle m_hDummy = nullptr;
    std::vector<Running> m_vecRunning;

private:
    SessionDesktop& m_desktop;
};

void StartInEligibleSessions(GUIProcMan& guiProcMan, QZRI::SessionList& sessions, bool bIsolated,
                             CycleHandles& handles)
{
    QZ_TRACE_SCOPE(MODULE, "QZWSSN::RunProcessesInSessions");
    std::vector<QZRI::UserSession> vecSessions;
    try {
        vecSessions = sessions.GetInteractiveSessions();
    } catch (const std::exception& e) {
        // The processes that run are still waited for; the list is taken again next time.
        QZ_TRACE_W(L"The session list could not be taken.\n");
        QZ_TRACE_EXCEPTION(e);
        return;
    }
    for (const QZRI::UserSession& session : vecSessions) {
        const int nId = static_cast<int>(session.m_nSessionId);
        if (handles.RunsIn(session.m_nSessionId) || handles.m_vecRunning.size() >= MAX_SESSION_PROCESSES) {
            QZ_TRACE_I(L"Skipping session %d...\n", nId);
            continue;
        }
        QZ_TRACE_I(L"Creating GUI process for session %d (terminal sessions %lssupported)...\n", nId,
                   bIsolated ? L"" : L"not ");
        const Handle hProcess = guiProcMan.CreateGUIProcess(session.m_nSessionId, bIsolated);
        if (!hProcess)
            continue;
        QZ_TRACE_I(L"Preparing waiting for process: %p\n", hProcess);
        handles.m_vecRunning.push_back({session.m_nSessionId, hProcess});
        QZ_TRACE_I(L"Ready to wait for process: %p\n", hProcess);
    }
}

}  // namespace

std::optional<uint32_t> RunProcessesInSessions(GUIProcMan& guiProcMan, QZRI::SessionList& sessions,
                                               SessionDesktop& desktop)
{
    QZ_TRACE_SCOPE(MODULE, "QZWSSN::RunProcessesInSessions");
    bool bIsolated = false;
    const int nPlatform = desktop.GetPlatform(&bIsolated);
    QZ_TRACE_I(L"Platform Id = %d\n", nPlatform);
    QZ_TRACE_I(L"Ready to get sessions.\n");
    CycleHandles handles(desktop);
    handles.m_hDummy = desktop.CreateDummyEvent();
    QZ_TRACE_I(L"Running main cycle.\n");

    std::optional<uint32_t> nDeciding;
    bool bShouldUpdateProcesses = true;
    for (;;) {
        if (desktop.IsShutdownRaised()) {
            QZ_TRACE_W(L"%hs: The agent is stopping.\n", QZ_SCOPE_NAME);
            QZ_THROW_STD(QZSTD::Err::SHUTDOWN);
        }
        if (bShouldUpdateProcesses)
            StartInEligibleSessions(guiProcMan, sessions, bIsolated, handles);

        QZ_TRACE_I(L"Run PeekMessage() cycle\n");
        if (desktop.DrainMessages()) {
            QZ_TRACE_I(L"WM_QUIT!\n");
            break;
        }
        const std::vector<Handle> vecWait = handles.WaitList();
        QZ_TRACE_I(L"Waiting for %d process(es), including dummy...\n", static_cast<int>(vecWait.size() - 1));
        const uint32_t dwResult = desktop.MsgWaitAny(vecWait, CYCLE_SLICE_MS, CYCLE_WAKE_MASK);
        QZ_TRACE_I(L"...Result: %d\n", static_cast<int>(dwResult));

        bool bStop = false;
        const uint32_t nIndex = dwResult - WAIT_OBJECT_FIRST;
        if (nIndex < handles.m_vecRunning.size()) {
            const Handle hProcess = handles.m_vecRunning[nIndex].m_hProcess;
            handles.m_vecRunning.erase(handles.m_vecRunning.begin() + nIndex);
            QZ_TRACE_I(L"Process %p stopped.\n", hProcess);
            uint32_t dwCode = 0;
            const bool bRead = desktop.GetExitCode(hProcess, &dwCode);
            desktop.CloseHandle(hProcess);
            if (bRead) {
                QZ_TRACE_I(L"Process result code: %d.\n", static_cast<int>(dwCode));
                bool bUpdate = true;
                guiProcMan.AnalyzeProcessResult(dwCode, &bUpdate, &bStop);
                if (bStop) {
                    QZ_TRACE_I(L"Should stop!\n");
                    nDeciding = dwCode;
                }
                if (!bUpdate)
                    QZ_TRACE_I(L"...bShouldUpdateProcesses = false; break\n");
                bShouldUpdateProcesses = bUpdate;
            } else {
                // Nothing can be made of it: as if the process had given no answer.
                QZ_TRACE_W(L"%hs: The exit code of %p could not be read.\n", QZ_SCOPE_NAME, hProcess);
            }
        }
        if (bStop || guiProcMan.ShouldStop()) {
            QZ_TRACE_I(L"Should stop the main cycle!\n");
            break;
        }
    }
    return nDeciding;
}

}  // namespace QZWSSN
