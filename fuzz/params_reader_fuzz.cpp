// The binary Params reader on arbitrary bytes: it must reject bad input with a QZError and never
// read out of bounds, overflow, recurse without limit or allocate what the input cannot justify.
// What it accepts must serialise back to bytes that read to an equal tree.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "std/error.h"
#include "std/par/params.h"
#include "std/par/serialize.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    QZSTD::CAutoPtr<QZPAR::Params> pParams;
    try {
        pParams = QZPAR::DeserializeParams(pData, nSize);
    } catch (const QZSTD::QZError&) {
        return 0;
    }
    std::vector<uint8_t> vecOut;
    QZPAR::SerializeParams(pParams, vecOut);
    QZSTD::CAutoPtr<QZPAR::Params> pAgain = QZPAR::DeserializeParams(vecOut.data(), vecOut.size());
    if (pParams->Compare(pAgain) != 0)
        std::abort();
    return 0;
}
