// The installation driver's step for a run with "QZRI$CMTRS": the removal of the incompatible software
// that the package names.
#pragma once

#include <cstdint>
#include <optional>

#include "qzri/riwrap/agentservices.h"

namespace QZRI {

class RiWrpData;

// Nothing when the package requires no removal and the driver goes on. Otherwise the run is a removal task
// and ends here: the result is reported (the message of the removal, or the error that stopped it: an
// unsupported system, no engine, an entry point missing), the agent's service removed, and when the
// removal needs a restart the reboot agent is started with the command line that runs the task again
// after it (which then finishes what a shutdown cut off, or finds nothing left).
std::optional<int32_t> RunCompetitorRemoval(RiWrpData& data, const AgentServices& services);

}  // namespace QZRI
