// Removing incompatible software, Windows part: the engine DLL, the system's version, the reboot agent's
// start in a console of its own.
#include <windows.h>

#include <vector>

#include "qzri/riwrap/competitor.h"
#include "std/error.h"

namespace QZRIWRP {

OsVersion CurrentOsVersion()
{
    // GetVersionEx lies to programs without a manifest naming newer systems; RtlGetVersion does not.
    using PFN_RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOEXW*);
    OSVERSIONINFOEXW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    const HMODULE hNtdll = GetModuleHandleW(L"ntdll.dll");
    const auto pfn = hNtdll ? reinterpret_cast<PFN_RtlGetVersion>(
                                  reinterpret_cast<void*>(GetProcAddress(hNtdll, "RtlGetVersion")))
                            : nullptr;
    if (!pfn || pfn(&info) != 0)
        return {};
    return {info.dwMajorVersion, info.dwMinorVersion, info.wServicePackMajor};
}

void* LoadEngineLibrary(const std::wstring& wstrPath, bool bAlteredSearchPath)
{
    return LoadLibraryExW(wstrPath.c_str(), nullptr, bAlteredSearchPath ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
}

void* FindEngineEntry(void* pModule, const char* szName)
{
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(pModule), szName));
}

void FreeEngineLibrary(void* pModule)
{
    if (pModule)
        FreeLibrary(static_cast<HMODULE>(pModule));
}

void StartDetached(const std::wstring& wstrCmdLine)
{
    std::vector<wchar_t> vecLine(wstrCmdLine.begin(), wstrCmdLine.end());
    vecLine.push_back(L'\0');
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(nullptr, vecLine.data(), nullptr, nullptr, FALSE,
                        CREATE_NEW_CONSOLE | CREATE_DEFAULT_ERROR_MODE, nullptr, nullptr, &si, &pi))
        QZ_THROW_SYSTEM();
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
}

}  // namespace QZRIWRP
