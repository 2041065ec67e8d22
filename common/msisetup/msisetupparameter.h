// The properties handed to Windows Installer for a package: those of the setup command line, and the
// REBOOT property that the agent adds itself from the command line's restart options.
//
// REBOOT is chosen by the ABSENCE of the options, in this order: without "/norestart" it is
// "ReallySuppress"; else without "/promptrestart" "Suppress"; else without "/forcerestart" "Force"; with
// all three no REBOOT is added. A command line that says nothing about restarts thus gets
// "ReallySuppress", so that Windows Installer never restarts the computer behind the agent's back: the
// agent decides about restarts itself, with the administration server. The options are matched as
// exact, case-sensitive substrings.
#pragma once

#include <string>
#include <vector>

namespace QZRI {

struct MsiSetupParameter
{
    std::wstring m_wstrName;
    std::wstring m_wstrValue;
    // 1 for a property the agent adds itself, 0 for one from the command line.
    int m_nAddedByAgent = 0;

    bool operator==(const MsiSetupParameter&) const = default;
};

// The NAME=value words of a command line, in their order. A value may be quoted ("a b"), with ""
// standing for one quote inside it; words that are not NAME=value (options such as /qn) are skipped.
// A name is letters, digits, '_' and '.', and does not begin with a digit.
std::vector<MsiSetupParameter> ParseMsiProperties(const std::wstring& wstrCmdLine);

// The REBOOT value for the command line's restart options (see above); empty: none is added.
std::wstring ChooseRebootValue(const std::wstring& wstrCmdLine);

// Appends the command line's properties, then REBOOT (when one is chosen) marked as the agent's.
void AppendMsiParametersWithReboot(const std::wstring& wstrCmdLine,
                                   std::vector<MsiSetupParameter>& vecParams);

}  // namespace QZRI
