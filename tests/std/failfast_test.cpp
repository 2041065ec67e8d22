#include "std/failfast.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

struct NoisyDestructor
{
    ~NoisyDestructor() { std::fputs("destructor ran\n", stderr); }
};

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

TEST(FailFastDeathTest, HookSeesTheReasonFirst)
{
    EXPECT_EXIT(
        {
            QZSTD::SetFailFastHook([](const char* sz) { std::fprintf(stderr, "hooked <%s>\n", sz); });
            QZSTD::FailFast("why");
        },
        testing::ExitedWithCode(1), "hooked <why>");
}

}  // namespace
