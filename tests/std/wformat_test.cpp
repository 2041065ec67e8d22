#include "std/wformat.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using QZSTD::FormatW;

TEST(FormatW, StringConversionsHaveTheirWindowsMeaning)
{
    EXPECT_EQ(FormatW(L"%hs: %ls", "QZRI::Scope", L"text"), L"QZRI::Scope: text");
    EXPECT_EQ(FormatW(L"[%s]", L"wide"), L"[wide]");
    EXPECT_EQ(FormatW(L"[%S]", "narrow"), L"[narrow]");
    EXPECT_EQ(FormatW(L"[%ws]", L"w"), L"[w]");
    EXPECT_EQ(FormatW(L"[%lS]", L"wide"), L"[wide]");
    EXPECT_EQ(FormatW(L"%c%hc%C", L'x', 'y', 'z'), L"xyz");
    EXPECT_EQ(FormatW(L"%ls|%hs", static_cast<const wchar_t*>(nullptr), static_cast<const char*>(nullptr)),
              L"(null)|(null)");
    EXPECT_EQ(FormatW(L"%hs", "caf\xC3\xA9"), L"caf\u00E9") << "narrow arguments are UTF-8";
}

TEST(FormatW, WidthPrecisionAndFlagsApplyToStrings)
{
    EXPECT_EQ(FormatW(L"[%5ls]", L"ab"), L"[   ab]");
    EXPECT_EQ(FormatW(L"[%-5hs]", "ab"), L"[ab   ]");
    EXPECT_EQ(FormatW(L"[%.2ls]", L"abcdef"), L"[ab]");
    EXPECT_EQ(FormatW(L"[%*ls]", 4, L"x"), L"[   x]");
    EXPECT_EQ(FormatW(L"[%-*ls]", 3, L"x"), L"[x  ]");
    EXPECT_EQ(FormatW(L"[%*ls]", -3, L"x"), L"[x  ]");
    EXPECT_EQ(FormatW(L"[%.*hs]", 1, "xyz"), L"[x]");
}

TEST(FormatW, IntegersOfEveryLengthReadTheRightArgument)
{
    // A length modifier read wrongly would take the wrong bytes from the argument list and
    // print garbage for the argument after it.
    EXPECT_EQ(FormatW(L"%d %u %x %X %o", -5, 7u, 255u, 255u, 8u), L"-5 7 ff FF 10");
    EXPECT_EQ(FormatW(L"%ld|%lu|%d", -70000L, 70000UL, 1), L"-70000|70000|1");
    EXPECT_EQ(FormatW(L"%lld|%d", static_cast<long long>(-1) << 40, 2), L"-1099511627776|2");
    EXPECT_EQ(FormatW(L"%I64d|%I64u|%d", INT64_MIN, UINT64_MAX, 3),
              L"-9223372036854775808|18446744073709551615|3");
    EXPECT_EQ(FormatW(L"%zu|%Iu|%d", static_cast<size_t>(12), static_cast<size_t>(13), 4), L"12|13|4");
    EXPECT_EQ(FormatW(L"%I32d|%hd|%hhd", 5, 70000, 300), L"5|4464|44");
    EXPECT_EQ(FormatW(L"%08X|%-4d|%+d", 0xBEEFu, 7, 3), L"0000BEEF|7   |+3");
    EXPECT_EQ(FormatW(L"%lu", 0xC0000005UL), L"3221225477");
}

TEST(FormatW, FloatsPointersSpecialsAndLongOutput)
{
    EXPECT_EQ(FormatW(L"%.2f|%g|%e", 3.14159, 0.5, 1.0), L"3.14|0.5|1.000000e+00");
    EXPECT_EQ(FormatW(L"%.1Lf", 2.25L), L"2.2");
    EXPECT_EQ(FormatW(L"100%%"), L"100%");
    int n = 0;
    EXPECT_FALSE(FormatW(L"%p", static_cast<void*>(&n)).empty());
    EXPECT_EQ(FormatW(L"a%nb", &n), L"ab");
    EXPECT_EQ(n, 0) << "%n must never write";
    EXPECT_EQ(FormatW(L"%y|%d", 9), L"%y|9");
    EXPECT_EQ(FormatW(L"trailing %"), L"trailing %");
    EXPECT_EQ(FormatW(nullptr), L"");
    // Long output is not truncated.
    const std::wstring wstrLong(5000, L'q');
    EXPECT_EQ(FormatW(L"<%ls>", wstrLong.c_str()), L"<" + wstrLong + L">");
    EXPECT_EQ(FormatW(L"%300d", 1).size(), 300u);
}

}  // namespace
