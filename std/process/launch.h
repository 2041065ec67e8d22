// The standard launcher: starts one external program and hands out a waiter for it.
//
// Every program the agent runs is watched through a LaunchWaiter. Its Wait watches the agent's
// shutdown flag (std/shutdown.h) beside the process, so a stop of the agent ends any wait at once
// with QZError 1199 (QZSTD).
//
// Platform differences:
// - Windows: the command line goes to CreateProcessW as it stands; "NUL" names the null device.
// - POSIX: the command line is split with QZSTD::SplitCommandLine (Windows rules) and the first word is
//   looked up in PATH; "NUL" (any case) means /dev/null. Exit codes are 8 bits (a signal N gives 128+N).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "std/qzbase.h"

namespace QZPAR {
struct Params;
}

namespace QZSTD {

class ShutdownSignal;

// The waiter of a launched program. Lookup by name answers "QZSTD::QZBaseQI" and "QZSTD::LaunchWaiter";
// the standard launcher's waiter also answers "QZSTD::LaunchWaiter2" and "QZSTD::ProcessPid".
struct LaunchWaiter : QZBaseQI
{
    static constexpr const char* QZ_IID = "QZSTD::LaunchWaiter";
    // lTimeout in milliseconds, -1 = no limit; other negative values raise assertion "lTimeout".
    // True when the program (or the waited process tree) has finished, false when the time ran out;
    // QZError 1199 when the agent's shutdown flag is raised before that.
    virtual bool Wait(long lTimeout) = 0;
    // The exit code of the started program (never that of a descendant); QZError 1193 while it runs.
    virtual uint32_t ExitCode() = 0;
};

// A wait that does not watch the shutdown flag, for the agent's own stop sequence. lTimeout >= 0 only.
struct LaunchWaiter2 : QZBaseQI
{
    static constexpr const char* QZ_IID = "QZSTD::LaunchWaiter2";
    virtual bool Wait(long lTimeout) = 0;
};

struct ProcessPid : QZBaseQI
{
    static constexpr const char* QZ_IID = "QZSTD::ProcessPid";
    virtual long GetPid() = 0;
};

// The environment of a child: the inherited block ("NAME=value" strings) with the addition set over it.
// A name of the addition replaces an inherited entry of the same name (compared without regard to case
// when bIgnoreCase, as Windows does), otherwise it is appended; the order of the inherited block stays.
// Entries of the addition that are not strings raise QZPAR's type error; a name that is empty or
// contains '=' raises 1187 "pEnvironmentAddition".
std::vector<std::wstring> MergeEnvironment(const std::vector<std::wstring>& vecInherited,
                                           QZPAR::Params* pEnvironmentAddition, bool bIgnoreCase);

}  // namespace QZSTD

// Starts szCommandline (required, assertion "szCommandline"). szCurDir null or empty: the agent's own.
// szStdOut, szStdErr, szStdIn: file names for the child's streams (null or empty: "NUL"); output files
// are created or truncated. pEnvironmentAddition: name/value strings set over the inherited environment
// (may be null). *ppLaunchWaiter must be null on entry; it receives the waiter with one reference.
// A program that cannot be started raises a system error; a raised shutdown raises 1199 at once.
// pShutdown: the signal the waiter watches (null: the process's); it must outlive the waiter.
void QZSTD_LaunchAsync(const wchar_t* szCommandline, const wchar_t* szCurDir, const wchar_t* szStdOut,
                       const wchar_t* szStdErr, const wchar_t* szStdIn, QZPAR::Params* pEnvironmentAddition,
                       QZSTD::LaunchWaiter** ppLaunchWaiter,
                       const QZSTD::ShutdownSignal* pShutdown = nullptr);

// Starts the program with its standard output and error captured in szwOut (required, assertion
// "szwOut"), waits up to lTimeout milliseconds (-1: no limit) and returns true with the exit code when
// it finished, false when the time ran out (the program then keeps running).
bool QZSTD_LaunchSync(const wchar_t* szCommandline, const wchar_t* szCurDir, const wchar_t* szwOut,
                      QZPAR::Params* pEnvironmentAddition, long lTimeout, uint32_t* pnExitCode);

// Reads the output captured by QZSTD_LaunchSync as text (UTF-8; invalid bytes become U+FFFD).
// Assertions "szwOut" and "ppText" (a null output pointer). A missing file gives QZError 1205.
void QZSTD_ReadLaunchOutput(const wchar_t* szwOut, std::wstring* ppText);
