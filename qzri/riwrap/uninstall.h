// Removing a product that is already on the computer, before a package is installed or as the task
// itself. The package names the product in [Uninstall] of its description ("Product", "Version", and
// optionally "UninstallUser" and "UninstallData", the password kept protected); CUninstall finds out how
// the product was installed, builds its uninstaller's command line, runs it and decides when the product
// is gone. docs/uninstall.md describes the whole operation, its traces and its results.
//
// How the product is found, first match wins (a resolver that fails stops the search):
// 1. unknown installer (kind 1): the product's own registration under
//    HKLM\Software\OrvaneLab\Components\<product>\<version>\Installer, in the 32-bit view, then in the
//    64-bit view: "UninstallString3" (its exit code is judged like a setup's), else "UninstallString2",
//    else "UninstallString"; with "ProductCode" the removal goes through Windows Installer in this
//    process instead of the command;
// 2. legacy InstallShield setup (kind 2) of a known product: its upgrade code among the installed
//    related products;
// 3. legacy MSI package (kind 3) of a known product: the same, with another list;
// 4. legacy InstallShield setup (kind 2) of any product: "IShieldProductCode" of the "Installer" key.
// The known products and their upgrade codes come from the data file beside the agent
// (KNOWN_PRODUCTS_FILE); a product missing from it is simply not a known product.
//
// The registry's "default view" here is always the 32-bit one: the agent ships as a 32-bit program,
// whose own view that is, and a 64-bit build (the tests under Wine) must look where the shipped agent
// looks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/registry.h"
#include "common/rilaunch.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/driverservices.h"

namespace QZSTD {
class ShutdownSignal;
}

namespace QZRI {

class QpdFile;
class WindowsInstaller;

// Windows Installer's database of installed products, as the uninstaller needs it.
class MsiProducts
{
public:
    virtual ~MsiProducts() = default;
    // The nIndex-th product related to the upgrade code (MsiEnumRelatedProductsW): 0 with the product
    // code, MSI_ERROR_NO_MORE_ITEMS past the last one, or another Windows Installer error.
    virtual uint32_t EnumRelatedProducts(const std::wstring& wstrUpgradeCode, uint32_t nIndex,
                                         std::wstring& wstrProductCode) = 0;
    // Removes the product with the property command line (MsiConfigureProductExW, INSTALLSTATE_ABSENT),
    // in this process; Windows Installer's answer.
    virtual uint32_t RemoveProduct(const std::wstring& wstrProductCode, const std::wstring& wstrCmdLine) = 0;
};

// Windows: msi.dll. Elsewhere every call answers 1193 (unsupported on this operating system).
std::unique_ptr<MsiProducts> CreateSystemMsiProducts();

inline constexpr uint32_t MSI_ERROR_NO_MORE_ITEMS = 259;
inline constexpr uint32_t MSI_ERROR_UNKNOWN_PRODUCT = 1605;

// The known products' data file in the agent's folder, its two sections (product = upgrade code, or
// several separated by commas) and the registry locations the uninstaller reads.
inline constexpr const wchar_t* KNOWN_PRODUCTS_FILE = L"qzuninst.ini";
inline constexpr const wchar_t* KNOWN_MSI_SECTION = L"MsiUpgradeCodes";
inline constexpr const wchar_t* KNOWN_ISHIELD_SECTION = L"InstallShieldUpgradeCodes";
inline constexpr const wchar_t* UNINSTALL_KEY = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
inline constexpr const wchar_t* COMPONENTS_KEY = L"Software\\OrvaneLab\\Components";
inline constexpr RegistryView UNINSTALL_DEFAULT_VIEW = RegistryView::VIEW_32;

// The upgrade codes the data file gives the product in the section; empty when the file, the section
// or the product is missing.
std::vector<std::wstring> KnownUpgradeCodes(const std::wstring& wstrFile, const wchar_t* szSection,
                                            const std::wstring& wstrProduct);

// "Software\OrvaneLab\Components\<product>\<version>\Installer".
std::wstring InstallerKeyOf(const std::wstring& wstrProduct, const std::wstring& wstrVersion);

// Whether every double quote of a command line has its closing one.
bool QuotesBalanced(const std::wstring& wstrCmdLine);

// The installer kinds (nType).
enum UninstallKind : uint32_t
{
    KIND_UNRESOLVED = 0,
    KIND_UNKNOWN = 1,
    KIND_LEGACY_ISHIELD = 2,
    KIND_LEGACY_MSI = 3,
};
// "unknown installer", "InstallShield (legacy)", "MSI (legacy)" or "unresolved".
const wchar_t* UninstallKindName(uint32_t nType);

// A command line twice: as it is started, and as it may be traced (the password as
// "<password of N characters>").
struct UninstallCommand
{
    std::wstring m_wstrPassed;
    std::wstring m_wstrTraced;
};

// What the uninstaller works with. The composition root fills it from the agent's services; tests give
// it fakes.
struct UninstallDeps
{
    Registry* m_pRegistry = nullptr;
    MsiProducts* m_pMsi = nullptr;
    // The installer service through which a removal by product code runs (with its log and messages).
    WindowsInstaller* m_pInstaller = nullptr;
    std::wstring m_wstrKnownProductsFile;
    // Starts an uninstaller; empty: QZRI::LaunchAsync.
    std::function<void(const LaunchOptions&, QZSTD::LaunchWaiter**)> m_fnLaunch;
    // The signal that ends the waits; null: the process's.
    const QZSTD::ShutdownSignal* m_pShutdown = nullptr;
    // How long one look at the registry lasts before the uninstaller's process is looked at: a change is
    // seen at once, the process's end and the agent's stop within a slice. A second, as the driver waits
    // for a setup, keeps the trace of an hour-long uninstaller short.
    uint32_t m_nSliceMs = 1000;
    // How long Windows Installer busy with another installation is waited for.
    long m_lMsiBusyLimitMs = 10 * 60 * 1000;
};

// How an uninstallation ended.
enum class UninstallEnd
{
    NOT_STARTED,    // Process was not reached (or nothing to do for the kind)
    NOT_INSTALLED,  // no resolver found the product: nothing started, nothing to remove
    REMOVED,        // the product is gone (or its removal ends with the restart)
    FAILED,         // the result code says why
    STOPPED,        // the agent's shutdown ended the wait; the uninstaller was left running
};

// What the agent would do for the package description's [Uninstall], without running anything.
struct UninstallPlan
{
    // False when resolving failed: m_wstrProblem says why.
    bool m_bOk = false;
    uint32_t m_nType = KIND_UNRESOLVED;
    std::wstring m_wstrProductCode;
    // Removal through Windows Installer in this process by the product code (no command line).
    bool m_bByProductCode = false;
    bool m_bUninstallString3 = false;
    std::wstring m_wstrUninstallString3Qpd;
    // The command line with the password masked; empty for a removal by product code.
    std::wstring m_wstrCommandLine;
    std::wstring m_wstrProblem;
};

}  // namespace QZRI

