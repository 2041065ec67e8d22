// Windows Installer itself (msi.dll under Wine) on packages that wixl built for this test: what lands on
// the machine, what the handlers collect, why a package failed, that no password reaches the trace or
// the log, and that the caller's own handlers and UI level are back after every installation.
#include <windows.h>

#include <msi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "common/msisetup/msisetup.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/msicallback.h"

namespace {

using namespace QZRI;
using Params = std::vector<MsiSetupParameter>;

constexpr const wchar_t* CANARY = L"Canary-7f3a9Q";

std::wstring FixtureMsi(const std::wstring& wstrVariant)
{
    std::wstring wstrPath = L"Z:" + QZSTD::Utf8ToWide(QZ_TEST_MSI_DIR) + L"/qztest-" + wstrVariant + L".msi";
    for (wchar_t& c : wstrPath)
        c = c == L'/' ? L'\\' : c;
    return wstrPath;
}

bool HoldsSecret(const std::string& strBytes, const std::wstring& wstrSecret)
{
    return strBytes.find(QZSTD::WideToUtf8(wstrSecret)) != std::string::npos ||
           strBytes.find(QZSTD::WideToUtf16LeBytes(wstrSecret, false)) != std::string::npos;
}

std::wstring RegistryString(const std::wstring& wstrKey, const std::wstring& wstrName)
{
    wchar_t sz[256] = {};
    DWORD dwSize = sizeof(sz);
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), wstrName.c_str(), RRF_RT_REG_SZ, nullptr, sz,
                       &dwSize) != ERROR_SUCCESS)
        return L"<none>";
    return sz;
}

// The Uninstall key of the installed "plain" test product, found through its upgrade code; "" when it
// is not installed.
std::wstring UninstallKey()
{
    wchar_t szProduct[39] = {};
    if (::MsiEnumRelatedProductsW(L"{5C0E1A7B-3D2F-4B6A-8E9C-1F2A3B4C5D01}", 0, 0, szProduct) !=
        ERROR_SUCCESS)
        return std::wstring();
    return std::wstring(L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\") + szProduct;
}

// The caller's own handlers and UI level, which every installation must leave as it found them.
int WINAPI CallerStringHandler(LPVOID, UINT, LPCWSTR)
{
    return 0;
}
int WINAPI CallerRecordHandler(LPVOID, UINT, MSIHANDLE)
{
    return 0;
}

class WindowsInstallerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_pInstaller = CreateSystemWindowsInstaller();
        ::MsiSetExternalUIW(&CallerStringHandler, INSTALLLOGMODE_ERROR, nullptr);
        ::MsiSetExternalUIRecord(&CallerRecordHandler, INSTALLLOGMODE_ERROR, nullptr, nullptr);
        ::MsiSetInternalUI(INSTALLUILEVEL_BASIC, nullptr);
        ASSERT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
    }

    void TearDown() override
    {
        QZSTD::TraceClose();
        ::MsiSetExternalUIW(nullptr, 0, nullptr);
        ::MsiSetExternalUIRecord(nullptr, 0, nullptr, nullptr);
        ::MsiSetInternalUI(INSTALLUILEVEL_DEFAULT, nullptr);
    }

    // Installs and checks that the caller's handlers and UI level came back.
    uint32_t Install(const std::wstring& wstrPackage, Params vecParams, const std::wstring& wstrLog)
    {
        m_pSetup = CreateMsiSetup(wstrPackage, std::move(vecParams), m_callback, *m_pInstaller, wstrLog);
        const uint32_t nResult = m_pSetup->Launch(MsiLaunchOptions(), m_vecExternal);
        INSTALLUI_HANDLER_RECORD pfnRecord = nullptr;
        ::MsiSetExternalUIRecord(&CallerRecordHandler, INSTALLLOGMODE_ERROR, nullptr, &pfnRecord);
        EXPECT_EQ(pfnRecord, &CallerRecordHandler) << "record handler not restored";
        EXPECT_EQ(::MsiSetExternalUIW(&CallerStringHandler, INSTALLLOGMODE_ERROR, nullptr),
                  &CallerStringHandler)
            << "string handler not restored";
        EXPECT_EQ(::MsiSetInternalUI(INSTALLUILEVEL_NOCHANGE, nullptr), INSTALLUILEVEL_BASIC)
            << "UI level not restored";
        EXPECT_EQ(CurrentMsiSetup(), nullptr);
        return nResult;
    }

    std::wstring MessagesSeen() const
    {
        std::wstring wstr;
        for (const std::wstring& wstrNote : m_callback.m_vecNotes)
            wstr += wstrNote + L"\n";
        return wstr;
    }

    std::string TraceBytes()
    {
        QZSTD::TraceClose();
        const std::string str = QZTEST::ReadFileBytes(m_folder.Join(L"trace.txt"));
        QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, true);
        return str;
    }

    QZTEST::TempFolder m_folder;
    std::unique_ptr<WindowsInstaller> m_pInstaller;
    QZTEST::RecordingMsiCallback m_callback{0};
    QZMsiSetup::Ptr m_pSetup;
    Params m_vecExternal;
};

