// The report sink of this build: the trace.
#include "qzri/riwrap/reports.h"

#include "std/trace.h"

namespace QZRI {

void TraceReportSink::ReportResult(const std::wstring& wstrMsgId, const std::wstring& wstrText)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::ReportResult");
    QZ_TRACE_W(
        L"%hs: %ls \"%ls\" (written to the trace only: result reporting is not available in this "
        L"build).\n",
        QZ_SCOPE_NAME, wstrMsgId, wstrText);
}

}  // namespace QZRI
