#include <windows.h>

#include "std/cmdline.h"
#include "tests/qzri/childprocess.h"

namespace QZRITEST {

int RunChild(const std::wstring& wstrProgram, const std::vector<std::wstring>& vecArgs, unsigned nTimeoutMs)
{
    std::vector<std::wstring> vecWords{wstrProgram};
    vecWords.insert(vecWords.end(), vecArgs.begin(), vecArgs.end());
    std::wstring wstrCmdLine = QZSTD::JoinCommandLine(vecWords);
    STARTUPINFOW si{};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi{};
    if (!CreateProcessW(wstrProgram.c_str(), wstrCmdLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &si, &pi))
        return CHILD_NOT_STARTED;
    CloseHandle(pi.hThread);
    int nResult = CHILD_TIMED_OUT;
    if (WaitForSingleObject(pi.hProcess, nTimeoutMs) == WAIT_OBJECT_0) {
        DWORD nExit = 0;
        nResult = GetExitCodeProcess(pi.hProcess, &nExit) ? static_cast<int>(nExit) : CHILD_NOT_STARTED;
    } else {
        TerminateProcess(pi.hProcess, 1);
        WaitForSingleObject(pi.hProcess, 5000);
    }
    CloseHandle(pi.hProcess);
    return nResult;
}

unsigned long CurrentProcessId()
{
    return ::GetCurrentProcessId();
}

}  // namespace QZRITEST