// A product with a file and a registry value from a public property, installed with a password
// property, then removed in the same process: the machine changes, the log is where it was asked to
// be, and the password is in neither the log nor the trace.
TEST_F(WindowsInstallerTest, InstallsAndRemovesAProductWithoutLeakingItsPassword)
{
    const std::wstring wstrLog = m_folder.Join(L"install.log");
    const Params params{{L"EXAMPLEDATA", L"from the agent", 0}, {L"PROXYPASSWORD", CANARY, 1}};
    ASSERT_EQ(Install(FixtureMsi(L"plain"), params, wstrLog), MSI_ERROR_SUCCESS);
    EXPECT_TRUE(QZTEST::PathExists(L"C:\\Program Files\\QZ Test plain\\readme.txt"));
    EXPECT_EQ(RegistryString(L"Software\\QZ Test plain", L"Data"), L"from the agent");
    EXPECT_EQ(RegistryString(UninstallKey(), L"DisplayName"), L"QZ Test plain");
    EXPECT_THAT(m_callback.m_vecNotes, testing::Contains(testing::StartsWith(L"action:")));
    const std::string strLog = QZTEST::ReadFileBytes(wstrLog);
    EXPECT_FALSE(strLog.empty());
    EXPECT_FALSE(HoldsSecret(strLog, CANARY));
    EXPECT_FALSE(HoldsSecret(TraceBytes(), CANARY));

    ASSERT_EQ(Install(FixtureMsi(L"plain"), {{L"REMOVE", L"ALL", 0}}, m_folder.Join(L"remove.log")),
              MSI_ERROR_SUCCESS);
    EXPECT_FALSE(QZTEST::PathExists(L"C:\\Program Files\\QZ Test plain\\readme.txt"));
    EXPECT_EQ(RegistryString(L"Software\\QZ Test plain", L"Data"), L"<none>");
    EXPECT_EQ(UninstallKey(), L"") << "the product is gone";
}

// A package that stops the installation, and input that is no package: Windows Installer's answer is the
// result, a custom action that failed is named, and nothing is installed. How any other answer (a launch
// condition, a damaged or a missing package) becomes the result is MsiLaunchTest's.
TEST_F(WindowsInstallerTest, AFailedInstallationReturnsTheInstallersAnswerAndNamesTheFailedAction)
{
    const std::wstring wstrNotMsi = m_folder.Join(L"notmsi.msi");
    QZTEST::WriteFileBytes(wstrNotMsi, "MZ this is no installer database");
    // Wine's installer answers a file that is no package with 1627 (function failed), Windows with 1620.
    const uint32_t nInvalid =
        QZTEST::RunningUnderWine() ? ERROR_FUNCTION_FAILED : ERROR_INSTALL_PACKAGE_INVALID;
    // What is tried, the package, the parameters, the result and what the description must hold ("" when
    // nothing is asked).
    using Row = std::tuple<const char*, std::wstring, Params, uint32_t, std::wstring>;
    const Row rows[] = {
        Row("failing custom action", FixtureMsi(L"fail"), {}, MSI_ERROR_INSTALL_FAILURE,
            L"Action QzFailingAction"),
        Row("no installer database", wstrNotMsi, {}, nInvalid, L""),
        // A value goes to the installer as it is: a lone quote breaks its command line.
        Row("value with a quote", FixtureMsi(L"plain"), {{L"EXAMPLEDATA", L"a\"b", 0}},
            ERROR_INVALID_COMMAND_LINE, L""),
    };
    for (const auto& [szWhat, wstrPackage, vecParams, nResult, wstrFailure] : rows) {
        SCOPED_TRACE(szWhat);
        EXPECT_EQ(Install(wstrPackage, vecParams, m_folder.Join(L"failed.log")), nResult);
        EXPECT_NE(m_pSetup->FailureDescription().find(wstrFailure), std::wstring::npos)
            << QZSTD::WideToUtf8(m_pSetup->FailureDescription() + L"\nmessages:\n" + MessagesSeen());
    }
    EXPECT_FALSE(QZTEST::PathExists(L"C:\\Program Files\\QZ Test plain\\readme.txt"));
    EXPECT_FALSE(QZTEST::PathExists(L"C:\\Program Files\\QZ Test fail\\readme.txt"));
}

// A custom action hands the agent a property through an information message; the property is
// collected, and a log folder that does not exist does not stop the installation.
TEST_F(WindowsInstallerTest, APropertyHandedOverByTheInstallationIsCollected)
{
    const std::wstring wstrLog = m_folder.Join(L"no such folder\\property.log");
    ASSERT_EQ(Install(FixtureMsi(L"property"), {}, wstrLog), MSI_ERROR_SUCCESS);
    EXPECT_EQ(m_vecExternal, (Params{{L"QZ_LICENSE_KEY", L"ABCD-1234", 0}}));
    EXPECT_EQ(Install(FixtureMsi(L"property"), {{L"REMOVE", L"ALL", 0}}, wstrLog), MSI_ERROR_SUCCESS);
}

}  // namespace
