// The consent question, the GUI process manager behind it, and what the answers mean.
#include "qzri/riwrap/askuser.h"

#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/qzbase.h"
#include "std/trace.h"

namespace QZRI {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* SESSIONS_MODULE = "QZWSSN";

GUIProcManImpl::GUIProcManImpl(const RiWrpData* pData, QZWSSN::SessionDesktop& desktop, AgentOs& os)
    : m_pData(pData), m_desktop(desktop), m_os(os)
{
}

std::wstring GUIProcManImpl::GUICommandLine(unsigned long nSessionId) const
{
    return L"\"" + m_pData->m_wstrDirPath + CONSENT_PROGRAM + L"\" PreInstall=1 SID=" +
           std::to_wstring(nSessionId);
}

QZWSSN::Handle GUIProcManImpl::CreateGUIProcess(unsigned long nSessionId, bool)
{
    QZ_TRACE_SCOPE(SESSIONS_MODULE, "GUIProcManImpl::CreateGUIProcess");
    const std::wstring wstrCmdLine = GUICommandLine(nSessionId);
    QZ_TRACE_I(L"%hs: Command line: %ls.\n", QZ_SCOPE_NAME, wstrCmdLine);
    const QZWSSN::Handle hProcess = m_desktop.CreateProcessForSession(nSessionId, wstrCmdLine);
    if (!hProcess)
        ++m_nUnanswered;
    return hProcess;
}

void GUIProcManImpl::AnalyzeProcessResult(uint32_t dwResult, bool* pbUpdate, bool* pbStop)
{
    *pbUpdate = true;
    *pbStop = false;
    if (dwResult == CONSENT_INSTALL_NOW || dwResult == CONSENT_LATER) {
        *pbUpdate = false;
        *pbStop = true;
        return;
    }
    ++m_nUnanswered;
}

bool GUIProcManImpl::ShouldStop()
{
    QZ_TRACE_SCOPE(SESSIONS_MODULE, "GUIProcManImpl::ShouldStop");
    if (!m_os.FileExists(m_pData->m_wstrQpdFilePath)) {
        QZ_TRACE_W(L"%hs: '%ls' is gone: the task was withdrawn.\n", QZ_SCOPE_NAME,
                   m_pData->m_wstrQpdFilePath);
        return true;
    }
    if (m_nUnanswered >= CONSENT_MAX_ASKS) {
        QZ_TRACE_E(L"%hs: The dialogue failed or gave no answer %d times.\n", QZ_SCOPE_NAME, m_nUnanswered);
        return true;
    }
    return false;
}

std::optional<uint32_t> SessionConsentDialog::Ask(const RiWrpData& data)
{
    const QZSTD::CAutoPtr<GUIProcManImpl> pMan = QZSTD::CAutoPtr<GUIProcManImpl>::Adopt(
        new QZSTD::RcClassImpl<GUIProcManImpl>(&data, m_desktop, m_os));
    return QZWSSN::RunProcessesInSessions(*pMan, m_sessions, m_desktop);
}

Consent AskUserForStart(const RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "AskUserForStart");
    QZ_TRACE_I(L"AskUserForStart...\n");
    if (data.m_vecUserSessions.empty()) {
        QZ_TRACE_W(L"%hs: No user is logged on to ask.\n", QZ_SCOPE_NAME);
        return Consent::NOT_ASKED;
    }
    const std::optional<uint32_t> nCode = services.m_pConsent->Ask(data);
    if (!nCode) {
        QZ_TRACE_W(L"%hs: Nobody answered.\n", QZ_SCOPE_NAME);
        return Consent::NOT_ASKED;
    }
    QZ_TRACE_I(L"dwProcessResultCode: %d\n", static_cast<int>(*nCode));
    if (*nCode == CONSENT_INSTALL_NOW) {
        ReportUserAction(data, USER_ACTION_OK, services);
        return Consent::AGREED;
    }
    if (*nCode == CONSENT_LATER) {
        ReportUserAction(data, USER_ACTION_DEFER, services);
        return Consent::DECLINED;
    }
    QZ_TRACE_E(L"%hs: %d is no answer.\n", QZ_SCOPE_NAME, static_cast<int>(*nCode));
    return Consent::NOT_ASKED;
}

}  // namespace QZRI
