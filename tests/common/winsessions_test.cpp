#include "common/winsessions.h"

#include <gtest/gtest.h>

namespace {

using namespace QZRI;

TEST(WinSessionsTest, OnlyActiveSessionsOtherThanTheServicesSessionAreInteractive)
{
    EXPECT_TRUE(IsInteractiveUserSession(1, SessionState::ACTIVE));
    EXPECT_TRUE(IsInteractiveUserSession(7, SessionState::ACTIVE));
    EXPECT_FALSE(IsInteractiveUserSession(0, SessionState::ACTIVE));
    for (const SessionState eState :
         {SessionState::CONNECTED, SessionState::CONNECT_QUERY, SessionState::SHADOW,
          SessionState::DISCONNECTED, SessionState::IDLE, SessionState::LISTEN, SessionState::RESET,
          SessionState::DOWN, SessionState::INIT})
        EXPECT_FALSE(IsInteractiveUserSession(1, eState)) << static_cast<int>(eState);
}

// Natively there are no sessions; Wine answers the enumeration with none. On Windows every session
// listed must pass the rule above.
TEST(WinSessionsTest, SystemListHoldsOnlyInteractiveSessions)
{
    const std::unique_ptr<SessionList> pList = CreateSystemSessionList();
    const std::vector<UserSession> vecSessions = pList->GetInteractiveSessions();
#ifndef _WIN32
    EXPECT_TRUE(vecSessions.empty());
#endif
    for (const UserSession& session : vecSessions)
        EXPECT_NE(session.m_nSessionId, 0u);
}

}  // namespace
