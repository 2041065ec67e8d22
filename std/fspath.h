// The agent's paths are wide. Windows takes them as they are; elsewhere the file system wants bytes, and
// the standard conversion would go through the (usually "C") locale and fail on non-ASCII: UTF-8 it is.
#pragma once

#include <filesystem>
#include <string>

#include "std/strconv.h"

namespace QZSTD {

inline std::filesystem::path FsPath(const std::wstring& wstrPath)
{
#ifdef _WIN32
    return std::filesystem::path(wstrPath);
#else
    return std::filesystem::path(WideToUtf8(wstrPath));
#endif
}

}  // namespace QZSTD
