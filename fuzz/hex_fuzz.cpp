// The "$HEX_" decoder on arbitrary values. Property: a value it accepts encodes back to a value that
// decodes to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/ristrutils.h"
#include "std/error.h"
#include "std/strconv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    std::string str(reinterpret_cast<const char*>(pData), nSize);
    if (nSize > 0 && pData[0] & 1)
        str = "$HEX_" + str;  // reach the decoder itself on half of the inputs
    std::wstring wstrPlain;
    try {
        wstrPlain = QZRI::DecodeHexString(QZSTD::Utf8ToWide(str));
    } catch (const QZSTD::QZError&) {
        return 0;
    }
    if (QZRI::DecodeHexString(QZRI::EncodeHexString(wstrPlain)) != wstrPlain)
        std::abort();
    return 0;
}
