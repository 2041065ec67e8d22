// Results that the agent reports: a message id that the administration server knows and an English
// default text. Start-up reports the three ways a run can end before any setup is started.
//
// Where a report goes is behind ReportSink: until the setup logs, the settings-storage entries and the
// server connector are in place, reports reach only the trace (TraceReportSink).
#pragma once

#include <string>

namespace QZRI {

struct RiMessage
{
    const wchar_t* m_szId;
    const wchar_t* m_szText;
};

inline constexpr RiMessage MSG_FILE_NOT_EXISTS{L"QZRI_MSG_DATA_FILE_NOT_EXISTS", L"File does not exist."};
inline constexpr RiMessage MSG_UNEXPECTED_REBOOT{L"QZRI_MSG_DATA_UNEXPECTED_REBOOT", L"Unexpected reboot."};
inline constexpr RiMessage MSG_TIMEOUT_EXPIRED{L"QZRI_MSG_DATA_TIMEOUT_EXPIRED", L"Timeout elapsed."};
inline constexpr RiMessage MSG_COMPLETE_SKIPPED{
    L"QZRI_MSG_DATA_COMPLETE_SKIPPED", L"Installation is not required. Host is managed by another Server"};

class ReportSink
{
public:
    virtual ~ReportSink() = default;
    virtual void ReportResult(const std::wstring& wstrMsgId, const std::wstring& wstrText) = 0;
};

inline void ReportResult(ReportSink& sink, const RiMessage& msg)
{
    sink.ReportResult(msg.m_szId, msg.m_szText);
}

// Writes each report as one trace line (module "QZRI", scope "QZRI::ReportResult") and says that it
// went nowhere else.
class TraceReportSink : public ReportSink
{
public:
    void ReportResult(const std::wstring& wstrMsgId, const std::wstring& wstrText) override;
};

}  // namespace QZRI
