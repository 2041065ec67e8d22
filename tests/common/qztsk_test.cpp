// A task's setup run with the test executable itself as the package's "setup.exe" (child modes of
// tests/std/process/testchild.h), natively and under Wine; the writable-folder lookup against a real
// settings storage and a registry map.
#include "common/qztsk.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <tuple>

// testchild.h brings <windows.h>, whose GetProfileInt macro std/profile.h takes away again.
#include "tests/std/process/testchild.h"

#include "common/ansicp.h"
#include "std/par/paramshelpers.h"
#include "std/profile.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "tests/testutil/fsutil.h"

namespace {

const bool g_bChildMode = QZTEST::RunChildModeIfAsked();

using QZTEST::RunningUnderWine;

std::wstring Native(const std::wstring& wstr)
{
    return QZRI::WideFromPath(QZRI::PathFromWide(wstr).make_preferred());
}

TEST(QztskSetup, InstallerCommandLine)
{
    // The setup's arguments, whether it runs in user mode, and the command line.
    const std::tuple<const wchar_t*, bool, const wchar_t*> cases[] = {
        {L"", false, L"\"C:\\p\\setup.exe\""},
        {L"/s /v\"/qn\"", false, L"\"C:\\p\\setup.exe\" /s /v\"/qn\""},
        {L"/s", true, L"\"C:\\p\\setup.exe\" /s USRMOD=1 "},
        {L"", true, L"\"C:\\p\\setup.exe\" USRMOD=1 "},
    };
    for (const auto& [szArguments, bUserMode, szExpected] : cases)
        EXPECT_EQ(QZTSK::BuildInstallerCommandLine(L"C:\\p\\setup.exe", szArguments, bUserMode), szExpected)
            << szArguments << bUserMode;
}

// The package's setup program is this executable; the child mode says what it does.
TEST(QztskSetup, RunsTheInstallerThroughTheWrapperAndReadsItsResult)
{
#ifdef _WIN32
    const int nExitCode = 3010;
#else
    const int nExitCode = 42;  // exit codes are 8 bits here
#endif
    // The child's mode, the qpd file, its companion (empty: none), whether the setup runs in user mode,
    // and the result: an executable package, the adapted product, the result code and standard error.
    const std::tuple<std::wstring, std::string, std::string, bool, bool, int32_t, int32_t, const char*>
        cases[] = {
            {L"exit:" + std::to_wstring(nExitCode), "[Product]\nName=executable_package\nAdaptedProduct=1\n",
             "[Product]\nAdaptedProduct=2\n", true, true, 2, nExitCode, ""},
            {L"echo", "[Product]\nName=Product X\n", "", false, false, 0, 0, "err-line"},
        };
    for (const auto& [wstrChildMode, strQpd, strQud, bUserMode, bExecutablePackage, nAdaptedProduct, nResult,
                      szStdErr] : cases) {
        SCOPED_TRACE(QZSTD::WideToUtf8(wstrChildMode));
        QZTEST::TempFolder folder;
        const std::wstring wstrPackage = folder.MakeSubFolder(L"pkg");
        // A folder with a blank and a parenthesis, as "C:\Program Files (x86)\..." has them.
        const std::wstring wstrWork = folder.MakeSubFolder(L"work dir (x86)");
        std::filesystem::copy_file(QZTEST::SelfPath(), QZRI::PathFromWide(wstrPackage + L"setup.exe"));
        QZTEST::WriteFileBytes(wstrPackage + L"pkg.qpd", strQpd);
        if (!strQud.empty())
            QZTEST::WriteFileBytes(wstrPackage + L"pkg.qud", strQud);
        // A result of an earlier run must not be taken for this one.
        QZTEST::WriteFileBytes(wstrWork + L"$qzsetuprslt.ini", "[cmd_proc_rslt]\nresult=77\nready=1\n");

        QZSTD::CAutoPtr<QZPAR::Params> pEnv = QZTEST::EnvOf({{L"QZ_TEST_CHILD", wstrChildMode}});
        QZTSK::SetupRequest request;
        request.m_wstrPackageFolder = wstrPackage;
        request.m_wstrQpdPath = wstrPackage + L"pkg.qpd";
        request.m_wstrAgentFolder = folder.Path();
        request.m_wstrWorkingFolder = wstrWork;
        request.m_wstrArguments = L"/s";
        request.m_bUserMode = bUserMode;
        request.m_pEnvironment = pEnv.Get();
        request.m_lTimeoutMs = 60000;
        const QZTSK::SetupResult result = QZTSK::Setup(request);

        EXPECT_EQ(result.m_bExecutablePackage, bExecutablePackage);
        EXPECT_EQ(result.m_nAdaptedProduct, nAdaptedProduct);
        EXPECT_EQ(result.m_wstrInstallerCommandLine,
                  QZTSK::BuildInstallerCommandLine(Native(wstrPackage + L"setup.exe"), L"/s", bUserMode));
        EXPECT_EQ(result.m_wstrRebootAgentCommandLine, L"\"" + Native(folder.Join(L"qzrbtagt.exe")) + L"\"");
        ASSERT_TRUE(result.m_bFinished);
        const std::wstring wstrResultFile = wstrWork + L"$qzsetuprslt.ini";
        EXPECT_EQ(1, QZSTD::GetProfileInt(wstrResultFile, L"cmd_proc_rslt", L"ready", -1));
        if (RunningUnderWine()) {
            // Wine's cmd.exe sets errorlevel 1 after "call" of any program: only a fresh file is certain.
            EXPECT_NE(77, result.m_nResultCode);
        } else {
            EXPECT_EQ(nResult, result.m_nResultCode);
        }
        // Standard error, and only it, goes to the file.
        const std::string strStdErr = QZTEST::ReadFileBytes(wstrWork + L"$qzsetuperr.txt");
        EXPECT_NE(std::string::npos, strStdErr.find(szStdErr));
        EXPECT_EQ(std::string::npos, strStdErr.find("out-line"));
    }
}

class MapRegistry : public QZRI::Registry
{
public:
    bool ReadLocalMachineString(const std::wstring& wstrKey, const std::wstring& wstrValueName,
                                std::wstring& wstrValue, QZRI::RegistryView) override
    {
        const auto it = m_mapValues.find(wstrKey + L"|" + wstrValueName);
        if (it == m_mapValues.end())
            return false;
        wstrValue = it->second;
        return true;
    }
    std::map<std::wstring, std::wstring> m_mapValues;
};

TEST(QztskLocalWritableFolder, StorageFirstThenRegistryThenEmpty)
{
    const std::wstring wstrShared = Native(L"D:\\shared/Data");
    // The section that holds the entry (nullptr: no storage file), the entry (nullptr: none; 5: stored as
    // a number), whether the registry names the shared folder, and the folder found.
    const std::tuple<const char*, const wchar_t*, const wchar_t*, bool, std::wstring> cases[] = {
        {"storage value wins", L"SubscriptionData", L"C:\\lwf", true, L"C:\\lwf"},
        {"no storage file", nullptr, nullptr, true, wstrShared},
        {"value in another section", L"Other", L"C:\\lwf", true, wstrShared},
        {"no value", L"SubscriptionData", nullptr, true, wstrShared},
        {"value not a string", L"SubscriptionData", L"5", true, wstrShared},
        {"nothing anywhere", L"SubscriptionData", nullptr, false, L""},
    };
    for (const auto& [szName, szSection, szValue, bRegistry, wstrExpected] : cases) {
        SCOPED_TRACE(szName);
        QZTEST::TempFolder folder;
        const std::wstring wstrPath = folder.Join(L"e2s_subscription.xml");
        if (szSection) {
            QZSTD::CAutoPtr<QZSTD::SettingsStorage> pSs = QZSTD::SettingsStorage::OpenOrCreate(wstrPath);
            pSs->CreateSection(L".core", L".independent", szSection);
            QZSTD::CAutoPtr<QZPAR::Params> pEntries = QZPAR::CreateParams();
            QZPAR::SetStringValue(pEntries.Get(), L"Unrelated", L"x");
            if (szValue && szValue == std::wstring(L"5"))
                QZPAR::SetIntValue(pEntries.Get(), L"LocalWritableFolder", 5);
            else if (szValue)
                QZPAR::SetStringValue(pEntries.Get(), L"LocalWritableFolder", szValue);
            pSs->ReplaceEntries(L".core", L".independent", szSection, pEntries.Get());
        }
        MapRegistry registry;
        if (bRegistry)
            registry.m_mapValues[L"Software\\OrvaneLab\\SharedFiles|Folder"] = L"D:\\shared";
        EXPECT_EQ(QZTSK::GetLocalWritableFolder(wstrPath, registry), wstrExpected);
    }
}

#ifdef _WIN32
// The Win32 side against the real registry (under Wine, or on Windows with rights on HKLM).
TEST(QztskLocalWritableFolder, SystemRegistryReadsStringsOnly)
{
    const std::wstring wstrKey = L"Software\\QzTest\\Registry" + std::to_wstring(::GetCurrentProcessId());
    HKEY hKey = nullptr;
    if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey,
                          nullptr) != ERROR_SUCCESS)
        GTEST_SKIP() << "no rights on HKEY_LOCAL_MACHINE";
    const auto SetValue = [&](const wchar_t* szName, DWORD dwType, const void* pData, DWORD dwBytes) {
        ::RegSetValueExW(hKey, szName, 0, dwType, static_cast<const BYTE*>(pData), dwBytes);
    };
    const wchar_t szFolder[] = L"C:\\Shared";
    SetValue(L"Folder", REG_SZ, szFolder, sizeof(szFolder));
    // Stored without its null character: the reader must not run past the data.
    SetValue(L"Unterminated", REG_SZ, L"abc", 3 * sizeof(wchar_t));
    SetValue(L"Empty", REG_SZ, L"", sizeof(wchar_t));
    const DWORD dwNumber = 5;
    SetValue(L"Number", REG_DWORD, &dwNumber, sizeof(dwNumber));
    ::RegCloseKey(hKey);
    // The key, the value's name, whether it is found and what is read.
    const std::tuple<const wchar_t*, const wchar_t*, bool, const wchar_t*> cases[] = {
        {wstrKey.c_str(), L"Folder", true, L"C:\\Shared"},
        {wstrKey.c_str(), L"Unterminated", true, L"abc"},
        {wstrKey.c_str(), L"Empty", true, L""},
        {wstrKey.c_str(), L"Number", false, L"untouched"},
        {wstrKey.c_str(), L"Missing", false, L"untouched"},
        {L"Software\\QzTest\\NoSuchKey", L"Folder", false, L"untouched"},
    };
    for (const auto& [szKey, szName, bFound, szValue] : cases) {
        std::wstring wstrValue = L"untouched";
        EXPECT_EQ(QZRI::SystemRegistry().ReadLocalMachineString(szKey, szName, wstrValue), bFound) << szName;
        EXPECT_EQ(wstrValue, szValue) << szName;
    }
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, wstrKey.c_str());

    // A key of the 32-bit view is found in that view only (this test runs as a 64-bit program).
    ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), 0, nullptr, 0,
                                KEY_ALL_ACCESS | KEY_WOW64_32KEY, nullptr, &hKey, nullptr),
              ERROR_SUCCESS);
    SetValue(L"Folder", REG_SZ, szFolder, sizeof(szFolder));
    ::RegCloseKey(hKey);
    for (const QZRI::RegistryView eView : {QZRI::RegistryView::VIEW_32, QZRI::RegistryView::VIEW_64}) {
        std::wstring wstrValue;
        EXPECT_EQ(QZRI::SystemRegistry().ReadLocalMachineString(wstrKey, L"Folder", wstrValue, eView),
                  eView == QZRI::RegistryView::VIEW_32 && sizeof(void*) == 8);
    }
    ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, wstrKey.c_str(), KEY_WOW64_32KEY, 0);
}
#else
// A registry that finds nothing ends the lookup empty: the table's "nothing anywhere" row.
TEST(QztskLocalWritableFolder, NoRegistryOnLinux)
{
    std::wstring wstrValue = L"untouched";
    EXPECT_FALSE(QZRI::SystemRegistry().ReadLocalMachineString(L"Software\\OrvaneLab\\SharedFiles", L"Folder",
                                                               wstrValue));
    EXPECT_EQ(wstrValue, L"untouched");
}
#endif

}  // namespace
