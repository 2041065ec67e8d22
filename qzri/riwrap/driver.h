// RunExecutable, the installation driver: for a start that is neither a service restart nor a question
// to the user, it decides between the uninstall modes, makes sure the setup is there, registers the
// agent's autostart before a setup that may reboot the computer, runs the setup and waits for it, judges
// the result, decides about a reboot and reports. Every path that is not a planned reboot removes the
// agent's service.
//
// Parts of the agent that this build lacks (the uninstaller of a product, removing incompatible
// software, downloads, Windows Installer packages) end the run with a trace line that says so and
// QZRI_RSLT_NOT_AVAILABLE, never with a pretended success. docs/driver.md describes the group
// uninstallation, the setup's command line, the run parameters in the companion and the file opened after
// the installation for administrators.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "qzri/riwrap/agentactions.h"
#include "qzri/riwrap/agentservices.h"

namespace QZRI {

class RiWrpData;

// [Setup] "TimeoutSec" of the package: how long the setup may run; 0 or absent: this default.
inline constexpr long DEFAULT_SETUP_TIMEOUT_SEC = 4 * 60 * 60;
// The value of [Uninstall] "Product" and "Version" of the ".qud" companion for a group uninstallation.
inline constexpr const wchar_t* ALL_CONTROLLED_PRODUCTS = L"AllControlledProducts";

// After each product of a group uninstallation the management agent's "ConnInstalled" is read every
// CONN_POLL_MS, at most CONN_MAX_POLLS times (five minutes), until it is true.
inline constexpr uint32_t CONN_POLL_MS = 2000;
inline constexpr int CONN_MAX_POLLS = 150;
// Appended to the task id for the report of one product of a group uninstallation.
inline constexpr const wchar_t* UNFINISHED_TASK_SUFFIX = L"_USR_UNFIN";

// Words of the first start's command line whose key begins with this are the parameters for removing
// the management agent that the setup replaces; they are handed on to the setup.
inline constexpr std::wstring_view AGENT_REMOVAL_KEY_PREFIX = L"AKINSTALL";
// The section of the companion that receives the run's parameters before the setup starts, and its keys.
inline constexpr const wchar_t* RUN_PARAMS_SECTION = L"RunParams";
// [Setup] of the package: a file to open through the shell after an installation without error (relative
// to the package folder unless it is a full path), and its parameters.
inline constexpr const wchar_t* OPEN_AFTER_INSTALL_KEY = L"OpenAfterInstall";
inline constexpr const wchar_t* OPEN_AFTER_INSTALL_PARAMS_KEY = L"OpenAfterInstallParams";

DriverResult RunExecutable(RiWrpData& data, const AgentServices& services);

// A task that waited for the user's consent (action 3): asks, and runs the driver once the user agreed.
DriverResult AskUserThenRunExecutable(RiWrpData& data, const AgentServices& services);

// The setup's path: [Setup] "ExecutableRelPath" against the package description's folder when given,
// else [Setup] "Executable" against the folder of the setup (a full path stays as it is).
std::wstring SetupPathOf(const RiWrpData& data);

// The setup's command line: the quoted setup path; " RI_ID=<id>" for the management agent's own package
// (product "1103"); then the first start's words that begin with "AKINSTALL", each quoted as needed.
// Traces those words with every password value replaced by its length.
std::wstring BuildSetupCommandLine(const RiWrpData& data, const std::wstring& wstrSetup);

// Writes [RunParams] "TaskId", "RiId", "StartCounter" and "CommandLine" (the first start's, passwords
// masked, in the "$HEX_" form) into the package's companion (the description itself when that is a
// ".qud" file), so that the setup can read which task runs it. False (traced) when it was not written.
bool SaveParamsToIni(const RiWrpData& data);

}  // namespace QZRI
