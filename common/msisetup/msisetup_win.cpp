// Windows Installer of the system (msi.dll). Its external UI handlers are plain functions: they find the
// installation that runs now through CurrentMsiSetup().
//
// msi.dll is loaded on first use, from the system folder only: most runs install no Windows Installer
// package, and importing it made every start of the agent about 50 ms slower under Wine; the agent runs
// from a package folder, where a planted msi.dll must never be picked up.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>
#include <shlwapi.h>

#include <vector>

#include "common/msisetup/msisetup.h"

namespace QZRI {
namespace {

template <class F>
F Proc(HMODULE hModule, const char* szName)
{
    return reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(hModule, szName)));
}

struct MsiApi
{
    HMODULE hMsi = nullptr;
    // The system's error when msi.dll or one of its functions could not be found.
    uint32_t nLoadError = 0;
    decltype(&::MsiEnableLogW) pfnEnableLog = nullptr;
    decltype(&::MsiSetExternalUIRecord) pfnSetExternalUIRecord = nullptr;
    decltype(&::MsiSetExternalUIW) pfnSetExternalUI = nullptr;
    decltype(&::MsiSetInternalUI) pfnSetInternalUI = nullptr;
    decltype(&::MsiInstallProductW) pfnInstallProduct = nullptr;
    decltype(&::MsiApplyPatchW) pfnApplyPatch = nullptr;
    decltype(&::MsiRecordGetStringW) pfnRecordGetString = nullptr;
    decltype(&::MsiRecordGetFieldCount) pfnRecordGetFieldCount = nullptr;
    decltype(&::MsiFormatRecordW) pfnFormatRecord = nullptr;
};

MsiApi LoadMsi()
{
    MsiApi api;
    api.hMsi = ::LoadLibraryExW(L"msi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!api.hMsi) {
        api.nLoadError = ::GetLastError();
        return api;
    }
    api.pfnEnableLog = Proc<decltype(api.pfnEnableLog)>(api.hMsi, "MsiEnableLogW");
    api.pfnSetExternalUIRecord =
        Proc<decltype(api.pfnSetExternalUIRecord)>(api.hMsi, "MsiSetExternalUIRecord");
    api.pfnSetExternalUI = Proc<decltype(api.pfnSetExternalUI)>(api.hMsi, "MsiSetExternalUIW");
    api.pfnSetInternalUI = Proc<decltype(api.pfnSetInternalUI)>(api.hMsi, "MsiSetInternalUI");
    api.pfnInstallProduct = Proc<decltype(api.pfnInstallProduct)>(api.hMsi, "MsiInstallProductW");
    api.pfnApplyPatch = Proc<decltype(api.pfnApplyPatch)>(api.hMsi, "MsiApplyPatchW");
    api.pfnRecordGetString = Proc<decltype(api.pfnRecordGetString)>(api.hMsi, "MsiRecordGetStringW");
    api.pfnRecordGetFieldCount =
        Proc<decltype(api.pfnRecordGetFieldCount)>(api.hMsi, "MsiRecordGetFieldCount");
    api.pfnFormatRecord = Proc<decltype(api.pfnFormatRecord)>(api.hMsi, "MsiFormatRecordW");
    if (!api.pfnEnableLog || !api.pfnSetExternalUIRecord || !api.pfnSetExternalUI || !api.pfnSetInternalUI ||
        !api.pfnInstallProduct || !api.pfnApplyPatch || !api.pfnRecordGetString ||
        !api.pfnRecordGetFieldCount || !api.pfnFormatRecord)
        api.nLoadError = ERROR_PROC_NOT_FOUND;
    return api;
}

// Loaded once, on the first call; every call after a failed load answers with its error.
const MsiApi& Msi()
{
    static const MsiApi s_api = LoadMsi();
    return s_api;
}

int WINAPI StringHandler(LPVOID, UINT nType, LPCWSTR szMessage)
{
    MsiMessageSink* pSink = CurrentMsiSetup();
    return pSink ? pSink->OnStringMessage(nType, szMessage ? szMessage : L"") : 0;
}

std::wstring RecordString(MSIHANDLE hRecord, unsigned int nField)
{
    DWORD dwLen = 0;
    wchar_t szEmpty[1] = {};
    if (Msi().pfnRecordGetString(hRecord, nField, szEmpty, &dwLen) != ERROR_MORE_DATA && dwLen == 0)
        return std::wstring();
    std::wstring wstr(dwLen + 1, L'\0');
    DWORD dwSize = dwLen + 1;
    if (Msi().pfnRecordGetString(hRecord, nField, wstr.data(), &dwSize) != ERROR_SUCCESS)
        return std::wstring();
    wstr.resize(dwSize);
    return wstr;
}

std::wstring FormattedText(MSIHANDLE hRecord)
{
    DWORD dwLen = 0;
    wchar_t szEmpty[1] = {};
    Msi().pfnFormatRecord(0, hRecord, szEmpty, &dwLen);
    std::wstring wstr(dwLen + 1, L'\0');
    DWORD dwSize = dwLen + 1;
    if (Msi().pfnFormatRecord(0, hRecord, wstr.data(), &dwSize) != ERROR_SUCCESS)
        return std::wstring();
    wstr.resize(dwSize);
    return wstr;
}

