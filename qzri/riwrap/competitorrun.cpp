// The driver's incompatible-software step.
#include "qzri/riwrap/competitorrun.h"

#include "common/ristrutils.h"
#include "qzri/riwrap/agentservice.h"
#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/rbtagtcmdline.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servicecontrol.h"
#include "std/error.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

int32_t EndRun(RiWrpData& data, int32_t nCode, const std::wstring& wstrDescr, bool bNeedReboot,
               const AgentServices& services)
{
    RiResult rslt;
    rslt.m_nResultCode = nCode;
    rslt.m_nScriptResultCode = nCode;
    rslt.m_wstrDescription = wstrDescr;
    rslt.m_rebootState = bNeedReboot ? 1 : 0;
    RemoveService(*services.m_pServices, ServiceIdOf(data));
    RiwrapReportResult(data, rslt, services);
    return nCode;
}

std::wstring ErrorText(const std::exception& e)
{
    const auto* pError = dynamic_cast<const QZSTD::QZError*>(&e);
    return pError ? pError->GetMessage() : QZSTD::Utf8ToWide(e.what());
}

}  // namespace

std::optional<int32_t> RunCompetitorRemoval(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE("QZRIWRP", "RunExecutable");
    if (!services.m_pCompetitorEnv) {
        QZ_TRACE_E(L"%hs: Removing incompatible software is not available in this build.\n", QZ_SCOPE_NAME);
        return EndRun(data, QZRI_RSLT_NOT_AVAILABLE, L"Removing incompatible software is not available.",
                      false, services);
    }
    try {
        QZRIWRP::CompetitorEnv env = *services.m_pCompetitorEnv;
        if (env.m_wstrIniFolder.empty())
            env.m_wstrIniFolder = QZRIWRP::PackageIniFolder(data.m_wstrDirPath);
        QZRIWRP::CCompetitorSoftwareUninstall udata(data, env);
        if (!udata.IfUninstall())
            return std::nullopt;
        QZ_TRACE_I(L"%hs: competitor found.\n", QZ_SCOPE_NAME);
        if (!udata.PrepareToRemove())
            QZ_TRACE_E(L"%hs: udata.PrepareToRemove failed, generating report...\n", QZ_SCOPE_NAME);
        QZ_TRACE_I(L"Remove competitors command line: '%ls'\n", MaskPasswords(data.m_wstrSavedCmdLine));
        std::wstring wstrDescr;
        bool bNeedReboot = false;
        const int32_t nExitCode = udata.RemoveProducts(wstrDescr, bNeedReboot);
        QZ_TRACE_I(L"%hs: return nExitCode(%d), bNeedReboot(%d), wstrDescr(%ls)...\n", QZ_SCOPE_NAME,
                   nExitCode, bNeedReboot ? 1 : 0, wstrDescr);
        if (bNeedReboot) {
            // After the restart the reboot agent runs the task's first command line again: the removal
            // then finds nothing left (or takes over what a shutdown cut off) and the setup goes on.
            const std::wstring wstrAgent = env.m_wstrAgentFolder + L"qzrbtagt.exe";
            udata.SaveRebootAgentCmdLine(
                RebootAgentCommandLine(wstrAgent, data.m_wstrSavedCmdLine, data.m_wstrTaskId));
            udata.StartRebootAgent();
        }
        return EndRun(data, nExitCode, wstrDescr, bNeedReboot, services);
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
        QZ_TRACE_E(L"%hs: An error occured, generating report...\n", QZ_SCOPE_NAME);
        return EndRun(data, QZRI_RSLT_CLEANER_FAILED,
                      L"Removing incompatible software failed: " + ErrorText(e), false, services);
    }
}

}  // namespace QZRI
