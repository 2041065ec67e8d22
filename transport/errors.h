// The errors of the transport (module "QZTRANSPORT").
#pragma once

namespace QZTRANSPORT {

inline constexpr const char* MODULE = "QZTRANSPORT";
enum : int
{
    // The transfer failed: curl's own code and text ("Couldn't connect to server (7)").
    TRANSFER_FAILED = 2001,
    // The server (or the proxy) answered with an HTTP status other than success.
    HTTP_STATUS = 2002,
    // The downloaded file could not be written.
    WRITE_FAILED = 2003,
    // A body that is not a Params in typed JSON: why.
    BAD_JSON = 2004,
    // The server refused the caller (HTTP 401 or 403).
    ACCESS_DENIED = 2005,
    // Neither the package nor the installed management agent names an administration server.
    NO_CONNECTION_SETTINGS = 2006,
};

// Registers the module's message table; every entry point of the transport calls it first.
void RegisterTransportErrors();

}  // namespace QZTRANSPORT
