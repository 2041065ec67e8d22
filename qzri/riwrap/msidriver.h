// The installation driver's Windows Installer branch: a package whose setup is an ".msi" (or a patch,
// ".msp") is installed in this process through QZMsiSetup (common/msisetup/msisetup.h).
//
// The package's MSI description, in its [Setup] section:
//   MsiProperties=INSTALLDIR="C:\Program Files\X" /norestart   the properties it is installed with, and
//                                                 the restart options that choose REBOOT (absent: REBOOT=
//                                                 ReallySuppress: the agent decides about restarts)
//   MsiBusyTimeoutSec=600                         how long a Windows Installer busy with another
//                                                 installation is waited for (default 600)
// Words of MsiProperties that are neither properties nor restart options are ignored with a warning.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/msisetup/msisetup.h"
#include "qzri/riwrap/agentservices.h"
#include "std/trace.h"

namespace QZRI {

class RiWrpData;

inline constexpr long DEFAULT_MSI_BUSY_TIMEOUT_SEC = 10 * 60;

// What an installation gave: Windows Installer's answer, the explanation of a failure, the properties
// the package handed over.
struct MsiRun
{
    uint32_t m_nResult = 0;
    std::wstring m_wstrFailure;
    std::vector<MsiSetupParameter> m_vecExternal;
};

// The properties of the package's description with REBOOT; the words that are no property go to
// *pvecIgnored.
std::vector<MsiSetupParameter> MsiParametersOf(const RiWrpData& data, std::vector<std::wstring>* pvecIgnored);

MsiRun RunMsiSetup(RiWrpData& data, const std::wstring& wstrPackage, const AgentServices& services);

// The installer's messages in the agent's trace under the given scope name: the actions as they start,
// errors and warnings as they come, passwords masked; every message is left to the installer (no user
// interface). For installations and for removals by product code alike.
class TracingMsiCallback : public QZMsiSetupCallback
{
public:
    explicit TracingMsiCallback(const char* szScope) : m_szScope(szScope) {}
    int OnError(const std::wstring& wstrText) override { return Trace(QZSTD::TL_ERROR, wstrText); }
    int OnWarning(const std::wstring& wstrText) override { return Trace(QZSTD::TL_WARNING, wstrText); }
    int OnUser(const std::wstring& wstrText) override { return Trace(QZSTD::TL_INFO, wstrText); }
    int OnInformation(const std::wstring& wstrText) override { return Trace(QZSTD::TL_DEBUG, wstrText); }
    int OnFilesInUse(const std::vector<std::pair<std::wstring, std::wstring>>& vecProcesses) override;
    int OnActionStart(const std::wstring& wstrText) override { return Trace(QZSTD::TL_INFO, wstrText); }
    int OnActionData(const std::wstring& wstrText) override { return Trace(QZSTD::TL_DEBUG, wstrText); }
    int OnProgress(const std::wstring&) override { return 0; }

private:
    int Trace(QZSTD::TraceLevel eLevel, const std::wstring& wstrText) const;

    const char* m_szScope;
};

}  // namespace QZRI
