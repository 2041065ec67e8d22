// Removing a previous product: resolving it, building its uninstaller's command line, running it and
// deciding when the product is gone (docs/uninstall.md).
#include "qzri/riwrap/uninstall.h"

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <thread>

#include "common/msisetup/msisetup.h"
#include "common/qpdfile.h"
#include "common/ristrutils.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/msidriver.h"
#include "qzri/riwrap/resultcheck.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/error.h"
#include "std/profile.h"
#include "std/pwdstore.h"
#include "std/shutdown.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {

namespace {

constexpr const char* MODULE = "QZRIWRP";

bool EqualNoCase(const std::wstring& wstrA, const std::wstring& wstrB)
{
    return wstrA.size() == wstrB.size() &&
           std::equal(wstrA.begin(), wstrA.end(), wstrB.begin(),
                      [](wchar_t a, wchar_t b) { return std::towlower(a) == std::towlower(b); });
}

// The first "{...}" of a command line (an MSI product code in "MsiExec.exe /X{...}"); empty when none.
std::wstring BracedCodeOf(const std::wstring& wstrCmdLine)
{
    const size_t nOpen = wstrCmdLine.find(L'{');
    const size_t nClose = nOpen == std::wstring::npos ? nOpen : wstrCmdLine.find(L'}', nOpen);
    return nClose == std::wstring::npos ? std::wstring() : wstrCmdLine.substr(nOpen, nClose - nOpen + 1);
}

// Windows Installer registers "MsiExec.exe /I{code}" for a product that may be modified: run quietly, that
// command repairs the product instead of removing it. The same command with /X removes it.
std::wstring MsiRemovalCommand(const std::wstring& wstrCmdLine)
{
    std::wstring wstrLower = wstrCmdLine;
    for (wchar_t& c : wstrLower)
        c = static_cast<wchar_t>(std::towlower(c));
    const size_t nProgram = wstrLower.find(L"msiexec");
    const size_t nSwitch = wstrLower.find(L"/i", nProgram == std::wstring::npos ? 0 : nProgram);
    if (nProgram == std::wstring::npos || nProgram > 1 || nSwitch == std::wstring::npos)
        return wstrCmdLine;
    const size_t nCode = wstrLower.find_first_not_of(L" \t", nSwitch + 2);
    if (nCode == std::wstring::npos || wstrLower[nCode] != L'{')
        return wstrCmdLine;
    std::wstring wstrOut = wstrCmdLine;
    wstrOut[nSwitch + 1] = L'X';
    return wstrOut;
}

// A user or password goes into the uninstaller's command line as it is; a double quote there would end
// the quoted part early and the uninstaller would get another command than the one traced.
void CheckNoQuote(const std::wstring& wstrValue, const char* szName)
{
    if (wstrValue.find(L'"') != std::wstring::npos)
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, szName);
}

// Windows Installer's removal by product code behind the installer service that QZMsiSetup drives: the
// "package" it installs is the product code, removed instead; everything else (log, message handlers,
// user interface level) is the system service's.
class RemovalByProductCode : public WindowsInstaller
{
public:
    RemovalByProductCode(WindowsInstaller& installer, MsiProducts& msi) : m_installer(installer), m_msi(msi)
    {
    }
    uint32_t MsiDllVersion() override { return m_installer.MsiDllVersion(); }
    std::wstring LogFolder() override { return m_installer.LogFolder(); }
    std::wstring LocalTimeStamp() override { return m_installer.LocalTimeStamp(); }
    uint32_t EnableLog(uint32_t nMode, const std::wstring& wstrPath) override
    {
        return m_installer.EnableLog(nMode, wstrPath);
    }
    uint32_t SetRecordHandler(MsiMessageSink* pSink, uint32_t nFilter) override
    {
        return m_installer.SetRecordHandler(pSink, nFilter);
    }
    void SetStringHandlerAndNoUi(MsiMessageSink* pSink, uint32_t nFilter) override
    {
        m_installer.SetStringHandlerAndNoUi(pSink, nFilter);
    }
    void RestoreHandlers(bool bRecord) override { m_installer.RestoreHandlers(bRecord); }
    uint32_t InstallProduct(const std::wstring& wstrProductCode, const std::wstring& wstrCmdLine) override
    {
        return m_msi.RemoveProduct(wstrProductCode, wstrCmdLine);
    }
    uint32_t ApplyPatch(const std::wstring&, const std::wstring&) override { return MSI_ERROR_NOT_SUPPORTED; }

private:
    WindowsInstaller& m_installer;
    MsiProducts& m_msi;
};

}  // namespace

std::vector<std::wstring> KnownUpgradeCodes(const std::wstring& wstrFile, const wchar_t* szSection,
                                            const std::wstring& wstrProduct)
{
    std::vector<std::wstring> vecCodes;
    if (wstrFile.empty() || wstrProduct.empty())
        return vecCodes;
    const std::wstring wstrList = QZSTD::GetProfileString(wstrFile, szSection, wstrProduct.c_str(), L"");
    size_t nStart = 0;
    while (nStart <= wstrList.size()) {
        size_t nEnd = wstrList.find(L',', nStart);
        if (nEnd == std::wstring::npos)
            nEnd = wstrList.size();
        const std::wstring wstrCode = Trimmed(wstrList.substr(nStart, nEnd - nStart));
        if (!wstrCode.empty())
            vecCodes.push_back(wstrCode);
        nStart = nEnd + 1;
    }
    return vecCodes;
}

std::wstring InstallerKeyOf(const std::wstring& wstrProduct, const std::wstring& wstrVersion)
{
    return std::wstring(COMPONENTS_KEY) + L"\\" + wstrProduct + L"\\" + wstrVersion + L"\\Installer";
}

bool QuotesBalanced(const std::wstring& wstrCmdLine)
{
    return std::count(wstrCmdLine.begin(), wstrCmdLine.end(), L'"') % 2 == 0;
}

const wchar_t* UninstallKindName(uint32_t nType)
{
    switch (nType) {
        case KIND_UNKNOWN:
            return L"unknown installer";
        case KIND_LEGACY_ISHIELD:
            return L"InstallShield (legacy)";
        case KIND_LEGACY_MSI:
            return L"MSI (legacy)";
        default:
            return L"unresolved";
    }
}

}  // namespace QZRI

