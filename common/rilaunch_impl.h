// Between the portable part of the agent's launcher (rilaunch.cpp) and its platform parts: the job
// waiter's loop is written once and asks the platform only these questions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/rilaunch.h"

namespace QZRI::Detail {

enum class SliceResult
{
    EXITED,
    SHUTDOWN,
    TIMEOUT,
};

struct JobProcess
{
    long nPid = 0;
    std::wstring wstrImage;
};

// The started program and its job (Windows) or process group (POSIX).
class JobTarget
{
public:
    virtual ~JobTarget() = default;
    virtual long Pid() const = 0;
    // Waits up to nMs for the program's exit, ending early when the shutdown event is signalled.
    virtual SliceResult WaitProcess(long nMs) = 0;
    // Waits nMs, ending early only on the shutdown event.
    virtual void SleepSlice(long nMs) = 0;
    // False when the program could not be put in a job of its own: then only the program is waited for.
    virtual bool HasJob() const = 0;
    virtual bool JobHasActiveProcesses() = 0;
    // The processes alive in the job now: id and image file name (traced and left out when a process
    // cannot be asked).
    virtual std::vector<JobProcess> ListJobProcesses() = 0;
    // A zero wait: false while the program runs, else true with its exit code.
    virtual bool TryGetExitCode(uint32_t* pnExitCode) = 0;
};

// Wraps a target into the job waiter; nWaitMode 0..2 (3 raises 1194). The waiter watches the signal,
// which must outlive it.
QZSTD::LaunchWaiter* CreateJobWaiter(std::unique_ptr<JobTarget> pTarget, int nWaitMode,
                                     std::vector<std::wstring> vecImages,
                                     const QZSTD::ShutdownSignal& shutdown);

// The signal the launch's waiter watches: the options' own, else the process's.
const QZSTD::ShutdownSignal& ShutdownOf(const LaunchOptions& options);

// Refuses what the launch cannot do before anything starts: a raised shutdown (1199), a bad out pointer,
// wait mode 3 (1194) or an unknown one (1187 "nWaitMode"), an empty command line (1187); then traces
// the request. Returns where standard error goes ("NUL" when the caller names no file).
std::wstring BeginLaunch(const LaunchOptions& options, QZSTD::LaunchWaiter** ppLaunchWaiter);

// Traces the program that is created: the application ("NULL" when the command line names it), the
// command line as it is passed, and the current folder.
void TraceApplication(const std::wstring& wstrApp, const std::wstring& wstrCmd,
                      const std::wstring& wstrCurDir);

// True when the two image file names match, ASCII case ignored.
bool SameImageName(const std::wstring& a, const std::wstring& b);
// True when the image file name is one of the listed ones (SameImageName).
bool IsListedImage(const std::wstring& wstrImage, const std::vector<std::wstring>& vecImages);
// The file name part of a path ('\\' and '/' both separate).
std::wstring FileNamePart(const std::wstring& wstrPath);

}  // namespace QZRI::Detail
