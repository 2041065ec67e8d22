// The POSIX part of the tests' file helpers: paths are UTF-8, the environment is the C runtime's.
#include <unistd.h>

#include <cstdlib>

#include "std/strconv.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/fsutil_platform.h"

namespace QZTEST {

namespace Platform {

std::filesystem::path FsPath(const std::wstring& wstrPath)
{
    return std::filesystem::path(QZSTD::WideToUtf8(wstrPath));
}

std::wstring WidePath(const std::filesystem::path& path)
{
    return QZSTD::Utf8ToWide(path.string());
}

long ProcessId()
{
    return static_cast<long>(getpid());
}

}  // namespace Platform

void SetEnv(const std::string& strName, const std::wstring& wstrValue)
{
    if (wstrValue.empty())
        unsetenv(strName.c_str());
    else
        setenv(strName.c_str(), QZSTD::WideToUtf8(wstrValue).c_str(), 1);
}

std::wstring GetEnv(const std::string& strName)
{
    const char* sz = std::getenv(strName.c_str());
    return sz ? QZSTD::Utf8ToWide(sz) : std::wstring();
}

bool RunningUnderWine()
{
    return false;
}

}  // namespace QZTEST
