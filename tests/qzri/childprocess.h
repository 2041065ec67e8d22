// Runs a program as a child process of the test and waits for it: the agent's own executable is
// tested this way natively and, under Wine, as a Windows process started by a Windows process.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "std/strconv.h"

namespace QZRITEST {

inline constexpr int CHILD_NOT_STARTED = -1;
inline constexpr int CHILD_TIMED_OUT = -2;

// The child's exit code (the full 32-bit code on Windows), or one of the two values above; a child
// that runs longer than nTimeoutMs is killed.
int RunChild(const std::wstring& wstrProgram, const std::vector<std::wstring>& vecArgs, unsigned nTimeoutMs);

// The exit status a parent sees for an exit code: the whole code on Windows, its low 8 bits elsewhere.
inline int ExitStatusOf(int32_t nCode)
{
#ifdef _WIN32
    return nCode;
#else
    return nCode & 0xFF;
#endif
}

// A path the build handed over as text (an absolute Unix path under Wine): as it is natively; under Wine
// the same file on drive Z:, with backslashes.
inline std::wstring BuildPath(const char* szPath)
{
    std::wstring wstrPath = QZSTD::Utf8ToWide(szPath);
#ifdef _WIN32
    if (!wstrPath.empty() && wstrPath[0] == L'/')
        wstrPath = L"Z:" + wstrPath;
    std::replace(wstrPath.begin(), wstrPath.end(), L'/', L'\\');
#endif
    return wstrPath;
}

// The id of the test process, for names that must not collide with another test run's.
unsigned long CurrentProcessId();

}  // namespace QZRITEST
