// Sessions of systems without terminal-services sessions: nobody can be asked at a desktop, so the cycle
// only waits for the stop test.
#include "common/winsessions.h"

#include <poll.h>

#include "std/shutdown.h"
#include "std/trace.h"

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

namespace QZWSSN {
namespace {

constexpr const char* MODULE = "QZWSSN";

class PosixSessionDesktop : public SessionDesktop
{
public:
    explicit PosixSessionDesktop(const QZSTD::ShutdownSignal& shutdown) : m_shutdown(shutdown) {}
    int GetPlatform(bool* pbIsolated) override
    {
        *pbIsolated = false;
        return 0;
    }
    // Nothing here signals it: the cycle's wait is a plain wait on the agent's stop.
    Handle CreateDummyEvent() override { return &m_nDummy; }
    bool DrainMessages() override { return false; }
    uint32_t MsgWaitAny(const std::vector<Handle>&, uint32_t nMs, uint32_t) override
    {
        pollfd fd = {m_shutdown.Fd(), POLLIN, 0};
        ::poll(&fd, 1, static_cast<int>(nMs));
        return WAIT_TIMED_OUT;
    }
    bool GetExitCode(Handle, uint32_t*) override { return false; }
    void CloseHandle(Handle) override {}
    Handle CreateProcessForSession(unsigned long nSessionId, const std::wstring& wstrCmdLine) override
    {
        return CreateProcessForSession2(nSessionId, wstrCmdLine);
    }
    bool IsShutdownRaised() override { return m_shutdown.IsRaised(); }

private:
    const QZSTD::ShutdownSignal& m_shutdown;
    int m_nDummy = 0;
};

}  // namespace

std::unique_ptr<SessionDesktop> CreateSystemSessionDesktop(const QZSTD::ShutdownSignal& shutdown)
{
    return std::make_unique<PosixSessionDesktop>(shutdown);
}

Handle CreateProcessForSession2(unsigned long dwSessionId, const std::wstring& wstrCommandLine)
{
    QZ_TRACE_SCOPE(MODULE, "QZWSSN::CreateProcessForSession2");
    QZ_TRACE_I(L"%hs: dwSessionId=%d, lpCommandLine='%ls')\n", QZ_SCOPE_NAME, static_cast<int>(dwSessionId),
               wstrCommandLine);
    QZ_TRACE_E(L"Can't create interactive process.\n");
    return nullptr;
}

}  // namespace QZWSSN