namespace QZRIWRP {

class CUninstall
{
public:
    explicit CUninstall(const QZRI::UninstallDeps& deps);

    // The whole operation (docs/uninstall.md). Raises QZError 1192 (QZSTD) when "Product" or "Version" is
    // missing, an assertion on a null argument, and what the steps raise (a system error, 1199 when the
    // agent stops); otherwise m_lResultCode, m_eEnd and m_bNeedProcessing tell what happened.
    void Run(const wchar_t* szIniFile, const wchar_t* szSetupExeDir, const wchar_t* szSetupLogFile,
             const wchar_t* szTaskId);
    // Run's steps up to Process: the ini file read, the product resolved, user and password taken.
    // False when there is nothing to start (not installed, or an error in m_lResultCode).
    bool Prepare(const wchar_t* szIniFile, const wchar_t* szSetupExeDir, const wchar_t* szSetupLogFile,
                 const wchar_t* szTaskId);

    bool ResolveProduct(const std::wstring& wstrProduct, const std::wstring& wstrVersion);
    void Process();
    bool IfUninstall();

    bool Unknown_Resolve(const std::wstring& wstrProduct, const std::wstring& wstrVersion, bool& bResolved);
    bool LegacyIShield_ResolveForKnownApp(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                                          bool& bResolved);
    bool LegacyMsi_ResolveForKnownApp(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                                      bool& bResolved);
    bool LegacyIShield_ResolveForUnknownApp(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                                            bool& bResolved);

    // The command builders; each raises QZError 1187 (QZSTD) naming what it cannot use (a missing or
    // non-string "UninstallString", unbalanced quotes, a double quote in the user or the password).
    QZRI::UninstallCommand LegacyIShield_PrepareCommandLine();
    QZRI::UninstallCommand LegacyMSI_PrepareCommandLine();
    QZRI::UninstallCommand ProcessCommandLine();

