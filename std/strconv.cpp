// Hand-written converters: the standard codecvt facets are deprecated and locale-dependent.
#include "std/strconv.h"

#include <algorithm>
#include <cstddef>

namespace QZSTD {
namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;

void AppendCodePoint(std::wstring& out, char32_t c)
{
    if constexpr (sizeof(wchar_t) == 2) {
        if (c >= 0x10000) {
            c -= 0x10000;
            out += static_cast<wchar_t>(0xD800 + (c >> 10));
            out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
            return;
        }
    }
    out += static_cast<wchar_t>(c);
}

void AppendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Decodes one code point from UTF-16 units at i (advancing i).
char32_t NextUtf16(std::u16string_view s, size_t& i)
{
    const char32_t c = s[i++];
    if (c >= 0xD800 && c < 0xDC00 && i < s.size() && s[i] >= 0xDC00 && s[i] < 0xE000)
        return 0x10000 + ((c - 0xD800) << 10) + (s[i++] - 0xDC00);
    return c;
}

}  // namespace

std::wstring Utf8ToWide(std::string_view s)
{
    std::wstring out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        // A run of ASCII, most of any file, is its own characters: copied in one step.
        size_t nAscii = i;
        while (nAscii < s.size() && static_cast<unsigned char>(s[nAscii]) < 0x80)
            ++nAscii;
        if (nAscii > i) {
            const size_t nOld = out.size();
            out.resize(nOld + (nAscii - i));
            std::copy(s.begin() + static_cast<std::ptrdiff_t>(i),
                      s.begin() + static_cast<std::ptrdiff_t>(nAscii),
                      out.begin() + static_cast<std::ptrdiff_t>(nOld));
            i = nAscii;
            continue;
        }
        const unsigned char b = static_cast<unsigned char>(s[i]);
        size_t nLen = (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
        char32_t c = nLen == 2 ? (b & 0x1F) : nLen == 3 ? (b & 0x0F) : (b & 0x07);
        bool bOk = nLen != 0 && i + nLen <= s.size();
        for (size_t k = 1; bOk && k < nLen; ++k) {
            const unsigned char t = static_cast<unsigned char>(s[i + k]);
            bOk = (t & 0xC0) == 0x80;
            c = (c << 6) | (t & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not valid UTF-8.
        static constexpr char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
        if (bOk && (c < kMin[nLen] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)))
            bOk = false;
        AppendCodePoint(out, bOk ? c : REPLACEMENT);
        i += bOk ? nLen : 1;
    }
    return out;
}

std::string WideToUtf8(std::wstring_view w)
{
    std::string out;
    out.reserve(w.size());
    if constexpr (sizeof(wchar_t) == 2) {
        const std::u16string_view s(reinterpret_cast<const char16_t*>(w.data()), w.size());
        for (size_t i = 0; i < s.size();) {
            const char32_t c = NextUtf16(s, i);
            AppendUtf8(out, (c >= 0xD800 && c < 0xE000) ? REPLACEMENT : c);
        }
    } else {
        for (wchar_t wc : w) {
            const char32_t c = static_cast<char32_t>(wc);
            AppendUtf8(out, (c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) ? REPLACEMENT : c);
        }
    }
    return out;
}

std::u16string WideToUtf16(std::wstring_view w)
{
    if constexpr (sizeof(wchar_t) == 2) {
        return std::u16string(reinterpret_cast<const char16_t*>(w.data()), w.size());
    } else {
        std::u16string out;
        out.reserve(w.size());
        for (wchar_t wc : w) {
            char32_t c = static_cast<char32_t>(wc);
            if (c > 0x10FFFF)
                c = REPLACEMENT;
            if (c >= 0x10000) {
                c -= 0x10000;
                out += static_cast<char16_t>(0xD800 + (c >> 10));
                out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
            } else {
                out += static_cast<char16_t>(c);
            }
        }
        return out;
    }
}

std::wstring Utf16ToWide(std::u16string_view s)
{
    if constexpr (sizeof(wchar_t) == 2) {
        return std::wstring(reinterpret_cast<const wchar_t*>(s.data()), s.size());
    } else {
        std::wstring out;
        out.reserve(s.size());
        for (size_t i = 0; i < s.size();) {
            const char32_t c = NextUtf16(s, i);
            out += static_cast<wchar_t>((c >= 0xD800 && c < 0xE000) ? REPLACEMENT : c);
        }
        return out;
    }
}

std::string WideToUtf16LeBytes(std::wstring_view wstr, bool bBom)
{
    std::string strBytes = bBom ? std::string("\xFF\xFE") : std::string();
    for (const char16_t ch : WideToUtf16(wstr)) {
        strBytes += static_cast<char>(ch & 0xFF);
        strBytes += static_cast<char>(ch >> 8);
    }
    return strBytes;
}

std::wstring Utf16LeBytesToWide(std::string_view svBytes)
{
    std::u16string u16;
    for (size_t n = 0; n + 1 < svBytes.size(); n += 2)
        u16 += static_cast<char16_t>(static_cast<unsigned char>(svBytes[n]) |
                                     (static_cast<unsigned char>(svBytes[n + 1]) << 8));
    if (!u16.empty() && u16[0] == 0xFEFF)
        u16.erase(0, 1);
    return Utf16ToWide(u16);
}

}  // namespace QZSTD
