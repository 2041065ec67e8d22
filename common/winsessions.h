// The desktop sessions of the computer: which users are working at a desktop now. The agent takes the
// list at start-up; the processes that ask or tell users something are started in these sessions.
//
// Windows: the terminal-services session list (WTSEnumerateSessionsW). Wine answers it with no
// sessions at all. Other systems have no such sessions: the list is always empty there.
#pragma once

#include <memory>
#include <string>
#include <vector>

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
