// The reboot agent's command line.
#include "qzri/riwrap/rbtagtcmdline.h"

#include "common/ristrutils.h"

namespace QZRI {

std::wstring RebootAgentCommandLine(const std::wstring& wstrProgram, const std::wstring& wstrRunAfterRestart,
                                    const std::wstring& wstrTaskId, const std::wstring& wstrAgent)
{
    std::wstring wstrLine = L"\"" + wstrProgram + L"\"";
    if (!wstrRunAfterRestart.empty())
        wstrLine += std::wstring(L" ") + RUN_AFTER_RESTART_KEY + L"=" + EncodeHexString(wstrRunAfterRestart);
    if (!wstrTaskId.empty())
        wstrLine += std::wstring(L" ") + TASK_ID_KEY + L"=" + wstrTaskId;
    if (!wstrAgent.empty())
        wstrLine += std::wstring(L" ") + AGENT_KEY + L"=" + EncodeHexString(wstrAgent);
    return wstrLine;
}

}  // namespace QZRI
