// What every transfer of the transport sets up the same way on a curl handle: the library's one-time
// start, the proxy (its password traced only as its length), the trust settings. Internal to transport/.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "transport/httptransfer.h"

namespace QZTRANSPORT {

using CurlPtr = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

// A new handle; curl is started once per process. Raises TRANSFER_FAILED when it cannot start.
CurlPtr NewCurl();
// The agent's proxy, or none at all whatever the environment says.
void SetProxy(CURL* pCurl, const ProxySettings& proxy);
// http and https only; certificates checked, revocation best effort under Schannel; wstrCaFile, when
// given, the only trust anchor.
void SetTransportBasics(CURL* pCurl, const std::wstring& wstrCaFile, char* szErrorBuffer);

}  // namespace QZTRANSPORT
