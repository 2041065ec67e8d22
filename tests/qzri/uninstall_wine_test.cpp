// The previous product's removal under Wine: the real registry in both views, Windows Installer in this
// process and through msiexec, and uninstaller processes that change the registry, end with a code of
// their own, or never end. The products come from packages wixl built for this test.
#include <windows.h>

#include <msi.h>

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "common/msisetup/msisetup.h"
#include "common/qpdfile.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/uninstall.h"
#include "std/shutdown.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/childprocess.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"
#include "tools/qzpkg/qzpkgverbs.h"

namespace {

using namespace QZRI;

const std::wstring UNINSTALL = std::wstring(UNINSTALL_KEY) + L"\\";

std::wstring Child(const std::wstring& wstrArgs)
{
    return L"\"" + QZRITEST::BuildPath(QZ_UNINSTALL_CHILD) + L"\" " + wstrArgs;
}

void SetString(REGSAM samView, const std::wstring& wstrKey, const wchar_t* szName,
               const std::wstring& wstrValue)
{
    HKEY hKey = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | samView,
                                nullptr, &hKey, nullptr),
              ERROR_SUCCESS);
    ::RegSetValueExW(hKey, szName, 0, REG_SZ, reinterpret_cast<const BYTE*>(wstrValue.c_str()),
                     static_cast<DWORD>((wstrValue.size() + 1) * sizeof(wchar_t)));
    ::RegCloseKey(hKey);
}

std::wstring ProductOf(const wchar_t* szUpgradeCode)
{
    wchar_t szProduct[39] = {};
    return ::MsiEnumRelatedProductsW(szUpgradeCode, 0, 0, szProduct) == ERROR_SUCCESS ? szProduct : L"";
}

// Until msiexec has finished with the product (the registry may tell before the process ends).
bool GoneWithin(const wchar_t* szUpgradeCode, int nSeconds)
{
    for (int n = 0; n < nSeconds * 10 && !ProductOf(szUpgradeCode).empty(); ++n)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    return ProductOf(szUpgradeCode).empty();
}

class UninstallWineTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_pMsi = CreateSystemMsiProducts();
        m_pInstaller = CreateSystemWindowsInstaller();
        m_deps.m_pRegistry = &SystemRegistry();
        m_deps.m_pMsi = m_pMsi.get();
        m_deps.m_pInstaller = m_pInstaller.get();
        m_deps.m_pShutdown = &m_shutdown;
        m_deps.m_wstrKnownProductsFile = m_folder.Join(L"qzuninst.ini");
        QZTEST::WriteFileBytes(m_deps.m_wstrKnownProductsFile,
                               "[MsiUpgradeCodes]\r\nQZWknown={" QZ_UPGRADE_KNOWN "}\r\n");
    }
    static void Install(const char* szVariant)
    {
        ::MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
        const std::wstring wstrMsi = QZRITEST::BuildPath(QZ_UNINSTALL_MSI_DIR) + L"\\qzuninst-" +
                                     QZSTD::Utf8ToWide(szVariant) + L".msi";
        ASSERT_EQ(::MsiInstallProductW(wstrMsi.c_str(), L""), ERROR_SUCCESS) << szVariant;
    }
    // The driver's call for the product, with the trace kept; the result code.
    int32_t Uninstall(const std::wstring& wstrProduct)
    {
        const std::wstring wstrQud = m_folder.Join(L"package.qud");
        QZTEST::WriteFileBytes(
            wstrQud, QZSTD::WideToUtf8(L"[Uninstall]\r\nProduct=" + wstrProduct + L"\r\nVersion=1.0\r\n"));
        RiWrpData data;
        data.m_wstrDirPath = data.m_wstrExecDirPath = m_folder.Path();
        data.m_pQpd = QpdFile::Create(wstrQud);
        AgentUninstaller uninstaller(m_deps);
        EXPECT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        const int32_t nResult = uninstaller.Uninstall(data, &m_bRestart);
        QZSTD::TraceClose();
        m_wstrDescription = uninstaller.Description();
        m_vecTrace = QZRITEST::TraceRecords(m_folder.Join(L"trace.txt"));
        ::DeleteFileW(m_folder.Join(L"trace.txt").c_str());
        return nResult;
    }
    bool Described(const wchar_t* szText) const
    {
        return m_wstrDescription.find(szText) != std::wstring::npos;
    }

    QZTEST::TempFolder m_folder;
    QZSTD::ShutdownSignal m_shutdown;
    std::unique_ptr<MsiProducts> m_pMsi;
    std::unique_ptr<WindowsInstaller> m_pInstaller;
    UninstallDeps m_deps;
    bool m_bRestart = false;
    std::wstring m_wstrDescription;
    std::vector<std::string> m_vecTrace;
};

