// Windows-1252 as the fixed ANSI code page where the system has none of its own (see ansicp.h).
#include "common/ansicp.h"

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "std/strconv.h"

namespace QZRI {

namespace {

// The characters of bytes 0x80 to 0x9F; all other bytes are the Unicode character of the same number.
constexpr char16_t c_arrCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

}  // namespace

// The whole code page as one table, built once: a lookup per byte.
struct Cp1252Table
{
    Cp1252Table()
    {
        for (unsigned n = 0; n < 256; ++n)
            m_arrChars[n] = (n >= 0x80 && n < 0xA0) ? static_cast<wchar_t>(c_arrCp1252High[n - 0x80])
                                                    : static_cast<wchar_t>(n);
    }
    wchar_t m_arrChars[256];
};

void AnsiToWide(std::string_view svBytes, std::wstring& wstrOut)
{
    static const Cp1252Table s_table;
    wstrOut.resize(svBytes.size());
    wchar_t* pOut = wstrOut.data();
    const char* pIn = svBytes.data();
    const size_t nSize = svBytes.size();
    size_t i = 0;
#if defined(__SSE2__)
    // Files are mostly ASCII, whose bytes are their characters: sixteen of them are widened at once
    // (zero-extended to the width of wchar_t); a block with any byte from 0x80 up goes through the table.
    static_assert(sizeof(wchar_t) == 4, "the block widening below writes 32-bit characters");
    const __m128i vZero = _mm_setzero_si128();
    for (; i + 16 <= nSize; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pIn + i));
        if (_mm_movemask_epi8(v) != 0) {
            for (size_t j = i; j < i + 16; ++j)
                pOut[j] = s_table.m_arrChars[static_cast<uint8_t>(pIn[j])];
            continue;
        }
        const __m128i vLow = _mm_unpacklo_epi8(v, vZero);
        const __m128i vHigh = _mm_unpackhi_epi8(v, vZero);
        __m128i* pDest = reinterpret_cast<__m128i*>(pOut + i);
        _mm_storeu_si128(pDest, _mm_unpacklo_epi16(vLow, vZero));
        _mm_storeu_si128(pDest + 1, _mm_unpackhi_epi16(vLow, vZero));
        _mm_storeu_si128(pDest + 2, _mm_unpacklo_epi16(vHigh, vZero));
        _mm_storeu_si128(pDest + 3, _mm_unpackhi_epi16(vHigh, vZero));
    }
#endif
    for (; i < nSize; ++i)
        pOut[i] = s_table.m_arrChars[static_cast<uint8_t>(pIn[i])];
}

std::wstring AnsiToWide(std::string_view svBytes)
{
    std::wstring wstrResult;
    AnsiToWide(svBytes, wstrResult);
    return wstrResult;
}

std::string WideToAnsi(std::wstring_view wsvText)
{
    std::string strOut;
    strOut.reserve(wsvText.size());
    for (const wchar_t wch : wsvText) {
        if (wch < 0x80 || (wch >= 0xA0 && wch < 0x100)) {
            strOut += static_cast<char>(wch);
            continue;
        }
        char ch = '?';
        for (unsigned n = 0; n < 32; ++n)
            if (static_cast<wchar_t>(c_arrCp1252High[n]) == wch)
                ch = static_cast<char>(0x80 + n);
        strOut += ch;
    }
    return strOut;
}

std::filesystem::path PathFromWide(const std::wstring& wstrPath)
{
    return std::filesystem::path(QZSTD::WideToUtf8(wstrPath));
}

std::wstring WideFromPath(const std::filesystem::path& path)
{
    return QZSTD::Utf8ToWide(path.native());
}

}  // namespace QZRI
