// What the installation driver needs beyond the basic services of agentservices.h: the products the
// management agent controls on this host (a group uninstallation goes through them), the uninstaller of
// one product, and the shell that opens a file after an installation. Each is an interface so that the
// driver's decisions are tested with stand-ins; the composition root builds the real ones.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QZRI {

class RiWrpData;

// The management agent's own product and version in its local settings storage.
inline constexpr const wchar_t* MANAGEMENT_AGENT_PRODUCT = L"1103";
inline constexpr const wchar_t* MANAGEMENT_AGENT_VERSION = L"1.0.0.0";
// The administration server's product: a host that has it is never group-uninstalled.
inline constexpr const wchar_t* ADMIN_SERVER_PRODUCT = L"1093";
// The string that makes a product/version of the storage a product the management agent controls.
inline constexpr const wchar_t* DISPLAY_NAME_VALUE = L"DisplayName";
// The boolean the management agent keeps in its own "global" section: true while its connection to its
// administration server is set up, so that a report written for it reaches the server.
inline constexpr const wchar_t* CONN_INSTALLED_SECTION = L"global";
inline constexpr const wchar_t* CONN_INSTALLED_VALUE = L"ConnInstalled";

struct ControlledProduct
{
    std::wstring m_wstrName;
    std::wstring m_wstrVersion;
    std::wstring m_wstrDisplayName;
};

// The products the management agent controls on this host, as its local settings storage lists them.
class ControlledProducts
{
public:
    virtual ~ControlledProducts() = default;
    // Each product/version that has a display name: the "DisplayName" string of the first of its
    // sections (in the storage's name order) that holds a non-empty one. Products in the storage's
    // order, then versions. Nothing when there is no storage; a storage that cannot be read raises,
    // since then nobody can tell whether the administration server is on this host.
    virtual std::vector<ControlledProduct> List() = 0;
    // "ConnInstalled" of the management agent; nothing when it cannot be read (no storage, section or
    // value, or not a boolean): then nobody is there to set it.
    virtual std::optional<bool> ConnInstalled() = 0;
};

// Reads the settings storage file at the given path (normally QZSTD::GetLocalSettingsStoragePath()).
class LocalStorageProducts : public ControlledProducts
{
public:
    explicit LocalStorageProducts(std::wstring wstrStoragePath)
        : m_wstrStoragePath(std::move(wstrStoragePath))
    {
    }
    std::vector<ControlledProduct> List() override;
    std::optional<bool> ConnInstalled() override;

private:
    std::wstring m_wstrStoragePath;
};

// Uninstalls one product.
class ProductUninstaller
{
public:
    virtual ~ProductUninstaller() = default;
    // Uninstalls the product that [Uninstall] "Product" and "Version" of the run's package description
    // name. Returns QZRI_RSLT_NO_ERROR or the failing code, and sets *pbNeedRestart when the removal
    // finishes only after a restart.
    virtual int32_t Uninstall(RiWrpData& data, bool* pbNeedRestart) = 0;
    // What the last Uninstall found, in words for the report: why it failed, or that the product was
    // not installed; empty when there is nothing to add.
    virtual std::wstring Description() const { return {}; }
};

// The shell's "open" of a file with its associated program.
class ShellOpener
{
public:
    virtual ~ShellOpener() = default;
    // 0 when the shell took the file, else the system's error code (1193 where there is no shell).
    virtual int Open(const std::wstring& wstrVerb, const std::wstring& wstrFile,
                     const std::wstring& wstrParams, const std::wstring& wstrFolder) = 0;
};

// Windows: ShellExecuteW. Elsewhere every call fails with 1193 (unsupported on this operating system).
std::unique_ptr<ShellOpener> CreateSystemShellOpener();

}  // namespace QZRI
