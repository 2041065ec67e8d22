#include "common/localization.h"

#include "common/ansicp.h"

#include <gtest/gtest.h>

#include <optional>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

// One "qzrimsg.dat" as the agent may find it (szBytes: a file that is not a Params file; nullopt
// tag: the value absent; bIntTag: the value with another type), and the tag and loc ini name it gives.
struct LocCase
{
    const char* szBytes;
    std::optional<std::wstring> tag;
    bool bIntTag;
    const wchar_t* szTag;
    const wchar_t* szIniName;
};

TEST(Localization, LanguageTagAndLocIniFileFollowQzrimsgDat)
{
    const LocCase cases[] = {
        {nullptr, L"de-DE", false, L"de-DE", L"de-de.ini"},
        {nullptr, L"\x0416-X", false, L"\x0416-X", L"\x0436-x.ini"},  // non-ASCII capitals lowered
        {nullptr, std::nullopt, false, L"", L".ini"},
        {nullptr, std::nullopt, true, L"", L".ini"},
        {"", std::nullopt, false, L"", L".ini"},  // no file
        {"[not]\nparams=1\n", std::nullopt, false, L"", L".ini"},
    };
    for (const LocCase& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.szIniName) + (c.szBytes ? c.szBytes : ""));
        QZTEST::TempFolder agent, package;
        const std::wstring wstrDat = agent.Join(L"qzrimsg.dat");
        QZSTD::CAutoPtr<QZPAR::Params> pParams = QZPAR::CreateParams();
        QZPAR::SetStringValue(pParams, L"QZRI_MSG_DATA_TIMEOUT_EXPIRED", L"Timeout elapsed.");
        if (c.tag)
            QZPAR::SetStringValue(pParams, L"QZRI_SERVER_LANGUAGE_TAG", *c.tag);
        if (c.bIntTag)
            QZPAR::SetIntValue(pParams, L"QZRI_SERVER_LANGUAGE_TAG", 7);
        if (!c.szBytes)
            QZPAR::WriteParamsFile(wstrDat, pParams);
        else if (*c.szBytes)
            QZTEST::WriteFileBytes(wstrDat, c.szBytes);
        EXPECT_EQ(QZRI::GetLanguageTagFromLocalizationData(agent.Path()), c.szTag);
        EXPECT_EQ(
            QZRI::GetQpdLocIniFile(package.Join(L"pkg.qpd"), agent.Path()),
            QZRI::WideFromPath(
                QZRI::PathFromWide(package.Join(std::wstring(L"qpd.loc/") + c.szIniName)).make_preferred()));
        // The whole tree, or 1205 when the file is missing.
        if (!c.szBytes)
            EXPECT_EQ(QZPAR::GetStringValue(QZRI::GetLocalizationData(agent.Path()),
                                            L"QZRI_MSG_DATA_TIMEOUT_EXPIRED"),
                      L"Timeout elapsed.");
        else if (!*c.szBytes)
            EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZRI::GetLocalizationData(agent.Path()); }),
                      QZSTD::Err::FILE_NOT_FOUND);
    }
}

}  // namespace
