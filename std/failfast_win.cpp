// Win32: TerminateProcess ends every thread at once; no DLL detach, no static destructors.
#include <windows.h>

namespace QZSTD {

[[noreturn]] void TerminateNow() noexcept
{
    TerminateProcess(GetCurrentProcess(), 1);
    // TerminateProcess on the own process does not return; this is for the compiler.
    ExitProcess(1);
}

}  // namespace QZSTD
