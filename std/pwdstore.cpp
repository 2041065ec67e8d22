// The password form shared by every platform: protected UTF-16LE bytes as hexadecimal text.
#include "std/pwdstore.h"

#include "std/error.h"
#include "std/strconv.h"

namespace QZSTD {

std::wstring ProtectPassword(const std::wstring& wstrPassword)
{
    static const wchar_t DIGITS[] = L"0123456789ABCDEF";
    std::wstring wstrHex;
    for (unsigned char c : ProtectData(WideToUtf16LeBytes(wstrPassword, false))) {
        wstrHex += DIGITS[c >> 4];
        wstrHex += DIGITS[c & 0xF];
    }
    return wstrHex;
}

std::wstring UnprotectPassword(const std::wstring& wstrProtectedHex)
{
    if (wstrProtectedHex.size() % 2 != 0)
        QZ_THROW_STD(Err::BAD_PARAM, "protected data");
    std::string strBytes;
    for (size_t n = 0; n < wstrProtectedHex.size(); n += 2) {
        const int nHigh = HexDigitValue(wstrProtectedHex[n]);
        const int nLow = HexDigitValue(wstrProtectedHex[n + 1]);
        if (nHigh < 0 || nLow < 0)
            QZ_THROW_STD(Err::BAD_PARAM, "protected data");
        strBytes += static_cast<char>(nHigh * 16 + nLow);
    }
    return Utf16LeBytesToWide(UnprotectData(strBytes));
}

}  // namespace QZSTD