namespace QZRIWRP {

namespace {
constexpr const char* MODULE = "QZRIWRP";
}

using QZRI::BracedCodeOf;
using QZRI::CheckNoQuote;
using QZRI::EqualNoCase;
using QZRI::RegistryView;
using QZRI::Trimmed;

CUninstall::CUninstall(const QZRI::UninstallDeps& deps) : m_deps(deps)
{
    if (!m_deps.m_fnLaunch)
        m_deps.m_fnLaunch = [](const QZRI::LaunchOptions& options, QZSTD::LaunchWaiter** ppWaiter) {
            QZRI::LaunchAsync(options, ppWaiter);
        };
}

void CUninstall::Fail(int32_t nCode, const std::wstring& wstrWhy)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Fail");
    m_lResultCode = nCode;
    m_eEnd = QZRI::UninstallEnd::FAILED;
    m_wstrDescription = wstrWhy;
    QZ_TRACE_E(L"%hs: %ls\n", QZ_SCOPE_NAME, QZRI::MaskPasswords(wstrWhy));
}

void CUninstall::Run(const wchar_t* szIniFile, const wchar_t* szSetupExeDir, const wchar_t* szSetupLogFile,
                     const wchar_t* szTaskId)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Run");
    if (!Prepare(szIniFile, szSetupExeDir, szSetupLogFile, szTaskId))
        return;
    Process();
}

bool CUninstall::Prepare(const wchar_t* szIniFile, const wchar_t* szSetupExeDir,
                         const wchar_t* szSetupLogFile, const wchar_t* szTaskId)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Run");
    QZ_TRACE_I(L"%hs: szIniFile = '%ls', szSetupExeDir = '%ls', szSetupLogFile = '%ls', szTaskId = '%ls'.",
               QZ_SCOPE_NAME, szIniFile ? szIniFile : L"(null)", szSetupExeDir ? szSetupExeDir : L"(null)",
               szSetupLogFile ? szSetupLogFile : L"(null)", szTaskId ? szTaskId : L"(null)");
    if (!szIniFile)
        QZ_ASSERTION_FAILED("szIniFile");
    if (!szSetupExeDir)
        QZ_ASSERTION_FAILED("szSetupExeDir");
    if (!szSetupLogFile)
        QZ_ASSERTION_FAILED("szSetupLogFile");
    if (!szTaskId)
        QZ_ASSERTION_FAILED("szTaskId");
    m_wstrIniFile = szIniFile;
    m_wstrSetupExeDir = szSetupExeDir;
    m_wstrSetupLogFile = szSetupLogFile;
    m_wstrTaskId = szTaskId;

    const std::wstring wstrProduct = QZSTD::GetProfileString(m_wstrIniFile, L"Uninstall", L"Product", L"");
    const std::wstring wstrVersion = QZSTD::GetProfileString(m_wstrIniFile, L"Uninstall", L"Version", L"");
    if (wstrProduct.empty() || wstrVersion.empty()) {
        QZ_TRACE_E(L"%hs: !szProduct[0] || !szVersion[0]", QZ_SCOPE_NAME);
        QZ_THROW_STD(QZSTD::Err::PRODUCT_MISSING);
    }
    if (!ResolveProduct(wstrProduct, wstrVersion)) {
        if (m_eEnd != QZRI::UninstallEnd::FAILED) {
            m_eEnd = QZRI::UninstallEnd::NOT_INSTALLED;
            m_wstrDescription = L"'" + wstrProduct + L"' " + wstrVersion + L" is not installed.";
            QZ_TRACE_I(L"%hs: %ls Nothing to uninstall.\n", QZ_SCOPE_NAME, m_wstrDescription);
        }
        return false;
    }
    QZ_TRACE_I(L"%hs: ResolveProduct returned true. Starting processing. Acquiring uninstall user...",
               QZ_SCOPE_NAME);
    m_wstrUser = QZSTD::GetProfileString(m_wstrIniFile, L"Uninstall", L"UninstallUser", L"");
    QZ_TRACE_I(L"%hs:...acquiring uninstall user = '%ls', length = '%u'.", QZ_SCOPE_NAME, m_wstrUser,
               static_cast<unsigned>(m_wstrUser.size()));
    const std::wstring wstrData = QZSTD::GetProfileString(m_wstrIniFile, L"Uninstall", L"UninstallData", L"");
    if (!wstrData.empty()) {
        QZ_TRACE_I(L"%hs: pasword is non empty, handle password.", QZ_SCOPE_NAME);
        try {
            UnprotectUninstallData(wstrData);
        } catch (const QZSTD::QZError& e) {
            if (e.Is(QZSTD::Err::MODULE, QZSTD::Err::ASSERTION))
                throw;
            QZ_TRACE_EXCEPTION(e);
            Fail(QZRI::QZRI_RSLT_GENERAL_ERROR,
                 L"The uninstall password (\"UninstallData\") cannot be used: " + e.GetMessage() +
                     L" Nothing was started.");
            return false;
        }
        QZ_TRACE_I(L"...acquiring uninstall password, length=%u\n",
                   static_cast<unsigned>(m_wstrPassword.size()));
    }
    return true;
}

// Hexadecimal text -> protected bytes -> the password store -> UTF-16LE bytes -> wide text.
void CUninstall::UnprotectUninstallData(const std::wstring& wstrHex)
{
    if (wstrHex.size() % 2 != 0)
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, "UninstallData");
    std::string strProtected;
    strProtected.reserve(wstrHex.size() / 2);
    for (size_t n = 0; n < wstrHex.size(); n += 2) {
        const int nHigh = QZSTD::HexDigitValue(wstrHex[n]);
        const int nLow = QZSTD::HexDigitValue(wstrHex[n + 1]);
        if (nHigh < 0 || nLow < 0)
            QZ_THROW_STD(QZSTD::Err::BAD_PARAM, "UninstallData");
        strProtected += static_cast<char>(nHigh * 16 + nLow);
    }
    const std::string strClear = QZSTD::UnprotectData(strProtected);
    if (strClear.size() % 2 != 0)
        QZ_ASSERTION_FAILED("dwDataSize % sizeof(wchar_t) == 0");
    m_wstrPassword = QZSTD::Utf16LeBytesToWide(strClear);
}

