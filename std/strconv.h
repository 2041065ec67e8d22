// Conversions between the agent's wide strings and byte encodings. wchar_t is UTF-16 on Windows
// and UTF-32 on Linux; files and the wire always use UTF-8 or UTF-16LE so both platforms agree.
#pragma once

#include <string>
#include <string_view>

namespace QZSTD {

// Invalid input becomes U+FFFD; never throws on bad bytes.
std::wstring Utf8ToWide(std::string_view str);
std::string WideToUtf8(std::wstring_view wstr);

// UTF-16 code units (native order) of a wide string: surrogate pairs above U+FFFF on Linux.
std::u16string WideToUtf16(std::wstring_view wstr);
// The reverse; an unpaired surrogate is kept as it is on Windows and becomes U+FFFD on Linux.
std::wstring Utf16ToWide(std::u16string_view str);

// Text files in UTF-16LE: the bytes of a wide string, with the byte-order mark FF FE first when bBom;
// and back, a leading byte-order mark dropped (an odd last byte is ignored).
std::string WideToUtf16LeBytes(std::wstring_view wstr, bool bBom);
std::wstring Utf16LeBytesToWide(std::string_view svBytes);

// The value of a hexadecimal digit in either case, or -1 for any other character.
constexpr int HexDigitValue(char32_t c) noexcept
{
    if (c >= U'0' && c <= U'9')
        return static_cast<int>(c - U'0');
    if (c >= U'A' && c <= U'F')
        return static_cast<int>(c - U'A') + 10;
    if (c >= U'a' && c <= U'f')
        return static_cast<int>(c - U'a') + 10;
    return -1;
}

}  // namespace QZSTD
