// The GUI program "qzrbtagt.exe" that the agent starts in a user's session: the portable part, its
// command line, texts and settings. The dialogues themselves are Win32 only (rbtagt_win.cpp).
//
//   qzrbtagt.exe PreInstall=1 SID=<session>    consent before an installation: "Install now" (exit 6) or
//                                               "Later" (exit 4), with an optional countdown to the
//                                               package's default answer
//   qzrbtagt.exe [RunAfterRestart=$HEX_<...>] [TASK_ID=<task>] [Agent=$HEX_<...>]
//                                               the reboot agent: "Restart now" / "Restart later"; the
//                                               answers are reported as the agent reports them, for the
//                                               task, through the agent's file named by Agent (in the
//                                               package folder; "qzriwrap.exe" when not given)
//
// Texts come from the package's language file (<qpd folder>/qpd.loc/<server language>.ini, section
// [qzrbtagt]); a missing file or key gives the English text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qzri/riwrap/rbtagtcmdline.h"

namespace QZRI {
class QpdFile;
struct AgentServices;
}  // namespace QZRI

namespace QZRBTAGT {

// Exit codes. The consent answers are the dialogue's button ids (IDYES, IDRETRY); the agent reports
// them as user actions 3 (agreed) and 2 (deferred).
inline constexpr int EXIT_INSTALL_NOW = 6;
inline constexpr int EXIT_LATER = 4;
// The reboot agent: the restart was requested (user action 6 in "askusr.log"); the program ended
// without one (asking is switched off, or the session ended while the restart was deferred).
inline constexpr int EXIT_RESTART_REQUESTED = 6;
inline constexpr int EXIT_NO_RESTART = 7;
// Neither: a command line it does not understand, a restart that could not be requested, an error.
inline constexpr int EXIT_BAD_COMMAND_LINE = 1;
inline constexpr int EXIT_RESTART_FAILED = 2;
// The session ends before an answer: not an answer, so the agent starts the dialogue again.
inline constexpr int EXIT_SESSION_ENDED = 0;

// User actions written to "askusr.log" by the reboot agent (the agent's own codes).
inline constexpr int USER_ACTION_REBOOT_NOW = 6;
inline constexpr int USER_ACTION_REBOOT_LATER = 7;

inline constexpr const wchar_t* SETTINGS_FILE = L"qzrbtagt.ini";
inline constexpr const wchar_t* USER_ACTION_FILE = L"askusr.log";
using QZRI::AGENT_KEY;
using QZRI::DEFAULT_AGENT;
using QZRI::RebootAgentCommandLine;
using QZRI::RUN_AFTER_RESTART_KEY;
using QZRI::TASK_ID_KEY;

struct Arguments
{
    bool m_bPreInstall = false;
    std::optional<unsigned long> m_nSessionId;
    // The command line to run once the computer has restarted (decoded); empty: none.
    std::wstring m_wstrRunAfterRestart;
    // The task the answers are reported for; empty: "askusr.log".
    std::wstring m_wstrTaskId;
    // The agent's file in the package folder, which delivers a reboot answer to the server.
    std::wstring m_wstrAgent = DEFAULT_AGENT;
    // Empty when the command line was understood; else what is wrong with it.
    std::wstring m_wstrError;
};
// The words after the program name; unknown words are an error, so that a caller's mistake shows.
Arguments ParseArguments(const std::wstring& wstrCmdLine);

enum TextId : int
{
    CONSENT_TITLE,
    CONSENT_MESSAGE,
    INSTALL_NOW,
    LATER,
    CONSENT_COUNTDOWN,
    REBOOT_TITLE,
    REBOOT_MESSAGE,
    RESTART_NOW,
    RESTART_LATER,
    REBOOT_COUNTDOWN,
    TEXT_COUNT
};
// The key in the language file and the English text.
const wchar_t* TextKey(TextId eId);
const wchar_t* EnglishText(TextId eId);

struct Texts
{
    std::wstring m_vec[TEXT_COUNT];
    const std::wstring& operator[](TextId eId) const { return m_vec[eId]; }
    // The keys that fell back to English.
    std::vector<std::wstring> m_vecMissing;
};
// From the language file (UTF-8 or ANSI as the ini reader reads it); an empty path or a file that
// cannot be read gives English throughout.
Texts LoadTexts(const std::wstring& wstrLanguageFile);
// The template with "%PRODUCT%" and "%SECONDS%" replaced.
std::wstring FormatText(const std::wstring& wstrTemplate, const std::wstring& wstrProduct, int nSeconds);

// The package's consent settings, [Setup] in its description: "AskUserTimeoutSec" (0, the default:
// no countdown) and "AskUserDefaultAnswer" (1: install now; any other value, the default included:
// later, so that nothing is installed without a user's yes unless the package says so). The product
// is [Product] "DisplayName", else "Name".
struct ConsentSettings
{
    std::wstring m_wstrProduct;
    int m_nCountdownSec = 0;
    int m_nDefaultAnswer = EXIT_LATER;
};
ConsentSettings ReadConsentSettings(const QZRI::QpdFile& qpd);

// The reboot agent's settings in "qzrbtagt.ini", [Action]:
//   RebootImmediately  above 0: restart at once, without asking
//   AskReboot          0: do not ask and do not restart; absent or any other value: ask
//   MaxDeferrals       how often "Restart later" may be chosen (0, the default: without limit)
//   RemindSec          how long a deferral lasts before the question comes back (default 3600)
//   CountdownSec       once no deferral is left, the restart follows after this many seconds (default 300)
// and [State] "Deferrals", the deferrals chosen so far, which the program counts there.
struct RebootSettings
{
    enum Mode
    {
        IMMEDIATE,
        ASK,
        NONE
    } m_eMode = ASK;
    int m_nMaxDeferrals = 0;
    int m_nRemindSec = 3600;
    int m_nCountdownSec = 300;
    int m_nDeferrals = 0;
    bool CanDefer() const { return m_nMaxDeferrals <= 0 || m_nDeferrals < m_nMaxDeferrals; }
};
RebootSettings ReadRebootSettings(const std::wstring& wstrSettingsFile);
// Counts one more deferral in the file and in the settings.
void CountDeferral(const std::wstring& wstrSettingsFile, RebootSettings& settings);

// The restart of the computer, behind an interface so that tests never restart anything.
class Restarter
{
public:
    virtual ~Restarter() = default;
    // Arranges for the command line (when not empty) to run after the restart, then asks the system to
    // restart. False (traced) when either fails; the command line is then not left registered.
    virtual bool Restart(const std::wstring& wstrRunAfterRestart) = 0;
};
// Writes "restart" and the command line to the file instead of restarting: set by the environment
// variable QZRBTAGT_DRY_RUN=<file> (trials and tests).
class DryRunRestarter : public Restarter
{
public:
    explicit DryRunRestarter(std::wstring wstrFile) : m_wstrFile(std::move(wstrFile)) {}
    bool Restart(const std::wstring& wstrRunAfterRestart) override;

private:
    std::wstring m_wstrFile;
};

// A user's answer reported by the agent's own routine (ReportUserAction): without a task into "askusr.log"
// of the package folder, with one into the task's entries and, for the reboot answers, on to the
// administration server through an instance of the agent (the services' starter).
void ReportAnswer(const Arguments& args, const std::wstring& wstrFolder, int nUserAction,
                  const QZRI::AgentServices& services);

}  // namespace QZRBTAGT
