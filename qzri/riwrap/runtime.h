// The module runtime of the agent process: the argument store that the process entry fills from the
// process's command line, and the start and shutdown around QZCS_Main. One object per process.
#pragma once

#include <string>
#include <vector>

namespace QZRI {

class ModuleRuntime
{
public:
    // The raw command line as the process got it, and its words split the way the C runtime splits them.
    void SetArguments(std::wstring wstrCmdLine, std::vector<std::wstring> vecArgs);
    const std::wstring& CommandLine() const { return m_wstrCmdLine; }
    const std::vector<std::wstring>& Arguments() const { return m_vecArgs; }

    void Start() { m_bStarted = true; }
    // Closes the trace: whatever ends the process after this writes nothing more.
    void Shutdown();
    bool IsStarted() const { return m_bStarted; }

private:
    std::wstring m_wstrCmdLine;
    std::vector<std::wstring> m_vecArgs;
    bool m_bStarted = false;
};

// The runtime object of the process; null only if it could not be created.
ModuleRuntime* GetModuleRuntime() noexcept;
// The same, for code that runs once the entry has checked it: ends the process (fail-fast) without it.
ModuleRuntime& TheModuleRuntime() noexcept;

// The process entry's work once the platform has handed over the command line: split it, store it,
// start the runtime, run QZCS_Main, shut down. Returns the exit code and never throws. Without the
// runtime object the process ends at once (fail-fast, exit code 1).
int RunProcess(const std::wstring& wstrCmdLine) noexcept;

}  // namespace QZRI
