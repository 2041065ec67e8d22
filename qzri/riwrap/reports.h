// Results that the agent reports: a message id that the administration server knows and an English
// default text. Start-up reports the three ways a run can end before any setup is started.
//
// Where a report goes is behind ReportSink: the agent's sink writes the result through the ordinary
// channels (setup.log or the task's entries), tests record what was reported.
#pragma once

#include <cstdint>
#include <string>

namespace QZRI {

struct RiMessage
{
    const wchar_t* m_szId;
    const wchar_t* m_szText;
};

inline constexpr RiMessage MSG_FILE_NOT_EXISTS{L"QZRI_MSG_DATA_FILE_NOT_EXISTS", L"File does not exist."};
inline constexpr RiMessage MSG_UNEXPECTED_REBOOT{L"QZRI_MSG_DATA_UNEXPECTED_REBOOT", L"Unexpected reboot."};
// The driver's text for a missing setup has no full stop, unlike start-up's for a missing description.
inline constexpr RiMessage MSG_SETUP_NOT_EXISTS{L"QZRI_MSG_DATA_FILE_NOT_EXISTS", L"File does not exist"};
inline constexpr RiMessage MSG_NOT_AVAILABLE{
    L"QZRI_MSG_DATA_NOT_AVAILABLE",
    L"The package needs a part of the agent that this build does not contain."};
inline constexpr RiMessage MSG_GENERAL_ERROR{L"QZRI_MSG_DATA_GENERAL_ERROR", L"General error."};
inline constexpr RiMessage MSG_TIMEOUT_EXPIRED{L"QZRI_MSG_DATA_TIMEOUT_EXPIRED", L"Timeout elapsed."};
inline constexpr RiMessage MSG_USER_DECLINED{L"QZRI_MSG_DATA_USER_DECLINED",
                                             L"The user chose to install later."};
inline constexpr RiMessage MSG_USER_NOT_ASKED{L"QZRI_MSG_DATA_USER_NOT_ASKED",
                                              L"The user's consent could not be asked."};
inline constexpr RiMessage MSG_LOCAL_SERVER_WRN{
    L"QZRI_MSG_DATA_LOCAL_SERVER_WRN",
    L"The uninstallation was canceled. Group uninstallation is not possible on the host with the server "
    L"nagent."};
inline constexpr RiMessage MSG_INSTALLER_BUSY{
    L"QZRI_MSG_DATA_INSTALLER_BUSY",
    L"Windows Installer is busy with another installation: retry later. Nothing was installed."};
inline constexpr RiMessage MSG_COMPLETE_SKIPPED{
    L"QZRI_MSG_DATA_COMPLETE_SKIPPED", L"Installation is not required. Host is managed by another Server"};

class RiWrpData;
struct AgentServices;

class ReportSink
{
public:
    virtual ~ReportSink() = default;
    // Reports that the run ends with nResultCode for the reason the message names.
    virtual void ReportResult(const RiWrpData& data, const RiMessage& msg, int32_t nResultCode) = 0;
};

// Traces the message and reports the result through the ordinary channels (resultreport.h): the
// message's text is the description. The services must outlive the sink.
class AgentReportSink : public ReportSink
{
public:
    explicit AgentReportSink(const AgentServices& services) : m_services(services) {}
    void ReportResult(const RiWrpData& data, const RiMessage& msg, int32_t nResultCode) override;

private:
    const AgentServices& m_services;
};

}  // namespace QZRI