// (a) its own "ProductCode": Windows Installer in this process; (b) only an "UninstallString" running
// msiexec: the registry's change ends the wait; (c) a known product: its upgrade code, then
// "UninstallString" + " /qn" (as qzpkg shows beforehand). How each kind is resolved and its command line
// are rows of UninstallTest.ResolvesInTheFixedOrderAndBuildsTheKindsCommandLine; here the products leave
// the real machine.
TEST_F(UninstallWineTest, RemovesProductsOfEachKindThroughWindowsInstaller)
{
    Install("own");
    const std::wstring wstrOwn = ProductOf(L"{" QZ_UPGRADE_OWN "}");
    ASSERT_FALSE(wstrOwn.empty());
    EXPECT_EQ(Uninstall(L"QZWown"), QZRI_RSLT_NO_ERROR) << QZRITEST::Joined(m_vecTrace);
    EXPECT_TRUE(Described((L"Removed " + wstrOwn + L" through Windows Installer.").c_str()));
    EXPECT_TRUE(ProductOf(L"{" QZ_UPGRADE_OWN "}").empty());

    Install("cmd");
    const std::wstring wstrCmd = ProductOf(L"{" QZ_UPGRADE_CMD "}");
    EXPECT_EQ(Uninstall(L"QZWcmd"), QZRI_RSLT_NO_ERROR) << QZRITEST::Joined(m_vecTrace);
    EXPECT_TRUE(QZRITEST::HasInOrder(
        m_vecTrace,
        {"QZRIWRP I Uninstall command line: 'msiexec.exe /x " + QZSTD::WideToUtf8(wstrCmd) + " /qn'",
         "QZRIWRP I Registry changed and the product was uninstalled"}));
    EXPECT_TRUE(GoneWithin(L"{" QZ_UPGRADE_CMD "}", 20));

    // The administrators' tool tells how the agent would remove the known product, and removes nothing.
    Install("known");
    const std::wstring wstrKnown = ProductOf(L"{" QZ_UPGRADE_KNOWN "}");
    QZTEST::WriteFileBytes(m_folder.Join(L"package.qpd"), "[Product]\r\nName=Q\r\n");
    QZTEST::WriteFileBytes(m_folder.Join(L"package.qud"),
                           "[Uninstall]\r\nProduct=QZWknown\r\nVersion=1.0\r\n");
    std::wostringstream out;
    EXPECT_EQ(QZPKG::UninstallVerb(m_folder.Path(), out), QZPKG::Exit::OK) << out.str();
    EXPECT_NE(out.str().find(L"kind:        MSI (legacy)\nproduct code: " + wstrKnown +
                             L"\ncommand:     MsiExec.exe /X" + wstrKnown + L" /qn\n"),
              std::wstring::npos)
        << out.str();
    EXPECT_EQ(ProductOf(L"{" QZ_UPGRADE_KNOWN "}"), wstrKnown);
    EXPECT_EQ(Uninstall(L"QZWknown"), QZRI_RSLT_NO_ERROR) << QZRITEST::Joined(m_vecTrace);
    EXPECT_TRUE(GoneWithin(L"{" QZ_UPGRADE_KNOWN "}", 20));
}

