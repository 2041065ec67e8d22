// The common services: errors and their messages, reference-counted pointers and interface lookup,
// string conversions, the printf-style formatter and the fail-fast exit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "std/error.h"
#include "std/failfast.h"
#include "std/qzbase.h"
#include "std/strconv.h"
#include "std/wformat.h"
#include "tests/testutil/errorof.h"

namespace {

using QZSTD::QZError;

const QZSTD::ErrorEntry g_testTable[] = {
    {7, L"Thing \"%ls\" failed with %d"},
    {8, L"No arguments"},
    {0, nullptr},
};

TEST(Error, CarriesModuleCodePositionArgumentsTheMessageOfTheRegisteredTableAndDescribesItself)
{
    QZSTD::RegisterErrorTable("TESTMOD", g_testTable);
    const std::optional<QZError> e = QZTEST::ErrorOf([] { QZ_THROW("TESTMOD", 7, L"alpha", 42); });
    ASSERT_TRUE(e.has_value());
    EXPECT_TRUE(e->Is("TESTMOD", 7));
    EXPECT_GT(e->GetLine(), 0);
    EXPECT_NE(std::string(e->GetFile()).find("error_test.cpp"), std::string::npos);
    EXPECT_EQ(e->GetArgs(), (std::vector<std::wstring>{L"alpha", L"42"}));
    EXPECT_EQ(e->GetMessage(), L"Thing \"alpha\" failed with 42");
    EXPECT_EQ(QZError("TESTMOD", 8, "", 0, {}).GetMessage(), L"No arguments");
    // A code the module does not know still shows its arguments.
    EXPECT_EQ(QZError("TESTMOD", 9, "", 0, {L"x"}).GetMessage(), L"Unknown error \"x\"");
    EXPECT_EQ(QZError("NOSUCHMOD", 1, "", 0, {}).GetMessage(), L"Unknown error");
    // Describe shows code, module, message and place.
    const QZError e2("QZSTD", 1187, "/src/std/par/paramsimpl.cpp", 120, {"name"});
    EXPECT_EQ(e2.Describe(), L"#1187 (QZSTD) \"Bad parameter \"name\"\" at paramsimpl.cpp:120");
    EXPECT_STREQ(e2.what(), "#1187 (QZSTD) \"Bad parameter \"name\"\" at paramsimpl.cpp:120");
}

TEST(Error, CheckMacrosThrowTheStandardCodes)
{
    auto fnArg = [](const void* p) { QZ_CHECK_ARG(p != nullptr, "pValue"); };
    auto fnAssert = [](int n) { QZ_ASSERT(n > 0); };
    const std::optional<QZError> arg = QZTEST::ErrorOf([&] { fnArg(nullptr); });
    ASSERT_TRUE(arg && arg->Is("QZSTD", 1187));
    EXPECT_EQ(arg->GetMessage(), L"Bad parameter \"pValue\"");
    const std::optional<QZError> assertion = QZTEST::ErrorOf([&] { fnAssert(0); });
    ASSERT_TRUE(assertion && assertion->Is("QZSTD", 1198));
    EXPECT_EQ(assertion->GetMessage(), L"Assertion \"n > 0\" failed");
    EXPECT_NO_THROW(fnArg(&fnArg));
    EXPECT_NO_THROW(fnAssert(1));
}

TEST(Error, SystemErrorsCarryTheOperatingSystemText)
{
    const std::wstring wstr = QZError(QZSTD::SYSTEM_MODULE, 2, "", 0, {}).GetMessage();
    EXPECT_NE(wstr.find(L"(2)"), std::wstring::npos) << std::string(wstr.begin(), wstr.end());
    EXPECT_GT(wstr.size(), 4u);
}

TEST(FillMessage, ConsumesArgumentsInOrderAndKeepsPercent)
{
    EXPECT_EQ(QZSTD::FillMessage(L"%hs and %ls, 100%%", {L"a", L"b"}), L"a and b, 100%");
    EXPECT_EQ(QZSTD::FillMessage(L"missing %ls here", {}), L"missing  here");
    EXPECT_EQ(QZSTD::FillMessage(L"extra", {L"x"}), L"extra");
    EXPECT_EQ(QZSTD::FillMessage(L"dangling %", {L"x"}), L"dangling ");
    EXPECT_EQ(QZSTD::FillMessage(nullptr, {L"x"}), L"");
}

struct Counted : QZSTD::QZBaseQI
{
    static constexpr const char* QZ_IID = "TEST::Counted";
    explicit Counted(int* pnDestroyed) : m_pnDestroyed(pnDestroyed) {}
    ~Counted() override { ++*m_pnDestroyed; }
    bool QueryInterface(const char* szIid, void** ppv) override
    {
        if (std::strcmp(szIid, QZ_IID) != 0)
            return false;
        AddRef();
        *ppv = static_cast<Counted*>(this);
        return true;
    }
    int* m_pnDestroyed;
};

using CountedPtr = QZSTD::CAutoPtr<Counted>;

TEST(CAutoPtr, LastReleaseDestroysAnOutParameterMustBeEmptyAndQueryInterfaceFindsOnlyTheNamedInterface)
{
    int nDestroyed = 0;
    CountedPtr p = CountedPtr::Adopt(new QZSTD::RcClassImpl<Counted>(&nDestroyed));
    {
        CountedPtr q = p;
        CountedPtr r(std::move(q));
        EXPECT_FALSE(q);
        const std::optional<QZSTD::QZError> error = QZTEST::ErrorOf([&] { (void)&r; });
        ASSERT_TRUE(error && error->Is("QZSTD", 1198)) << "taking the address of a non-empty pointer";
        EXPECT_EQ(error->GetArgs().at(0), L"p==NULL");
        CountedPtr empty;
        p.CopyTo(&empty);
        EXPECT_EQ(empty.Get(), p.Get());
        EXPECT_EQ(QZSTD::QueryInterface<Counted>(p.Get()).Get(), p.Get());
        void* pv = nullptr;
        EXPECT_FALSE(p->QueryInterface("TEST::Other", &pv));
        EXPECT_EQ(pv, nullptr);
    }
    EXPECT_FALSE(QZSTD::QueryInterface<Counted>(nullptr));
    EXPECT_EQ(nDestroyed, 0);
    p.Reset();
    EXPECT_EQ(nDestroyed, 1) << "the copies and the looked-up reference must have been released";
}

using namespace QZSTD;

TEST(StrConv, Utf8RoundTripsEveryPlaneInvalidInputBecomesReplacementCharacters)
{
    const std::string str = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";  // a é € 😀 z
    const std::wstring wstr = Utf8ToWide(str);
    EXPECT_EQ(WideToUtf8(wstr), str);
    const std::u16string u16 = WideToUtf16(wstr);
    EXPECT_EQ(u16, u"a\u00E9\u20AC\U0001F600z");
    EXPECT_EQ(u16.size(), 6u) << "the emoji is a surrogate pair in UTF-16";
    EXPECT_EQ(Utf16ToWide(u16), wstr);
    // Invalid UTF-8 and lone surrogates become replacement characters.
    EXPECT_EQ(Utf8ToWide("a\xFFz"), L"a\uFFFDz");
    EXPECT_EQ(Utf8ToWide("\xC3"), L"\uFFFD") << "truncated sequence at the end";
    EXPECT_EQ(Utf8ToWide("\xC0\xAF"), L"\uFFFD\uFFFD") << "overlong form";
    EXPECT_EQ(Utf8ToWide("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD") << "encoded surrogate";
    EXPECT_EQ(Utf8ToWide(std::string("x\0y", 3)), std::wstring(L"x\0y", 3));
    // A lone surrogate does not break UTF-8 output.
    EXPECT_EQ(WideToUtf8(Utf16ToWide(u"a\xD800z")), "a\xEF\xBF\xBDz");
}

TEST(FormatW, StringConversionsHaveTheirWindowsMeaningWidthAndPrecision)
{
    EXPECT_EQ(FormatW(L"%hs: %ls", "QZRI::Scope", L"text"), L"QZRI::Scope: text");
    EXPECT_EQ(FormatW(L"[%s|%S|%ws|%lS]", L"wide", "narrow", L"w", L"wide"), L"[wide|narrow|w|wide]");
    EXPECT_EQ(FormatW(L"%c%hc%C", L'x', 'y', 'z'), L"xyz");
    EXPECT_EQ(FormatW(L"%ls|%hs", static_cast<const wchar_t*>(nullptr), static_cast<const char*>(nullptr)),
              L"(null)|(null)");
    EXPECT_EQ(FormatW(L"%hs", "caf\xC3\xA9"), L"caf\u00E9") << "narrow arguments are UTF-8";
    // Width, precision and flags apply to strings.
    EXPECT_EQ(FormatW(L"[%5ls|%-5hs|%.2ls]", L"ab", "ab", L"abcdef"), L"[   ab|ab   |ab]");
    EXPECT_EQ(FormatW(L"[%*ls|%*ls|%.*hs]", 4, L"x", -3, L"x", 1, "xyz"), L"[   x|x  |x]");
}

TEST(FormatW, NumbersOfEveryLengthReadTheRightArgumentPointersSpecialsAndLongOutput)
{
    // A length modifier read wrongly would take the wrong bytes from the argument list and
    // print garbage for the argument after it.
    EXPECT_EQ(FormatW(L"%d %u %x %X %o", -5, 7u, 255u, 255u, 8u), L"-5 7 ff FF 10");
    EXPECT_EQ(FormatW(L"%ld|%lu|%lu|%d", -70000L, 70000UL, 0xC0000005UL, 1), L"-70000|70000|3221225477|1");
    EXPECT_EQ(FormatW(L"%lld|%d", static_cast<long long>(-1) << 40, 2), L"-1099511627776|2");
    EXPECT_EQ(FormatW(L"%I64d|%I64u|%d", INT64_MIN, UINT64_MAX, 3),
              L"-9223372036854775808|18446744073709551615|3");
    EXPECT_EQ(FormatW(L"%zu|%Iu|%d", static_cast<size_t>(12), static_cast<size_t>(13), 4), L"12|13|4");
    EXPECT_EQ(FormatW(L"%I32d|%hd|%hhd", 5, 70000, 300), L"5|4464|44");
    EXPECT_EQ(FormatW(L"%08X|%-4d|%+d", 0xBEEFu, 7, 3), L"0000BEEF|7   |+3");
    EXPECT_EQ(FormatW(L"%.2f|%g|%e|100%%", 3.14159, 0.5, 1.0), L"3.14|0.5|1.000000e+00|100%");
    EXPECT_EQ(FormatW(L"%.1Lf", 2.25L), L"2.2");
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

struct NoisyDestructor
{
    ~NoisyDestructor() { std::fputs("destructor ran\n", stderr); }
};

// The hook that sees the reason first is proven by the trace's fail-fast test in trace_test.cpp.
TEST(FailFastDeathTest, EndsWithExitCodeOneWithoutDestructors)
{
    EXPECT_EXIT(
        {
            static NoisyDestructor s;
            NoisyDestructor local;
            QZSTD::FailFast("broken invariant");
        },
        testing::ExitedWithCode(1),
        testing::AllOf(testing::HasSubstr("fail-fast: broken invariant"),
                       testing::Not(testing::HasSubstr("destructor ran"))));
}

}  // namespace
