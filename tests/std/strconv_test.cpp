#include "std/strconv.h"

#include <gtest/gtest.h>

namespace {

using namespace QZSTD;

TEST(StrConv, Utf8RoundTripsEveryPlane)
{
    const std::string str = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
    const std::wstring wstr = Utf8ToWide(str);
    EXPECT_EQ(WideToUtf8(wstr), str);
    const std::u16string u16 = WideToUtf16(wstr);
    EXPECT_EQ(u16, u"a\u00E9\u20AC\U0001F600z");
    EXPECT_EQ(u16.size(), 6u) << "the emoji is a surrogate pair in UTF-16";
    EXPECT_EQ(Utf16ToWide(u16), wstr);
}

TEST(StrConv, InvalidUtf8AndLoneSurrogatesBecomeReplacementCharacters)
{
    EXPECT_EQ(Utf8ToWide("a\xFF"
                         "b"),
              L"a\uFFFDb");
    EXPECT_EQ(Utf8ToWide("\xC3"), L"\uFFFD") << "truncated sequence at the end";
    EXPECT_EQ(Utf8ToWide("\xC0\xAF"), L"\uFFFD\uFFFD") << "overlong form";
    EXPECT_EQ(Utf8ToWide("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD") << "encoded surrogate";
    EXPECT_EQ(Utf8ToWide(std::string("x\0y", 3)), std::wstring(L"x\0y", 3));
    // A lone surrogate does not break UTF-8 output.
    EXPECT_EQ(WideToUtf8(Utf16ToWide(u"a\xD800"
                                     "b")),
              "a\xEF\xBF\xBD"
              "b");
}

}  // namespace
