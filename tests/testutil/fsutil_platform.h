// What fsutil.cpp takes from fsutil_win.cpp or fsutil_posix.cpp: the conversion between the tests'
// wide paths and std::filesystem paths (UTF-8 on POSIX, whatever the locale), and the process id.
#pragma once

#include <filesystem>
#include <string>

namespace QZTEST::Platform {

std::filesystem::path FsPath(const std::wstring& wstrPath);
std::wstring WidePath(const std::filesystem::path& path);
long ProcessId();

}  // namespace QZTEST::Platform