bool CUninstall::ResolveProduct(const std::wstring& wstrProduct, const std::wstring& wstrVersion)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::ResolveProduct");
    QZ_TRACE_I(L"%hs: szProduct='%ls', szVersion = '%ls'.", QZ_SCOPE_NAME, wstrProduct, wstrVersion);
    using Resolver = bool (CUninstall::*)(const std::wstring&, const std::wstring&, bool&);
    static constexpr Resolver resolvers[] = {
        &CUninstall::Unknown_Resolve,
        &CUninstall::LegacyIShield_ResolveForKnownApp,
        &CUninstall::LegacyMsi_ResolveForKnownApp,
        &CUninstall::LegacyIShield_ResolveForUnknownApp,
    };
    for (const Resolver resolver : resolvers) {
        bool bResolved = false;
        bool bNoError = false;
        try {
            bNoError = (this->*resolver)(wstrProduct, wstrVersion, bResolved);
        } catch (const QZSTD::QZError& e) {
            // A registry that cannot be read, a value of the wrong type: the product is not understood.
            QZ_TRACE_EXCEPTION(e);
            Fail(QZRI::QZRI_RSLT_GENERAL_ERROR, L"The installation of '" + wstrProduct + L"' " + wstrVersion +
                                                    L" cannot be read: " + e.GetMessage() +
                                                    L" Nothing was started.");
            bResolved = false;
        }
        if (bResolved) {
            QZ_TRACE_I(L"%hs: Success nType = %u, prodcode = '%ls'\n", QZ_SCOPE_NAME, m_nType,
                       m_wstrProdCode);
            return true;
        }
        if (!bNoError) {
            if (m_eEnd != QZRI::UninstallEnd::FAILED)
                Fail(QZRI::QZRI_RSLT_GENERAL_ERROR,
                     L"Finding the installation of '" + wstrProduct + L"' failed. Nothing was started.");
            QZ_TRACE_E(L"%hs: Error occured while resolving, m_bNeedProcessing = '%u', m_lResultCode = '%u'.",
                       QZ_SCOPE_NAME, m_bNeedProcessing ? 1u : 0u, static_cast<uint32_t>(m_lResultCode));
            return false;
        }
    }
    return false;
}

bool CUninstall::FindInstallerKey(const std::wstring& wstrKey, RegistryView& eView, bool bTraceWow64)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Unknown_Resolve");
    eView = QZRI::UNINSTALL_DEFAULT_VIEW;
    if (m_deps.m_pRegistry->LocalMachineKeyExists(wstrKey, eView))
        return true;
    if (!m_deps.m_pRegistry->HasSixtyFourBitView())
        return false;
    if (bTraceWow64)
        QZ_TRACE_I(L"%hs: search in strKey = '%ls' with KEY_WOW64_64KEY flag .", QZ_SCOPE_NAME, wstrKey);
    eView = RegistryView::VIEW_64;
    return m_deps.m_pRegistry->LocalMachineKeyExists(wstrKey, eView);
}

bool CUninstall::ReadInstallerString(const std::wstring& wstrKey, RegistryView eView, const wchar_t* szName,
                                     std::wstring& wstrValue)
{
    QZRI::RegistryValue value;
    if (!m_deps.m_pRegistry->ReadLocalMachineValue(wstrKey, szName, value, eView))
        return false;
    const std::optional<std::wstring> text = QZRI::RegistryValueText(value);
    if (!text) {
        QZ_TRACE_SCOPE(MODULE, "CUninstall::ReadInstallerString");
        QZ_TRACE_E(L"%hs: '%ls' of '%ls' (%ls view) is of type %u, not a string.\n", QZ_SCOPE_NAME, szName,
                   wstrKey, QZRI::RegistryViewName(eView), value.m_nType);
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, wstrKey + L"\\" + szName + L" (not a string)");
    }
    wstrValue = *text;
    return true;
}

bool CUninstall::Unknown_Resolve(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                                 bool& bResolved)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Unknown_Resolve");
    bResolved = false;
    const std::wstring wstrKey = QZRI::InstallerKeyOf(wstrProduct, wstrVersion);
    QZ_TRACE_I(L"%hs: strKey = '%ls'.", QZ_SCOPE_NAME, wstrKey);
    RegistryView eView = QZRI::UNINSTALL_DEFAULT_VIEW;
    if (!FindInstallerKey(wstrKey, eView, true))
        return true;

    std::wstring wstrCmd;
    bool bUninstallString3 = false;
    if (ReadInstallerString(wstrKey, eView, L"UninstallString3", wstrCmd)) {
        QZ_TRACE_I(L"%hs: UninstallString3 found - '%ls'.", QZ_SCOPE_NAME, QZRI::MaskPasswords(wstrCmd));
        bUninstallString3 = true;
    } else if (ReadInstallerString(wstrKey, eView, L"UninstallString2", wstrCmd)) {
        QZ_TRACE_I(L"%hs: UninstallString2 found !\n", QZ_SCOPE_NAME);
    } else {
        QZ_TRACE_I(L"%hs: Check for 'UninstallString'.", QZ_SCOPE_NAME);
        ReadInstallerString(wstrKey, eView, L"UninstallString", wstrCmd);
    }
    std::wstring wstrQpd;
    if (bUninstallString3) {
        if (ReadInstallerString(wstrKey, eView, L"UninstallString3QPD", wstrQpd))
            QZ_TRACE_I(L"%hs: UninstallString3QPD found: '%ls'.", QZ_SCOPE_NAME, wstrQpd);
        else
            QZ_TRACE_W(L"%hs: UninstallString3QPD NOT FOUND !!!\n", QZ_SCOPE_NAME);
    }
    QZ_TRACE_I(L"%hs: Uninstall command line: '%ls'.", QZ_SCOPE_NAME, QZRI::MaskPasswords(wstrCmd));
    std::wstring wstrCode;
    const bool bHasCode = ReadInstallerString(wstrKey, eView, L"ProductCode", wstrCode) && !wstrCode.empty();
    if (bHasCode)
        QZ_TRACE_I(L"%hs: Uninstall product code: '%ls'.", QZ_SCOPE_NAME, wstrCode);
    if (!bHasCode) {
        // A key without a command of its own may still name a legacy setup ("IShieldProductCode").
        if (Trimmed(wstrCmd).empty()) {
            QZ_TRACE_I(L"%hs: no uninstall command and no product code: not this kind.\n", QZ_SCOPE_NAME);
            return true;
        }
        // Without a product code the command is all there is: it must be one that can be started as read.
        if (!QZRI::QuotesBalanced(wstrCmd)) {
            Fail(QZRI::QZRI_RSLT_GENERAL_ERROR, L"The uninstall command of '" + wstrKey +
                                                    L"' has unbalanced quotes: " +
                                                    QZRI::MaskPasswords(wstrCmd) + L". Nothing was started.");
            return false;
        }
        // The Uninstall entry the command belongs to tells when the product is gone.
        wstrCode = FindUninstallEntry(wstrCmd);
    }
    m_nType = QZRI::KIND_UNKNOWN;
    m_bUninstallString3 = bUninstallString3;
    m_wstrUninstallCmd = wstrCmd;
    m_wstrUninstallString3Qpd = wstrQpd;
    m_bHasProductCode = bHasCode;
    m_wstrProdCode = wstrCode;
    bResolved = true;
    return true;
}

