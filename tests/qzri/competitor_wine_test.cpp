// Removing incompatible software under Wine, end to end below the driver: products installed from
// packages wixl built for this test, the reference engine "cleanapi.dll" loaded by the agent's loader,
// the real registry, msiexec and an uninstaller that fails. All cases share the test's Wine prefix.
#include <windows.h>

#include <msi.h>

#include <gtest/gtest.h>

#include <tuple>

#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/strconv.h"
#include "tests/qzri/childprocess.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRIWRP;

std::wstring ProductOf(const wchar_t* szUpgradeCode)
{
    wchar_t szProduct[39] = {};
    return ::MsiEnumRelatedProductsW(szUpgradeCode, 0, 0, szProduct) == ERROR_SUCCESS ? szProduct : L"";
}

class CompetitorWineTest : public testing::Test
{
protected:
    static void Install(const char* szVariant)
    {
        const std::wstring wstrMsi = QZRITEST::BuildPath(QZ_COMPETITOR_MSI_DIR) + L"\\qzcompetitor-" +
                                     QZSTD::Utf8ToWide(szVariant) + L".msi";
        ::MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
        ASSERT_EQ(::MsiInstallProductW(wstrMsi.c_str(), L""), ERROR_SUCCESS) << szVariant;
    }
    void SetUp() override
    {
        m_env.m_wstrEnginePath = QZRITEST::BuildPath(QZ_CLEANAPI_DLL);
        m_env.m_wstrIniFolder = m_tmp.MakeSubFolder(L"cleanini");
        m_env.m_wstrWorkPath = m_tmp.Join(L"Work\\");
        m_env.m_wstrAgentFolder = m_tmp.Path();
        m_env.m_loadEngine = [](const std::wstring& wstrPath) {
            return CheckCleanapiOS(wstrPath, CurrentOsVersion());
        };
        Describe(L"alpha.ini", "Alpha", L"[detect]\r\nDisplayName=QZ Competitor Alpha\r\n");
    }
    void Describe(const wchar_t* szIni, const char* szName, const wchar_t* szRest)
    {
        QZTEST::WriteFileBytes(m_env.m_wstrIniFolder + szIni, std::string("[main]\r\nfullname=") + szName +
                                                                  "\r\n" + QZSTD::WideToUtf8(szRest));
    }
    // One run: its result, its description, and whether it asks for a restart. What follows a restart
    // (the reboot agent's command line, saved and started) is checked by CompetitorTest and run for real
    // by competitor_agent_test.cpp.
    using Outcome = QZRITEST::CompetitorOutcome;
    Outcome Run() { return QZRITEST::RunCompetitorRemoval(m_data, m_env); }
    QZTEST::TempFolder m_tmp;
    QZRI::RiWrpData m_data;
    CompetitorEnv m_env;
};

TEST_F(CompetitorWineTest, TwoProductsRemovedAskForARestart)
{
    Install("Alpha");
    Install("Beta");
    Describe(L"beta.ini", "Beta", L"[detect]\r\nDisplayName=QZ Competitor B*\r\n");
    EXPECT_EQ(Run(), Outcome(0, L"successfully deleted: Alpha, Beta.", true));
    EXPECT_EQ(ProductOf(L"{" QZ_UPGRADE_ALPHA "}"), L"");
    EXPECT_EQ(ProductOf(L"{" QZ_UPGRADE_BETA "}"), L"");
}

TEST_F(CompetitorWineTest, FailingUninstallerIsListedFirstAndNoRebootIsAsked)
{
    Install("Alpha");
    Install("Beta");
    Describe(
        L"beta.ini", "Beta",
        L"[detect]\r\nDisplayName=QZ Competitor Beta\r\n[remove]\r\nCommandLine=cmd.exe /c exit 1603\r\n");
    EXPECT_EQ(Run(), Outcome(CLEANER_RSLT_FAILED, L"deletion failed for: Beta. successfully deleted: Alpha.",
                             false));
    EXPECT_NE(ProductOf(L"{" QZ_UPGRADE_BETA "}"), L"");
    // Leave the prefix as it was found.
    ::MsiConfigureProductExW(ProductOf(L"{" QZ_UPGRADE_BETA "}").c_str(), INSTALLLEVEL_DEFAULT,
                             INSTALLSTATE_ABSENT, L"");
    EXPECT_EQ(ProductOf(L"{" QZ_UPGRADE_BETA "}"), L"");
}

// A removal cut off by a shutdown and taken over by the next run is CompetitorTest's; here the real engine
// finds nothing on a machine without the products.
TEST_F(CompetitorWineTest, NothingInstalledAndBrokenEnginesGiveClearResults)
{
    EXPECT_EQ(Run(), Outcome(0, L"there are no incompatible applications for delete.", false));
    for (const std::wstring& wstrEngine :
         {m_tmp.Join(L"cleanapi.dll"), QZRITEST::BuildPath(QZ_TEST_ENGINE_NO_REMOVE)}) {
        m_env.m_wstrEnginePath = wstrEngine;
        CCompetitorSoftwareUninstall uninstall(m_data, m_env);
        // Positive: a system error.
        const int nCode = QZTEST::ErrorCodeOf([&] { uninstall.PrepareToRemove(); }, QZSTD::SYSTEM_MODULE);
        EXPECT_TRUE(nCode == ERROR_MOD_NOT_FOUND || nCode == ERROR_PROC_NOT_FOUND)
            << nCode << " " << QZSTD::WideToUtf8(wstrEngine);
    }
}

}  // namespace
