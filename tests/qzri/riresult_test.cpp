#include "qzri/riwrap/riresult.h"

#include <gtest/gtest.h>

namespace {

using namespace QZRI;

// What setups return never reads as one of the agent's own codes, and every own code says so.
TEST(ResultCodesTest, SetupCodesAreNeverTakenForTheAgentsOwn)
{
    for (int32_t n = 2; n <= 0xFFFF; ++n)
        EXPECT_EQ(ResultCodeName(n), nullptr) << n;
    EXPECT_EQ(DescribeResultCode(3010), L"3010 (the setup's own)");
    EXPECT_EQ(DescribeResultCode(QZRI_RSLT_TIMEOUT),
              L"QZRI_RSLT_TIMEOUT (536871110, 0x200000C6, the agent's own)");
    for (int32_t n = QZRI_RSLT_GENERAL_ERROR; n <= QZRI_RSLT_REBOOT_WORKER_NOT_AVAILABLE; ++n) {
        if (!ResultCodeName(n))
            continue;
        EXPECT_EQ(n & 0x20000000, 0x20000000) << n;
        EXPECT_GE(n & 0xFF, 0xC0) << "the low byte a Linux shell sees stays apart from setup codes";
    }
}

}  // namespace
