// The package description (the ".qpd" file in the package folder) and the decisions that start-up
// takes from its settings. The settings are read through QZRI::QpdFile, so that a value given in the
// ".qud" companion wins. "AskUser" lives in section [Setup], beside the setup executable it governs;
// the managed-by-another-server settings in [ExtendedSettings].
#pragma once

#include <string>
#include <vector>

namespace QZRI {

// The package folder holds one package description. When it holds several, the first by name (ASCII
// letters compared without case, then exactly) is taken, which the caller traces. The ".qpd"
// extension matches without regard to case, as the Windows file system does.
struct QpdChoice
{
    std::wstring m_wstrFileName;  // empty when the folder holds none
    size_t m_nCandidates = 0;
};
QpdChoice ChooseQpdFile(const std::vector<std::wstring>& vecFileNames);

// [ExtendedSettings] "MgdByOtherSrv": 1 means never install on a host that another server manages;
// every other value (0, the default, included) means install regardless.
inline constexpr int MGD_BY_OTHER_SERVER_NEVER = 1;
const wchar_t* MgdByOtherSrvPolicyName(int nPolicy);

// The managed-by-another-server test once the policy is "never": only two known ids that differ
// prove another server manages the host. An unknown id on either side installs.
bool IsManagedByAnotherServer(const std::wstring& wstrParentServerId,
                              const std::wstring& wstrCurrentServerId);

}  // namespace QZRI
