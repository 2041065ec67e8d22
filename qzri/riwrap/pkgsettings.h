// The package description (the ".qpd" file in the package folder) and the few settings that start-up
// takes from it.
//
// Every setting is read through ReadPackageSetting, so that the package-description reader, once it
// is in place, replaces that one function. "AskUser" lives in section [Setup], beside the setup
// executable it governs; the managed-by-another-server settings in [ExtendedSettings].
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

// [szSection] szKey of the package description, or szDefault when the key is absent or there is no
// package description (empty path).
std::wstring ReadPackageSetting(const std::wstring& wstrQpdFilePath, const wchar_t* szSection,
                                const wchar_t* szKey, const wchar_t* szDefault);

// [ExtendedSettings] "MgdByOtherSrv": 1 means never install on a host that another server manages;
// every other value (0, the default, included) means install regardless.
inline constexpr int MGD_BY_OTHER_SERVER_NEVER = 1;
const wchar_t* MgdByOtherSrvPolicyName(int nPolicy);

// The managed-by-another-server test once the policy is "never": only two known ids that differ
// prove another server manages the host. An unknown id on either side installs.
bool IsManagedByAnotherServer(const std::wstring& wstrParentServerId,
                              const std::wstring& wstrCurrentServerId);

}  // namespace QZRI
