// Text forms of the values kept in a settings storage file. Pure functions, no I/O: the XML reader
// and writer use them, and they are tested on every platform on their own.
//
// A string goes into the file as it is when XML 1.0 can carry every character of it unchanged;
// otherwise (control characters, embedded NULs, lone surrogates, U+FFFE/U+FFFF) as the upper-case
// hexadecimal of its UTF-16LE bytes. The UTF-16 form is the same on both platforms, so a file
// written on Linux reads the same on Windows and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace QZSTD::SsCodec {

// True when every character can be written into an XML attribute and read back unchanged:
// printable characters, no C0/C1 controls, no lone surrogates, no non-characters U+FFFE/U+FFFF.
bool IsXmlSafe(std::wstring_view wsv);
// The same for 8-bit text: printable ASCII only (other bytes have no fixed meaning in the file).
bool IsXmlSafe(std::string_view sv);

// "0A1B..." (upper case, two digits per byte).
std::string BytesToHex(const void* pData, size_t nBytes);
// Accepts upper and lower case; nullopt on an odd length or a character that is not a digit.
std::optional<std::string> HexToBytes(std::string_view svHex);

// UTF-16LE hexadecimal, four digits per code unit. Lone surrogates are kept as they are. nullopt
// when a character lies past U+10FFFF (possible only where wchar_t has 32 bits).
std::optional<std::string> WideToUtf16Hex(std::wstring_view wsv);
// The reverse. A surrogate pair becomes one character where wchar_t has 32 bits; lone surrogates
// stay. nullopt on bad hexadecimal or a length that is not a multiple of four digits.
std::optional<std::wstring> Utf16HexToWide(std::string_view svHex);

// Decimal text; the whole text must be a number in range (no sign "+", no spaces).
std::optional<int32_t> ParseInt32(std::string_view sv);
std::optional<int64_t> ParseInt64(std::string_view sv);

// Shortest text that reads back as the same number ("nan", "inf", "-inf", "-0" included).
std::string FloatToText(float f);
std::string DoubleToText(double d);
// The whole text must be a number in range, or "nan", "-nan", "inf", "-inf".
std::optional<float> ParseFloat(std::string_view sv);
std::optional<double> ParseDouble(std::string_view sv);

// Orders names by their UTF-16 code units (case-sensitive, no locale), so that a file lists its
// products, versions and sections in the same order whichever platform wrote it: where wchar_t has
// 32 bits, characters above U+FFFF (surrogate pairs in UTF-16) sort below U+E000..U+FFFF.
struct Utf16Less
{
    bool operator()(std::wstring_view a, std::wstring_view b) const;
};

// "true" / "false"; nothing else is accepted.
const char* BoolToText(bool b);
std::optional<bool> ParseBool(std::string_view sv);

}  // namespace QZSTD::SsCodec
