// The message table of the transport.
#include "transport/errors.h"

#include "std/error.h"

namespace QZTRANSPORT {
namespace {

const QZSTD::ErrorEntry g_transportErrors[] = {
    {TRANSFER_FAILED, L"The transfer failed: %hs (curl %d)"},
    {HTTP_STATUS, L"The server answered with HTTP status %ld"},
    {WRITE_FAILED, L"The downloaded file \"%ls\" could not be written"},
    {BAD_JSON, L"The body is not a Params in typed JSON: %hs"},
    {ACCESS_DENIED, L"The server denied access (HTTP status %ld)"},
    {NO_CONNECTION_SETTINGS, L"Cannot load connection settings from nagent installation"},
    {0, nullptr},
};

}  // namespace

void RegisterTransportErrors()
{
    static const bool s_bDone = (QZSTD::RegisterErrorTable(MODULE, g_transportErrors), true);
    (void)s_bDone;
}

}  // namespace QZTRANSPORT
