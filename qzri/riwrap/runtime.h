// The module runtime of the agent process: the argument store that the process entry fills from the
// process's command line, the set-up of the main module around QZCS_Main, and the shutdown. One object
// per process.
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

}  // namespace QZRI

namespace QZINITMAIN {

// The installer trace of the runtime: the trace module under which the runtime writes its own lines
// (the set-up and tear-down of the main module), so that they stand apart from the agent's.
void InitInstallerTrace(const char* szName) noexcept;

// The main module's set-up for the span of QZCS_Main. Nothing of this build needs setting up beyond
// the name (no cloud storage is configured for the agent); TearDown still runs at the end of every run
// and says so in the trace, so the trace shows that the run came to its end.
class CInitMainUt_Init
{
public:
    explicit CInitMainUt_Init(const char* szModule) noexcept;
    CInitMainUt_Init(const CInitMainUt_Init&) = delete;
    CInitMainUt_Init& operator=(const CInitMainUt_Init&) = delete;
    // Tears down what the set-up established; idempotent.
    void TearDown() noexcept;
    ~CInitMainUt_Init() { TearDown(); }

private:
    const char* m_szModule;
    bool m_bUp = true;
};

}  // namespace QZINITMAIN
