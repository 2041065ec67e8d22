// Remote-installation helpers: the "$HEX_" codec of ini values, and passwords masked in command lines.
#include "common/ristrutils.h"

#include <string_view>

#include "std/error.h"
#include "std/strconv.h"

namespace QZRI {
namespace {

constexpr std::wstring_view HEX_PREFIX = L"$HEX_";
constexpr wchar_t HEX_DIGITS[] = L"0123456789ABCDEF";

void AppendHexByte(std::wstring& wstr, unsigned nByte)
{
    wstr += HEX_DIGITS[(nByte >> 4) & 0xF];
    wstr += HEX_DIGITS[nByte & 0xF];
}

// Two digits at i as a byte; a non-digit raises 1187.
unsigned ReadHexByte(std::wstring_view wsvDigits, size_t i)
{
    const int nHigh = QZSTD::HexDigitValue(wsvDigits[i]);
    const int nLow = QZSTD::HexDigitValue(wsvDigits[i + 1]);
    QZ_CHECK_ARG(nHigh >= 0 && nLow >= 0, "value");
    return static_cast<unsigned>(nHigh * 16 + nLow);
}

}  // namespace

std::wstring Trimmed(const std::wstring& wstr)
{
    const size_t nFirst = wstr.find_first_not_of(L" \t");
    if (nFirst == std::wstring::npos)
        return std::wstring();
    return wstr.substr(nFirst, wstr.find_last_not_of(L" \t") - nFirst + 1);
}

std::wstring MaskedPassword(size_t nLength)
{
    return L"<password of " + std::to_wstring(nLength) + L" characters>";
}

std::wstring EncodeHexString(const std::wstring& wstrValue)
{
    if (wstrValue.empty())
        return std::wstring();
    const std::u16string u16 = QZSTD::WideToUtf16(wstrValue);
    std::wstring wstr(HEX_PREFIX);
    wstr.reserve(HEX_PREFIX.size() + u16.size() * 4);
    for (const char16_t c : u16) {
        AppendHexByte(wstr, c & 0xFFu);
        AppendHexByte(wstr, (c >> 8) & 0xFFu);
    }
    return wstr;
}

std::wstring DecodeHexString(const std::wstring& wstrValue)
{
    const std::wstring_view wsv(wstrValue);
    if (wsv.substr(0, HEX_PREFIX.size()) != HEX_PREFIX)
        return wstrValue;
    const std::wstring_view wsvDigits = wsv.substr(HEX_PREFIX.size());
    QZ_CHECK_ARG(wsvDigits.size() % 4 == 0, "value");
    std::u16string u16;
    u16.reserve(wsvDigits.size() / 4);
    for (size_t i = 0; i < wsvDigits.size(); i += 4) {
        const unsigned nLow = ReadHexByte(wsvDigits, i);
        const unsigned nHigh = ReadHexByte(wsvDigits, i + 2);
        u16 += static_cast<char16_t>(nLow | (nHigh << 8));
    }
    return QZSTD::Utf16ToWide(u16);
}

namespace {

bool IsPasswordKey(std::wstring_view wstrKey)
{
    std::wstring wstrUpper;
    for (wchar_t c : wstrKey)
        if (c != L'"')
            wstrUpper += (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - L'a' + L'A') : c;
    return wstrUpper.find(L"PWD") != std::wstring::npos || wstrUpper.find(L"PASSWORD") != std::wstring::npos;
}

bool IsBlank(wchar_t c)
{
    return c == L' ' || c == L'\t';
}

// A word whose quotes hold several KEY=value parts (a legacy setup's /z"... PASSWORD=x y"): the value of
// every part whose key names a password runs to the quote that closes it, blanks included, since a
// password may hold blanks and only the quotes delimit it there.
std::wstring MaskInsideQuotes(std::wstring_view word)
{
    std::wstring wstrOut;
    bool bQuoted = false;
    size_t i = 0;
    while (i < word.size()) {
        const bool bPartStart = bQuoted && i > 0 && (IsBlank(word[i - 1]) || word[i - 1] == L'"');
        const size_t nEq = bPartStart ? word.find_first_of(L"= \t\"", i) : std::wstring_view::npos;
        if (nEq == std::wstring_view::npos || word[nEq] != L'=' || !IsPasswordKey(word.substr(i, nEq - i))) {
            if (word[i] == L'"')
                bQuoted = !bQuoted;
            wstrOut += word[i++];
            continue;
        }
        size_t nValueEnd = word.find(L'"', nEq + 1);
        if (nValueEnd == std::wstring_view::npos)
            nValueEnd = word.size();
        wstrOut += word.substr(i, nEq + 1 - i);
        wstrOut += MaskedPassword(nValueEnd - nEq - 1);
        i = nValueEnd;
    }
    return wstrOut;
}

}  // namespace

std::wstring MaskPasswords(const std::wstring& wstrCmdLine)
{
    std::wstring wstrOut;
    size_t n = 0;
    while (n < wstrCmdLine.size()) {
        if (IsBlank(wstrCmdLine[n])) {
            wstrOut += wstrCmdLine[n++];
            continue;
        }
        // One word: up to the next blank outside quotes.
        size_t nEnd = n;
        for (bool bQuoted = false; nEnd < wstrCmdLine.size() && (bQuoted || !IsBlank(wstrCmdLine[nEnd]));
             ++nEnd)
            if (wstrCmdLine[nEnd] == L'"')
                bQuoted = !bQuoted;
        const std::wstring_view word(wstrCmdLine.data() + n, nEnd - n);
        const size_t nEq = word.find(L'=');
        if (nEq == std::wstring_view::npos || !IsPasswordKey(word.substr(0, nEq))) {
            wstrOut += MaskInsideQuotes(word);
        } else {
            // A closing quote of a quoted word is not part of the password.
            const bool bClosingQuote = word.front() == L'"' && word.back() == L'"' && word.size() > nEq + 1;
            const size_t nValue = word.size() - nEq - 1 - (bClosingQuote ? 1 : 0);
            wstrOut += word.substr(0, nEq + 1);
            wstrOut += MaskedPassword(nValue);
            if (bClosingQuote)
                wstrOut += L'"';
        }
        n = nEnd;
    }
    return wstrOut;
}

std::wstring MaskPasswordValue(std::wstring_view wsvKey, const std::wstring& wstrValue)
{
    if (IsPasswordKey(wsvKey))
        return MaskedPassword(wstrValue.size());
    return MaskPasswords(wstrValue);
}

}  // namespace QZRI
