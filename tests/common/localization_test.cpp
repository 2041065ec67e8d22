#include "common/localization.h"

#include "common/ansicp.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

std::wstring Native(const std::wstring& wstr)
{
    return QZRI::WideFromPath(QZRI::PathFromWide(wstr).make_preferred());
}

// One "qzrimsg.dat" as the agent may find it, and what the lookups make of it.
struct LocCase
{
    const char* szName;
    // Fills the agent's folder; null leaves it without "qzrimsg.dat".
    std::function<void(const std::wstring& wstrDat)> fnWrite;
    const wchar_t* szTag;
    const wchar_t* szIniName;
};

QZSTD::CAutoPtr<QZPAR::Params> WithValue(const std::function<void(QZPAR::Params*)>& fnSet)
{
    QZSTD::CAutoPtr<QZPAR::Params> pParams = QZPAR::CreateParams();
    QZPAR::SetStringValue(pParams.Get(), L"QZRI_MSG_DATA_TIMEOUT_EXPIRED", L"Timeout elapsed.");
    fnSet(pParams.Get());
    return pParams;
}

std::function<void(const std::wstring&)> DatWith(std::function<void(QZPAR::Params*)> fnSet)
{
    return [fnSet](const std::wstring& wstrDat) { QZPAR::WriteParamsFile(wstrDat, WithValue(fnSet).Get()); };
}

TEST(Localization, LanguageTagAndLocIniFileFollowQzrimsgDat)
{
    const LocCase cases[] = {
        {"tag as written",
         DatWith([](QZPAR::Params* p) { QZPAR::SetStringValue(p, L"QZRI_SERVER_LANGUAGE_TAG", L"de-DE"); }),
         L"de-DE", L"de-de.ini"},
        {"non-ASCII capitals lowered", DatWith([](QZPAR::Params* p) {
             QZPAR::SetStringValue(p, L"QZRI_SERVER_LANGUAGE_TAG", L"\x0416-X");
         }),
         L"\x0416-X", L"\x0436-x.ini"},
        {"value absent", DatWith([](QZPAR::Params*) {}), L"", L".ini"},
        {"value of another type",
         DatWith([](QZPAR::Params* p) { QZPAR::SetIntValue(p, L"QZRI_SERVER_LANGUAGE_TAG", 7); }), L"",
         L".ini"},
        {"file missing", nullptr, L"", L".ini"},
        {"file not a Params file",
         [](const std::wstring& wstrDat) { QZTEST::WriteFileBytes(wstrDat, "[not]\nparams=1\n"); }, L"",
         L".ini"},
    };
    for (const LocCase& c : cases) {
        SCOPED_TRACE(c.szName);
        QZTEST::TempFolder agent;
        QZTEST::TempFolder package;
        if (c.fnWrite)
            c.fnWrite(agent.Join(L"qzrimsg.dat"));
        EXPECT_EQ(QZRI::GetLanguageTagFromLocalizationData(agent.Path()), c.szTag);
        EXPECT_EQ(QZRI::GetQpdLocIniFile(package.Join(L"pkg.qpd"), agent.Path()),
                  Native(package.Join(std::wstring(L"qpd.loc/") + c.szIniName)));
    }
}

TEST(Localization, LocalizationDataIsTheWholeTreeAndAMissingFileIsNotFound)
{
    QZTEST::TempFolder agent;
    const auto err = QZTEST::ErrorOf([&] { QZRI::GetLocalizationData(agent.Path()); });
    ASSERT_TRUE(err.has_value());
    EXPECT_TRUE(err->Is(QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND));
    QZPAR::WriteParamsFile(agent.Join(L"qzrimsg.dat"), WithValue([](QZPAR::Params*) {}).Get());
    EXPECT_EQ(QZPAR::GetStringValue(QZRI::GetLocalizationData(agent.Path()).Get(),
                                    L"QZRI_MSG_DATA_TIMEOUT_EXPIRED"),
              L"Timeout elapsed.");
}

}  // namespace