// The Uninstall subkey whose "UninstallString" is the command, in either view; else the "{...}" of the
// command when an Uninstall subkey of that name exists; else nothing (only the command's end can tell).
std::wstring CUninstall::FindUninstallEntry(const std::wstring& wstrCmdLine)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::FindUninstallEntry");
    const std::wstring wstrWanted = Trimmed(wstrCmdLine);
    for (const RegistryView eView : Views()) {
        for (const std::wstring& wstrName :
             m_deps.m_pRegistry->LocalMachineSubKeys(QZRI::UNINSTALL_KEY, eView)) {
            std::wstring wstrCmd;
            if (m_deps.m_pRegistry->ReadLocalMachineString(
                    std::wstring(QZRI::UNINSTALL_KEY) + L"\\" + wstrName, L"UninstallString", wstrCmd,
                    eView) &&
                EqualNoCase(Trimmed(wstrCmd), wstrWanted)) {
                QZ_TRACE_I(L"%hs: the command belongs to the entry '%ls' (%ls view).\n", QZ_SCOPE_NAME,
                           wstrName, QZRI::RegistryViewName(eView));
                return wstrName;
            }
        }
    }
    const std::wstring wstrBraced = BracedCodeOf(wstrCmdLine);
    if (!wstrBraced.empty() && !KeysMissing({wstrBraced}, nullptr)) {
        QZ_TRACE_I(L"%hs: the command names the entry '%ls'.\n", QZ_SCOPE_NAME, wstrBraced);
        return wstrBraced;
    }
    QZ_TRACE_W(L"%hs: no Uninstall entry has this command: only its end tells the result.\n", QZ_SCOPE_NAME);
    return {};
}

bool CUninstall::ResolveKnown(const std::wstring& wstrProduct, const wchar_t* szSection, uint32_t nType,
                              bool& bResolved)
{
    QZ_TRACE_SCOPE(MODULE, nType == QZRI::KIND_LEGACY_MSI ? "CUninstall::LegacyMsi_ResolveForKnownApp"
                                                          : "CUninstall::LegacyIShield_ResolveForKnownApp");
    bResolved = false;
    const std::vector<std::wstring> vecCodes =
        QZRI::KnownUpgradeCodes(m_deps.m_wstrKnownProductsFile, szSection, wstrProduct);
    if (vecCodes.empty()) {
        QZ_TRACE_I(L"%hs: '%ls' is not in [%ls] of '%ls'.\n", QZ_SCOPE_NAME, wstrProduct, szSection,
                   m_deps.m_wstrKnownProductsFile);
        return true;
    }
    for (const std::wstring& wstrUpgradeCode : vecCodes) {
        std::wstring wstrProductCode;
        const uint32_t nError = m_deps.m_pMsi->EnumRelatedProducts(wstrUpgradeCode, 0, wstrProductCode);
        if (nError == QZRI::MSI_ERROR_NO_MORE_ITEMS) {
            QZ_TRACE_I(L"%hs: ERROR_NO_MORE_ITEMS - product was not installed.", QZ_SCOPE_NAME);
            continue;
        }
        if (nError != 0) {
            QZ_TRACE_E(L"Failed to get product code from upgrade code. Error code 0x%X.\n", nError);
            Fail(QZRI::QZRI_RSLT_GENERAL_ERROR,
                 L"Windows Installer could not list the products of the upgrade "
                 L"code " +
                     wstrUpgradeCode + L" (error " + std::to_wstring(nError) + L"). Nothing was started.");
            return false;
        }
        QZ_TRACE_I(L"Upgrade code found, '%ls'\n", wstrUpgradeCode);
        QZ_TRACE_I(L"Product code found, '%ls'\n", wstrProductCode);
        m_nType = nType;
        m_wstrProdCode = wstrProductCode;
        bResolved = true;
        return true;
    }
    return true;
}

bool CUninstall::LegacyIShield_ResolveForKnownApp(const std::wstring& wstrProduct, const std::wstring&,
                                                  bool& bResolved)
{
    return ResolveKnown(wstrProduct, QZRI::KNOWN_ISHIELD_SECTION, QZRI::KIND_LEGACY_ISHIELD, bResolved);
}

bool CUninstall::LegacyMsi_ResolveForKnownApp(const std::wstring& wstrProduct,
                                              const std::wstring& wstrVersion, bool& bResolved)
{
    {
        QZ_TRACE_SCOPE(MODULE, "CUninstall::LegacyMsi_ResolveForKnownApp");
        QZ_TRACE_I(L"szProduct is '%ls', szVersion '%ls'.\n", wstrProduct, wstrVersion);
    }
    return ResolveKnown(wstrProduct, QZRI::KNOWN_MSI_SECTION, QZRI::KIND_LEGACY_MSI, bResolved);
}

bool CUninstall::LegacyIShield_ResolveForUnknownApp(const std::wstring& wstrProduct,
                                                    const std::wstring& wstrVersion, bool& bResolved)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::LegacyIShield_ResolveForUnknownApp");
    bResolved = false;
    const std::wstring wstrKey = QZRI::InstallerKeyOf(wstrProduct, wstrVersion);
    QZ_TRACE_I(L"strKey = '%ls'\n", wstrKey);
    RegistryView eView = QZRI::UNINSTALL_DEFAULT_VIEW;
    std::wstring wstrCode;
    if (!FindInstallerKey(wstrKey, eView, false) ||
        !ReadInstallerString(wstrKey, eView, L"IShieldProductCode", wstrCode) || wstrCode.empty())
        return true;
    m_nType = QZRI::KIND_LEGACY_ISHIELD;
    m_wstrProdCode = wstrCode;
    bResolved = true;
    return true;
}