    void Unknown_StartDeinstaller();
    void LegacyIShield_StartDeinstaller();
    void LegacyMSI_StartDeinstaller();
    bool Unknown_IfUninstalled();

    // For the caller, after Run.
    int32_t m_lResultCode = 0;
    QZRI::UninstallEnd m_eEnd = QZRI::UninstallEnd::NOT_STARTED;
    bool m_bNeedProcessing = false;
    bool m_bNeedRestart = false;
    // Why it failed, or what it found, in words for the report.
    std::wstring m_wstrDescription;
    // The uninstaller's exit code once it ended (UninstallString3: the caller judges it).
    uint32_t m_nExitCode = 0;

    // The resolved product.
    std::wstring m_wstrProdCode;
    uint32_t m_nType = QZRI::KIND_UNRESOLVED;
    bool m_bUninstallString3 = false;
    std::wstring m_wstrUninstallCmd;
    std::wstring m_wstrUninstallString3Qpd;
    // The unknown installer's "ProductCode": removal through Windows Installer.
    bool m_bHasProductCode = false;
    // The run's package description, whose lists judge an "UninstallString3" uninstaller's code when
    // the product names no description of its own; may be null.
    const QZRI::QpdFile* m_pRunQpd = nullptr;

private:
    // Fails the operation with the agent's general error and the reason (traced).
    void Fail(int32_t nCode, const std::wstring& wstrWhy);
    // The installer key of the product in the default view, else the 64-bit view; false when missing.
    bool FindInstallerKey(const std::wstring& wstrKey, QZRI::RegistryView& eView, bool bTraceWow64);
    // A string value of the installer key: false when missing; QZError 1187 when it is not a string.
    bool ReadInstallerString(const std::wstring& wstrKey, QZRI::RegistryView eView, const wchar_t* szName,
                             std::wstring& wstrValue);
    // The "UninstallString" of a legacy product's Uninstall entry; QZError 1187 when it is missing.
    std::wstring RegisteredUninstallString(const std::wstring& wstrKey);
    bool ResolveKnown(const std::wstring& wstrProduct, const wchar_t* szSection, uint32_t nType,
                      bool& bResolved);
    // The Uninstall entry of the unknown installer's command when it has no "ProductCode".
    std::wstring FindUninstallEntry(const std::wstring& wstrCmdLine);
    std::vector<QZRI::RegistryView> Views();
    bool KeysMissing(const std::vector<std::wstring>& vecNames, const char* szScope);
    void StartAndWait(const QZRI::UninstallCommand& cmd);
    void StartWithProductCode();
    void JudgeEnd(uint32_t nExitCode, bool bProductGone);
    void JudgeUninstallString3(uint32_t nExitCode);
    void UnprotectUninstallData(const std::wstring& wstrHex);

    QZRI::UninstallDeps m_deps;
    std::wstring m_wstrIniFile;
    std::wstring m_wstrSetupExeDir;
    std::wstring m_wstrSetupLogFile;
    std::wstring m_wstrTaskId;
    std::wstring m_wstrUser;
    std::wstring m_wstrPassword;
};

}  // namespace QZRIWRP

namespace QZRI {

// How the agent would resolve the package description's [Uninstall] and what it would start, without
// starting anything: for the administrators' tool.
UninstallPlan PlanUninstall(const UninstallDeps& deps, const std::wstring& wstrIniFile,
                            const std::wstring& wstrSetupExeDir, const std::wstring& wstrSetupLogFile,
                            const std::wstring& wstrTaskId);

// The product uninstaller of the installation driver: runs CUninstall on the run's package description
// and turns its end into the result (docs/uninstall.md, "Results").
class AgentUninstaller : public ProductUninstaller
{
public:
    explicit AgentUninstaller(UninstallDeps deps) : m_deps(std::move(deps)) {}
    int32_t Uninstall(RiWrpData& data, bool* pbNeedRestart) override;
    std::wstring Description() const override { return m_wstrDescription; }

private:
    UninstallDeps m_deps;
    std::wstring m_wstrDescription;
};

// The uninstaller's dependencies from the agent's services: its registry, the given Windows Installer
// database, the installer service, and the data file beside the agent's executable.
UninstallDeps UninstallDepsOf(const AgentServices& services, MsiProducts& msi);

}  // namespace QZRI
