// Typed JSON from the network: any bytes are either refused with the transport's error or read into a
// Params that writes back to JSON which reads into the same Params.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "std/error.h"
#include "transport/paramsjson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    QZSTD::CAutoPtr<QZPAR::Params> pParams;
    try {
        pParams = QZTRANSPORT::JsonToParams(std::string(reinterpret_cast<const char*>(pData), nSize));
    } catch (const QZSTD::QZError& e) {
        if (!e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::BAD_JSON))
            std::abort();
        return 0;
    }
    const std::string strJson = QZTRANSPORT::ParamsToJson(pParams);
    if (QZTRANSPORT::JsonToParams(strJson)->Compare(pParams) != 0)
        std::abort();
    return 0;
}
