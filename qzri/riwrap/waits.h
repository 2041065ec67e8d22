// The waits of the agent's main thread while it waits for a result file: on Windows it must keep
// taking window messages (a setup may broadcast to all top-level windows and wait for every thread that
// has a queue), so a wait is a message-pumping wait; elsewhere it is a plain wait that the shutdown
// signal ends. Behind an interface so that the decisions around the waits are tested with a script.
#pragma once

#include <cstdint>
#include <memory>

namespace QZSTD {
class ShutdownSignal;
}

namespace QZRI {

class Waits
{
public:
    enum class Slice
    {
        ELAPSED,  // the time passed, or a message was taken: look again
        QUIT,     // WM_QUIT was taken from the queue
        STOPPED,  // the shutdown signal is raised
    };
    virtual ~Waits() = default;
    // Takes every pending window message (Windows), then waits up to nMs for a message, the shutdown
    // signal or nothing.
    virtual Slice PumpMessagesAndWait(uint32_t nMs) = 0;
    // Waits up to nMs on the shutdown signal alone; true when it is raised. A wait that fails ends the
    // process (fail-fast): the agent could no longer be stopped.
    virtual bool WaitForStop(uint32_t nMs) = 0;
    // A millisecond counter that wraps at 2^32, as GetTickCount does.
    virtual uint32_t TickCount() = 0;
};

// Windows: an auto-reset event named from "RmtInstDummy" that nothing signals gives the message wait
// (MsgWaitForMultipleObjects, QS_ALLINPUT) something to wait on, beside the shutdown event.
std::unique_ptr<Waits> CreateSystemWaits(const QZSTD::ShutdownSignal& shutdown);

}  // namespace QZRI
