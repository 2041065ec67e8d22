// Immutable, reference-counted wide string used for parameter names and string values. The count
// and the length sit in a header right before the characters, so one allocation holds both and a
// copy costs one atomic increment. Names and string values are therefore copied by reference when
// a tree is cloned or copied.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace QZPAR {

// UTF-16 writes characters above U+FFFF as surrogates (D800-DFFF), which sort below U+E000-U+FFFF.
// Where wchar_t holds whole code points those characters are moved to that place.
inline uint32_t Utf16SortKey(wchar_t c)
{
    const uint32_t n = static_cast<uint32_t>(c);
    if constexpr (sizeof(wchar_t) == 4)
        return (n < 0xE000 || n > 0xFFFF) ? n : n + 0x110000;
    return n;
}

// The order of names: by UTF-16 code units, case-sensitive, no locale; -1, 0 or 1. The first
// nFrom characters are known to be equal and are skipped; nCommon receives the length of the
// common prefix. The equal part is skipped eight bytes at a time and the first difference is found
// from the differing bits of the word.
inline int CompareOrdinalFrom(const wchar_t* pA, size_t nA, const wchar_t* pB, size_t nB, size_t nFrom,
                              size_t& nCommon)
{
    constexpr size_t CHARS_PER_WORD = sizeof(uint64_t) / sizeof(wchar_t);
    const size_t n = nA < nB ? nA : nB;
    size_t i = nFrom < n ? nFrom : n;
#if defined(__SSE2__)
    // Sixteen bytes at a time; the first differing byte gives the first differing character.
    constexpr size_t CHARS_PER_VECTOR = 16 / sizeof(wchar_t);
    for (; i + CHARS_PER_VECTOR <= n; i += CHARS_PER_VECTOR) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pA + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pB + i));
        const unsigned nEqualBytes = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(a, b)));
        if (nEqualBytes != 0xFFFF) {
            i += static_cast<size_t>(std::countr_zero(~nEqualBytes)) / sizeof(wchar_t);
            break;
        }
    }
#endif
    for (; i + CHARS_PER_WORD <= n; i += CHARS_PER_WORD) {
        uint64_t nWordA, nWordB;
        std::memcpy(&nWordA, pA + i, sizeof nWordA);
        std::memcpy(&nWordB, pB + i, sizeof nWordB);
        if (nWordA == nWordB)
            continue;
        if constexpr (std::endian::native == std::endian::little)
            i += static_cast<size_t>(std::countr_zero(nWordA ^ nWordB)) / (8 * sizeof(wchar_t));
        break;
    }
    for (; i < n; ++i) {
        if (pA[i] != pB[i]) {
            nCommon = i;
            return Utf16SortKey(pA[i]) < Utf16SortKey(pB[i]) ? -1 : 1;
        }
    }
    nCommon = n;
    return nA < nB ? -1 : (nA > nB ? 1 : 0);
}

inline int CompareOrdinal(std::wstring_view a, std::wstring_view b)
{
    size_t nCommon = 0;
    return CompareOrdinalFrom(a.data(), a.size(), b.data(), b.size(), 0, nCommon);
}

// Length of the common prefix of a and b, looking at no more than nMax characters.
inline size_t CommonPrefixLength(std::wstring_view a, std::wstring_view b, size_t nMax)
{
    size_t nCommon = 0;
    CompareOrdinalFrom(a.data(), a.size() < nMax ? a.size() : nMax, b.data(),
                       b.size() < nMax ? b.size() : nMax, 0, nCommon);
    return nCommon;
}

// The temporary key of a name lookup: a view over the caller's characters, nothing copied.
//
// A lookup compares the key with the names on one path down the map's tree. Every name on that
// path lies between the closest smaller and the closest larger name met so far, so it shares at
// least the shorter of their common prefixes with the key, and the comparison starts there (the
// map starts both at what the key is known to share with every name). Names in one Params often
// share long prefixes ("setup_result_code", "setup_result_text"); they are then compared about
// once per lookup instead of at every level. The two lengths are state of this key alone, so
// concurrent lookups do not share them.
struct NameKey
{
    explicit NameKey(std::wstring_view wsv) : pChars(wsv.data()), nLength(wsv.size()) {}

