// The few registry reads the agent's helpers need, behind an interface so that the code that decides can
// be tested with a map. Windows: the registry itself (registry_win.cpp). Elsewhere there is no registry,
// and every value reads as missing (registry_posix.cpp).
#pragma once

#include <string>

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

struct Registry
{
    virtual ~Registry() = default;
    // A string value (REG_SZ or REG_EXPAND_SZ, not expanded) of a key under HKEY_LOCAL_MACHINE, opened
    // with KEY_READ in the given view. False when the key or the value is missing, or the value is not
    // a string.
    virtual bool ReadLocalMachineString(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                                        std::wstring& wstrValue,
                                        RegistryView eView = RegistryView::DEFAULT) = 0;
};

// The machine's registry; a process-wide object without state.
Registry& SystemRegistry();

}  // namespace QZRI
