// Registering the agent to start again after a reboot, with the action the restarted agent takes. The
// service mode implements it; a run that needs it in a build without the service mode says so.
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

// This build's: a trace line that the registration is not available, and false.
class UnavailableAutostart : public Autostart
{
public:
    bool RegisterAutostart(RiWrpData& data, QzriAction eAction) override;
    void UnregisterAutostart(RiWrpData& data) override;
};

}  // namespace QZRI