// (d) another program's change under the Uninstall key is not the product's removal; (e)
// "UninstallString3": registry changes are ignored and the code of the real process is judged by the
// product's lists. Its restart code and a product that is not installed are rows of
// UninstallTest.EndsBecomeResults.
TEST_F(UninstallWineTest, WaitsForTheProductsOwnRemovalAndJudgesUninstallString3)
{
    const std::wstring wstrRemove = Child(L"remove QzTestD");
    SetString(KEY_WOW64_32KEY, InstallerKeyOf(L"QZWd", L"1.0"), L"UninstallString", wstrRemove);
    SetString(KEY_WOW64_64KEY, UNINSTALL + L"QzTestD", L"UninstallString", wstrRemove);
    EXPECT_EQ(Uninstall(L"QZWd"), QZRI_RSLT_NO_ERROR) << QZRITEST::Joined(m_vecTrace);
    EXPECT_TRUE(QZRITEST::HasInOrder(
        m_vecTrace, {"QZRIWRP I Registry changed but the product hasn't been uninstalled yet",
                     "QZRIWRP I Registry changed and the product was uninstalled"}));

    const std::wstring wstrQpd = m_folder.Join(L"product.qpd");
    QZTEST::WriteFileBytes(wstrQpd, "[SetupProcessResult_ErrorCodes]\r\n42=The product is in use.\r\n");
    SetString(KEY_WOW64_32KEY, InstallerKeyOf(L"QZWe", L"1.0"), L"UninstallString3QPD", wstrQpd);
    SetString(KEY_WOW64_32KEY, InstallerKeyOf(L"QZWe", L"1.0"), L"UninstallString3", Child(L"exit 42"));
    EXPECT_EQ(Uninstall(L"QZWe"), 42) << QZRITEST::Joined(m_vecTrace);
    EXPECT_FALSE(m_bRestart);
    EXPECT_TRUE(Described(L"The product is in use.")) << QZSTD::WideToUtf8(m_wstrDescription);
    EXPECT_TRUE(QZRITEST::HasInOrder(
        m_vecTrace,
        {"QZRIWRP I CUninstall::StartDeinstaller: We are using UninstallString3 so ignoring and "
         "waiting for process stop.",
         "QZRIWRP I CUninstall::StartDeinstaller: Installation process completed with code: '42'."}));
}

// (g) an uninstaller that never ends: the agent's stop ends the wait within a slice and the uninstaller
// is left running (the result's description is a row of UninstallTest.EndsBecomeResults).
TEST_F(UninstallWineTest, TheAgentsStopEndsTheWaitForAnUninstallerThatNeverEnds)
{
    const std::wstring wstrPidFile = m_folder.Join(L"pid.txt");
    SetString(KEY_WOW64_32KEY, InstallerKeyOf(L"QZWg", L"1.0"), L"UninstallString",
              Child(L"hang \"" + wstrPidFile + L"\""));
    std::thread stopper([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        m_shutdown.Raise();
    });
    const auto tpStart = std::chrono::steady_clock::now();
    EXPECT_EQ(Uninstall(L"QZWg"), QZRI_RSLT_GENERAL_ERROR);
    stopper.join();
    EXPECT_LT(std::chrono::steady_clock::now() - tpStart, std::chrono::seconds(5));
    const DWORD dwPid = std::stoul(QZTEST::ReadFileBytes(wstrPidFile));
    HANDLE hProcess = ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, dwPid);
    ASSERT_NE(hProcess, nullptr);
    EXPECT_EQ(::WaitForSingleObject(hProcess, 0), WAIT_TIMEOUT) << "still running";
    ::TerminateProcess(hProcess, 9);
    ::CloseHandle(hProcess);
}

}  // namespace
