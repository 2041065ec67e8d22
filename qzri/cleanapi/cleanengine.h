// The reference removal engine ("cleanapi.dll", "libcleanapi.so"): what it decides, apart from the system.
// It implements common/cleanapi.h over one ini file per product (docs/removal-engine.md):
//   [main]   fullname      the product's name
//   [detect] ProductCode   the name of its key under ...\CurrentVersion\Uninstall, or
//            DisplayName   its DisplayName value ('*' at the end matches any rest; case ignored)
//   [remove] Command       the Uninstall key's value to run (e.g. QuietUninstallString), or
//            CommandLine   a command line of its own; neither: a Windows Installer product is removed by
//                          its product code ("msiexec.exe /x {code} /qn /norestart")
//            TimeoutSec    how long the removal may take (default 1800)
// The engine is self-contained: it links none of the agent's libraries, so that it can be shipped and
// replaced on its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace QZCLEAN {

inline constexpr uint32_t DEFAULT_TIMEOUT_SEC = 1800;

// One key under the Uninstall keys of the registry.
struct UninstallEntry
{
    std::wstring m_wstrKeyName;
    std::wstring m_wstrDisplayName;
    std::wstring m_wstrUninstallString;
    std::wstring m_wstrQuietUninstallString;
    bool m_bWindowsInstaller = false;
};

struct ProductRule
{
    std::wstring m_wstrFullName;
    std::wstring m_wstrProductCode;
    std::wstring m_wstrDisplayName;
    std::wstring m_wstrCommandValue;
    std::wstring m_wstrCommandLine;
    uint32_t m_nTimeoutSec = DEFAULT_TIMEOUT_SEC;
};

// The rule of one ini file (platform: ReadIniValue).
ProductRule ReadRule(const std::wstring& wstrIniFile);
// Whether the entry is the product the rule describes (a rule without ProductCode and DisplayName matches
// nothing).
bool Matches(const ProductRule& rule, const UninstallEntry& entry);
// The command line that removes the product quietly; nothing when the rule and the entry give none.
std::optional<std::wstring> RemovalCommand(const ProductRule& rule, const UninstallEntry& entry);
// The interface's outcome (QZCLEAN_REMOVED, QZCLEAN_RESTART_NEEDED, QZCLEAN_REMOVE_FAILED) of an exit code.
int32_t OutcomeOfExitCode(uint32_t nExitCode);

// Platform parts (cleanengine_win.cpp, cleanengine_posix.cpp).
std::wstring ReadIniValue(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey);
std::vector<std::wstring> ListIniFiles(const std::wstring& wstrFolder);
// The Uninstall keys of both registry views (none where there is no registry).
std::vector<UninstallEntry> ListUninstallEntries();
// Runs the command line and waits up to nTimeoutSec: its exit code, or nothing (text in wstrError) when it
// could not be started or did not end in time.
std::optional<uint32_t> RunAndWait(const std::wstring& wstrCmdLine, uint32_t nTimeoutSec,
                                   std::wstring& wstrError);

}  // namespace QZCLEAN