std::vector<RegistryView> CUninstall::Views()
{
    std::vector<RegistryView> vecViews{RegistryView::VIEW_32};
    if (m_deps.m_pRegistry->HasSixtyFourBitView())
        vecViews.push_back(RegistryView::VIEW_64);
    return vecViews;
}

// True when none of the Uninstall entries exists in either view; traces the state when szScope is given.
bool CUninstall::KeysMissing(const std::vector<std::wstring>& vecNames, const char* szScope)
{
    QZ_TRACE_SCOPE(MODULE, szScope ? szScope : "CUninstall::KeysMissing");
    bool bAllMissing = true;
    for (const std::wstring& wstrName : vecNames) {
        const std::wstring wstrKey = std::wstring(QZRI::UNINSTALL_KEY) + L"\\" + wstrName;
        const bool bMissed = !m_deps.m_pRegistry->LocalMachineKeyExists(wstrKey, RegistryView::VIEW_32);
        const bool bWow64Missed = !m_deps.m_pRegistry->HasSixtyFourBitView() ||
                                  !m_deps.m_pRegistry->LocalMachineKeyExists(wstrKey, RegistryView::VIEW_64);
        if (szScope)
            QZ_TRACE_I(L"%hs: Actual product keys state - '%ls' (missed - '%d', wow64 missed - '%d').",
                       QZ_SCOPE_NAME, wstrKey, bMissed ? 1 : 0, bWow64Missed ? 1 : 0);
        bAllMissing = bAllMissing && bMissed && bWow64Missed;
    }
    return bAllMissing;
}

bool CUninstall::Unknown_IfUninstalled()
{
    if (m_wstrProdCode.empty()) {
        QZ_TRACE_SCOPE(MODULE, "CUninstall::Unknown_IfUninstalled");
        QZ_TRACE_I(L"%hs: no Uninstall entry is known: the registry cannot tell.\n", QZ_SCOPE_NAME);
        return false;
    }
    return KeysMissing({m_wstrProdCode}, "CUninstall::Unknown_IfUninstalled");
}

bool CUninstall::IfUninstall()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::IfUninstall");
    bool bResult = false;
    switch (m_nType) {
        case QZRI::KIND_UNKNOWN:
            bResult = Unknown_IfUninstalled();
            break;
        case QZRI::KIND_LEGACY_ISHIELD:
            // A legacy InstallShield setup registers its own entry and, when it is MSI-based, the product's.
            bResult =
                KeysMissing({L"InstallShield_" + m_wstrProdCode, m_wstrProdCode}, "CUninstall::IfUninstall");
            break;
        case QZRI::KIND_LEGACY_MSI:
            bResult = KeysMissing({m_wstrProdCode}, "CUninstall::IfUninstall");
            break;
        default:
            break;
    }
    QZ_TRACE_I(L"%hs: result is '%d'.", QZ_SCOPE_NAME, bResult ? 1 : 0);
    return bResult;
}

std::wstring CUninstall::RegisteredUninstallString(const std::wstring& wstrKey)
{
    RegistryView eView = QZRI::UNINSTALL_DEFAULT_VIEW;
    std::wstring wstrCmd;
    if (!FindInstallerKey(wstrKey, eView, false) ||
        !ReadInstallerString(wstrKey, eView, L"UninstallString", wstrCmd) || Trimmed(wstrCmd).empty())
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, wstrKey + L"\\UninstallString (missing)");
    return wstrCmd;
}

QZRI::UninstallCommand CUninstall::LegacyIShield_PrepareCommandLine()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::LegacyIShield_PrepareCommandLine");
    const std::wstring wstrKey = std::wstring(QZRI::UNINSTALL_KEY) + L"\\InstallShield_" + m_wstrProdCode;
    const std::wstring wstrCmd = RegisteredUninstallString(wstrKey);
    if (!QZRI::QuotesBalanced(wstrCmd))
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, wstrKey + L"\\UninstallString (unbalanced quotes)");
    CheckNoQuote(m_wstrUser, "UninstallUser");
    CheckNoQuote(m_wstrPassword, "UninstallData");
    CheckNoQuote(m_wstrTaskId, "TASK_ID");
    CheckNoQuote(m_wstrSetupExeDir, "szSetupExeDir");
    // Everything inside /z reaches the legacy setup as one quoted argument.
    std::wstring wstrParams = L" /z\"/pSETUPEXEDIR=" + m_wstrSetupExeDir;
    if (!m_wstrTaskId.empty())
        wstrParams += L" TASK_ID=" + m_wstrTaskId;
    if (!m_wstrUser.empty())
        wstrParams += L" QZLOGIN=" + m_wstrUser;
    const std::wstring wstrTail = L"\" /s /f2\"" + m_wstrSetupLogFile + L"\"";
    // The registered part is masked as any command line; the password added here is masked by name.
    QZRI::UninstallCommand cmd;
    cmd.m_wstrPassed = wstrCmd + wstrParams;
    cmd.m_wstrTraced = QZRI::MaskPasswords(wstrCmd) + wstrParams;
    if (!m_wstrPassword.empty()) {
        cmd.m_wstrPassed += L" PASSWORD=" + m_wstrPassword;
        cmd.m_wstrTraced += L" PASSWORD=" + QZRI::MaskedPassword(m_wstrPassword.size());
    }
    cmd.m_wstrPassed += wstrTail;
    cmd.m_wstrTraced += wstrTail;
    return cmd;
}

QZRI::UninstallCommand CUninstall::LegacyMSI_PrepareCommandLine()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::LegacyMSI_PrepareCommandLine");
    const std::wstring wstrKey = std::wstring(QZRI::UNINSTALL_KEY) + L"\\" + m_wstrProdCode;
    const std::wstring wstrCmd = RegisteredUninstallString(wstrKey);
    m_wstrUninstallCmd = QZRI::MsiRemovalCommand(wstrCmd);
    if (m_wstrUninstallCmd != wstrCmd)
        QZ_TRACE_I(L"%hs: '%ls' would repair the product: /I taken as /X.\n", QZ_SCOPE_NAME, wstrCmd);
    return ProcessCommandLine();
}

