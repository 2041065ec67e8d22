// The platform parts of the remote-installation helpers (rmtinstutils_win.cpp, rmtinstutils_posix.cpp).
#pragma once

#include <string>

namespace QZRI {

// Copies one local file, overwriting the target; a system error when that fails.
void CopyLocalFile(const std::wstring& wstrFrom, const std::wstring& wstrTo);

}  // namespace QZRI
