// The agent's trace files and StartTrace, which opens the trace of this run.
//
// Folder: the value of the environment variable "QZCSAK_SYSTEMP_PATH" when it is set, not empty and an
// existing folder this process can write to; otherwise the system's temporary folder.
//
// A normal run writes "$qzriwrp.txt" and keeps four earlier traces: before the file is opened the chain
// "$qzriwrp.txt" -> "$qzriwrp.bak" -> "$qzriwrp.bak.bak" -> "$qzriwrp.bak.bak.bak" ->
// "$qzriwrp.bak.bak.bak.bak" moves one step, oldest first, and the oldest falls off.
//
// A run that was not started by the agent's service (no "QZRI$ID") begins a new task, so it must not
// go on in a trace that another run left behind: it deletes "$qzriwrp.txt" once the rotation is done.
// Rotating first keeps the previous run's trace as "$qzriwrp.bak"; the delete then removes only a file
// that the rotation could not move (a rename refused while another process holds the file), so a fresh
// run never appends to a stale trace. The file is opened for appending, so nothing that is still there
// (a restart whose rotation failed) is overwritten.
//
// A run that finds "$qzriwrp.txt" held by another run of the agent (the service keeps its trace open
// while the setup it relaunched after a reboot runs) writes "$qzriwrp_concurrent.txt" instead, appending,
// and says so at its start: its trace is never lost to a file it may not write.
//
// An incompatible-software removal run ("QZRI$CMTRS") writes "$qzriwrp_cmpr.txt" from its start and
// touches neither the chain nor "$qzriwrp.txt": it may run while another agent run writes there.
// Likewise the second instance that takes a pending reboot to the administration server
// ("PxgRequest=$qzriwrp_srvri_<task>.par") writes "$qzriwrp_srvri_<task>.txt", appending: it starts while
// the run that started it still writes its trace, may poll the server for a day while the next task's
// runs come and go, and a task may hand over two requests at once (its result and the user's answer).
// A request name that is not the agent's own gives "$qzriwrp_srvri.txt".
#pragma once

#include <string>
#include <vector>

namespace QZRI {

class AgentOs;

inline constexpr const wchar_t* TRACE_FOLDER_ENV = L"QZCSAK_SYSTEMP_PATH";
inline constexpr const wchar_t* TRACE_FILE = L"$qzriwrp.txt";
inline constexpr const wchar_t* COMPETITOR_TRACE_FILE = L"$qzriwrp_cmpr.txt";
inline constexpr const wchar_t* REBOOT_REQUEST_TRACE_FILE = L"$qzriwrp_srvri.txt";
inline constexpr const wchar_t* CONCURRENT_TRACE_FILE = L"$qzriwrp_concurrent.txt";
// "$qzriwrp.txt" and four ".bak" levels.
inline constexpr int TRACE_GENERATIONS = 5;

// Name of a generation: 0 is "$qzriwrp.txt", n > 0 is "$qzriwrp" followed by n times ".bak".
std::wstring TraceGenerationName(int nGeneration);

struct TraceFolderChoice
{
    std::wstring m_wstrFolder;  // with its trailing separator
    // Why "QZCSAK_SYSTEMP_PATH" was not taken; empty when it was, or was not set.
    std::wstring m_wstrRejectedEnvValue;
};
TraceFolderChoice ChooseTraceFolder(AgentOs& os);

// Moves the chain one step (see above). Stops at the first rename that fails, so that no generation
// is overwritten before it has been moved on; returns the names that could not be moved.
std::vector<std::wstring> RotateTraceFiles(AgentOs& os, const std::wstring& wstrFolder);

// Opens the trace of this run, decided by the command line; false when no trace file could be opened
// (the run goes on without a trace).
bool StartTrace(const std::wstring& wstrCmdLine, AgentOs& os);

}  // namespace QZRI
