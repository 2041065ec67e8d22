// Installing a package's Windows Installer package from the driver, with its progress in the trace.
#include "qzri/riwrap/msidriver.h"

#include "common/ristrutils.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/waits.h"
#include "std/cmdline.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* SCOPE = "RunExecutable";

bool IsKnownSwitch(const std::wstring& wstrWord)
{
    return wstrWord == L"/norestart" || wstrWord == L"/promptrestart" || wstrWord == L"/forcerestart";
}

}  // namespace

std::vector<MsiSetupParameter> MsiParametersOf(const RiWrpData& data, std::vector<std::wstring>* pvecIgnored)
{
    const std::wstring wstrLine = data.m_pQpd->GetString(L"Setup", L"MsiProperties", L"");
    std::vector<MsiSetupParameter> vecParams;
    AppendMsiParametersWithReboot(wstrLine, vecParams);
    for (const std::wstring& wstrWord : QZSTD::SplitCommandLine(L"x " + wstrLine)) {
        if (wstrWord != L"x" && wstrWord.find(L'=') == std::wstring::npos && !IsKnownSwitch(wstrWord))
            pvecIgnored->push_back(wstrWord);
    }
    return vecParams;
}

int TracingMsiCallback::OnFilesInUse(const std::vector<std::pair<std::wstring, std::wstring>>& vecProcesses)
{
    for (const auto& [wstrProcess, wstrTitle] : vecProcesses)
        Trace(QZSTD::TL_WARNING, L"Files in use by " + wstrProcess + L" ('" + wstrTitle + L"')");
    return 0;
}

int TracingMsiCallback::Trace(QZSTD::TraceLevel eLevel, const std::wstring& wstrText) const
{
    QZ_TRACE_SCOPE(MODULE, m_szScope);
    QZ_TRACE(eLevel, L"%hs: %ls\n", QZ_SCOPE_NAME, MaskPasswords(wstrText));
    return 0;
}

MsiRun RunMsiSetup(RiWrpData& data, const std::wstring& wstrPackage, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    MsiRun run;
    std::vector<std::wstring> vecIgnored;
    std::vector<MsiSetupParameter> vecParams = MsiParametersOf(data, &vecIgnored);
    for (const std::wstring& wstrWord : vecIgnored)
        QZ_TRACE_W(L"%hs: warnings generated - '%ls is no property and is ignored'.\n", QZ_SCOPE_NAME,
                   wstrWord);
    TracingMsiCallback callback("QZMsiSetupCallbackImpl");
    QZMsiSetup::Ptr msiSetup =
        CreateMsiSetup(wstrPackage, std::move(vecParams), callback, *services.m_pInstaller);
    MsiLaunchOptions options;
    const long lBusySec = data.m_pQpd->GetInt(L"Setup", L"MsiBusyTimeoutSec", 0);
    options.m_lBusyLimitMs = (lBusySec > 0 ? lBusySec : DEFAULT_MSI_BUSY_TIMEOUT_SEC) * 1000;
    options.m_fnWait = [&services](uint32_t nMs) { return !services.m_pWaits->WaitForStop(nMs); };
    run.m_nResult = msiSetup->Launch(options, run.m_vecExternal);
    for (const MsiSetupParameter& param : run.m_vecExternal)
        QZ_TRACE_I(L"%hs: the package handed over property %ls.\n", QZ_SCOPE_NAME, param.m_wstrName);
    if (run.m_nResult != MSI_ERROR_SUCCESS && run.m_nResult != MSI_ERROR_SUCCESS_REBOOT_REQUIRED &&
        run.m_nResult != MSI_ERROR_SUCCESS_REBOOT_INITIATED)
        run.m_wstrFailure = msiSetup->FailureDescription();
    QZ_TRACE_I(L"%hs: Windows Installer returned %u%ls%ls; its log is '%ls'.\n", QZ_SCOPE_NAME, run.m_nResult,
               run.m_wstrFailure.empty() ? L"" : L": ", run.m_wstrFailure, msiSetup->LogPath());
    return run;
}

}  // namespace QZRI
