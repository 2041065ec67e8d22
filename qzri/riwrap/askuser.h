// Asking the logged-on users before a package that wants consent is installed. The consent dialogue is
// the GUI program "qzrbtagt.exe" of the package folder, started as "PreInstall=1 SID=<session>" in every
// eligible user session (QZWSSN::RunProcessesInSessions); the first exit code that answers decides:
//   6 ("Install now", the dialogue's IDYES)  the installation goes on;
//   4 ("Later", the dialogue's IDRETRY)      the task ends for now, without installing;
//   any other code                            no answer (the dialogue was closed, its session ended): it is
//                                             started again, CONSENT_MAX_ASKS starts that give no answer
//                                             or fail in all.
// The answer reaches "askusr.log" or the task's entries as a user action (3, agreed; 2, deferred).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/winsessions.h"
#include "qzri/riwrap/agentservices.h"

namespace QZRI {

class RiWrpData;

inline constexpr uint32_t CONSENT_INSTALL_NOW = 6;
inline constexpr uint32_t CONSENT_LATER = 4;
inline constexpr int CONSENT_MAX_ASKS = 3;
inline constexpr const wchar_t* CONSENT_PROGRAM = L"qzrbtagt.exe";

class ConsentDialog
{
public:
    virtual ~ConsentDialog() = default;
    // Shows the dialogue for the package to the logged-on users and waits for an answer: the deciding
    // exit code, or nothing when nobody answered (traced). QZError 1199 when the agent is stopped.
    virtual std::optional<uint32_t> Ask(const RiWrpData& data) = 0;
};

// The consent dialogue's side of the cycle. The stop test watches the package description
// (RiWrpData::m_wstrQpdFilePath): the administration server withdraws a task by removing its package
// folder, and the description is the one file every run has (a run without it never gets here). It
// also stops once CONSENT_MAX_ASKS starts failed or ended without an answer, so that a missing or
// broken program is not started for ever.
class GUIProcManImpl : public QZWSSN::GUIProcMan
{
public:
    GUIProcManImpl(const RiWrpData* pData, QZWSSN::SessionDesktop& desktop, AgentOs& os);
    QZWSSN::Handle CreateGUIProcess(unsigned long nSessionId, bool bTerminalSessions) override;
    void AnalyzeProcessResult(uint32_t dwResult, bool* pbUpdate, bool* pbStop) override;
    bool ShouldStop() override;

    // "\"<folder>qzrbtagt.exe\" PreInstall=1 SID=<session id>".
    std::wstring GUICommandLine(unsigned long nSessionId) const;

private:
    const RiWrpData* m_pData;
    QZWSSN::SessionDesktop& m_desktop;
    AgentOs& m_os;
    int m_nUnanswered = 0;
};

// The dialogue in the users' sessions: the live session list, the system's process start and wait.
class SessionConsentDialog : public ConsentDialog
{
public:
    SessionConsentDialog(SessionList& sessions, QZWSSN::SessionDesktop& desktop, AgentOs& os)
        : m_sessions(sessions), m_desktop(desktop), m_os(os)
    {
    }
    std::optional<uint32_t> Ask(const RiWrpData& data) override;

private:
    SessionList& m_sessions;
    QZWSSN::SessionDesktop& m_desktop;
    AgentOs& m_os;
};

enum class Consent
{
    AGREED,
    DECLINED,
    // No user is logged on, or nobody answered.
    NOT_ASKED,
};

// Asks when an interactive session was found at start-up; reports the answer (ReportUserAction).
Consent AskUserForStart(const RiWrpData& data, const AgentServices& services);

}  // namespace QZRI