// The registered command, " /qn" for a Windows Installer command, and the user and password as
// properties.
QZRI::UninstallCommand CUninstall::ProcessCommandLine()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::ProcessCommandLine");
    if (!QZRI::QuotesBalanced(m_wstrUninstallCmd))
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, L"UninstallString (unbalanced quotes)");
    CheckNoQuote(m_wstrUser, "UninstallUser");
    CheckNoQuote(m_wstrPassword, "UninstallData");
    std::wstring wstrParams;
    if (m_nType == QZRI::KIND_LEGACY_MSI)
        wstrParams += L" /qn";
    // A value with a blank is quoted, as msiexec reads a property's value.
    const auto property = [](const wchar_t* szName, const std::wstring& wstrValue) {
        return wstrValue.find_first_of(L" \t") == std::wstring::npos ? szName + wstrValue
                                                                     : szName + (L"\"" + wstrValue + L"\"");
    };
    if (!m_wstrUser.empty())
        wstrParams += property(L" QZLOGIN=", m_wstrUser);
    QZRI::UninstallCommand cmd;
    cmd.m_wstrPassed = m_wstrUninstallCmd + wstrParams;
    cmd.m_wstrTraced = QZRI::MaskPasswords(m_wstrUninstallCmd) + wstrParams;
    if (!m_wstrPassword.empty()) {
        cmd.m_wstrPassed += property(L" PASSWORD=", m_wstrPassword);
        cmd.m_wstrTraced += L" PASSWORD=" + QZRI::MaskedPassword(m_wstrPassword.size());
    }
    return cmd;
}

void CUninstall::Process()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Process");
    QZ_TRACE_I(L"%hs: Start uninstalling for '%d' type.", QZ_SCOPE_NAME, static_cast<int>(m_nType));
    switch (m_nType) {
        case QZRI::KIND_UNKNOWN:
            Unknown_StartDeinstaller();
            break;
        case QZRI::KIND_LEGACY_ISHIELD:
            LegacyIShield_StartDeinstaller();
            break;
        case QZRI::KIND_LEGACY_MSI:
            LegacyMSI_StartDeinstaller();
            break;
        default:
            break;
    }
}

void CUninstall::LegacyIShield_StartDeinstaller()
{
    StartAndWait(LegacyIShield_PrepareCommandLine());
}

void CUninstall::LegacyMSI_StartDeinstaller()
{
    StartAndWait(LegacyMSI_PrepareCommandLine());
}

void CUninstall::Unknown_StartDeinstaller()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::Unknown_StartDeinstaller");
    if (m_bHasProductCode) {
        QZ_TRACE_I(L"%hs: Product code is '%ls'.", QZ_SCOPE_NAME, m_wstrProdCode);
        StartWithProductCode();
        return;
    }
    const QZRI::UninstallCommand cmd = ProcessCommandLine();
    QZ_TRACE_I(L"%hs: Uninstall command line: '%ls'.", QZ_SCOPE_NAME, cmd.m_wstrTraced);
    QZ_TRACE_I(L"%hs: Creating deinstallation process...", QZ_SCOPE_NAME);
    StartAndWait(cmd);
}

// Through Windows Installer in this process, with the log and message handling of any installation.
void CUninstall::StartWithProductCode()
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::StartWithProductCode");
    std::vector<QZRI::MsiSetupParameter> vecParams;
    // The agent decides about restarts, not the product's removal.
    vecParams.push_back({L"REBOOT", L"ReallySuppress", true});
    if (!m_wstrUser.empty())
        vecParams.push_back({L"QZLOGIN", m_wstrUser, true});
    if (!m_wstrPassword.empty()) {
        vecParams.push_back({L"PASSWORD", m_wstrPassword, false});
        vecParams.push_back({L"MsiHiddenProperties", L"PASSWORD", false});
    }
    QZRI::RemovalByProductCode installer(*m_deps.m_pInstaller, *m_deps.m_pMsi);
    QZRI::TracingMsiCallback callback("CUninstall_Callback");
    QZRI::QZMsiSetup::Ptr pSetup = QZRI::CreateMsiSetup(m_wstrProdCode, vecParams, callback, installer);
    QZRI::MsiLaunchOptions options;
    options.m_lBusyLimitMs = m_deps.m_lMsiBusyLimitMs;
    const QZSTD::ShutdownSignal* pShutdown = m_deps.m_pShutdown;
    options.m_fnWait = [this, pShutdown](uint32_t nMs) {
        // Busy: wait in slices that a stop of the agent ends.
        for (uint32_t nWaited = 0; nWaited < nMs; nWaited += m_deps.m_nSliceMs) {
            if (pShutdown ? pShutdown->IsRaised() : QZSTD::ProcessShutdown().IsRaised())
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(m_deps.m_nSliceMs));
        }
        return true;
    };
    std::vector<QZRI::MsiSetupParameter> vecExternal;
    const uint32_t nResult = pSetup->Launch(options, vecExternal);
    // Not every Windows Installer keeps PASSWORD out of its log.
    if (!m_wstrPassword.empty() && !QZRI::ScrubSecretsInFile(pSetup->LogPath(), {m_wstrPassword}))
        QZ_TRACE_W(L"%hs: the log '%ls' could not be cleaned of the password.\n", QZ_SCOPE_NAME,
                   pSetup->LogPath());
    QZ_TRACE_I(L"%hs: Windows Installer returned %u.\n", QZ_SCOPE_NAME, nResult);
    m_nExitCode = nResult;
    m_bNeedProcessing = false;
    switch (nResult) {
        case QZRI::MSI_ERROR_SUCCESS:
            m_eEnd = QZRI::UninstallEnd::REMOVED;
            m_wstrDescription = L"Removed " + m_wstrProdCode + L" through Windows Installer.";
            break;
        case QZRI::MSI_ERROR_SUCCESS_REBOOT_REQUIRED:
        case QZRI::MSI_ERROR_SUCCESS_REBOOT_INITIATED:
            m_eEnd = QZRI::UninstallEnd::REMOVED;
            m_bNeedRestart = true;
            m_wstrDescription =
                L"Removed " + m_wstrProdCode + L" through Windows Installer; a restart completes it.";
            break;
        case QZRI::MSI_ERROR_UNKNOWN_PRODUCT:
            m_eEnd = QZRI::UninstallEnd::NOT_INSTALLED;
            m_wstrDescription =
                L"Windows Installer does not know " + m_wstrProdCode + L": nothing to remove.";
            break;
        case QZRI::MSI_ERROR_INSTALL_ALREADY_RUNNING:
            Fail(QZRI::QZRI_RSLT_INSTALLER_BUSY,
                 L"Windows Installer stayed busy with another installation; " + m_wstrProdCode +
                     L" was not removed.");
            break;
        default:
            Fail(static_cast<int32_t>(nResult), L"Removing " + m_wstrProdCode + L" failed with " +
                                                    std::to_wstring(nResult) + L". " +
                                                    pSetup->FailureDescription());
            break;
    }
}

