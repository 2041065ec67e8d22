// The module runtime and the main module's set-up.
#include "qzri/riwrap/runtime.h"

#include <atomic>
#include <new>
#include <utility>

#include "std/failfast.h"
#include "std/trace.h"

namespace QZRI {

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

}  // namespace QZRI

namespace QZINITMAIN {
namespace {

// A module name of the trace must outlive every line written under it: only string literals are kept.
std::atomic<const char*> g_szInstallerTrace{"Installer"};

}  // namespace

void InitInstallerTrace(const char* szName) noexcept
{
    g_szInstallerTrace.store(szName);
}

CInitMainUt_Init::CInitMainUt_Init(const char* szModule) noexcept : m_szModule(szModule)
{
    QZ_TRACE_SCOPE(g_szInstallerTrace.load(), "QZINITMAIN::CInitMainUt_Init");
    QZ_TRACE_I(L"%hs: main module '%hs' set up.\n", QZ_SCOPE_NAME, m_szModule);
}

void CInitMainUt_Init::TearDown() noexcept
{
    if (!m_bUp)
        return;
    m_bUp = false;
    QZ_TRACE_SCOPE(g_szInstallerTrace.load(), "QZINITMAIN::CInitMainUt_Init");
    QZ_TRACE_I(L"%hs: main module '%hs' torn down; no cloud storage was set up.\n", QZ_SCOPE_NAME,
               m_szModule);
}

}  // namespace QZINITMAIN
