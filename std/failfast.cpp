// Portable part of fail-fast termination; the platform files supply TerminateNow.
#include "std/failfast.h"

#include <atomic>
#include <cstdio>

namespace QZSTD {

[[noreturn]] void TerminateNow() noexcept;

namespace {
std::atomic<FailFastHook> g_hook{nullptr};
}

void SetFailFastHook(FailFastHook pfn) noexcept
{
    g_hook.store(pfn);
}

void FailFast(const char* szWhat) noexcept
{
    const char* sz = szWhat ? szWhat : "";
    std::fprintf(stderr, "QZSTD fail-fast: %s\n", sz);
    std::fflush(stderr);
    if (FailFastHook pfn = g_hook.load())
        pfn(sz);
    TerminateNow();
}

}  // namespace QZSTD
