// The desktop sessions of the computer: which users are working at a desktop now. The agent takes the
// list at start-up; the processes that ask or tell users something are started in these sessions.
//
// Windows: the terminal-services session list (WTSEnumerateSessionsW). Wine answers it with no
// sessions at all. Other systems have no such sessions: the list is always empty there.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "std/qzbase.h"

namespace QZSTD {
class ShutdownSignal;
}

namespace QZRI {

// Connection state of a session, numbered as WTS_CONNECTSTATE_CLASS so that the Windows value can be
// taken over as it is.
enum class SessionState : int
{
    ACTIVE = 0,
    CONNECTED = 1,
    CONNECT_QUERY = 2,
    SHADOW = 3,
    DISCONNECTED = 4,
    IDLE = 5,
    LISTEN = 6,
    RESET = 7,
    DOWN = 8,
    INIT = 9,
};

struct UserSession
{
    unsigned long m_nSessionId = 0;
    // The window station name ("Console", "RDP-Tcp#3"); empty where the system has none.
    std::wstring m_wstrStationName;
};

// A session in which a user works at a desktop: logged on and active. Session 0 is excluded because
// since Windows Vista it holds only services and never a user's desktop.
bool IsInteractiveUserSession(unsigned long nSessionId, SessionState eState);

class SessionList
{
public:
    virtual ~SessionList() = default;
    // The interactive user sessions, in the system's order. Raises a system error (QZError of module
    // "SYSTEM") when the list cannot be taken.
    virtual std::vector<UserSession> GetInteractiveSessions() = 0;
};

// The sessions of this computer.
std::unique_ptr<SessionList> CreateSystemSessionList();

}  // namespace QZRI

// Processes in the users' sessions and the cycle that waits for their answers (trace module "QZWSSN").
//
// RunProcessesInSessions starts one GUI process in every eligible session and waits, pumping the
// thread's messages, until one of them gives a deciding answer, the manager's stop test says stop,
// WM_QUIT arrives or the agent is stopped. A session is eligible when the session list names it (an
// active user session other than session 0, see IsInteractiveUserSession) and no GUI process of this
// cycle runs in it yet; every other session is skipped, with a trace line.
namespace QZWSSN {

// A waitable object of the system (a process or an event handle on Windows); null: none.
using Handle = void*;

// The results of SessionDesktop::MsgWaitAny, numbered as MsgWaitForMultipleObjects numbers them.
inline constexpr uint32_t WAIT_OBJECT_FIRST = 0;
inline constexpr uint32_t WAIT_TIMED_OUT = 258;
// The slice after which the cycle looks at the stop test again, and the wake mask of the wait: all
// input and all posted messages (QS_ALLINPUT | QS_ALLPOSTMESSAGE).
inline constexpr uint32_t CYCLE_SLICE_MS = 2000;
inline constexpr uint32_t CYCLE_WAKE_MASK = 0x5FF;
// MsgWaitForMultipleObjects takes 63 handles beside the message queue; one is the dummy event.
inline constexpr size_t MAX_SESSION_PROCESSES = 62;

// What the cycle starts in each session and what the processes' exit codes mean.
class GUIProcMan : public QZSTD::QZBase
{
public:
    // Starts the GUI process in the session; its process handle (the cycle closes it), or null when it
    // could not be started (traced).
    virtual Handle CreateGUIProcess(unsigned long nSessionId, bool bTerminalSessions) = 0;
    // *pbUpdate: the session list is to be taken again and the processes started where none runs;
    // *pbStop: the exit code decides and the cycle ends.
    virtual void AnalyzeProcessResult(uint32_t dwResult, bool* pbUpdate, bool* pbStop) = 0;
    // Checked once per slice: true ends the cycle without a deciding answer.
    virtual bool ShouldStop() = 0;
};

// The system calls of the cycle, so that its decisions are tested with a script.
class SessionDesktop
{
public:
    virtual ~SessionDesktop() = default;
    // The platform id of the system's extended version record; *pbIsolated: a major version of 6 or
    // more, where every user has a session of their own (terminal sessions).
    virtual int GetPlatform(bool* pbIsolated) = 0;
    // An auto-reset event that nothing signals, named from "WINSESSdummyEv": the wait list is never
    // empty. A system error when it cannot be created.
    virtual Handle CreateDummyEvent() = 0;
    // Takes every pending message of the thread (and dispatches it); true when WM_QUIT was taken.
    virtual bool DrainMessages() = 0;
    // Waits for any one of the handles or for input, as MsgWaitForMultipleObjects: WAIT_OBJECT_FIRST + i
    // for handle i, + the count for input, WAIT_TIMED_OUT. A failed wait raises a system error.
    virtual uint32_t MsgWaitAny(const std::vector<Handle>& vecHandles, uint32_t nMs, uint32_t nWakeMask) = 0;
    // The exit code of an ended process; false when it cannot be read.
    virtual bool GetExitCode(Handle hProcess, uint32_t* pnCode) = 0;
    virtual void CloseHandle(Handle h) = 0;
    // Starts the command line in the session: CreateProcessForSession2 on the system.
    virtual Handle CreateProcessForSession(unsigned long nSessionId, const std::wstring& wstrCmdLine) = 0;
    // The agent's stop: the cycle ends with QZError 1199 (QZSTD) within one slice.
    virtual bool IsShutdownRaised() = 0;
};

// The system's calls; the stop watched is the signal given.
std::unique_ptr<SessionDesktop> CreateSystemSessionDesktop(const QZSTD::ShutdownSignal& shutdown);

// Starts the command line as the session's user on the desktop "WinSta0\\Default" of that session: the
// agent's own token when it runs in that session, else the session user's token (which needs the
// service's rights). The process handle, or null with "Can't create interactive process." and the
// system error traced. Elsewhere than on Windows there are no sessions: always null.
Handle CreateProcessForSession2(unsigned long dwSessionId, const std::wstring& wstrCommandLine);

// The main cycle. The exit code of the process whose answer decided, or nothing when the stop test or
// WM_QUIT ended the cycle first. Every handle is closed on every path; the processes still running are
// left to their users. QZError 1199 (QZSTD) when the agent is stopped; the system errors of the wait.
std::optional<uint32_t> RunProcessesInSessions(GUIProcMan& guiProcMan, QZRI::SessionList& sessions,
                                               SessionDesktop& desktop);

}  // namespace QZWSSN
