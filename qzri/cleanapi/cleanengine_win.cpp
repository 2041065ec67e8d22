// The reference removal engine on Windows: the ini files through the private-profile functions, the
// Uninstall keys of both registry views, the removal as a process of its own.
#include <windows.h>

#include <algorithm>

#include "qzri/cleanapi/cleanengine.h"

namespace QZCLEAN {
namespace {

constexpr const wchar_t* UNINSTALL_KEY = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";

std::wstring ReadString(HKEY hKey, const wchar_t* szName)
{
    DWORD nType = 0;
    DWORD cb = 0;
    if (RegQueryValueExW(hKey, szName, nullptr, &nType, nullptr, &cb) != ERROR_SUCCESS ||
        (nType != REG_SZ && nType != REG_EXPAND_SZ) || cb == 0)
        return {};
    std::wstring wstr(cb / sizeof(wchar_t) + 1, L'\0');
    if (RegQueryValueExW(hKey, szName, nullptr, nullptr, reinterpret_cast<BYTE*>(wstr.data()), &cb) !=
        ERROR_SUCCESS)
        return {};
    wstr.resize(wcsnlen(wstr.c_str(), wstr.size()));
    return wstr;
}

DWORD ReadDword(HKEY hKey, const wchar_t* szName)
{
    DWORD nType = 0, nValue = 0, cb = sizeof(nValue);
    if (RegQueryValueExW(hKey, szName, nullptr, &nType, reinterpret_cast<BYTE*>(&nValue), &cb) !=
            ERROR_SUCCESS ||
        nType != REG_DWORD)
        return 0;
    return nValue;
}

void ListView(REGSAM samView, std::vector<UninstallEntry>& vec)
{
    HKEY hRoot = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, UNINSTALL_KEY, 0, KEY_READ | samView, &hRoot) != ERROR_SUCCESS)
        return;
    for (DWORD n = 0;; ++n) {
        wchar_t szName[256];
        DWORD nChars = 256;
        const LONG nResult = RegEnumKeyExW(hRoot, n, szName, &nChars, nullptr, nullptr, nullptr, nullptr);
        if (nResult == ERROR_NO_MORE_ITEMS)
            break;
        if (nResult != ERROR_SUCCESS)
            continue;
        HKEY hKey = nullptr;
        if (RegOpenKeyExW(hRoot, szName, 0, KEY_READ | samView, &hKey) != ERROR_SUCCESS)
            continue;
        UninstallEntry entry;
        entry.m_wstrKeyName = szName;
        entry.m_wstrDisplayName = ReadString(hKey, L"DisplayName");
        entry.m_wstrUninstallString = ReadString(hKey, L"UninstallString");
        entry.m_wstrQuietUninstallString = ReadString(hKey, L"QuietUninstallString");
        entry.m_bWindowsInstaller = ReadDword(hKey, L"WindowsInstaller") != 0;
        RegCloseKey(hKey);
        const bool bKnown = std::any_of(vec.begin(), vec.end(), [&](const UninstallEntry& e) {
            return e.m_wstrKeyName == entry.m_wstrKeyName;
        });
        if (!bKnown)
            vec.push_back(entry);
    }
    RegCloseKey(hRoot);
}

}  // namespace

std::wstring ReadIniValue(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey)
{
    wchar_t szValue[4096] = {};
    GetPrivateProfileStringW(szSection, szKey, L"", szValue, 4096, wstrFile.c_str());
    return szValue;
}

std::vector<std::wstring> ListIniFiles(const std::wstring& wstrFolder)
{
    std::wstring wstrBase = wstrFolder;
    if (!wstrBase.empty() && wstrBase.back() != L'\\' && wstrBase.back() != L'/')
        wstrBase += L'\\';
    std::vector<std::wstring> vec;
    WIN32_FIND_DATAW data = {};
    const HANDLE hFind = FindFirstFileW((wstrBase + L"*.ini").c_str(), &data);
    if (hFind == INVALID_HANDLE_VALUE)
        return vec;
    do {
        if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            vec.push_back(wstrBase + data.cFileName);
    } while (FindNextFileW(hFind, &data));
    FindClose(hFind);
    std::sort(vec.begin(), vec.end());
    return vec;
}

std::vector<UninstallEntry> ListUninstallEntries()
{
    std::vector<UninstallEntry> vec;
    ListView(KEY_WOW64_64KEY, vec);
    ListView(KEY_WOW64_32KEY, vec);
    return vec;
}

std::optional<uint32_t> RunAndWait(const std::wstring& wstrCmdLine, uint32_t nTimeoutSec,
                                   std::wstring& wstrError)
{
    std::vector<wchar_t> vecLine(wstrCmdLine.begin(), wstrCmdLine.end());
    vecLine.push_back(L'\0');
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(nullptr, vecLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &si, &pi)) {
        wstrError = L"the removal could not be started (error " + std::to_wstring(GetLastError()) + L")";
        return std::nullopt;
    }
    CloseHandle(pi.hThread);
    const DWORD nWait = WaitForSingleObject(pi.hProcess, nTimeoutSec * 1000);
    DWORD nExit = 1;
    if (nWait != WAIT_OBJECT_0 || !GetExitCodeProcess(pi.hProcess, &nExit)) {
        TerminateProcess(pi.hProcess, 1);
        CloseHandle(pi.hProcess);
        wstrError = L"the removal did not end in time";
        return std::nullopt;
    }
    CloseHandle(pi.hProcess);
    return nExit;
}

}  // namespace QZCLEAN
