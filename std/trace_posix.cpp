// POSIX part of the trace: the file is opened by its UTF-8 path; ids and time come from the kernel.
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "std/strconv.h"

namespace QZSTD {

std::FILE* TraceOpenFile(const std::wstring& wstrPath, bool bAppend) noexcept
{
    try {
        // "e": close-on-exec, so that programs the agent starts do not hold the trace open.
        return std::fopen(WideToUtf8(wstrPath).c_str(), bAppend ? "abe" : "wbe");
    } catch (...) {
        return nullptr;
    }
}

void TraceLocalTime(std::tm& tmNow, int& nMillis) noexcept
{
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    const time_t tSeconds = ts.tv_sec;
    localtime_r(&tSeconds, &tmNow);
    nMillis = static_cast<int>(ts.tv_nsec / 1000000);
}

unsigned long TraceProcessId() noexcept
{
    return static_cast<unsigned long>(getpid());
}

unsigned long TraceThreadId() noexcept
{
    return static_cast<unsigned long>(gettid());
}

const char* TraceLineEnd() noexcept
{
    return "\n";
}

}  // namespace QZSTD
