// POSIX side of the error machinery: errno and strerror.
#include <cerrno>
#include <cstring>

#include "std/error.h"
#include "std/strconv.h"

namespace QZSTD {

std::wstring SystemErrorText(int nCode)
{
    char buf[256] = {};
    // GNU strerror_r may return a static string instead of filling buf.
    const char* sz = strerror_r(nCode, buf, sizeof buf);
    return Utf8ToWide(sz ? sz : "") + L" (" + std::to_wstring(nCode) + L")";
}

int LastSystemError()
{
    return errno;
}

}  // namespace QZSTD
