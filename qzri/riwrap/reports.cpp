// The agent's report sink: the trace, then the ordinary result channels.
#include "qzri/riwrap/reports.h"

#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riresult.h"
#include "std/trace.h"

namespace QZRI {

void AgentReportSink::ReportResult(const RiWrpData& data, const RiMessage& msg, int32_t nResultCode)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::ReportResult");
    QZ_TRACE_W(L"%hs: %ls \"%ls\", %ls.\n", QZ_SCOPE_NAME, msg.m_szId, msg.m_szText,
               DescribeResultCode(nResultCode));
    RiResult rslt;
    rslt.m_nResultCode = nResultCode;
    rslt.m_nScriptResultCode = nResultCode;
    rslt.m_wstrDescription = msg.m_szText;
    RiwrapReportResult(data, rslt, m_services);
}

}  // namespace QZRI
