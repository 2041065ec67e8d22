// The composition root of the agent: the one place that builds the agent's real objects (the
// operating-system services and the hand-overs of QZCS_Main) and runs one start of the agent with them.
#pragma once

#include <string>

namespace QZRI {

// The process entry's work once the platform has handed over the command line: split it, store it in
// the module runtime, build the real services, run QZCS_Main, shut the runtime down. Returns the exit
// code and never throws. Without the runtime object the process ends at once (fail-fast, exit code 1).
int RunProcess(const std::wstring& wstrCmdLine) noexcept;

}  // namespace QZRI
