// Asking the logged-on user before a package that wants consent is installed. The consent dialogue is
// a GUI program started in the user's session; its exit code is the answer:
//   6 ("Install now", the dialogue's IDYES)  the installation goes on;
//   4 ("Later", the dialogue's IDRETRY)      the task ends for now, without installing;
//   any other code                            the dialogue did not answer: it is shown again, at most
//                                             CONSENT_MAX_ASKS times in all.
// The answer reaches "askusr.log" or the task's entries as a user action (3, agreed; 2, deferred).
#pragma once

#include <cstdint>
#include <optional>

#include "qzri/riwrap/agentservices.h"

namespace QZRI {

class RiWrpData;
struct UserSession;

inline constexpr uint32_t CONSENT_INSTALL_NOW = 6;
inline constexpr uint32_t CONSENT_LATER = 4;
inline constexpr int CONSENT_MAX_ASKS = 3;

class ConsentDialog
{
public:
    virtual ~ConsentDialog() = default;
    // Shows the dialogue for the package in the session and waits for it; its exit code, or nothing when
    // it could not be shown (traced).
    virtual std::optional<uint32_t> Ask(const RiWrpData& data, const UserSession& session) = 0;
};

// This build has no consent dialogue program: nobody can be asked, which is traced.
class UnavailableConsentDialog : public ConsentDialog
{
public:
    std::optional<uint32_t> Ask(const RiWrpData& data, const UserSession& session) override;
};

enum class Consent
{
    AGREED,
    DECLINED,
    // No user is logged on, or the dialogue could not be shown or gave no answer.
    NOT_ASKED,
};

// Asks the user of the first interactive session taken at start-up.
Consent AskUserForStart(const RiWrpData& data, const AgentServices& services);

}  // namespace QZRI
