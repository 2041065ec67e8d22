// A remote call to the administration server: an operation of an interface, its arguments and result as
// Params in typed JSON (paramsjson.h), over HTTP or HTTPS. docs/remote-calls.md describes the wire form
// for a server team.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "std/par/params.h"
#include "transport/httptransfer.h"

namespace QZTRANSPORT {

struct RemoteEndpoint
{
    // "https://host:port" or "http://host:port", without a path.
    std::string m_strBase;
    // Headers that name and authenticate the caller ("X-QZ-Component", ...).
    std::vector<std::pair<std::string, std::string>> m_vecHeaders;
    ProxySettings m_proxy;
    // The server's certificate or its CA, as the only trust anchor; empty: the system's roots.
    std::wstring m_wstrServerCert;
    long m_lTimeoutSec = 120;
};

// The largest reply the agent reads; a longer one is a broken server.
inline constexpr size_t MAX_REPLY_BYTES = 16 * 1024 * 1024;

// POST <base>/api/v1.0/<interface>.<operation> with the arguments; the reply's Params (status 200).
// Raises: ACCESS_DENIED for 401 and 403; the server's own error (its module, code and message) for a
// reply {"PxgError": {...}}; HTTP_STATUS for any other status; BAD_JSON for a body that is no typed
// Params or longer than MAX_REPLY_BYTES; TRANSFER_FAILED when no answer came. Redirects are not followed.
QZSTD::CAutoPtr<QZPAR::Params> CallRemote(const RemoteEndpoint& endpoint, const std::string& strInterface,
                                          const std::string& strOperation, QZPAR::Params* pArgs);

}  // namespace QZTRANSPORT
