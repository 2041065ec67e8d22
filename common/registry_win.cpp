// Registry reads through the Win32 registry functions.
#include <windows.h>

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

class Win32Registry : public Registry
{
public:
    bool ReadLocalMachineString(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                                std::wstring& wstrValue, RegistryView eView) override
    {
        REGSAM samView = 0;
        if (eView == RegistryView::VIEW_32)
            samView = KEY_WOW64_32KEY;
        else if (eView == RegistryView::VIEW_64)
            samView = KEY_WOW64_64KEY;
        ScopedKey key;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), 0, KEY_READ | samView, key.Receive()) !=
            ERROR_SUCCESS)
            return false;
        DWORD dwType = 0;
        DWORD dwBytes = 0;
        if (::RegQueryValueExW(key.Get(), wstrValueName.c_str(), nullptr, &dwType, nullptr, &dwBytes) !=
                ERROR_SUCCESS ||
            (dwType != REG_SZ && dwType != REG_EXPAND_SZ))
            return false;
        // The stored string need not end with a null character: one more is kept in reserve.
        std::vector<wchar_t> vecBuffer(dwBytes / sizeof(wchar_t) + 1, L'\0');
        dwBytes = static_cast<DWORD>(vecBuffer.size() * sizeof(wchar_t));
        if (::RegQueryValueExW(key.Get(), wstrValueName.c_str(), nullptr, &dwType,
                               reinterpret_cast<BYTE*>(vecBuffer.data()), &dwBytes) != ERROR_SUCCESS ||
            (dwType != REG_SZ && dwType != REG_EXPAND_SZ))
            return false;
        vecBuffer.resize(dwBytes / sizeof(wchar_t));
        wstrValue.assign(vecBuffer.data(), wcsnlen(vecBuffer.data(), vecBuffer.size()));
        return true;
    }
};

}  // namespace

Registry& SystemRegistry()
{
    static Win32Registry s_registry;
    return s_registry;
}

}  // namespace QZRI
