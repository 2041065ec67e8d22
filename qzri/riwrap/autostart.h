// Registering the agent to start again after a reboot, with the action the restarted agent takes. The
// agent's service implements it (agentservice.h); tests record the calls.
#pragma once

#include "qzri/riwrap/riwrpdata.h"

namespace QZRI {

class Autostart
{
public:
    virtual ~Autostart() = default;
    // True when the agent will start again after the next reboot with eAction.
    virtual bool RegisterAutostart(RiWrpData& data, QzriAction eAction) = 0;
    virtual void UnregisterAutostart(RiWrpData& data) = 0;
};

}  // namespace QZRI
