// The settings-storage reader on arbitrary XML text. Property: what it accepts, written out in its
// canonical form, reads back to the same canonical text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "std/error.h"
#include "std/ss/settingsstorage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    std::string strCanonical;
    try {
        strCanonical = QZSTD::SettingsStorage::ParseForTest(reinterpret_cast<const char*>(pData), nSize);
    } catch (const QZSTD::QZError&) {
        return 0;
    }
    if (QZSTD::SettingsStorage::ParseForTest(strCanonical.data(), strCanonical.size()) != strCanonical)
        std::abort();
    return 0;
}
