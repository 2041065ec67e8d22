// The text forms of stored values, table by table: what XML may carry as it is, hexadecimal,
// UTF-16LE, integers and shortest floating-point text.
#include <gtest/gtest.h>

#include <limits>

#include "std/ss/sscodec.h"

namespace {

using namespace QZSTD::SsCodec;

// Lone surrogates are written code unit by code unit (a "\u" escape cannot name one).
TEST(SettingsStorageCodec, XmlSafeTextIsPrintableWithoutControlsOrLoneSurrogates)
{
    for (const std::wstring& wstr :
         {std::wstring(), std::wstring(L"plain text & <markup> \"quoted\" 'x'"),
          std::wstring(L"  leading and trailing  "), std::wstring(L"\u00E9\u4E2D\uE000\uFFFD\U0001F600")})
        EXPECT_TRUE(IsXmlSafe(std::wstring_view(wstr))) << WideToUtf16Hex(wstr).value();
    for (const std::wstring& wstr :
         {std::wstring(L"a\tb"), std::wstring(L"a\n"), std::wstring(L"\r"), std::wstring(L"a\0b", 3),
          std::wstring(L"\x7F"), std::wstring(L"\x85"), std::wstring{0xD800}, std::wstring{0xDC00, L'x'},
          std::wstring{L'x', 0xD83D}, std::wstring(L"\uFFFE"), std::wstring(L"\uFFFF")})
        EXPECT_FALSE(IsXmlSafe(std::wstring_view(wstr))) << WideToUtf16Hex(wstr).value();
    EXPECT_TRUE(IsXmlSafe(std::string_view("2024-01-31 x")));
    EXPECT_FALSE(IsXmlSafe(std::string_view("\xC3\xA9")));
    EXPECT_FALSE(IsXmlSafe(std::string_view("a\tb")));
}

// Reading back every value type, its extremes included, is proven through the file in
// settingsstorage_test.cpp; here the text forms it pins and the texts the readers must refuse.
TEST(SettingsStorageCodec, HexIsUpperCaseUtf16LittleEndianAndReadsEitherCase)
{
    EXPECT_EQ(BytesToHex("\x00\xFF\x10\xab", 4), "00FF10AB");
    EXPECT_EQ(HexToBytes("00ff10AB"), std::string("\x00\xFF\x10\xAB", 4));
    EXPECT_EQ(WideToUtf16Hex(L"\U0001F600"), "3DD800DE");
    EXPECT_EQ(Utf16HexToWide("3dd800de"), L"\U0001F600");
    EXPECT_EQ(Utf16HexToWide("00D8"), std::wstring{0xD800});
    if constexpr (sizeof(wchar_t) == 4) {
        EXPECT_FALSE(WideToUtf16Hex(std::wstring(1, static_cast<wchar_t>(0x110000))).has_value());
    }
}

TEST(SettingsStorageCodec, NumbersAreWrittenInTheirShortestForm)
{
    EXPECT_EQ(FloatToText(-0.0f), "-0");
    EXPECT_EQ(DoubleToText(0.1), "0.1");
    EXPECT_EQ(DoubleToText(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(DoubleToText(-std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(DoubleToText(std::numeric_limits<double>::quiet_NaN()), "nan");
    EXPECT_STREQ(BoolToText(false), "false");
}

TEST(SettingsStorageCodec, TextsThatAreNotWholeOrInRangeAreRefused)
{
    for (const char* szBad : {"0", "0G", "G0", " 00", "0x00", "-1"})
        EXPECT_FALSE(HexToBytes(szBad).has_value()) << szBad;
    for (const char* szBad : {"41", "410", "41000", "4G00"})
        EXPECT_FALSE(Utf16HexToWide(szBad).has_value()) << szBad;
    for (const char* szBad : {"", "1", "TRUE", "yes", "true "})
        EXPECT_FALSE(ParseBool(szBad).has_value()) << szBad;
    for (const char* szBad : {"", "2147483648", "-2147483649", "+1", " 1", "1 ", "0x10", "1.0", "12x"})
        EXPECT_FALSE(ParseInt32(szBad).has_value()) << szBad;
    for (const char* szBad : {"9223372036854775808", "-9223372036854775809", "", "--1"})
        EXPECT_FALSE(ParseInt64(szBad).has_value()) << szBad;
    for (const char* szBad : {"", "1e39", "abc", "1.5x", " 1", "1 ", "0x1p3", "+1", "."})
        EXPECT_FALSE(ParseFloat(szBad).has_value()) << szBad;
    for (const char* szBad : {"", "1e309", "-1e309", "1,5", "nan x"})
        EXPECT_FALSE(ParseDouble(szBad).has_value()) << szBad;
}

TEST(SettingsStorageCodec, NamesSortByUtf16CodeUnitsOnEveryPlatform)
{
    const Utf16Less less;
    EXPECT_TRUE(less(L"A", L"a"));
    EXPECT_TRUE(less(L"a", L"ab"));
    EXPECT_FALSE(less(L"ab", L"ab"));
    // U+1F600 is D83D DE00 in UTF-16: below U+E000 and U+FFFD, above U+D7FF.
    EXPECT_TRUE(less(L"\U0001F600", L"\uE000"));
    EXPECT_TRUE(less(L"\U0001F600", L"\uFFFD"));
    EXPECT_TRUE(less(L"\uD7FF", L"\U0001F600"));
}

}  // namespace
