// Text forms of the stored values; see sscodec.h.
#include "std/ss/sscodec.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "std/strconv.h"

namespace QZSTD::SsCodec {
namespace {

constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

bool IsSurrogate(uint32_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

bool IsHighSurrogate(uint32_t c)
{
    return c >= 0xD800 && c <= 0xDBFF;
}

bool IsLowSurrogate(uint32_t c)
{
    return c >= 0xDC00 && c <= 0xDFFF;
}

// A character that XML 1.0 carries unchanged in an attribute. Whitespace other than the space is
// left out: a parser turns tabs and line breaks in attributes into spaces.
bool IsSafeCodePoint(uint32_t c)
{
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F))
        return false;
    if (IsSurrogate(c) || c == 0xFFFE || c == 0xFFFF)
        return false;
    return c <= 0x10FFFF;
}

void AppendUnitHex(std::string& out, uint32_t nUnit)
{
    // Little-endian: low byte first, each byte high nibble first.
    out += HEX_DIGITS[(nUnit >> 4) & 0xF];
    out += HEX_DIGITS[nUnit & 0xF];
    out += HEX_DIGITS[(nUnit >> 12) & 0xF];
    out += HEX_DIGITS[(nUnit >> 8) & 0xF];
}

template <class T>
std::optional<T> ParseInteger(std::string_view sv)
{
    T n{};
    const char* pEnd = sv.data() + sv.size();
    const std::from_chars_result r = std::from_chars(sv.data(), pEnd, n, 10);
    if (sv.empty() || r.ec != std::errc() || r.ptr != pEnd)
        return std::nullopt;
    return n;
}

template <class T>
std::string FloatingToText(T value)
{
    char buf[64];
    const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, value);
    return std::string(buf, r.ptr);
}

template <class T>
std::optional<T> ParseFloating(std::string_view sv)
{
    T value{};
    const char* pEnd = sv.data() + sv.size();
    const std::from_chars_result r = std::from_chars(sv.data(), pEnd, value, std::chars_format::general);
    if (sv.empty() || r.ec != std::errc() || r.ptr != pEnd)
        return std::nullopt;
    return value;
}

}  // namespace

bool IsXmlSafe(std::wstring_view wsv)
{
    for (size_t i = 0; i < wsv.size(); ++i) {
        const uint32_t c = static_cast<uint32_t>(wsv[i]);
        if constexpr (sizeof(wchar_t) == 2) {
            // A well-formed pair is one character beyond U+FFFF, which XML carries.
            if (IsHighSurrogate(c) && i + 1 < wsv.size() &&
                IsLowSurrogate(static_cast<uint32_t>(wsv[i + 1]))) {
                ++i;
                continue;
            }
        }
        if (!IsSafeCodePoint(c))
            return false;
    }
    return true;
}

bool IsXmlSafe(std::string_view sv)
{
    for (char ch : sv) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (c < 0x20 || c > 0x7E)
            return false;
    }
    return true;
}

std::string BytesToHex(const void* pData, size_t nBytes)
{
    std::string out;
    out.reserve(nBytes * 2);
    const unsigned char* p = static_cast<const unsigned char*>(pData);
    for (size_t i = 0; i < nBytes; ++i) {
        out += HEX_DIGITS[p[i] >> 4];
        out += HEX_DIGITS[p[i] & 0xF];
    }
    return out;
}

std::optional<std::string> HexToBytes(std::string_view svHex)
{
    if (svHex.size() % 2 != 0)
        return std::nullopt;
    std::string out;
    out.reserve(svHex.size() / 2);
    for (size_t i = 0; i < svHex.size(); i += 2) {
        const int nHigh = HexDigitValue(svHex[i]);
        const int nLow = HexDigitValue(svHex[i + 1]);
        if (nHigh < 0 || nLow < 0)
            return std::nullopt;
        out += static_cast<char>((nHigh << 4) | nLow);
    }
    return out;
}

std::optional<std::string> WideToUtf16Hex(std::wstring_view wsv)
{
    std::string out;
    out.reserve(wsv.size() * 4);
    for (wchar_t ch : wsv) {
        const uint32_t c = static_cast<uint32_t>(ch);
        if (c > 0x10FFFF)
            return std::nullopt;
        if (c >= 0x10000) {
            AppendUnitHex(out, 0xD800 + ((c - 0x10000) >> 10));
            AppendUnitHex(out, 0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            AppendUnitHex(out, c);
        }
    }
    return out;
}

std::optional<std::wstring> Utf16HexToWide(std::string_view svHex)
{
    if (svHex.size() % 4 != 0)
        return std::nullopt;
    const std::optional<std::string> bytes = HexToBytes(svHex);
    if (!bytes)
        return std::nullopt;
    std::wstring out;
    out.reserve(bytes->size() / 2);
    const auto unitAt = [&](size_t i) {
        return static_cast<uint32_t>(static_cast<unsigned char>((*bytes)[2 * i])) |
               (static_cast<uint32_t>(static_cast<unsigned char>((*bytes)[2 * i + 1])) << 8);
    };
    const size_t nUnits = bytes->size() / 2;
    for (size_t i = 0; i < nUnits; ++i) {
        const uint32_t c = unitAt(i);
        if constexpr (sizeof(wchar_t) == 4) {
            if (IsHighSurrogate(c) && i + 1 < nUnits && IsLowSurrogate(unitAt(i + 1))) {
                out += static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (unitAt(i + 1) - 0xDC00));
                ++i;
                continue;
            }
        }
        out += static_cast<wchar_t>(c);
    }
    return out;
}

std::optional<int32_t> ParseInt32(std::string_view sv)
{
    return ParseInteger<int32_t>(sv);
}

std::optional<int64_t> ParseInt64(std::string_view sv)
{
    return ParseInteger<int64_t>(sv);
}

std::string FloatToText(float f)
{
    return FloatingToText(f);
}

std::string DoubleToText(double d)
{
    return FloatingToText(d);
}

std::optional<float> ParseFloat(std::string_view sv)
{
    return ParseFloating<float>(sv);
}

std::optional<double> ParseDouble(std::string_view sv)
{
    return ParseFloating<double>(sv);
}

bool Utf16Less::operator()(std::wstring_view a, std::wstring_view b) const
{
    const auto key = [](wchar_t ch) {
        const uint32_t c = static_cast<uint32_t>(ch);
        return (sizeof(wchar_t) == 4 && c >= 0xE000 && c <= 0xFFFF) ? c + 0x110000 : c;
    };
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [&](wchar_t x, wchar_t y) { return key(x) < key(y); });
}

const char* BoolToText(bool b)
{
    return b ? "true" : "false";
}

std::optional<bool> ParseBool(std::string_view sv)
{
    if (sv == "true")
        return true;
    if (sv == "false")
        return false;
    return std::nullopt;
}

}  // namespace QZSTD::SsCodec
