// RunExecutable, the installation driver: for a start that is neither a service restart nor a question
// to the user, it decides between the uninstall modes, makes sure the setup is there, registers the
// agent's autostart before a setup that may reboot the computer, runs the setup and waits for it, judges
// the result, decides about a reboot and reports. Every path that is not a planned reboot removes the
// agent's service.
//
// Parts of the agent that this build lacks (uninstalling a previous product or a group of products,
// removing incompatible software, downloads, Windows Installer packages, asking the user) end the run
// with a trace line that says so and QZRI_RSLT_NOT_AVAILABLE, never with a pretended success.
#pragma once

#include "qzri/riwrap/agentactions.h"
#include "qzri/riwrap/agentservices.h"

namespace QZRI {

class RiWrpData;

// [Setup] "TimeoutSec" of the package: how long the setup may run; 0 or absent: this default.
inline constexpr long DEFAULT_SETUP_TIMEOUT_SEC = 4 * 60 * 60;
// The value of [Uninstall] "Product" and "Version" of the ".qud" companion for a group uninstallation.
inline constexpr const wchar_t* ALL_CONTROLLED_PRODUCTS = L"AllControlledProducts";

DriverResult RunExecutable(RiWrpData& data, const AgentServices& services);

// A task that waited for the user's consent (action 3): asks, and runs the driver once the user agreed.
DriverResult AskUserThenRunExecutable(RiWrpData& data, const AgentServices& services);

// The setup's path: [Setup] "ExecutableRelPath" against the package description's folder when given,
// else [Setup] "Executable" against the folder of the setup (a full path stays as it is).
std::wstring SetupPathOf(const RiWrpData& data);

}  // namespace QZRI
