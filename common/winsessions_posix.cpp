// Session list of systems without terminal-services sessions: nobody can be asked at a desktop.
#include "common/winsessions.h"

namespace QZRI {
namespace {

class NoSessionList : public SessionList
{
public:
    std::vector<UserSession> GetInteractiveSessions() override { return {}; }
};

}  // namespace

std::unique_ptr<SessionList> CreateSystemSessionList()
{
    return std::make_unique<NoSessionList>();
}

}  // namespace QZRI
