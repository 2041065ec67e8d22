#include "std/wformat.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string_view>

#include "std/strconv.h"

namespace QZSTD {
namespace {

enum class Len
{
    None,
    HH,
    H,
    L,
    LL,
    J,
    Z,
    T,
    BigL,
    I32,
};

struct Spec
{
    std::string strFlags;  // "-+ #0"
    int nWidth = -1;
    int nPrecision = -1;
    Len len = Len::None;
    bool bWideLen = false;  // 'l' or 'w' given
    wchar_t conv = 0;
};

// Reads flags, width, precision and length; '*' takes an int from the arguments.
const wchar_t* ParseSpec(const wchar_t* p, Spec& s, va_list& args)
{
    while (*p && wcschr(L"-+ #0", *p))
        s.strFlags += static_cast<char>(*p++);
    if (*p == L'*') {
        s.nWidth = va_arg(args, int);
        if (s.nWidth < 0) {
            s.strFlags += '-';
            s.nWidth = -s.nWidth;
        }
        ++p;
    } else {
        for (; *p >= L'0' && *p <= L'9'; ++p)
            s.nWidth = (s.nWidth < 0 ? 0 : s.nWidth) * 10 + (*p - L'0');
    }
    if (*p == L'.') {
        ++p;
        s.nPrecision = 0;
        if (*p == L'*') {
            s.nPrecision = va_arg(args, int);
            ++p;
        } else {
            for (; *p >= L'0' && *p <= L'9'; ++p)
                s.nPrecision = s.nPrecision * 10 + (*p - L'0');
        }
    }
    const std::wstring_view v(p);
    if (v.starts_with(L"I64")) {
        s.len = Len::LL, p += 3;
    } else if (v.starts_with(L"I32")) {
        s.len = Len::I32, p += 3;
    } else if (v.starts_with(L"hh")) {
        s.len = Len::HH, p += 2;
    } else if (v.starts_with(L"ll")) {
        s.len = Len::LL, p += 2;
    } else if (!v.empty()) {
        switch (v[0]) {
            case L'h': s.len = Len::H, ++p; break;
            case L'l': s.len = Len::L, s.bWideLen = true, ++p; break;
            case L'w': s.bWideLen = true, ++p; break;
            case L'q': s.len = Len::LL, ++p; break;
            case L'j': s.len = Len::J, ++p; break;
            case L'z': s.len = Len::Z, ++p; break;
            case L'I': s.len = Len::Z, ++p; break;
            case L't': s.len = Len::T, ++p; break;
            case L'L': s.len = Len::BigL, ++p; break;
            default: break;
        }
    }
    s.conv = *p;
    return *p ? p + 1 : p;
}

void Pad(std::wstring& out, std::wstring_view text, const Spec& s)
{
    const size_t nWidth = s.nWidth > 0 ? static_cast<size_t>(s.nWidth) : 0;
    const bool bLeft = s.strFlags.find('-') != std::string::npos;
    const size_t nFill = text.size() < nWidth ? nWidth - text.size() : 0;
    if (!bLeft)
        out.append(nFill, L' ');
    out += text;
    if (bLeft)
        out.append(nFill, L' ');
}

void AppendString(std::wstring& out, const Spec& s, va_list& args)
{
    const bool bNarrow = s.conv == L'S' ? !s.bWideLen : s.len == Len::H;
    std::wstring wstrNarrow;
    std::wstring_view text;
    if (bNarrow) {
        const char* sz = va_arg(args, const char*);
        std::string_view str = sz ? std::string_view(sz) : std::string_view("(null)");
        if (s.nPrecision >= 0 && str.size() > static_cast<size_t>(s.nPrecision))
            str = str.substr(0, static_cast<size_t>(s.nPrecision));
        wstrNarrow = Utf8ToWide(str);
        text = wstrNarrow;
    } else {
        const wchar_t* wsz = va_arg(args, const wchar_t*);
        text = wsz ? std::wstring_view(wsz) : std::wstring_view(L"(null)");
        if (s.nPrecision >= 0 && text.size() > static_cast<size_t>(s.nPrecision))
            text = text.substr(0, static_cast<size_t>(s.nPrecision));
    }
    Pad(out, text, s);
}

void AppendChar(std::wstring& out, const Spec& s, va_list& args)
{
    const int c = va_arg(args, int);
    const bool bNarrow = s.conv == L'C' ? !s.bWideLen : s.len == Len::H;
    wchar_t wc = bNarrow ? static_cast<wchar_t>(static_cast<unsigned char>(c)) : static_cast<wchar_t>(c);
    Pad(out, std::wstring_view(&wc, 1), s);
}

// Formats one numeric value with the C library's narrow printf; the output is ASCII.
template <class T>
void AppendNumber(std::wstring& out, const Spec& s, const char* szLen, T value)
{
    std::string strFmt = "%" + s.strFlags;
    if (s.nWidth >= 0)
        strFmt += std::to_string(s.nWidth);
    if (s.nPrecision >= 0)
        strFmt += "." + std::to_string(s.nPrecision);
    strFmt += szLen;
    strFmt += static_cast<char>(s.conv);
    char buf[128];
    int n = std::snprintf(buf, sizeof buf, strFmt.c_str(), value);
    if (n < 0)
        return;
    if (static_cast<size_t>(n) < sizeof buf) {
        out.append(buf, buf + n);
        return;
    }
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(big.data(), big.size(), strFmt.c_str(), value);
    out.append(big.begin(), big.begin() + n);
}

void AppendInteger(std::wstring& out, const Spec& s, va_list& args)
{
    const bool bSigned = s.conv == L'd' || s.conv == L'i';
    switch (s.len) {
        case Len::L:
            if (bSigned)
                AppendNumber(out, s, "l", va_arg(args, long));
            else
                AppendNumber(out, s, "l", va_arg(args, unsigned long));
            break;
        case Len::LL:
            if (bSigned)
                AppendNumber(out, s, "ll", va_arg(args, long long));
            else
                AppendNumber(out, s, "ll", va_arg(args, unsigned long long));
            break;
        case Len::J: AppendNumber(out, s, "j", va_arg(args, intmax_t)); break;
        case Len::Z: AppendNumber(out, s, "z", va_arg(args, size_t)); break;
        case Len::T: AppendNumber(out, s, "t", va_arg(args, ptrdiff_t)); break;
        case Len::HH: AppendNumber(out, s, "hh", va_arg(args, int)); break;
        case Len::H: AppendNumber(out, s, "h", va_arg(args, int)); break;
        default:
            if (bSigned)
                AppendNumber(out, s, "", va_arg(args, int));
            else
                AppendNumber(out, s, "", va_arg(args, unsigned));
            break;
    }
}

void AppendConversion(std::wstring& out, const Spec& s, const wchar_t* pStart, const wchar_t* pEnd,
                      va_list& args)
{
    switch (s.conv) {
        case L's':
        case L'S': AppendString(out, s, args); break;
        case L'c':
        case L'C': AppendChar(out, s, args); break;
        case L'd':
        case L'i':
        case L'u':
        case L'o':
        case L'x':
        case L'X': AppendInteger(out, s, args); break;
        case L'f':
        case L'F':
        case L'e':
        case L'E':
        case L'g':
        case L'G':
        case L'a':
        case L'A':
            if (s.len == Len::BigL)
                AppendNumber(out, s, "L", va_arg(args, long double));
            else
                AppendNumber(out, s, "", va_arg(args, double));
            break;
        case L'p': AppendNumber(out, s, "", va_arg(args, void*)); break;
        case L'n': (void)va_arg(args, void*); break;
        case L'%': out += L'%'; break;
        default: out.append(pStart, pEnd); break;
    }
}

}  // namespace

std::wstring FormatWV(const wchar_t* szFormat, va_list argsIn)
{
    std::wstring out;
    if (!szFormat)
        return out;
    va_list args;
    va_copy(args, argsIn);
    for (const wchar_t* p = szFormat; *p;) {
        if (*p != L'%') {
            const wchar_t* q = p;
            while (*q && *q != L'%')
                ++q;
            out.append(p, q);
            p = q;
            continue;
        }
        Spec s;
        const wchar_t* pEnd = ParseSpec(p + 1, s, args);
        AppendConversion(out, s, p, pEnd, args);
        p = pEnd;
    }
    va_end(args);
    return out;
}

std::wstring FormatW(const wchar_t* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    std::wstring out = FormatWV(szFormat, args);
    va_end(args);
    return out;
}

}  // namespace QZSTD
