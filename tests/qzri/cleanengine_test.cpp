// The reference removal engine: which Uninstall entry is the product, how it is removed quietly, what an
// exit code means; and the shipped library loaded by the agent's own loader.
#include <gtest/gtest.h>

#include "common/cleanapi.h"
#include "qzri/cleanapi/cleanengine.h"
#include "qzri/riwrap/competitor.h"
#include "tests/testutil/fsutil.h"

using namespace QZCLEAN;

namespace {

TEST(CleanEngineTest, MatchingAndRemovalCommands)
{
    // Key, display name, uninstall string, quiet uninstall string, whether Windows Installer's.
    const UninstallEntry msi{L"{AAAA-1}", L"Alpha Antivirus 9.1", L"unins.exe", L"", true};
    const UninstallEntry exe{L"BetaFW", L"Beta Firewall", L"unins.exe", L" \"C:\\b\\unins.exe\" /S ", false};
    const struct
    {
        ProductRule m_rule;
        const UninstallEntry& m_entry;
        bool m_bMatches;
        const wchar_t* m_szCommand;  // null: none
    } rows[] = {
        {{L"A", L"{aaaa-1}", L"", L"", L"", 1}, msi, true, L"msiexec.exe /x {AAAA-1} /qn /norestart"},
        {{L"A", L"", L"alpha antivirus*", L"", L"", 1}, msi, true, L"msiexec.exe /x {AAAA-1} /qn /norestart"},
        {{L"A", L"", L"Alpha Antivirus", L"", L"", 1}, msi, false, L"msiexec.exe /x {AAAA-1} /qn /norestart"},
        {{L"A", L"{AAAA-2}", L"Alpha Antivirus*", L"", L"", 1},
         msi,
         false,
         L"msiexec.exe /x {AAAA-1} /qn /norestart"},
        {{L"B", L"", L"Beta Firewall", L"", L"", 1}, exe, true, L"\"C:\\b\\unins.exe\" /S"},
        {{L"B", L"", L"Beta Firewall", L"UninstallString", L"", 1}, exe, true, L"unins.exe"},
        {{L"B", L"", L"Beta Firewall", L"QuietUninstallString", L"", 1}, msi, false, nullptr},
        {{L"B", L"", L"Beta*", L"", L"own.exe /quiet", 1}, exe, true, L"own.exe /quiet"},
        {{L"C", L"", L"", L"", L"", 1}, exe, false, L"\"C:\\b\\unins.exe\" /S"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << &row - rows);
        EXPECT_EQ(Matches(row.m_rule, row.m_entry), row.m_bMatches);
        const std::optional<std::wstring> cmd =
            row.m_szCommand ? std::optional<std::wstring>(row.m_szCommand) : std::nullopt;
        EXPECT_EQ(RemovalCommand(row.m_rule, row.m_entry), cmd);
    }
    EXPECT_EQ(OutcomeOfExitCode(0), QZCLEAN_REMOVED);
    EXPECT_EQ(OutcomeOfExitCode(3010), QZCLEAN_RESTART_NEEDED);
    EXPECT_EQ(OutcomeOfExitCode(1641), QZCLEAN_RESTART_NEEDED);
    EXPECT_EQ(OutcomeOfExitCode(1603), QZCLEAN_REMOVE_FAILED);
}

TEST(CleanEngineTest, ShippedLibraryLoadsAndReadsTheIniFolder)
{
    QZTEST::TempFolder tmp;
    const std::wstring wstrIni = tmp.MakeSubFolder(L"cleanini");
    QZTEST::WriteFileBytes(wstrIni + L"a.ini", "[main]\r\nfullname=Alpha\r\n[remove]\r\nTimeoutSec=5\r\n");
    const ProductRule rule = ReadRule(wstrIni + L"a.ini");
    EXPECT_EQ(rule.m_wstrFullName, L"Alpha");
    EXPECT_EQ(rule.m_nTimeoutSec, 5u);
    const std::string strEngine = QZ_CLEANAPI_ENGINE;
    auto pEngine =
        QZRIWRP::CheckCleanapiOS(std::wstring(strEngine.begin(), strEngine.end()), QZRIWRP::OsVersion{});
    std::vector<QZRIWRP::CompetitorProduct> vecProducts;
    std::wstring wstrError;
    // Nothing of the test's is installed here: the list is empty, and a product that is not there is gone.
    ASSERT_TRUE(pEngine->Enumerate(wstrIni, vecProducts, wstrError)) << wstrError;
    EXPECT_TRUE(vecProducts.empty());
    EXPECT_EQ(pEngine->Remove(wstrIni + L"a.ini", tmp.Path(), wstrError),
              QZRIWRP::CleanEngine::Outcome::REMOVED);
}

}  // namespace
