#include "std/error.h"

#include <gtest/gtest.h>

#include "tests/testutil/errorof.h"

namespace {

using QZSTD::QZError;

const QZSTD::ErrorEntry g_testTable[] = {
    {7, L"Thing \"%ls\" failed with %d"},
    {8, L"No arguments"},
    {0, nullptr},
};

TEST(Error, CarriesModuleCodePositionAndArgumentsAndTheMessageOfTheRegisteredTable)
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
}

TEST(Error, DescribeShowsCodeModuleMessageAndPlace)
{
    const QZError e("QZSTD", 1187, "/src/std/par/paramsimpl.cpp", 120, {"name"});
    EXPECT_EQ(e.Describe(), L"#1187 (QZSTD) \"Bad parameter \"name\"\" at paramsimpl.cpp:120");
    EXPECT_STREQ(e.what(), "#1187 (QZSTD) \"Bad parameter \"name\"\" at paramsimpl.cpp:120");
    EXPECT_EQ(QZError("QZSTD", 1188, "", 0, {}).GetMessage(), L"Index value is out of range");
    for (int nCode : {1182, 1186, 1192, 1193, 1194, 1199, 1205})
        EXPECT_NE(QZSTD::FindErrorFormat("QZSTD", nCode), nullptr) << nCode;
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

}  // namespace
