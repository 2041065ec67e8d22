#include "common/ristrutils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "std/error.h"

namespace {

using QZRI::DecodeHexString;
using QZRI::EncodeHexString;

TEST(HexString, EncodesUtf16LeBytesInUpperCaseHexAndDecodesPrefixedValuesPassingPlainTextThrough)
{
    EXPECT_EQ(EncodeHexString(L"a b"), L"$HEX_610020006200");
    EXPECT_EQ(EncodeHexString(L"\u00E9\u20AC\U0001F600"), L"$HEX_E900AC203DD800DE")
        << "surrogate pair above U+FFFF";
    EXPECT_EQ(EncodeHexString(L""), L"") << "an empty value carries no prefix";
    EXPECT_EQ(DecodeHexString(L"$HEX_610020006200"), L"a b");
    EXPECT_EQ(DecodeHexString(L"$HEX_e900ac203dd800de"), L"\u00E9\u20AC\U0001F600") << "lower-case digits";
    EXPECT_EQ(DecodeHexString(L"$HEX_"), L"");
    EXPECT_EQ(DecodeHexString(L""), L"");
    EXPECT_EQ(DecodeHexString(L"setup.exe /s \"x\""), L"setup.exe /s \"x\"");
    EXPECT_EQ(DecodeHexString(L"$hex_6100"), L"$hex_6100") << "the prefix is upper case";
    EXPECT_EQ(DecodeHexString(L"$HEX_00004100"), std::wstring(L"\0A", 2));
}

TEST(HexString, RoundTripsEveryCharacter)
{
    std::wstring wstr = L"\"quoted\"\r\n\t\\";
    for (wchar_t c = 1; c < 0xD800; c = static_cast<wchar_t>(c + 7))
        wstr += c;
    for (wchar_t c = 0xE000; c < 0xFFFF; c = static_cast<wchar_t>(c + 5))
        wstr += c;
    wstr += L"\U00010000\U0010FFFF";
    EXPECT_EQ(DecodeHexString(EncodeHexString(wstr)), wstr);
}

TEST(HexString, MalformedHexValuesRaiseBadParameter)
{
    const auto BadValue = testing::Throws<QZSTD::QZError>(
        testing::AllOf(testing::Property(&QZSTD::QZError::GetCode, 1187),
                       testing::Property(&QZSTD::QZError::GetArgs, testing::ElementsAre(L"value"))));
    for (const wchar_t* sz :
         {L"$HEX_610", L"$HEX_61", L"$HEX_61002", L"$HEX_6G00", L"$HEX_61 0", L"$HEX_-100"})
        EXPECT_THAT([sz] { DecodeHexString(sz); }, BadValue) << testing::PrintToString(std::wstring(sz));
}

}  // namespace
