// The consent question: what each answer of the dialogue means, and what is recorded of it.
#include "qzri/riwrap/askuser.h"

#include <gtest/gtest.h>

#include <tuple>

#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/profile.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;

TEST(AskUserForStartTest, TheDialoguesAnswerDecidesAndIsRecorded)
{
    // What is answered, whether a user is logged on, the dialogue's answer, the consent, the questions
    // asked and the ResultCode in "askusr.log" (0: nothing written).
    using Row = std::tuple<const char*, bool, std::vector<std::optional<uint32_t>>, Consent, size_t, int>;
    const Row rows[] = {
        {"install now", true, {6}, Consent::AGREED, 1, USER_ACTION_OK},
        {"later", true, {4}, Consent::DECLINED, 1, USER_ACTION_DEFER},
        {"an exit code that is no answer", true, {1}, Consent::NOT_ASKED, 1, 0},
        {"nobody answered", true, {std::nullopt}, Consent::NOT_ASKED, 1, 0},
        {"nobody logged on", false, {6}, Consent::NOT_ASKED, 0, 0},
    };
    for (const auto& [szWhat, bUserLoggedOn, vecAnswers, eConsent, nAsks, nRecorded] : rows) {
        SCOPED_TRACE(szWhat);
        QZTEST::TempFolder folder;
        QZRITEST::TestServices fakes;
        fakes.m_consent.m_vecAnswers = vecAnswers;
        RiWrpData data;
        data.m_wstrDirPath = folder.Path();
        if (bUserLoggedOn)
            data.m_vecUserSessions = {{3, L"Console"}, {5, L"RDP-Tcp#1"}};
        EXPECT_EQ(AskUserForStart(data, fakes.Get()), eConsent);
        EXPECT_EQ(fakes.m_consent.m_nAsks, nAsks);
        EXPECT_EQ(QZSTD::GetProfileInt(folder.Join(USER_ACTION_FILE), RESPONSE_SECTION, L"ResultCode", 0),
                  nRecorded);
    }
}

}  // namespace
