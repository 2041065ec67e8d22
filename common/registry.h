// The registry as the agent's helpers see it, behind an interface so that the code that decides can be
// tested with a map. Windows: the registry itself (registry_win.cpp). Elsewhere there is no registry:
// string reads find nothing, and the other operations raise QZError 1193 (QZSTD), unsupported on this
// operating system, so that a real run says so instead of deciding on an empty registry
// (registry_posix.cpp).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "std/error.h"
#include "std/strconv.h"

namespace QZRI {

// Which registry a 32-bit agent reads on a 64-bit system: its own (redirected) view, or one of the two
// explicitly (KEY_WOW64_32KEY, KEY_WOW64_64KEY). Products of both kinds are installed side by side, so
// the code that looks for an installed product asks both.
enum class RegistryView
{
    DEFAULT,
    VIEW_32,
    VIEW_64,
};

// "32-bit", "64-bit" or "default", for traces.
inline const wchar_t* RegistryViewName(RegistryView eView)
{
    return eView == RegistryView::VIEW_32   ? L"32-bit"
           : eView == RegistryView::VIEW_64 ? L"64-bit"
                                            : L"default";
}

// Value types as the registry stores them.
inline constexpr uint32_t REG_TYPE_SZ = 1;
inline constexpr uint32_t REG_TYPE_EXPAND_SZ = 2;
inline constexpr uint32_t REG_TYPE_BINARY = 3;
inline constexpr uint32_t REG_TYPE_DWORD = 4;
inline constexpr uint32_t REG_TYPE_MULTI_SZ = 7;

// A value of any type, its bytes as stored.
struct RegistryValue
{
    uint32_t m_nType = 0;
    std::string m_strBytes;
};

// The text of a REG_SZ or REG_EXPAND_SZ value (not expanded), up to its first null character (a stored
// string need not end with one; an odd last byte is dropped); nothing for any other type.
inline std::optional<std::wstring> RegistryValueText(const RegistryValue& value)
{
    if (value.m_nType != REG_TYPE_SZ && value.m_nType != REG_TYPE_EXPAND_SZ)
        return std::nullopt;
    std::wstring wstrText = QZSTD::Utf16LeBytesToWide(
        std::string_view(value.m_strBytes).substr(0, value.m_strBytes.size() & ~size_t{1}));
    const size_t nNull = wstrText.find(L'\0');
    if (nNull != std::wstring::npos)
        wstrText.resize(nNull);
    return wstrText;
}
// A value as the registry stores a string (UTF-16LE with its terminating null).
inline RegistryValue MakeRegistryString(const std::wstring& wstrText)
{
    return RegistryValue{REG_TYPE_SZ, QZSTD::WideToUtf16LeBytes(wstrText + L'\0', false)};
}

// A change notification on a key and its whole subtree, in one or more views at once. Any change signals
// it; after a change it must be armed again to see the next one.
class RegistryWatch
{
public:
    virtual ~RegistryWatch() = default;
    // Arms the notification again (the first one is armed by the registry's Watch). A system error when
    // the key can no longer be watched.
    virtual void Rearm() = 0;
    // Waits up to nMs for a change since the last arming; true when one came.
    virtual bool WaitForChange(uint32_t nMs) = 0;
};

struct Registry
{
    virtual ~Registry() = default;
    // A string value (REG_SZ or REG_EXPAND_SZ, not expanded) of a key under HKEY_LOCAL_MACHINE, opened
    // with KEY_READ in the given view. False when the key or the value is missing, or the value is not
    // a string. A registry that reads values of every type answers it from ReadLocalMachineValue.
    virtual bool ReadLocalMachineString(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                                        std::wstring& wstrValue, RegistryView eView = RegistryView::DEFAULT)
    {
        RegistryValue value;
        if (!ReadLocalMachineValue(wstrKey, wstrValueName, value, eView))
            return false;
        const std::optional<std::wstring> text = RegistryValueText(value);
        if (!text)
            return false;
        wstrValue = *text;
        return true;
    }

    // The operations below raise QZError 1193 unless the registry at hand implements them (a registry
    // must implement ReadLocalMachineValue or ReadLocalMachineString).

    // Whether the key exists under HKEY_LOCAL_MACHINE in the view.
    virtual bool LocalMachineKeyExists(const std::wstring& wstrKey, RegistryView eView)
    {
        (void)wstrKey;
        (void)eView;
        QZ_THROW_STD(QZSTD::Err::UNSUPPORTED);
    }
    // A value of any type; false when the key or the value is missing.
    virtual bool ReadLocalMachineValue(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                                       RegistryValue& value, RegistryView eView)
    {
        (void)wstrKey;
        (void)wstrValueName;
        (void)value;
        (void)eView;
        QZ_THROW_STD(QZSTD::Err::UNSUPPORTED);
    }
    // The names of the key's subkeys, in the registry's order; empty when the key is missing.
    virtual std::vector<std::wstring> LocalMachineSubKeys(const std::wstring& wstrKey, RegistryView eView)
    {
        (void)wstrKey;
        (void)eView;
        QZ_THROW_STD(QZSTD::Err::UNSUPPORTED);
    }
    // Whether the system has a 64-bit view beside the 32-bit one (a 64-bit Windows).
    virtual bool HasSixtyFourBitView() { QZ_THROW_STD(QZSTD::Err::UNSUPPORTED); }
    // Watches the key and its subtree in each of the views (armed on return). A system error when the key
    // cannot be opened or watched.
    virtual std::unique_ptr<RegistryWatch> WatchLocalMachineKey(const std::wstring& wstrKey,
                                                                const std::vector<RegistryView>& vecViews)
    {
        (void)wstrKey;
        (void)vecViews;
        QZ_THROW_STD(QZSTD::Err::UNSUPPORTED);
    }
};

// The machine's registry; a process-wide object without state.
Registry& SystemRegistry();

}  // namespace QZRI
