// The Windows part of the tests' file helpers: paths are UTF-16 as they are, and the environment is
// kept the same in the process (children, GetEnvironmentVariableW) and in the C runtime's copy.
#include <windows.h>

#include <cstdlib>

#include "std/strconv.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/fsutil_platform.h"

namespace QZTEST {

namespace Platform {

std::filesystem::path FsPath(const std::wstring& wstrPath)
{
    return std::filesystem::path(wstrPath);
}

std::wstring WidePath(const std::filesystem::path& path)
{
    return path.wstring();
}

long ProcessId()
{
    return static_cast<long>(GetCurrentProcessId());
}

}  // namespace Platform

void SetEnv(const std::string& strName, const std::wstring& wstrValue)
{
    const std::wstring wstrName = QZSTD::Utf8ToWide(strName);
    SetEnvironmentVariableW(wstrName.c_str(), wstrValue.empty() ? nullptr : wstrValue.c_str());
    _wputenv_s(wstrName.c_str(), wstrValue.c_str());
}

std::wstring GetEnv(const std::string& strName)
{
    const std::wstring wstrName = QZSTD::Utf8ToWide(strName);
    std::wstring wstrValue(GetEnvironmentVariableW(wstrName.c_str(), nullptr, 0), L'\0');
    if (wstrValue.empty())
        return wstrValue;
    const DWORD n =
        GetEnvironmentVariableW(wstrName.c_str(), wstrValue.data(), static_cast<DWORD>(wstrValue.size()));
    wstrValue.resize(n < wstrValue.size() ? n : 0);
    return wstrValue;
}

bool RunningUnderWine()
{
    HMODULE hNtdll = GetModuleHandleW(L"ntdll.dll");
    return hNtdll && GetProcAddress(hNtdll, "wine_get_version") != nullptr;
}

}  // namespace QZTEST
