// The consent question and what its answers mean.
#include "qzri/riwrap/askuser.h"

#include "common/winsessions.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/trace.h"

namespace QZRI {

constexpr const char* MODULE = "QZRIWRP";

std::optional<uint32_t> UnavailableConsentDialog::Ask(const RiWrpData&, const UserSession& session)
{
    QZ_TRACE_SCOPE(MODULE, "AskUserForStart");
    QZ_TRACE_E(L"%hs: The consent dialogue is not available in this build (session %d).\n", QZ_SCOPE_NAME,
               static_cast<int>(session.m_nSessionId));
    return std::nullopt;
}

Consent AskUserForStart(const RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "AskUserForStart");
    QZ_TRACE_I(L"AskUserForStart...\n");
    if (data.m_vecUserSessions.empty()) {
        QZ_TRACE_W(L"%hs: No user is logged on to ask.\n", QZ_SCOPE_NAME);
        return Consent::NOT_ASKED;
    }
    const UserSession& session = data.m_vecUserSessions.front();
    for (int nAsk = 0; nAsk < CONSENT_MAX_ASKS; ++nAsk) {
        const std::optional<uint32_t> nCode = services.m_pConsent->Ask(data, session);
        if (!nCode)
            return Consent::NOT_ASKED;
        QZ_TRACE_I(L"dwProcessResultCode: %d\n", static_cast<int>(*nCode));
        if (*nCode == CONSENT_INSTALL_NOW) {
            ReportUserAction(data, USER_ACTION_OK, services);
            return Consent::AGREED;
        }
        if (*nCode == CONSENT_LATER) {
            ReportUserAction(data, USER_ACTION_DEFER, services);
            return Consent::DECLINED;
        }
    }
    QZ_TRACE_E(L"%hs: The dialogue gave no answer %d times.\n", QZ_SCOPE_NAME, CONSENT_MAX_ASKS);
    return Consent::NOT_ASKED;
}

}  // namespace QZRI
