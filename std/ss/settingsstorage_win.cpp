// Where the management agent's local settings storage lives on Windows.
#include <windows.h>

#include <shlobj.h>

#include <string>

#include "std/error.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"

namespace QZSTD {
namespace {

// Below the common application-data folder: shared by every account and by services running as
// LocalSystem, writable by administrators, and kept across updates of the programs.
constexpr const wchar_t* LOCAL_SS_SUBPATH = L"\\QZ\\SettingsStorage\\local_ss.xml";

// The variable's value; empty when it is not set.
std::wstring EnvironmentValue(const std::wstring& wstrName)
{
    const DWORD dwSize = GetEnvironmentVariableW(wstrName.c_str(), nullptr, 0);
    if (dwSize == 0)
        return {};
    std::wstring wstr(dwSize, L'\0');
    const DWORD dwLength = GetEnvironmentVariableW(wstrName.c_str(), wstr.data(), dwSize);
    wstr.resize(dwLength < dwSize ? dwLength : 0);
    return wstr;
}

std::wstring CommonAppDataFolder()
{
    wchar_t szFolder[MAX_PATH] = {};
    const HRESULT hr = SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, szFolder);
    if (FAILED(hr))
        QZ_THROW_SYSTEM_CODE(static_cast<int>(hr));
    return szFolder;
}

}  // namespace

std::wstring GetLocalSettingsStoragePath()
{
    std::wstring wstrOverride = EnvironmentValue(Utf8ToWide(LOCAL_SS_PATH_ENV));
    if (!wstrOverride.empty())
        return wstrOverride;
    return CommonAppDataFolder() + LOCAL_SS_SUBPATH;
}

}  // namespace QZSTD
