// The module runtime and the portable half of the process entry.
#include "qzri/riwrap/runtime.h"

#include <new>
#include <utility>

#include "qzri/riwrap/exitcodes.h"
#include "qzri/riwrap/qzcsmain.h"
#include "std/cmdline.h"
#include "std/failfast.h"
#include "std/trace.h"

namespace QZRI {
namespace {

// Shuts the runtime down however the run ends.
class RuntimeSession
{
public:
    explicit RuntimeSession(ModuleRuntime& runtime) : m_runtime(runtime) { m_runtime.Start(); }
    ~RuntimeSession() { m_runtime.Shutdown(); }
    RuntimeSession(const RuntimeSession&) = delete;
    RuntimeSession& operator=(const RuntimeSession&) = delete;

private:
    ModuleRuntime& m_runtime;
};

}  // namespace

void ModuleRuntime::SetArguments(std::wstring wstrCmdLine, std::vector<std::wstring> vecArgs)
{
    m_wstrCmdLine = std::move(wstrCmdLine);
    m_vecArgs = std::move(vecArgs);
}

void ModuleRuntime::Shutdown()
{
    if (!m_bStarted)
        return;
    QZSTD::TraceClose();
    m_bStarted = false;
}

ModuleRuntime* GetModuleRuntime() noexcept
{
    // Never destroyed: code that runs during exit may still ask for the arguments.
    static ModuleRuntime* pRuntime = new (std::nothrow) ModuleRuntime;
    return pRuntime;
}

ModuleRuntime& TheModuleRuntime() noexcept
{
    ModuleRuntime* pRuntime = GetModuleRuntime();
    if (!pRuntime)
        QZSTD::FailFast("The module runtime of the process is missing.");
    return *pRuntime;
}

int RunProcess(const std::wstring& wstrCmdLine) noexcept
{
    try {
        ModuleRuntime& runtime = TheModuleRuntime();
        runtime.SetArguments(wstrCmdLine, QZSTD::SplitCommandLine(wstrCmdLine));
        RuntimeSession session(runtime);
        return QZCS_Main();
    } catch (...) {
        return ExitCode::GENERAL_ERROR;
    }
}

}  // namespace QZRI
