// The previous product's removal against an in-memory registry, a scripted Windows Installer and a
// scripted uninstaller process: how each kind is resolved, the command lines, the waits and the results.
#include "qzri/riwrap/uninstall.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "common/msisetup/msisetup.h"
#include "common/qpdfile.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/pwdstore.h"
#include "std/qzbase.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using View = RegistryView;

// The stand-ins: the registry in memory (both views, change counting for the watch), Windows
// Installer's related products from a map, and a launcher whose process runs a script.
class MemoryRegistry : public QZRI::Registry
{
public:
    void Set(View eView, const std::wstring& wstrKey, const std::wstring& wstrName, QZRI::RegistryValue value)
    {
        m_mapKeys[{eView, wstrKey}][wstrName] = std::move(value);
        ++m_nChanges;
    }
    void DeleteKey(View eView, const std::wstring& wstrKey)
    {
        m_mapKeys.erase({eView, wstrKey});
        ++m_nChanges;
    }
    bool LocalMachineKeyExists(const std::wstring& wstrKey, View eView) override
    {
        return m_mapKeys.count({eView, wstrKey}) != 0;
    }
    bool ReadLocalMachineValue(const std::wstring& wstrKey, const std::wstring& wstrName,
                               QZRI::RegistryValue& value, View eView) override
    {
        const auto it = m_mapKeys.find({eView, wstrKey});
        if (it == m_mapKeys.end() || !it->second.count(wstrName))
            return false;
        value = it->second.at(wstrName);
        return true;
    }
    std::vector<std::wstring> LocalMachineSubKeys(const std::wstring& wstrKey, View eView) override
    {
        std::vector<std::wstring> vecNames;
        const std::wstring wstrPrefix = wstrKey + L"\\";
        for (const auto& entry : m_mapKeys)
            if (entry.first.first == eView && entry.first.second.rfind(wstrPrefix, 0) == 0)
                vecNames.push_back(entry.first.second.substr(wstrPrefix.size()));
        return vecNames;
    }
    bool HasSixtyFourBitView() override { return true; }
    // Sees any change of the registry since it was armed.
    std::unique_ptr<QZRI::RegistryWatch> WatchLocalMachineKey(const std::wstring&,
                                                              const std::vector<View>&) override
    {
        struct Watch : QZRI::RegistryWatch
        {
            explicit Watch(const int& nChanges) : m_nChanges(nChanges), m_nArmed(nChanges) {}
            void Rearm() override { m_nArmed = m_nChanges; }
            bool WaitForChange(uint32_t) override { return m_nChanges != m_nArmed; }
            const int& m_nChanges;
            int m_nArmed;
        };
        return std::make_unique<Watch>(m_nChanges);
    }

    int m_nChanges = 0;
    std::map<std::pair<View, std::wstring>, std::map<std::wstring, QZRI::RegistryValue>> m_mapKeys;
};

// Related products by upgrade code (a missing code: none), or one error for every question; removals
// by product code recorded with their command lines and answered with m_nRemoveResult.
class FakeMsiProducts : public QZRI::MsiProducts
{
public:
    uint32_t EnumRelatedProducts(const std::wstring& wstrUpgradeCode, uint32_t nIndex,
                                 std::wstring& wstrProductCode) override
    {
        if (m_nEnumError)
            return m_nEnumError;
        const auto it = m_mapRelated.find(wstrUpgradeCode);
        if (it == m_mapRelated.end() || nIndex > 0)
            return QZRI::MSI_ERROR_NO_MORE_ITEMS;
        wstrProductCode = it->second;
        return 0;
    }
    uint32_t RemoveProduct(const std::wstring& wstrProductCode, const std::wstring& wstrCmdLine) override
    {
        m_vecRemoved.push_back(wstrProductCode + L"|" + wstrCmdLine);
        return m_nRemoveResult;
    }
    std::map<std::wstring, std::wstring> m_mapRelated;
    uint32_t m_nEnumError = 0;
    uint32_t m_nRemoveResult = 0;
    std::vector<std::wstring> m_vecRemoved;
};

