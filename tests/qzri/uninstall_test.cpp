// The previous product's removal against an in-memory registry, a scripted Windows Installer and a
// scripted uninstaller process: how each kind is resolved, the command lines, the waits and the results.
#include "qzri/riwrap/uninstall.h"

#include <gtest/gtest.h>

#include "common/qpdfile.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/pwdstore.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/qzri/uninstall_fakes.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using View = RegistryView;

const std::wstring UNINSTALL = UNINSTALL_KEY;
const std::wstring OWN_KEY = InstallerKeyOf(L"QZP", L"2.0");

class UninstallTest : public testing::Test
{
public:
    void SetUp() override
    {
        QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", m_folder.Join(L"machine.key"));
        m_deps.m_pRegistry = &m_registry;
        m_deps.m_pMsi = &m_msi;
        m_deps.m_pInstaller = &m_installer;
        m_installer.m_wstrLogFolder = m_folder.Path();
        m_deps.m_wstrKnownProductsFile = m_folder.Join(L"known.ini");
        m_deps.m_fnLaunch = m_launcher.Launch();
        m_deps.m_nSliceMs = 1;
        m_deps.m_lMsiBusyLimitMs = 0;
        QZTEST::WriteFileBytes(
            m_deps.m_wstrKnownProductsFile,
            "[MsiUpgradeCodes]\r\nQZMODEM={UC-M}\r\n[InstallShieldUpgradeCodes]\r\nQZISH=,{UC-X}, "
            "{UC-I}\r\n");
        Ini(L"QZP", L"2.0", QZSTD::ProtectPassword(L"s3 cret"));
    }
    void TearDown() override { QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", L""); }
    void Ini(const std::wstring& wstrProduct, const std::wstring& wstrVersion, const std::wstring& wstrData)
    {
        QZTEST::WriteFileBytes(
            IniPath(),
            QZSTD::WideToUtf8(L"[Uninstall]\r\nProduct=" + wstrProduct + L"\r\nVersion=" + wstrVersion +
                              L"\r\nUninstallUser=admin\r\nUninstallData=" + wstrData + L"\r\n"));
    }
    std::wstring IniPath() const { return m_folder.Join(L"package.qud"); }
    UninstallPlan Plan()
    {
        return PlanUninstall(m_deps, IniPath(), L"C:\\pkg\\", L"C:\\pkg\\setup.log", L"T1");
    }
    void Entry(View eView, const std::wstring& wstrName, const std::wstring& wstrCmd)
    {
        m_registry.SetString(eView, UNINSTALL + L"\\" + wstrName, L"UninstallString", wstrCmd);
    }

    QZTEST::TempFolder m_folder;
    QZRITEST::MemoryRegistry m_registry;
    QZRITEST::FakeMsiProducts m_msi;
    QZRITEST::QuietInstaller m_installer;
    QZRITEST::ScriptedLauncher m_launcher;
    UninstallDeps m_deps;
};

TEST_F(UninstallTest, ResolvesInTheFixedOrderAndBuildsTheKindsCommandLine)
{
    const std::wstring PWD = L" PASSWORD=<password of 7 characters>";
    const std::wstring ISHIELD_TAIL =
        L" /z\"/pSETUPEXEDIR=C:\\pkg\\ TASK_ID=T1 QZLOGIN=admin" + PWD + L"\" /s /f2\"C:\\pkg\\setup.log\"";
    struct Row
    {
        const char* szCase;
        std::function<void(UninstallTest&)> fnSetup;
        const wchar_t* szProduct;
        bool bOk;
        uint32_t nType;
        std::wstring wstrCode;
        std::wstring wstrCmdOrProblem;
    };
    const Row rows[] = {
        {"UninstallString3 wins over 2 and the plain one",
         [](UninstallTest& t) {
             for (const wchar_t* sz : {L"UninstallString", L"UninstallString2", L"UninstallString3"})
                 t.m_registry.SetString(View::VIEW_32, OWN_KEY, sz, std::wstring(L"u.exe /") + sz);
         },
         L"QZP", true, KIND_UNKNOWN, L"", L"u.exe /UninstallString3 QZLOGIN=admin" + PWD},
        {"UninstallString2 wins, found in the 64-bit view",
         [](UninstallTest& t) {
             t.m_registry.SetString(View::VIEW_64, OWN_KEY, L"UninstallString", L"u.exe");
             t.m_registry.SetString(View::VIEW_64, OWN_KEY, L"UninstallString2", L"\"C:\\P F\\u2.exe\" /x");
         },
         L"QZP", true, KIND_UNKNOWN, L"", L"\"C:\\P F\\u2.exe\" /x QZLOGIN=admin" + PWD},
        {"a product code: removal through Windows Installer",
         [](UninstallTest& t) { t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"ProductCode", L"{PC}"); },
         L"QZP", true, KIND_UNKNOWN, L"{PC}", L""},
        {"the own key wins over a known product",
         [](UninstallTest& t) {
             t.Ini(L"QZMODEM", L"2.0", L"");
             t.m_registry.SetString(View::VIEW_32, InstallerKeyOf(L"QZMODEM", L"2.0"), L"UninstallString",
                                    L"m.exe");
             t.m_msi.m_mapRelated[L"{UC-M}"] = L"{PM}";
         },
         L"QZMODEM", true, KIND_UNKNOWN, L"", L"m.exe QZLOGIN=admin"},
        {"a known MSI product by its upgrade code",
         [](UninstallTest& t) {
             t.m_msi.m_mapRelated[L"{UC-M}"] = L"{PM}";
             t.Entry(View::VIEW_64, L"{PM}", L"MsiExec.exe /I{PM}");
         },
         L"QZMODEM", true, KIND_LEGACY_MSI, L"{PM}", L"MsiExec.exe /X{PM} /qn QZLOGIN=admin" + PWD},
        {"a known product that is not installed", nullptr, L"QZMODEM", true, KIND_UNRESOLVED, L"",
         L"not installed"},
        {"a known InstallShield product, second upgrade code",
         [](UninstallTest& t) {
             t.m_msi.m_mapRelated[L"{UC-I}"] = L"{PI}";
             t.Entry(View::VIEW_32, L"InstallShield_{PI}", L"C:\\setup.exe -runfromtemp");
         },
         L"QZISH", true, KIND_LEGACY_ISHIELD, L"{PI}", L"C:\\setup.exe -runfromtemp" + ISHIELD_TAIL},
        {"IShieldProductCode of the own key",
         [](UninstallTest& t) {
             t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"IShieldProductCode", L"{PS}");
             t.Entry(View::VIEW_32, L"InstallShield_{PS}", L"s.exe");
         },
         L"QZP", true, KIND_LEGACY_ISHIELD, L"{PS}", L"s.exe" + ISHIELD_TAIL},
        {"an upgrade-code lookup error stops resolving",
         [](UninstallTest& t) {
             t.m_msi.m_nEnumError = 1610;
             t.m_registry.SetString(View::VIEW_32, InstallerKeyOf(L"QZMODEM", L"2.0"), L"IShieldProductCode",
                                    L"{PS}");
         },
         L"QZMODEM", false, KIND_UNRESOLVED, L"", L"error 1610"},
        {"a command that is not a string",
         [](UninstallTest& t) {
             t.m_registry.Set(View::VIEW_32, OWN_KEY, L"UninstallString",
                              RegistryValue{REG_TYPE_DWORD, "\x01\0\0\0"});
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"not a string"},
        {"a command with unbalanced quotes",
         [](UninstallTest& t) {
             t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString", L"\"C:\\P F\\u.exe /x");
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"unbalanced quotes"},
        {"an UninstallData that is not hexadecimal",
         [](UninstallTest& t) {
             t.Ini(L"QZP", L"2.0", L"0G12");
             t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString", L"u.exe");
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"UninstallData"},
        {"an UninstallData that does not decrypt",
         [](UninstallTest& t) {
             t.Ini(L"QZP", L"2.0", L"00112233445566778899AABBCCDDEEFF00112233445566778899AABBCCDDEEFF");
             t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString", L"u.exe");
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"protected data"},
        {"no version", [](UninstallTest& t) { t.Ini(L"QZP", L"", L""); }, L"QZP", false, KIND_UNRESOLVED, L"",
         L"roduct"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szCase);
        m_registry = QZRITEST::MemoryRegistry();
        m_msi = QZRITEST::FakeMsiProducts();
        Ini(row.szProduct, L"2.0", QZSTD::ProtectPassword(L"s3 cret"));
        if (row.fnSetup)
            row.fnSetup(*this);
        const UninstallPlan plan = Plan();
        EXPECT_EQ(plan.m_bOk, row.bOk) << QZSTD::WideToUtf8(plan.m_wstrProblem);
        EXPECT_EQ(plan.m_nType, row.nType);
        EXPECT_EQ(plan.m_wstrProductCode, row.wstrCode);
        EXPECT_EQ(plan.m_bByProductCode, row.nType == KIND_UNKNOWN && !row.wstrCode.empty());
        if (row.nType != KIND_UNRESOLVED)
            EXPECT_EQ(plan.m_wstrCommandLine, row.wstrCmdOrProblem);
        else
            EXPECT_NE(plan.m_wstrProblem.find(row.wstrCmdOrProblem), std::wstring::npos)
                << QZSTD::WideToUtf8(plan.m_wstrProblem);
        EXPECT_TRUE(m_launcher.m_vecStarted.empty());
    }
}

// How the end of each kind becomes the driver's result.
TEST_F(UninstallTest, EndsBecomeResults)
{
    QZTEST::WriteFileBytes(m_folder.Join(L"product.qpd"),
                           "[SetupProcessResult_ErrorCodes]\r\n42=The product is in use.\r\n");
    struct Row
    {
        const char* szCase;
        std::function<void(UninstallTest&)> fnSetup;
        uint32_t nExitCode;
        int32_t nResult;
        bool bRestart;
        const wchar_t* szDescription;
    };
    const auto ownCommand = [](const wchar_t* szName, const wchar_t* szCmd) {
        return [=](UninstallTest& t) { t.m_registry.SetString(View::VIEW_32, OWN_KEY, szName, szCmd); };
    };
    const auto us3 = [this](UninstallTest& t) {
        t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString3", L"u3.exe");
        t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString3QPD", m_folder.Join(L"product.qpd"));
        t.Entry(View::VIEW_32, L"QzProduct", L"u3.exe");
        // Ignored: UninstallString3's code decides.
        t.m_launcher.m_vecSteps = {
            [&t] { return t.m_registry.DeleteKey(View::VIEW_32, UNINSTALL + L"\\QzProduct"), false; }};
    };
    const Row rows[] = {
        {"not installed", nullptr, 0, QZRI_RSLT_NO_ERROR, false, L"is not installed"},
        {"UninstallString3 listed error", us3, 42, 42, false, L"The product is in use."},
        {"UninstallString3 restart", us3, 3010, QZRI_RSLT_NO_ERROR, true, L"restart"},
        {"ended, still registered",
         [](UninstallTest& t) {
             t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString", L"u.exe");
             t.Entry(View::VIEW_32, L"QzProduct", L"u.exe");
         },
         0, QZRI_RSLT_GENERAL_ERROR, false, L"still registered"},
        {"ended with an error, no entry known", ownCommand(L"UninstallString", L"u.exe"), 1603, 1603, false,
         L"1603"},
        {"product code, removed with a restart", ownCommand(L"ProductCode", L"{PC}"), 3010,
         QZRI_RSLT_NO_ERROR, true, L"restart"},
        {"product code, installer busy", ownCommand(L"ProductCode", L"{PC}"), 1618, QZRI_RSLT_INSTALLER_BUSY,
         false, L"busy"},
        {"no version: 1192", [](UninstallTest& t) { t.Ini(L"QZP", L"", L""); }, 0, QZRI_RSLT_GENERAL_ERROR,
         false, L"no product or no version"},
        {"the agent stops while the uninstaller runs",
         [](UninstallTest& t) {
             t.m_registry.SetString(View::VIEW_32, OWN_KEY, L"UninstallString", L"u.exe");
             t.m_launcher.m_vecSteps = {[]() -> bool { QZ_THROW_STD(QZSTD::Err::SHUTDOWN); }};
         },
         0, QZRI_RSLT_GENERAL_ERROR, false, L"left running"},
    };
    ASSERT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szCase);
        m_registry = QZRITEST::MemoryRegistry();
        m_launcher.m_vecSteps.clear();
        m_launcher.m_nExitCode = m_msi.m_nRemoveResult = row.nExitCode;
        Ini(L"QZP", L"2.0", QZSTD::ProtectPassword(L"s3 cret"));
        if (row.fnSetup)
            row.fnSetup(*this);
        RiWrpData data;
        data.m_pQpd = QpdFile::Create(IniPath());
        AgentUninstaller uninstaller(m_deps);
        bool bRestart = !row.bRestart;
        EXPECT_EQ(uninstaller.Uninstall(data, &bRestart), row.nResult);
        EXPECT_EQ(bRestart, row.bRestart);
        EXPECT_NE(uninstaller.Description().find(row.szDescription), std::wstring::npos)
            << QZSTD::WideToUtf8(uninstaller.Description());
    }
    // The removal by product code leaves restarts to the agent.
    QZSTD::TraceClose();
    const std::string strTrace = QZRITEST::Joined(QZRITEST::TraceRecords(m_folder.Join(L"trace.txt")));
    EXPECT_NE(strTrace.find("u3.exe QZLOGIN=admin PASSWORD=<password of 7 characters>'"), std::string::npos);
    EXPECT_EQ(strTrace.find("s3 cret"), std::string::npos);
    // The password reaches the uninstaller (quoted, for its blank) and Windows Installer, never the trace.
    EXPECT_EQ(m_launcher.m_vecStarted.front(), L"u3.exe QZLOGIN=admin PASSWORD=\"s3 cret\"");
    const std::wstring wstrRemoval =
        L"{PC}| REBOOT=\"ReallySuppress\" QZLOGIN=\"admin\" PASSWORD=\"s3 cret\" "
        L"MsiHiddenProperties=\"PASSWORD\"";
    EXPECT_EQ(m_msi.m_vecRemoved, (std::vector<std::wstring>{wstrRemoval, wstrRemoval}));
}

TEST(UninstallKnownProducts, TheShippedFileNamesTheKnownProducts)
{
    const std::wstring wstrFile = QZSTD::Utf8ToWide(QZ_KNOWN_PRODUCTS_FILE);
    for (const wchar_t* szProduct : {L"1103", L"QZIOSMDM", L"QZMODEM"}) {
        const std::vector<std::wstring> vecCodes = KnownUpgradeCodes(wstrFile, KNOWN_MSI_SECTION, szProduct);
        ASSERT_EQ(vecCodes.size(), 1u) << QZSTD::WideToUtf8(szProduct);
        EXPECT_EQ(vecCodes[0].size(), 38u);
        EXPECT_EQ(vecCodes[0].front(), L'{');
    }
    EXPECT_TRUE(KnownUpgradeCodes(wstrFile, KNOWN_MSI_SECTION, L"QZUNKNOWN").empty());
}

}  // namespace
