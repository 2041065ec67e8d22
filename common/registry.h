// The few registry reads the agent's helpers need, behind an interface so that the code that decides can
// be tested with a map. Windows: the registry itself (registry_win.cpp). Elsewhere there is no registry,
// and every value reads as missing (registry_posix.cpp).
#pragma once

#include <string>

namespace QZRI {

struct Registry
{
    virtual ~Registry() = default;
    // A string value (REG_SZ or REG_EXPAND_SZ, not expanded) of a key under HKEY_LOCAL_MACHINE, opened
    // with KEY_READ. False when the key or the value is missing, or the value is not a string.
    virtual bool ReadLocalMachineString(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                                        std::wstring& wstrValue) = 0;
};

// The machine's registry; a process-wide object without state.
Registry& SystemRegistry();

}  // namespace QZRI