// A started uninstaller: each look at it runs the next step of the script (which may change the
// registry); it has ended once a step returns true, with m_nExitCode.
class ScriptedLauncher
{
public:
    std::function<void(const QZRI::LaunchOptions&, QZSTD::LaunchWaiter**)> Launch()
    {
        return [this](const QZRI::LaunchOptions& options, QZSTD::LaunchWaiter** ppWaiter) {
            m_vecStarted.push_back(options.m_wstrCommandLine);
            *ppWaiter = new QZSTD::RcClassImpl<Waiter>(*this);
        };
    }
    std::vector<std::function<bool()>> m_vecSteps;
    uint32_t m_nExitCode = 0;
    std::vector<std::wstring> m_vecStarted;

private:
    class Waiter : public QZSTD::LaunchWaiter
    {
    public:
        explicit Waiter(ScriptedLauncher& launcher) : m_launcher(launcher) {}
        bool QueryInterface(const char*, void**) override { return false; }
        bool Wait(long) override
        {
            if (m_bEnded || m_nNext >= m_launcher.m_vecSteps.size())
                return m_bEnded = true;
            return m_bEnded = m_launcher.m_vecSteps[m_nNext++]();
        }
        uint32_t ExitCode() override { return m_launcher.m_nExitCode; }

    private:
        ScriptedLauncher& m_launcher;
        size_t m_nNext = 0;
        bool m_bEnded = false;
    };
};

// The installer service around a removal by product code: handlers and log accepted, the log in
// m_wstrLogFolder; installing or patching anything else is a fault of the test.
class QuietInstaller : public QZRI::WindowsInstaller
{
public:
    uint32_t MsiDllVersion() override { return 0x00050000; }
    std::wstring LogFolder() override { return m_wstrLogFolder; }
    std::wstring LocalTimeStamp() override { return L"2026-11-25-10-00-00"; }
    uint32_t EnableLog(uint32_t, const std::wstring&) override { return 0; }
    uint32_t SetRecordHandler(QZRI::MsiMessageSink*, uint32_t) override { return 0; }
    void SetStringHandlerAndNoUi(QZRI::MsiMessageSink*, uint32_t) override {}
    void RestoreHandlers(bool) override {}
    uint32_t InstallProduct(const std::wstring&, const std::wstring&) override { return 1627; }
    uint32_t ApplyPatch(const std::wstring&, const std::wstring&) override { return 1627; }
    std::wstring m_wstrLogFolder;
};

const std::wstring UNINSTALL = UNINSTALL_KEY;
const std::wstring OWN_KEY = InstallerKeyOf(L"QZP", L"2.0");
constexpr View V32 = View::VIEW_32;
constexpr View V64 = View::VIEW_64;

