// Ends the process at once when an invariant is broken (a lock that cannot be taken, a change to a
// frozen tree, corrupted reference counts): exit code 1, no exception, no destructors. Going on would
// risk acting on corrupted memory, which is worse for a machine than a missing result.
#pragma once

namespace QZSTD {

// szWhat is written to the standard error stream (and to the trace once it is hooked in) first.
[[noreturn]] void FailFast(const char* szWhat) noexcept;

// Lets the trace record the reason before the process ends. The hook must not throw or allocate much.
using FailFastHook = void (*)(const char* szWhat);
void SetFailFastHook(FailFastHook pfn) noexcept;

}  // namespace QZSTD
