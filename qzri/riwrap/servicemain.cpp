// The portable part of the service mode: the relaunch command line.
#include "qzri/riwrap/servicemain.h"

#include <vector>

#include "qzri/riwrap/cmdlinekeys.h"
#include "std/cmdline.h"

namespace QZRI {
namespace {

bool IsKeyWord(const std::wstring& wstrWord, std::wstring_view wsvKey)
{
    return wstrWord.rfind(wsvKey, 0) == 0 &&
           (wstrWord.size() == wsvKey.size() || wstrWord[wsvKey.size()] == L'=');
}

}  // namespace

std::wstring BuildRelaunchCommandLine(const std::wstring& wstrSetupPath, const std::wstring& wstrSavedCmdLine,
                                      const std::wstring& wstrServiceId, int nStartCounter)
{
    std::vector<std::wstring> vecArgs{wstrSetupPath};
    const std::vector<std::wstring> vecSaved = QZSTD::SplitCommandLine(wstrSavedCmdLine);
    bool bSilent = false;
    for (size_t n = 1; n < vecSaved.size(); ++n) {
        const std::wstring& wstrWord = vecSaved[n];
        if (IsKeyWord(wstrWord, Keys::SERVICE_RESTART) || IsKeyWord(wstrWord, Keys::MASTER_SERVICE_ID) ||
            IsKeyWord(wstrWord, Keys::START_COUNTER))
            continue;
        bSilent = bSilent || IsSilentSwitch(wstrWord);
        vecArgs.push_back(wstrWord);
    }
    // The relaunched setup is the agent again, in a run of its own: it must keep this service while it
    // cleans up others and remove it when the task ends, so it is told the service's id. As
    // "QZRI$ID" it would take itself for the service and wait for a service control manager that never
    // calls it.
    vecArgs.push_back(std::wstring(Keys::MASTER_SERVICE_ID) + L"=" + wstrServiceId);
    if (!bSilent)
        vecArgs.push_back(L"/s");
    vecArgs.push_back(std::wstring(Keys::START_COUNTER) + L"=" + std::to_wstring(nStartCounter));
    return QZSTD::JoinCommandLine(vecArgs);
}

bool HandleServiceControl(unsigned long nControl, ServiceState& state)
{
    constexpr unsigned long CONTROL_STOP = 1;
    constexpr unsigned long CONTROL_SHUTDOWN = 5;
    constexpr unsigned long STOP_PENDING = 3;
    constexpr unsigned long STOP_WAIT_HINT_MS = 10000;
    if (nControl != CONTROL_STOP && nControl != CONTROL_SHUTDOWN)
        return false;
    state.m_nState = STOP_PENDING;
    state.m_nWaitHintMs = STOP_WAIT_HINT_MS;
    ++state.m_nCheckPoint;
    state.m_nControlsAccepted = 0;
    return true;
}

}  // namespace QZRI