void CUninstall::StartAndWait(const QZRI::UninstallCommand& cmd)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::StartDeinstaller");
    QZ_TRACE(QZSTD::TL_INFO, L"Uninstall command line: '%ls'\n", cmd.m_wstrTraced);
    // Armed before the start, so that no change of the uninstaller goes unseen.
    std::unique_ptr<QZRI::RegistryWatch> pWatch =
        m_deps.m_pRegistry->WatchLocalMachineKey(QZRI::UNINSTALL_KEY, Views());
    QZRI::LaunchOptions options;
    options.m_wstrCommandLine = cmd.m_wstrPassed;
    // A legacy uninstaller often copies itself away and hands over to the copy: wait for its whole tree.
    options.m_nWaitMode = QZRI::WAIT_WHOLE_JOB;
    options.m_pShutdown = m_deps.m_pShutdown;
    QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter;
    m_deps.m_fnLaunch(options, &pWaiter);
    QZ_TRACE_I(L"%hs: Ready wait for results...", QZ_SCOPE_NAME);
    for (;;) {
        bool bChanged = false;
        try {
            bChanged = pWatch->WaitForChange(m_deps.m_nSliceMs);
        } catch (const QZSTD::QZError& e) {
            QZ_TRACE_EXCEPTION(e);
            QZ_TRACE_E(L"%hs: WAIT_FAILED", QZ_SCOPE_NAME);
            QZ_THROW_STD(QZSTD::Err::WAIT_FAILURE);
        }
        if (bChanged) {
            // Armed again first: a change while the state is read is then not lost.
            pWatch->Rearm();
            if (m_bUninstallString3) {
                QZ_TRACE_I(L"%hs: We are using UninstallString3 so ignoring and waiting for process stop.",
                           QZ_SCOPE_NAME);
            } else if (IfUninstall()) {
                QZ_TRACE_I(L"Registry changed and the product was uninstalled\n");
                m_eEnd = QZRI::UninstallEnd::REMOVED;
                m_wstrDescription = L"Removed " + m_wstrProdCode + L".";
                return;
            } else {
                QZ_TRACE_I(L"Registry changed but the product hasn't been uninstalled yet\n");
            }
            continue;
        }
        // Raises 1199 once the agent is being stopped.
        if (pWaiter->Wait(0))
            break;
    }
    QZ_TRACE_I(L"Installation process terminated\n");
    m_nExitCode = pWaiter->ExitCode();
    if (m_bUninstallString3) {
        QZ_TRACE_I(L"%hs: Installation process completed with code: '%d'.", QZ_SCOPE_NAME,
                   static_cast<int32_t>(m_nExitCode));
        m_bNeedProcessing = true;
        QZ_TRACE_I(L"%hs: We are using UninstallString3 so bNeedProcessing = true", QZ_SCOPE_NAME);
        JudgeUninstallString3(m_nExitCode);
    } else {
        QZ_TRACE_I(L"%hs: !m_bUninstallString3", QZ_SCOPE_NAME);
        m_bNeedProcessing = false;
        QZ_TRACE_I(L"%hs:  m_bNeedProcessing = false;", QZ_SCOPE_NAME);
        JudgeEnd(m_nExitCode, IfUninstall());
    }
}

// The uninstaller ended before the registry said the product was gone.
void CUninstall::JudgeEnd(uint32_t nExitCode, bool bProductGone)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::JudgeEnd");
    const bool bRestart = nExitCode == QZRI::MSI_ERROR_SUCCESS_REBOOT_REQUIRED ||
                          nExitCode == QZRI::MSI_ERROR_SUCCESS_REBOOT_INITIATED;
    const bool bKeyKnown = !(m_nType == QZRI::KIND_UNKNOWN && m_wstrProdCode.empty());
    const std::wstring wstrCode = std::to_wstring(static_cast<int32_t>(nExitCode));
    if (bProductGone || (nExitCode == 0 && !bKeyKnown) || bRestart) {
        m_eEnd = QZRI::UninstallEnd::REMOVED;
        m_bNeedRestart = bRestart;
        m_wstrDescription = L"The uninstaller ended with " + wstrCode + L"; " +
                            (bProductGone ? L"the product is gone."
                             : bRestart   ? L"a restart completes it."
                                          : L"its code is the result.");
    } else if (nExitCode != 0) {
        Fail(static_cast<int32_t>(nExitCode),
             L"The uninstaller ended with " + wstrCode + L" and the product is still registered.");
    } else {
        Fail(QZRI::QZRI_RSLT_GENERAL_ERROR,
             L"The uninstaller ended with 0 but the product is still registered.");
    }
    QZ_TRACE_I(L"%hs: %ls\n", QZ_SCOPE_NAME, m_wstrDescription);
}

// "UninstallString3": the product's package lists say what its uninstaller's code means.
void CUninstall::JudgeUninstallString3(uint32_t nExitCode)
{
    QZ_TRACE_SCOPE(MODULE, "CUninstall::JudgeUninstallString3");
    QZSTD::CAutoPtr<QZRI::QpdFile> pQpd;
    const QZRI::QpdFile* pLists = m_pRunQpd;
    if (!m_wstrUninstallString3Qpd.empty()) {
        try {
            pQpd = QZRI::QpdFile::Create(m_wstrUninstallString3Qpd);
            pLists = pQpd.Get();
        } catch (const QZSTD::QZError& e) {
            QZ_TRACE_EXCEPTION_AT(QZSTD::TL_WARNING, e);
        }
    }
    const int32_t nCode = static_cast<int32_t>(nExitCode);
    const std::wstring wstrCode = std::to_wstring(nCode);
    QZRI::ClassifiedCode classified;
    if (pLists)
        classified = QZRI::ClassifyCode(*pLists, QZRI::PROCESS_RESULT_KIND, nCode);
    const bool bListedRestart =
        pLists && !pLists->GetString(QZRI::NEED_REBOOT_SECTION, wstrCode, L"").empty();
    const bool bRestart = bListedRestart || nExitCode == QZRI::MSI_ERROR_SUCCESS_REBOOT_REQUIRED ||
                          nExitCode == QZRI::MSI_ERROR_SUCCESS_REBOOT_INITIATED;
    switch (classified.eClass) {
        case QZRI::CodeClass::LISTED_ERROR:
            Fail(nCode, L"The uninstaller ended with " + wstrCode + L": " + classified.wstrDescription);
            break;
        case QZRI::CodeClass::LISTED_SUCCESS:
        case QZRI::CodeClass::LISTED_WARNING:
            m_eEnd = QZRI::UninstallEnd::REMOVED;
            m_bNeedRestart = bRestart;
            m_wstrDescription =
                L"The uninstaller ended with " + wstrCode + L": " + classified.wstrDescription;
            break;
        case QZRI::CodeClass::UNLISTED:
            if (nCode == 0 || bRestart) {
                m_eEnd = QZRI::UninstallEnd::REMOVED;
                m_bNeedRestart = bRestart;
                m_wstrDescription = L"The uninstaller ended with " + wstrCode +
                                    (bRestart ? L"; a restart completes the removal." : L".");
            } else {
                Fail(nCode, L"The uninstaller ended with " + wstrCode + L".");
            }
            break;
    }
    QZ_TRACE_I(L"%hs: %ls\n", QZ_SCOPE_NAME, m_wstrDescription);
}

}  // namespace QZRIWRP

