// The reboot agent's portable part: its command line, its texts with the English fallback, and the
// consent and restart settings it reads from the package.
#include "qzri/rbtagt/rbtagt.h"

#include <gtest/gtest.h>

#include <tuple>

#include "common/qpdfile.h"
#include "common/ristrutils.h"
#include "std/profile.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRBTAGT;

TEST(RebootAgentTest, CommandLines)
{
    // The command line, then consent mode, the session, what runs after the restart, and whether it is
    // refused.
    using Row = std::tuple<const wchar_t*, bool, std::optional<unsigned long>, const wchar_t*, bool>;
    const Row rows[] = {
        {L"\"C:\\p\\qzrbtagt.exe\" PreInstall=1 SID=3", true, 3, L"", false},
        {L"qzrbtagt.exe", false, std::nullopt, L"", false},
        {L"qzrbtagt.exe RunAfterRestart=$HEX_610020006200", false, std::nullopt, L"a b", false},
        {L"qzrbtagt.exe PreInstall=1 SID=", false, std::nullopt, L"", true},
        {L"qzrbtagt.exe PreInstall=1 SID=-1", false, std::nullopt, L"", true},
        {L"qzrbtagt.exe RunAfterRestart=$HEX_6", false, std::nullopt, L"", true},
        {L"qzrbtagt.exe /s", false, std::nullopt, L"", true},
        {L"qzrbtagt.exe PreInstall=1 RunAfterRestart=$HEX_6100", true, std::nullopt, L"a", true},
    };
    for (const auto& [szCmd, bPreInstall, nSession, szAfter, bRefused] : rows) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(szCmd)));
        const Arguments args = ParseArguments(szCmd);
        EXPECT_EQ(!args.m_wstrError.empty(), bRefused);
        if (bRefused)
            continue;
        EXPECT_EQ(args.m_bPreInstall, bPreInstall);
        EXPECT_EQ(args.m_nSessionId, nSession);
        EXPECT_EQ(args.m_wstrRunAfterRestart, szAfter);
    }
    const std::wstring wstrTask = L"\"C:\\Pkg dir\\setup.exe\" TASK_ID=\"a b\" /s QZRI_START_CNT=2";
    EXPECT_EQ(
        ParseArguments(RebootAgentCommandLine(L"C:\\Pkg dir\\qzrbtagt.exe", wstrTask)).m_wstrRunAfterRestart,
        wstrTask);
}

TEST(RebootAgentTest, TextsFromTheLanguageFileElseEnglish)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"de-de.ini"),
                           "\xEF\xBB\xBF[qzrbtagt]\r\nInstallNow=&Jetzt installieren\r\n"
                           "ConsentMessage=%PRODUCT% wird installiert.\\nJetzt?\r\nLater=\r\n");
    const Texts texts = LoadTexts(folder.Join(L"de-de.ini"));
    EXPECT_EQ(texts[INSTALL_NOW], L"&Jetzt installieren");
    EXPECT_EQ(FormatText(texts[CONSENT_MESSAGE], L"Produkt", 0), L"Produkt wird installiert.\nJetzt?");
    EXPECT_EQ(texts[LATER], EnglishText(LATER)) << "an empty value is missing";
    EXPECT_EQ(texts.m_vecMissing.size(), static_cast<size_t>(TEXT_COUNT - 2));
    for (const std::wstring& wstrFile : {folder.Join(L"none.ini"), std::wstring()}) {
        const Texts english = LoadTexts(wstrFile);
        EXPECT_EQ(english.m_vecMissing.size(), static_cast<size_t>(TEXT_COUNT));
        EXPECT_EQ(english[RESTART_LATER], L"Restart &later");
    }
    EXPECT_EQ(FormatText(EnglishText(REBOOT_COUNTDOWN), L"", 42), L"The computer restarts in 42 s.");
}

TEST(RebootAgentTest, ConsentSettingsOfThePackage)
{
    // The package description, then the product, the countdown and the default answer.
    using Row = std::tuple<const char*, const wchar_t*, int, int>;
    const Row rows[] = {
        {"[Product]\r\nName=p\r\nDisplayName=Endpoint 12\r\n", L"Endpoint 12", 0, EXIT_LATER},
        {"[Product]\r\nName=p\r\n[Setup]\r\nAskUserTimeoutSec=30\r\nAskUserDefaultAnswer=1\r\n", L"p", 30,
         EXIT_INSTALL_NOW},
        {"[Setup]\r\nAskUserTimeoutSec=-5\r\nAskUserDefaultAnswer=6\r\n", L"The package", 0, EXIT_LATER},
    };
    for (const auto& [szQpd, szProduct, nCountdown, nDefault] : rows) {
        QZTEST::TempFolder folder;
        QZTEST::WriteFileBytes(folder.Join(L"p.qpd"), szQpd);
        const ConsentSettings settings = ReadConsentSettings(*QZRI::QpdFile::Create(folder.Join(L"p.qpd")));
        EXPECT_EQ(settings.m_wstrProduct, szProduct) << szQpd;
        EXPECT_EQ(settings.m_nCountdownSec, nCountdown) << szQpd;
        EXPECT_EQ(settings.m_nDefaultAnswer, nDefault) << szQpd;
    }
}

