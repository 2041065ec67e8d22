// The registry through the Win32 registry functions.
#include <windows.h>

#include <algorithm>
#include <vector>

#include "common/registry.h"

namespace QZRI {

namespace {

// Closes the key however the read ends.
class ScopedKey
{
public:
    ScopedKey() = default;
    ~ScopedKey()
    {
        if (m_hKey)
            ::RegCloseKey(m_hKey);
    }
    ScopedKey(const ScopedKey&) = delete;
    ScopedKey& operator=(const ScopedKey&) = delete;
    HKEY* Receive() { return &m_hKey; }
    HKEY Get() const { return m_hKey; }

private:
    HKEY m_hKey = nullptr;
};

REGSAM ViewFlag(RegistryView eView)
{
    if (eView == RegistryView::VIEW_32)
        return KEY_WOW64_32KEY;
    if (eView == RegistryView::VIEW_64)
        return KEY_WOW64_64KEY;
    return 0;
}

// ERROR_SUCCESS, ERROR_FILE_NOT_FOUND for a missing key, or another error.
LONG OpenKey(const std::wstring& wstrKey, REGSAM samAccess, RegistryView eView, ScopedKey& key)
{
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), 0, samAccess | ViewFlag(eView),
                           key.Receive());
}

// One manual-reset event that the notifications on the key in each view signal.
class Win32RegistryWatch : public RegistryWatch
{
public:
    Win32RegistryWatch(const std::wstring& wstrKey, const std::vector<RegistryView>& vecViews)
        : m_vecKeys(vecViews.size())
    {
        m_hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (!m_hEvent)
            QZ_THROW_SYSTEM();
        // A view without the key has nothing to watch; the key missing from every view is an error.
        LONG lMissing = ERROR_SUCCESS;
        for (size_t n = 0; n < vecViews.size(); ++n) {
            const LONG lError = OpenKey(wstrKey, KEY_NOTIFY, vecViews[n], m_vecKeys[n]);
            if (lError == ERROR_FILE_NOT_FOUND)
                lMissing = lError;
            else if (lError != ERROR_SUCCESS)
                QZ_THROW_SYSTEM_CODE(lError);
        }
        if (std::none_of(m_vecKeys.begin(), m_vecKeys.end(), [](const ScopedKey& key) { return key.Get(); }))
            QZ_THROW_SYSTEM_CODE(lMissing == ERROR_SUCCESS ? ERROR_INVALID_PARAMETER : lMissing);
        Rearm();
    }
    ~Win32RegistryWatch() override
    {
        // The keys close first: closing a key ends its pending notification.
        m_vecKeys.clear();
        ::CloseHandle(m_hEvent);
    }
    void Rearm() override
    {
        ::ResetEvent(m_hEvent);
        for (ScopedKey& key : m_vecKeys) {
            if (!key.Get())
                continue;
            const LONG lError =
                ::RegNotifyChangeKeyValue(key.Get(), TRUE,
                                          REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES |
                                              REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY,
                                          m_hEvent, TRUE);
            if (lError != ERROR_SUCCESS)
                QZ_THROW_SYSTEM_CODE(lError);
        }
    }
    bool WaitForChange(uint32_t nMs) override
    {
        const DWORD dwWait = ::WaitForSingleObject(m_hEvent, nMs);
        if (dwWait == WAIT_FAILED)
            QZ_THROW_SYSTEM();
        return dwWait == WAIT_OBJECT_0;
    }

private:
    HANDLE m_hEvent = nullptr;
    std::vector<ScopedKey> m_vecKeys;
};

class Win32Registry : public Registry
{
public:
    bool LocalMachineKeyExists(const std::wstring& wstrKey, RegistryView eView) override
    {
        ScopedKey key;
        const LONG lError = OpenKey(wstrKey, KEY_READ, eView, key);
        if (lError == ERROR_FILE_NOT_FOUND)
            return false;
        if (lError != ERROR_SUCCESS)
            QZ_THROW_SYSTEM_CODE(lError);
        return true;
    }

    bool ReadLocalMachineValue(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                               RegistryValue& value, RegistryView eView) override
    {
        ScopedKey key;
        if (OpenKey(wstrKey, KEY_READ, eView, key) != ERROR_SUCCESS)
            return false;
        // The value may grow between the two calls: ask again while it does.
        for (int nTry = 0; nTry < 4; ++nTry) {
            DWORD dwType = 0;
            DWORD dwBytes = 0;
            if (::RegQueryValueExW(key.Get(), wstrValueName.c_str(), nullptr, &dwType, nullptr, &dwBytes) !=
                ERROR_SUCCESS)
                return false;
            std::string strBytes(dwBytes, '\0');
            const LONG lError = ::RegQueryValueExW(key.Get(), wstrValueName.c_str(), nullptr, &dwType,
                                                   reinterpret_cast<BYTE*>(strBytes.data()), &dwBytes);
            if (lError == ERROR_MORE_DATA)
                continue;
            if (lError != ERROR_SUCCESS)
                return false;
            strBytes.resize(dwBytes);
            value.m_nType = dwType;
            value.m_strBytes = std::move(strBytes);
            return true;
        }
        return false;
    }

    std::vector<std::wstring> LocalMachineSubKeys(const std::wstring& wstrKey, RegistryView eView) override
    {
        std::vector<std::wstring> vecNames;
        ScopedKey key;
        const LONG lOpen = OpenKey(wstrKey, KEY_READ, eView, key);
        if (lOpen == ERROR_FILE_NOT_FOUND)
            return vecNames;
        if (lOpen != ERROR_SUCCESS)
            QZ_THROW_SYSTEM_CODE(lOpen);
        // Key names are at most 255 characters.
        wchar_t szName[256];
        for (DWORD dwIndex = 0;; ++dwIndex) {
            DWORD dwChars = ARRAYSIZE(szName);
            const LONG lError =
                ::RegEnumKeyExW(key.Get(), dwIndex, szName, &dwChars, nullptr, nullptr, nullptr, nullptr);
            if (lError == ERROR_NO_MORE_ITEMS)
                break;
            if (lError != ERROR_SUCCESS)
                QZ_THROW_SYSTEM_CODE(lError);
            vecNames.emplace_back(szName, dwChars);
        }
        return vecNames;
    }

    bool HasSixtyFourBitView() override
    {
#ifdef _WIN64
        return true;
#else
        BOOL bWow64 = FALSE;
        return ::IsWow64Process(::GetCurrentProcess(), &bWow64) && bWow64;
#endif
    }

    std::unique_ptr<RegistryWatch> WatchLocalMachineKey(const std::wstring& wstrKey,
                                                        const std::vector<RegistryView>& vecViews) override
    {
        return std::make_unique<Win32RegistryWatch>(wstrKey, vecViews);
    }
};

}  // namespace

Registry& SystemRegistry()
{
    static Win32Registry s_registry;
    return s_registry;
}

}  // namespace QZRI