namespace QZRI {

UninstallPlan PlanUninstall(const UninstallDeps& deps, const std::wstring& wstrIniFile,
                            const std::wstring& wstrSetupExeDir, const std::wstring& wstrSetupLogFile,
                            const std::wstring& wstrTaskId)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::PlanUninstall");
    UninstallPlan plan;
    QZRIWRP::CUninstall uninstall(deps);
    try {
        if (uninstall.Prepare(wstrIniFile.c_str(), wstrSetupExeDir.c_str(), wstrSetupLogFile.c_str(),
                              wstrTaskId.c_str())) {
            plan.m_nType = uninstall.m_nType;
            plan.m_wstrProductCode = uninstall.m_wstrProdCode;
            plan.m_bUninstallString3 = uninstall.m_bUninstallString3;
            plan.m_wstrUninstallString3Qpd = uninstall.m_wstrUninstallString3Qpd;
            plan.m_bByProductCode = uninstall.m_nType == KIND_UNKNOWN && uninstall.m_bHasProductCode;
            if (!plan.m_bByProductCode) {
                const UninstallCommand cmd =
                    uninstall.m_nType == KIND_LEGACY_ISHIELD ? uninstall.LegacyIShield_PrepareCommandLine()
                    : uninstall.m_nType == KIND_LEGACY_MSI   ? uninstall.LegacyMSI_PrepareCommandLine()
                                                             : uninstall.ProcessCommandLine();
                plan.m_wstrCommandLine = cmd.m_wstrTraced;
            }
            plan.m_bOk = true;
        } else {
            plan.m_bOk = uninstall.m_eEnd != UninstallEnd::FAILED;
            plan.m_wstrProblem = uninstall.m_wstrDescription;
        }
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        plan.m_bOk = false;
        plan.m_wstrProblem = e.GetMessage();
    }
    return plan;
}

int32_t AgentUninstaller::Uninstall(RiWrpData& data, bool* pbNeedRestart)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::AgentUninstaller::Uninstall");
    *pbNeedRestart = false;
    m_wstrDescription.clear();
    const std::wstring wstrIni = data.m_pQpd->GetQudPath();
    const std::wstring wstrSetupLog =
        data.m_wstrDirPath + (data.m_wstrResultFileName.empty() ? L"setup.log" : data.m_wstrResultFileName);
    QZRIWRP::CUninstall uninstall(m_deps);
    uninstall.m_pRunQpd = data.m_pQpd.Get();
    int32_t nResult = QZRI_RSLT_GENERAL_ERROR;
    try {
        uninstall.Run(wstrIni.c_str(), data.m_wstrExecDirPath.c_str(), wstrSetupLog.c_str(),
                      data.m_wstrTaskId.c_str());
        switch (uninstall.m_eEnd) {
            case UninstallEnd::NOT_INSTALLED:
            case UninstallEnd::REMOVED:
                nResult = QZRI_RSLT_NO_ERROR;
                *pbNeedRestart = uninstall.m_bNeedRestart;
                break;
            case UninstallEnd::FAILED:
                nResult = uninstall.m_lResultCode != QZRI_RSLT_NO_ERROR ? uninstall.m_lResultCode
                                                                        : QZRI_RSLT_GENERAL_ERROR;
                break;
            default:
                QZ_TRACE_E(L"%hs: undefined status.", QZ_SCOPE_NAME);
                uninstall.m_wstrDescription = L"The uninstallation ended in an undefined state.";
                break;
        }
        m_wstrDescription = uninstall.m_wstrDescription;
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        if (e.Is(QZSTD::Err::MODULE, QZSTD::Err::PRODUCT_MISSING))
            m_wstrDescription =
                L"The package names no product or no version to uninstall ([Uninstall] "
                L"\"Product\" and \"Version\"). Nothing was started.";
        else if (e.Is(QZSTD::Err::MODULE, QZSTD::Err::SHUTDOWN))
            m_wstrDescription =
                L"The agent was stopped while the uninstaller ran; the uninstaller was left "
                L"running and its result is unknown.";
        else if (e.Is(QZSTD::Err::MODULE, QZSTD::Err::UNSUPPORTED))
            m_wstrDescription = L"Uninstalling a product is not supported on this operating system.";
        else
            m_wstrDescription = L"Uninstalling failed: " + e.GetMessage();
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
        m_wstrDescription = L"Uninstalling failed: " + QZSTD::Utf8ToWide(e.what());
    }
    QZ_TRACE_I(L"%hs: result %ls, restart %d: %ls\n", QZ_SCOPE_NAME, DescribeResultCode(nResult),
               *pbNeedRestart ? 1 : 0, MaskPasswords(m_wstrDescription));
    return nResult;
}

UninstallDeps UninstallDepsOf(const AgentServices& services, MsiProducts& msi)
{
    UninstallDeps deps;
    deps.m_pRegistry = services.m_pRegistry;
    deps.m_pMsi = &msi;
    deps.m_pInstaller = services.m_pInstaller;
    deps.m_wstrKnownProductsFile = DirectoryOf(services.m_pOs->GetModuleFilePath()) + KNOWN_PRODUCTS_FILE;
    return deps;
}

}  // namespace QZRI