TEST(RebootAgentTest, RestartSettingsAndTheDeferralLimit)
{
    // qzrbtagt.ini, then the mode, and how many deferrals are allowed before the restart is forced
    // (-1: without limit).
    using Row = std::tuple<const char*, RebootSettings::Mode, int>;
    const Row rows[] = {
        {"", RebootSettings::ASK, -1},
        {"[Action]\r\nRebootImmediately=1\r\nAskReboot=1\r\n", RebootSettings::IMMEDIATE, -1},
        {"[Action]\r\nRebootImmediately=0\r\nAskReboot=0\r\n", RebootSettings::NONE, -1},
        {"[Action]\r\nAskReboot=1\r\nMaxDeferrals=2\r\n", RebootSettings::ASK, 2},
        {"[Action]\r\nMaxDeferrals=3\r\n[State]\r\nDeferrals=2\r\n", RebootSettings::ASK, 1},
    };
    for (const auto& [szIni, eMode, nDeferrals] : rows) {
        SCOPED_TRACE(szIni);
        QZTEST::TempFolder folder;
        const std::wstring wstrIni = folder.Join(L"qzrbtagt.ini");
        QZTEST::WriteFileBytes(wstrIni, szIni);
        RebootSettings settings = ReadRebootSettings(wstrIni);
        EXPECT_EQ(settings.m_eMode, eMode);
        const int nLimit = nDeferrals < 0 ? 5 : nDeferrals;
        for (int n = 0; n < nLimit; ++n) {
            ASSERT_TRUE(settings.CanDefer()) << n;
            CountDeferral(wstrIni, settings);
        }
        EXPECT_EQ(settings.CanDefer(), nDeferrals < 0);
        EXPECT_EQ(ReadRebootSettings(wstrIni).m_nDeferrals, settings.m_nDeferrals) << "kept in the file";
    }
}

// The answers go through the agent's own report: "askusr.log" without a task; with one, the task's
// virtual id and an instance of the agent's file named on the command line that takes it to the server.
TEST(RebootAgentTest, AnswersAreReportedAsTheAgentReportsThemAndTheDryRunRestartsNothing)
{
    QZTEST::TempFolder folder;
    QZRITEST::TestServices fakes;
    ReportAnswer(ParseArguments(L"qzrbtagt.exe"), folder.Path(), USER_ACTION_REBOOT_LATER, fakes.Get());
    EXPECT_EQ(QZSTD::GetProfileInt(folder.Join(L"askusr.log"), L"ResponseResult", L"ResultCode", 0), 7);
    EXPECT_TRUE(fakes.m_starter.m_vecCommandLines.empty());
    const Arguments args = ParseArguments(RebootAgentCommandLine(L"qzrbtagt.exe", L"", L"T1", L"setup.exe"));
    EXPECT_EQ(args.m_wstrAgent, L"setup.exe");
    fakes.m_starter.m_wstrAgentPath = folder.Path() + args.m_wstrAgent;
    ReportAnswer(args, folder.Path(), USER_ACTION_REBOOT_NOW, fakes.Get());
    EXPECT_EQ(fakes.m_starter.m_vecCommandLines,
              std::vector<std::wstring>{L"\"" + folder.Path() +
                                        L"setup.exe\" PxgRequest=$qzriwrp_srvri_T1_USR_RBTR.par"});
    EXPECT_NE(ParseArguments(L"qzrbtagt.exe Agent=" + QZRI::EncodeHexString(L"..\\x.exe")).m_wstrError, L"");
    DryRunRestarter restarter(folder.Join(L"restart.txt"));
    EXPECT_TRUE(restarter.Restart(L"setup.exe /s"));
    EXPECT_EQ(QZTEST::ReadFileBytes(folder.Join(L"restart.txt")),
              "restart\nrun after restart: setup.exe /s\n");
}

}  // namespace
