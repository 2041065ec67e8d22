// Windows part of the remote-installation helpers: the system's own copy, which keeps attributes and
// works across volumes and shares.
#include <windows.h>

#include "common/rmtinstutils_platform.h"
#include "std/error.h"

namespace QZRI {

void CopyLocalFile(const std::wstring& wstrFrom, const std::wstring& wstrTo)
{
    if (!CopyFileW(wstrFrom.c_str(), wstrTo.c_str(), FALSE))
        QZ_THROW_SYSTEM();
}

}  // namespace QZRI
