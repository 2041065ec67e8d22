// The message-pumping wait of the main thread.
#include <windows.h>

#include <string>

#include "qzri/riwrap/waits.h"
#include "std/error.h"
#include "std/failfast.h"
#include "std/shutdown.h"
#include "std/win/scopedhandle.h"

namespace QZRI {
namespace {

class WinWaits : public Waits
{
public:
    explicit WinWaits(const QZSTD::ShutdownSignal& shutdown) : m_shutdown(shutdown)
    {
        const std::wstring wstrName = L"RmtInstDummy_" + std::to_wstring(::GetCurrentProcessId());
        m_hDummy.Reset(::CreateEventW(nullptr, FALSE, FALSE, wstrName.c_str()));
        if (!m_hDummy.IsValid())
            QZ_THROW_SYSTEM();
    }

    Slice PumpMessagesAndWait(uint32_t nMs) override
    {
        MSG msg;
        while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT)
                return Slice::QUIT;
            ::TranslateMessage(&msg);
            ::DispatchMessageW(&msg);
            if (m_shutdown.IsRaised())
                return Slice::STOPPED;
        }
        HANDLE vecHandles[2] = {m_hDummy.Get(), static_cast<HANDLE>(m_shutdown.Event())};
        const DWORD dwWait = ::MsgWaitForMultipleObjects(2, vecHandles, FALSE, nMs, QS_ALLINPUT);
        if (dwWait == WAIT_FAILED)
            QZ_THROW_SYSTEM();
        return m_shutdown.IsRaised() ? Slice::STOPPED : Slice::ELAPSED;
    }

    bool WaitForStop(uint32_t nMs) override
    {
        const DWORD dwWait = ::WaitForSingleObject(static_cast<HANDLE>(m_shutdown.Event()), nMs);
        if (dwWait == WAIT_FAILED)
            QZSTD::FailFast("The wait on the agent's stop event failed.");
        return dwWait == WAIT_OBJECT_0;
    }

    uint32_t TickCount() override { return ::GetTickCount(); }

private:
    const QZSTD::ShutdownSignal& m_shutdown;
    QZSTD::Win::ScopedHandle m_hDummy;
};

}  // namespace

std::unique_ptr<Waits> CreateSystemWaits(const QZSTD::ShutdownSignal& shutdown)
{
    return std::make_unique<WinWaits>(shutdown);
}

}  // namespace QZRI
