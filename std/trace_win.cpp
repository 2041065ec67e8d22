// Win32 part of the trace: _wfsopen for the wide path, GetLocalTime and the process and thread ids.
#include <windows.h>

#include <io.h>
#include <share.h>

#include <cstdio>
#include <ctime>
#include <string>

namespace QZSTD {

std::FILE* TraceOpenFile(const std::wstring& wstrPath, bool bAppend) noexcept
{
    // Others may read the trace while the agent writes it, but not write into it.
    std::FILE* pFile = _wfsopen(wstrPath.c_str(), bAppend ? L"ab" : L"wb", _SH_DENYWR);
    if (!pFile)
        return nullptr;
    // Setup programs started with inherited handles would otherwise keep the trace open after the run
    // (and block its rotation). The "N" mode letter would do the same, but not every msvcrt.dll knows it.
    const intptr_t hFile = _get_osfhandle(_fileno(pFile));
    if (hFile != -1)
        SetHandleInformation(reinterpret_cast<HANDLE>(hFile), HANDLE_FLAG_INHERIT, 0);
    return pFile;
}

void TraceLocalTime(std::tm& tmNow, int& nMillis) noexcept
{
    SYSTEMTIME st{};
    GetLocalTime(&st);
    tmNow = std::tm{};
    tmNow.tm_year = st.wYear - 1900;
    tmNow.tm_mon = st.wMonth - 1;
    tmNow.tm_mday = st.wDay;
    tmNow.tm_hour = st.wHour;
    tmNow.tm_min = st.wMinute;
    tmNow.tm_sec = st.wSecond;
    nMillis = st.wMilliseconds;
}

unsigned long TraceProcessId() noexcept
{
    return GetCurrentProcessId();
}

unsigned long TraceThreadId() noexcept
{
    return GetCurrentThreadId();
}

// Notepad of the older Windows versions the agent supports shows LF-only files as one line.
const char* TraceLineEnd() noexcept
{
    return "\r\n";
}

}  // namespace QZSTD
