// Without window messages the wait is a poll on the shutdown signal.
#include <poll.h>

#include <cerrno>
#include <chrono>

#include "qzri/riwrap/waits.h"
#include "std/failfast.h"
#include "std/shutdown.h"

namespace QZRI {
namespace {

class PosixWaits : public Waits
{
public:
    explicit PosixWaits(const QZSTD::ShutdownSignal& shutdown) : m_shutdown(shutdown) {}

    Slice PumpMessagesAndWait(uint32_t nMs) override
    {
        pollfd fd = {m_shutdown.Fd(), POLLIN, 0};
        ::poll(&fd, 1, static_cast<int>(nMs));
        return m_shutdown.IsRaised() ? Slice::STOPPED : Slice::ELAPSED;
    }

    bool WaitForStop(uint32_t nMs) override
    {
        pollfd fd = {m_shutdown.Fd(), POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(nMs)) < 0 && errno != EINTR)
            QZSTD::FailFast("The wait on the agent's stop signal failed.");
        return m_shutdown.IsRaised();
    }

    uint32_t TickCount() override
    {
        using namespace std::chrono;
        return static_cast<uint32_t>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    }

private:
    const QZSTD::ShutdownSignal& m_shutdown;
};

}  // namespace

std::unique_ptr<Waits> CreateSystemWaits(const QZSTD::ShutdownSignal& shutdown)
{
    return std::make_unique<PosixWaits>(shutdown);
}

}  // namespace QZRI
