// Portable part of the session list: which sessions count as a user's desktop.
#include "common/winsessions.h"

namespace QZRI {

bool IsInteractiveUserSession(unsigned long nSessionId, SessionState eState)
{
    return nSessionId != 0 && eState == SessionState::ACTIVE;
}

}  // namespace QZRI
