// Win32 part of the session list: the terminal-services enumeration of the local server.
#include <windows.h>

#include <wtsapi32.h>

#include "common/winsessions.h"
#include "std/error.h"

namespace QZRI {
namespace {

// The enumeration's buffer belongs to the terminal-services library and goes back through it.
class WtsSessionBuffer
{
public:
    WtsSessionBuffer() = default;
    ~WtsSessionBuffer()
    {
        if (m_pInfo)
            WTSFreeMemory(m_pInfo);
    }
    WtsSessionBuffer(const WtsSessionBuffer&) = delete;
    WtsSessionBuffer& operator=(const WtsSessionBuffer&) = delete;

    WTS_SESSION_INFOW* m_pInfo = nullptr;
    DWORD m_nCount = 0;
};

class WtsSessionList : public SessionList
{
public:
    std::vector<UserSession> GetInteractiveSessions() override
    {
        WtsSessionBuffer buffer;
        if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &buffer.m_pInfo, &buffer.m_nCount))
            QZ_THROW_SYSTEM();
        std::vector<UserSession> vecSessions;
        for (DWORD i = 0; i < buffer.m_nCount; ++i) {
            const WTS_SESSION_INFOW& info = buffer.m_pInfo[i];
            if (!IsInteractiveUserSession(info.SessionId, static_cast<SessionState>(info.State)))
                continue;
            vecSessions.push_back({info.SessionId, info.pWinStationName ? info.pWinStationName : L""});
        }
        return vecSessions;
    }
};

}  // namespace

std::unique_ptr<SessionList> CreateSystemSessionList()
{
    return std::make_unique<WtsSessionList>();
}

}  // namespace QZRI