int WINAPI RecordHandler(LPVOID, UINT nType, MSIHANDLE hRecord)
{
    MsiMessageSink* pSink = CurrentMsiSetup();
    if (!pSink || !hRecord)
        return 0;
    std::vector<std::wstring> vecFields;
    const unsigned int nCount = Msi().pfnRecordGetFieldCount(hRecord);
    for (unsigned int n = 0; n <= nCount; ++n)
        vecFields.push_back(RecordString(hRecord, n));
    return pSink->OnRecordMessage(nType, vecFields, FormattedText(hRecord));
}

class SystemWindowsInstaller : public WindowsInstaller
{
public:
    uint32_t MsiDllVersion() override
    {
        DLLVERSIONINFO info = {};
        info.cbSize = sizeof(info);
        HMODULE hMsi = Msi().hMsi;
        auto pfnGetVersion = hMsi ? reinterpret_cast<DLLGETVERSIONPROC>(
                                        reinterpret_cast<void*>(::GetProcAddress(hMsi, "DllGetVersion")))
                                  : nullptr;
        if (!pfnGetVersion || FAILED(pfnGetVersion(&info)))
            return 0;
        return (info.dwMajorVersion << 16) | (info.dwMinorVersion & 0xFFFF);
    }

    std::wstring LogFolder() override
    {
        wchar_t szWindows[MAX_PATH] = {};
        const UINT nLen = ::GetWindowsDirectoryW(szWindows, MAX_PATH);
        if (nLen > 0 && nLen < MAX_PATH) {
            const std::wstring wstrTemp = std::wstring(szWindows) + L"\\Temp\\";
            const DWORD dwAttr = ::GetFileAttributesW(wstrTemp.c_str());
            if (dwAttr != INVALID_FILE_ATTRIBUTES && (dwAttr & FILE_ATTRIBUTE_DIRECTORY))
                return wstrTemp;
        }
        wchar_t szTemp[MAX_PATH + 1] = {};
        const DWORD dwLen = ::GetTempPathW(MAX_PATH + 1, szTemp);
        return dwLen > 0 && dwLen <= MAX_PATH ? std::wstring(szTemp) : std::wstring(L".\\");
    }

    std::wstring LocalTimeStamp() override
    {
        SYSTEMTIME st = {};
        ::GetLocalTime(&st);
        wchar_t sz[32] = {};
        ::swprintf(sz, 32, L"%04u-%02u-%02u-%02u-%02u-%02u", st.wYear, st.wMonth, st.wDay, st.wHour,
                   st.wMinute, st.wSecond);
        return sz;
    }

    uint32_t EnableLog(uint32_t nMode, const std::wstring& wstrPath) override
    {
        if (Msi().nLoadError)
            return Msi().nLoadError;
        return Msi().pfnEnableLog(nMode, wstrPath.c_str(), 0);
    }

    uint32_t SetRecordHandler(MsiMessageSink*, uint32_t nFilter) override
    {
        if (Msi().nLoadError)
            return Msi().nLoadError;
        return Msi().pfnSetExternalUIRecord(&RecordHandler, nFilter, nullptr, &m_pfnPreviousRecord);
    }

    void SetStringHandlerAndNoUi(MsiMessageSink*, uint32_t nFilter) override
    {
        if (Msi().nLoadError)
            return;
        m_pfnPreviousString = Msi().pfnSetExternalUI(&StringHandler, nFilter, nullptr);
        m_eyPreviousUi = Msi().pfnSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
    }

    void RestoreHandlers(bool bRecord) override
    {
        if (Msi().nLoadError)
            return;
        Msi().pfnSetExternalUI(m_pfnPreviousString, 0, nullptr);
        if (bRecord)
            Msi().pfnSetExternalUIRecord(m_pfnPreviousRecord, 0, nullptr, nullptr);
        Msi().pfnSetInternalUI(m_eyPreviousUi, nullptr);
    }

    uint32_t InstallProduct(const std::wstring& wstrPackage, const std::wstring& wstrCmdLine) override
    {
        if (Msi().nLoadError)
            return Msi().nLoadError;
        return Msi().pfnInstallProduct(wstrPackage.c_str(), wstrCmdLine.c_str());
    }

    uint32_t ApplyPatch(const std::wstring& wstrPatch, const std::wstring& wstrCmdLine) override
    {
        if (Msi().nLoadError)
            return Msi().nLoadError;
        return Msi().pfnApplyPatch(wstrPatch.c_str(), nullptr, INSTALLTYPE_DEFAULT,
                                   wstrCmdLine.empty() ? nullptr : wstrCmdLine.c_str());
    }

private:
    INSTALLUI_HANDLERW m_pfnPreviousString = nullptr;
    INSTALLUI_HANDLER_RECORD m_pfnPreviousRecord = nullptr;
    INSTALLUILEVEL m_eyPreviousUi = INSTALLUILEVEL_DEFAULT;
};

}  // namespace

std::unique_ptr<WindowsInstaller> CreateSystemWindowsInstaller()
{
    return std::make_unique<SystemWindowsInstaller>();
}

}  // namespace QZRI
