// Windows building blocks of the launchers (std/process and common/rilaunch). Included only by
// *_win.cpp files.
#pragma once

#include <windows.h>

#include <cstdint>

#include <string>
#include <vector>

#include "std/win/scopedhandle.h"

namespace QZPAR {
struct Params;
}

namespace QZSTD::Win {

// The Unicode environment block of a child: this process's environment with the addition set over it.
std::vector<wchar_t> BuildEnvironmentBlock(QZPAR::Params* pEnvironmentAddition);

// Opens a standard stream of a child as an inheritable handle: empty means "NUL".
// bWrite: created or truncated for writing (shared for reading and writing); else opened for reading.
ScopedHandle OpenStdStream(const std::wstring& wstrFile, bool bWrite);

// The exit code of an ended process; false while it runs. System errors are raised.
bool TryGetProcessExitCode(HANDLE hProcess, uint32_t* pnExitCode);

}  // namespace QZSTD::Win
