// POSIX part of the remote-installation helpers.
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "common/ansicp.h"
#include "common/rmtinstutils_platform.h"
#include "std/error.h"

namespace QZRI {

void CopyLocalFile(const std::wstring& wstrFrom, const std::wstring& wstrTo)
{
    std::error_code ec;
    const bool bCopied = std::filesystem::copy_file(PathFromWide(wstrFrom), PathFromWide(wstrTo),
                                                    std::filesystem::copy_options::overwrite_existing, ec);
    if (ec || !bCopied)
        QZ_THROW_SYSTEM_CODE(ec ? ec.value() : EIO);
}

}  // namespace QZRI