class UninstallTest;
using Arrange = std::function<void(UninstallTest&)>;

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
    void Entry(View eView, const std::wstring& wstrName, const std::wstring& wstrCmd)
    {
        m_registry.Set(eView, UNINSTALL + L"\\" + wstrName, L"UninstallString", MakeRegistryString(wstrCmd));
    }

    // What a row of a table finds: values of an Installer key, Uninstall entries, related products.
    static Arrange Own(View eView, const std::wstring& wstrKey,
                       std::vector<std::pair<const wchar_t*, std::wstring>> vecValues)
    {
        return [=](UninstallTest& t) {
            for (const auto& [szName, wstrValue] : vecValues)
                t.m_registry.Set(eView, wstrKey, szName, MakeRegistryString(wstrValue));
        };
    }
    static Arrange Own(std::vector<std::pair<const wchar_t*, std::wstring>> vecValues)
    {
        return Own(V32, OWN_KEY, std::move(vecValues));
    }
    static Arrange Related(const wchar_t* szUpgradeCode, const wchar_t* szProductCode, View eView,
                           const std::wstring& wstrEntry, const std::wstring& wstrCmd)
    {
        return [=](UninstallTest& t) {
            t.m_msi.m_mapRelated[szUpgradeCode] = szProductCode;
            t.Entry(eView, wstrEntry, wstrCmd);
        };
    }

    QZTEST::TempFolder m_folder;
    MemoryRegistry m_registry;
    FakeMsiProducts m_msi;
    QuietInstaller m_installer;
    ScriptedLauncher m_launcher;
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
        Arrange fnSetup;
        const wchar_t* szProduct;
        bool bOk;
        uint32_t nType;
        std::wstring wstrCode;
        std::wstring wstrCmdOrProblem;
    };
    const Row rows[] = {
        {"UninstallString3 wins over 2 and the plain one",
         Own({{L"UninstallString", L"u1"}, {L"UninstallString2", L"u2"}, {L"UninstallString3", L"u3"}}),
         L"QZP", true, KIND_UNKNOWN, L"", L"u3 QZLOGIN=admin" + PWD},
        {"UninstallString2 wins, found in the 64-bit view",
         Own(V64, OWN_KEY, {{L"UninstallString", L"u1"}, {L"UninstallString2", L"\"C:\\P F\\u2.exe\" /x"}}),
         L"QZP", true, KIND_UNKNOWN, L"", L"\"C:\\P F\\u2.exe\" /x QZLOGIN=admin" + PWD},
        {"a product code: removal through Windows Installer", Own({{L"ProductCode", L"{PC}"}}), L"QZP", true,
         KIND_UNKNOWN, L"{PC}", L""},
        {"the own key wins over a known product",
         [](UninstallTest& t) {
             Own(V32, InstallerKeyOf(L"QZMODEM", L"2.0"), {{L"UninstallString", L"m.exe"}})(t);
             Related(L"{UC-M}", L"{PM}", V64, L"{PM}", L"MsiExec.exe /I{PM}")(t);
         },
         L"QZMODEM", true, KIND_UNKNOWN, L"", L"m.exe QZLOGIN=admin" + PWD},
        {"a known MSI product by its upgrade code, /I taken as /X",
         Related(L"{UC-M}", L"{PM}", V64, L"{PM}", L"MsiExec.exe /I{PM}"), L"QZMODEM", true, KIND_LEGACY_MSI,
         L"{PM}", L"MsiExec.exe /X{PM} /qn QZLOGIN=admin" + PWD},
        {"a known product that is not installed", nullptr, L"QZMODEM", true, KIND_UNRESOLVED, L"",
         L"not installed"},
        {"a known InstallShield product, second upgrade code",
         Related(L"{UC-I}", L"{PI}", V32, L"InstallShield_{PI}", L"C:\\setup.exe -runfromtemp"), L"QZISH",
         true, KIND_LEGACY_ISHIELD, L"{PI}", L"C:\\setup.exe -runfromtemp" + ISHIELD_TAIL},
        {"IShieldProductCode of the own key",
         [](UninstallTest& t) {
             Own({{L"IShieldProductCode", L"{PS}"}})(t);
             t.Entry(V32, L"InstallShield_{PS}", L"s.exe");
         },
         L"QZP", true, KIND_LEGACY_ISHIELD, L"{PS}", L"s.exe" + ISHIELD_TAIL},
        {"an upgrade-code lookup error stops resolving",
         [](UninstallTest& t) {
             t.m_msi.m_nEnumError = 1610;
             Own(V32, InstallerKeyOf(L"QZMODEM", L"2.0"), {{L"IShieldProductCode", L"{PS}"}})(t);
         },
         L"QZMODEM", false, KIND_UNRESOLVED, L"", L"error 1610"},
        {"a command that is not a string",
         [](UninstallTest& t) {
             t.m_registry.Set(V32, OWN_KEY, L"UninstallString", RegistryValue{REG_TYPE_DWORD, "\x01"});
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"not a string"},
        {"a command with unbalanced quotes", Own({{L"UninstallString", L"\"C:\\P F\\u.exe /x"}}), L"QZP",
         false, KIND_UNRESOLVED, L"", L"unbalanced quotes"},
        {"an UninstallData that is not hexadecimal",
         [](UninstallTest& t) {
             t.Ini(L"QZP", L"2.0", L"0G12");
             Own({{L"UninstallString", L"u.exe"}})(t);
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"UninstallData"},
        {"an UninstallData that does not decrypt",
         [](UninstallTest& t) {
             t.Ini(L"QZP", L"2.0", std::wstring(64, L'A'));
             Own({{L"UninstallString", L"u.exe"}})(t);
         },
         L"QZP", false, KIND_UNRESOLVED, L"", L"protected data"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szCase);
        m_registry = MemoryRegistry();
        m_msi = FakeMsiProducts();
        Ini(row.szProduct, L"2.0", QZSTD::ProtectPassword(L"s3 cret"));
        if (row.fnSetup)
            row.fnSetup(*this);
        const UninstallPlan plan =
            PlanUninstall(m_deps, IniPath(), L"C:\\pkg\\", L"C:\\pkg\\setup.log", L"T1");
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
        Arrange fnSetup;
        uint32_t nExitCode;
        int32_t nResult;
        bool bRestart;
        const wchar_t* szDescription;
    };
    const Arrange us3 = [this](UninstallTest& t) {
        Own({{L"UninstallString3", L"u3.exe"}, {L"UninstallString3QPD", m_folder.Join(L"product.qpd")}})(t);
        t.Entry(V32, L"QzProduct", L"u3.exe");
        // Ignored: UninstallString3's code decides.
        t.m_launcher.m_vecSteps = {
            [&t] { return t.m_registry.DeleteKey(V32, UNINSTALL + L"\\QzProduct"), false; }};
    };
    const Row rows[] = {
        {"not installed", nullptr, 0, QZRI_RSLT_NO_ERROR, false, L"is not installed"},
        {"UninstallString3 listed error", us3, 42, 42, false, L"The product is in use."},
        {"UninstallString3 restart", us3, 3010, QZRI_RSLT_NO_ERROR, true, L"restart"},
        {"ended, still registered",
         [](UninstallTest& t) {
             Own({{L"UninstallString", L"u.exe"}})(t);
             t.Entry(V32, L"QzProduct", L"u.exe");
         },
         0, QZRI_RSLT_GENERAL_ERROR, false, L"still registered"},
        {"ended with an error, no entry known", Own({{L"UninstallString", L"u.exe"}}), 1603, 1603, false,
         L"1603"},
        {"product code, removed with a restart", Own({{L"ProductCode", L"{PC}"}}), 3010, QZRI_RSLT_NO_ERROR,
         true, L"restart"},
        {"product code, installer busy", Own({{L"ProductCode", L"{PC}"}}), 1618, QZRI_RSLT_INSTALLER_BUSY,
         false, L"busy"},
        {"no version: 1192", [](UninstallTest& t) { t.Ini(L"QZP", L"", L""); }, 0, QZRI_RSLT_GENERAL_ERROR,
         false, L"no product or no version"},
        {"the agent stops while the uninstaller runs",
         [](UninstallTest& t) {
             Own({{L"UninstallString", L"u.exe"}})(t);
             t.m_launcher.m_vecSteps = {[]() -> bool { QZ_THROW_STD(QZSTD::Err::SHUTDOWN); }};
         },
         0, QZRI_RSLT_GENERAL_ERROR, false, L"left running"},
    };
    ASSERT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szCase);
        m_registry = MemoryRegistry();
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
    QZSTD::TraceClose();
    const std::string strTrace = QZRITEST::Joined(QZRITEST::TraceRecords(m_folder.Join(L"trace.txt")));
    EXPECT_NE(strTrace.find("u3.exe QZLOGIN=admin PASSWORD=<password of 7 characters>'"), std::string::npos);
    EXPECT_EQ(strTrace.find("s3 cret"), std::string::npos);
    // The password reaches the uninstaller (quoted, for its blank) and Windows Installer, never the trace.
    EXPECT_EQ(m_launcher.m_vecStarted.front(), L"u3.exe QZLOGIN=admin PASSWORD=\"s3 cret\"");
    // Only the rows with a command to wait for started one.
    EXPECT_EQ(m_launcher.m_vecStarted.size(), 5u);
    // The removal by product code leaves restarts to the agent.
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
