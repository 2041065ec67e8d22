// Win32 private-profile functions behind the agent's ini interface.
#include <windows.h>

#include <vector>

#include "std/profile.h"

namespace QZSTD {

std::wstring GetProfileString(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                              const wchar_t* szDefault, size_t nBufChars)
{
    ProfileArgs::CheckRead(wstrFile, szSection, szKey, nBufChars);
    std::vector<wchar_t> vecBuf(nBufChars, L'\0');
    const DWORD n = GetPrivateProfileStringW(szSection, szKey, szDefault ? szDefault : L"", vecBuf.data(),
                                             static_cast<DWORD>(nBufChars), wstrFile.c_str());
    return std::wstring(vecBuf.data(), n < nBufChars ? n : nBufChars - 1);
}

int GetProfileInt(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey, int nDefault)
{
    ProfileArgs::CheckRead(wstrFile, szSection, szKey, 1);
    // The UINT result carries negative values in two's complement.
    return static_cast<int>(GetPrivateProfileIntW(szSection, szKey, nDefault, wstrFile.c_str()));
}

bool WriteProfileString(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                        const wchar_t* szValue)
{
    ProfileArgs::CheckWrite(wstrFile, szSection, szKey, szValue);
    return WritePrivateProfileStringW(szSection, szKey, szValue, wstrFile.c_str()) != FALSE;
}

void FlushProfile(const std::wstring& wstrFile)
{
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, wstrFile.c_str());
}

}  // namespace QZSTD