    const wchar_t* pChars;
    size_t nLength;
    mutable size_t nPrefixBelow = 0;  // with the closest name found to order before the key
    mutable size_t nPrefixAbove = 0;  // with the closest name found to order after it (or equal)
};

class SharedString
{
public:
    // Lies right before the characters (which end with a NUL not counted in nLength).
    struct Header
    {
        uint32_t nTag;
        std::atomic<int32_t> nRef;
        uint32_t nLength;
    };
    static constexpr uint32_t LIVE_TAG = 0x53535A51;  // "QZSS"

    // The empty string holds no buffer.
    SharedString() = default;
    // Copies the characters into a new buffer; an empty input gives the empty string.
    explicit SharedString(std::wstring_view wstr);
    SharedString(const SharedString& o) noexcept : m_pHeader(o.m_pHeader), m_nLength(o.m_nLength)
    {
        AddRef();
    }
    SharedString(SharedString&& o) noexcept
        : m_pHeader(std::exchange(o.m_pHeader, nullptr)), m_nLength(std::exchange(o.m_nLength, 0))
    {
    }
    SharedString& operator=(SharedString o) noexcept
    {
        std::swap(m_pHeader, o.m_pHeader);
        std::swap(m_nLength, o.m_nLength);
        return *this;
    }
    ~SharedString() { Release(); }

    // Never null: "" when empty.
    const wchar_t* c_str() const { return m_pHeader ? reinterpret_cast<const wchar_t*>(m_pHeader + 1) : L""; }
    size_t size() const { return m_nLength; }
    bool empty() const { return m_pHeader == nullptr; }
    std::wstring_view view() const { return {c_str(), size()}; }

    // Number of owners of the buffer (0 for the empty string); for diagnostics and tests.
    int32_t GetRefCount() const { return m_pHeader ? m_pHeader->nRef.load(std::memory_order_relaxed) : 0; }
    // The buffer's header, for diagnostics and tests; nullptr for the empty string.
    Header* GetHeader() const { return m_pHeader; }

private:
    void AddRef() const noexcept
    {
        if (m_pHeader)
            m_pHeader->nRef.fetch_add(1, std::memory_order_relaxed);
    }
    void Release() noexcept;

    Header* m_pHeader = nullptr;
    // A copy of the header's length: comparing names then touches only the characters' memory.
    uint32_t m_nLength = 0;
};

inline int CompareOrdinal(const SharedString& a, const SharedString& b)
{
    return CompareOrdinal(a.view(), b.view());
}

// Name order of a Params. Transparent, so that a lookup compares against a NameKey over the
// caller's characters instead of building a SharedString (no allocation per lookup).
struct NameLess
{
    using is_transparent = void;
    bool operator()(const SharedString& a, const SharedString& b) const { return CompareOrdinal(a, b) < 0; }
    // The map's lower bound asks this for every name on its way down the tree: std::map's
    // lower_bound is a single descent from the root in the standard libraries we build with
    // (libstdc++, natively and with MinGW), and only that keeps the key's prefix lengths true.
    bool operator()(const SharedString& shName, const NameKey& key) const
    {
        size_t nCommon = 0;
        const size_t nFrom = key.nPrefixBelow < key.nPrefixAbove ? key.nPrefixBelow : key.nPrefixAbove;
        const int nCmp =
            CompareOrdinalFrom(shName.c_str(), shName.size(), key.pChars, key.nLength, nFrom, nCommon);
        (nCmp < 0 ? key.nPrefixBelow : key.nPrefixAbove) = nCommon;
        return nCmp < 0;
    }
    bool operator()(const NameKey& key, const SharedString& shName) const
    {
        return CompareOrdinal(std::wstring_view(key.pChars, key.nLength), shName.view()) < 0;
    }
    // The same order for plain wide strings, for other maps keyed by names.
    bool operator()(std::wstring_view a, std::wstring_view b) const { return CompareOrdinal(a, b) < 0; }
};

}  // namespace QZPAR
