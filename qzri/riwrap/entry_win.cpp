// Process entry of the agent on Windows: a GUI program without a window, so that starting it from a
// service or a deployment share never flashes a console.
#include <windows.h>

#include "qzri/riwrap/qzriwrap.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int)
{
    // 0x8003: no critical-error, fault or open-file message boxes. Nobody may be at the desktop to
    // close them, and the run would hang until somebody did.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    // The package's ini files and setup programs expect the ANSI code page for file names.
    SetFileApisToANSI();
    return QZRI::RunProcess(GetCommandLineW());
}
