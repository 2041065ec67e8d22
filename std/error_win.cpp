// Win32 side of the error machinery: GetLastError and FormatMessageW.
#include <windows.h>

#include "std/error.h"

namespace QZSTD {

std::wstring SystemErrorText(int nCode)
{
    wchar_t* pBuf = nullptr;
    const DWORD n = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(nCode), 0, reinterpret_cast<wchar_t*>(&pBuf), 0, nullptr);
    std::wstring wstr = n && pBuf ? std::wstring(pBuf, n) : L"System error";
    if (pBuf)
        LocalFree(pBuf);
    while (!wstr.empty() && (wstr.back() == L'\n' || wstr.back() == L'\r' || wstr.back() == L' '))
        wstr.pop_back();
    return wstr + L" (" + std::to_wstring(static_cast<unsigned long>(nCode)) + L")";
}

int LastSystemError()
{
    return static_cast<int>(GetLastError());
}

}  // namespace QZSTD
