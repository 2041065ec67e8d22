// The test executable re-run as a child process that plays a setup program. A test starts its own
// executable with QZ_TEST_CHILD in the environment; a static initializer of the test file calls
// RunChildModeIfAsked() before GoogleTest starts, plays the part and ends the process. Modes:
//   exit:N                 exits with code N (codes above 255 survive only on Windows)
//   sleep:MS               sleeps MS ms, then writes the file named by QZ_TEST_MARKER (if set), exits 0
//   spawn:MS               starts a grandchild in "sleep:MS" (same marker) and exits 7 at once
//   spawn-named:NAME:MS    copies the executable to $QZ_TEST_COPYDIR/NAME (".exe" added on Windows),
//                          starts that copy in "sleep:MS" and exits 7 at once
//   echo                   writes "out-line" to standard output, "err-line" to standard error, exits 0
//   env:NAME               writes the value of the variable NAME to standard output, exits 0
#pragma once

#ifdef _WIN32
#include <windows.h>
#else
#include <spawn.h>
#include <unistd.h>
#endif

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "std/par/paramshelpers.h"
#include "std/process/launch.h"
#include "tests/testutil/fsutil.h"

#ifndef _WIN32
extern char** environ;
#endif

namespace QZTEST {

inline std::filesystem::path SelfPath()
{
#ifdef _WIN32
    wchar_t sz[MAX_PATH * 4] = {};
    ::GetModuleFileNameW(nullptr, sz, MAX_PATH * 4);
    return std::filesystem::path(sz);
#else
    return std::filesystem::read_symlink("/proc/self/exe");
#endif
}

// This executable as a command line.
inline std::wstring SelfCommand()
{
    return L"\"" + SelfPath().wstring() + L"\"";
}

using EnvVars = std::vector<std::pair<std::wstring, std::wstring>>;

// The variables as an environment addition of a launch.
inline QZSTD::CAutoPtr<QZPAR::Params> EnvOf(const EnvVars& vecEnv)
{
    QZSTD::CAutoPtr<QZPAR::Params> pEnv = QZPAR::CreateParams();
    for (const auto& [wstrName, wstrValue] : vecEnv)
        QZPAR::SetStringValue(pEnv, wstrName.c_str(), wstrValue);
    return pEnv;
}

// Starts this executable with the variables added to its environment, and does not wait for it.
inline QZSTD::CAutoPtr<QZSTD::LaunchWaiter> StartSelf(const EnvVars& vecEnv,
                                                      const QZSTD::ShutdownSignal* pShutdown = nullptr)
{
    QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter;
    QZSTD_LaunchAsync(SelfCommand().c_str(), nullptr, nullptr, nullptr, nullptr, EnvOf(vecEnv), &pWaiter,
                      pShutdown);
    return pWaiter;
}

[[noreturn]] inline void EndChild(int nCode)
{
    std::fflush(nullptr);
#ifdef _WIN32
    ::ExitProcess(static_cast<UINT>(nCode));
#else
    ::_exit(nCode);
#endif
}

// Starts exe with QZ_TEST_CHILD=strMode and does not wait for it.
inline bool StartDetachedChild(const std::filesystem::path& exe, const std::string& strMode)
{
    SetEnv("QZ_TEST_CHILD", std::wstring(strMode.begin(), strMode.end()));  // modes are ASCII
#ifdef _WIN32
    std::wstring wstrCmd = L"\"" + exe.wstring() + L"\"";
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    PROCESS_INFORMATION pi = {};
    if (!::CreateProcessW(exe.wstring().c_str(), wstrCmd.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &si, &pi))
        return false;
    ::CloseHandle(pi.hThread);
    ::CloseHandle(pi.hProcess);
    return true;
#else
    std::string strExe = exe.string();
    char* argv[] = {strExe.data(), nullptr};
    pid_t pid = 0;
    return ::posix_spawn(&pid, strExe.c_str(), nullptr, nullptr, argv, environ) == 0;
#endif
}

inline bool RunChildModeIfAsked()
{
    const char* szMode = std::getenv("QZ_TEST_CHILD");
    if (!szMode || !*szMode)
        return false;
    const std::string strMode = szMode;
    const auto Arg = [&](size_t nSkip) { return strMode.substr(nSkip); };
    if (strMode.rfind("exit:", 0) == 0)
        EndChild(std::atoi(Arg(5).c_str()));
    if (strMode.rfind("sleep:", 0) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(Arg(6).c_str())));
        if (const char* szMarker = std::getenv("QZ_TEST_MARKER"))
            std::ofstream(szMarker) << "done\n";
        EndChild(0);
    }
    if (strMode.rfind("spawn:", 0) == 0)
        EndChild(StartDetachedChild(SelfPath(), "sleep:" + Arg(6)) ? 7 : 90);
    if (strMode.rfind("spawn-named:", 0) == 0) {
        const std::string strRest = Arg(12);
        const size_t nColon = strRest.find(':');
        std::string strName = strRest.substr(0, nColon);
#ifdef _WIN32
        strName += ".exe";
#endif
        const char* szDir = std::getenv("QZ_TEST_COPYDIR");
        if (!szDir)
            EndChild(91);
        const std::filesystem::path copy = std::filesystem::path(szDir) / strName;
        std::error_code ec;
        std::filesystem::copy_file(SelfPath(), copy, std::filesystem::copy_options::overwrite_existing, ec);
        if (ec)
            EndChild(92);
        EndChild(StartDetachedChild(copy, "sleep:" + strRest.substr(nColon + 1)) ? 7 : 93);
    }
    if (strMode == "echo") {
        std::fputs("out-line\n", stdout);
        std::fputs("err-line\n", stderr);
        EndChild(0);
    }
    if (strMode.rfind("env:", 0) == 0) {
        const char* szValue = std::getenv(Arg(4).c_str());
        std::fputs(szValue ? szValue : "<unset>", stdout);
        EndChild(0);
    }
    return false;
}

}  // namespace QZTEST
