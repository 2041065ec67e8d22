#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "std/strconv.h"
#include "tests/qzri/childprocess.h"

extern char** environ;

namespace QZRITEST {

int RunChild(const std::wstring& wstrProgram, const std::vector<std::wstring>& vecArgs, unsigned nTimeoutMs)
{
    std::vector<std::string> vecUtf8{QZSTD::WideToUtf8(wstrProgram)};
    for (const std::wstring& wstrArg : vecArgs)
        vecUtf8.push_back(QZSTD::WideToUtf8(wstrArg));
    std::vector<char*> vecArgv;
    for (std::string& str : vecUtf8)
        vecArgv.push_back(str.data());
    vecArgv.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, vecUtf8[0].c_str(), nullptr, nullptr, vecArgv.data(), environ) != 0)
        return CHILD_NOT_STARTED;
    const auto tpEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeoutMs);
    int nStatus = 0;
    while (waitpid(pid, &nStatus, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > tpEnd) {
            kill(pid, SIGKILL);
            waitpid(pid, &nStatus, 0);
            return CHILD_TIMED_OUT;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : CHILD_NOT_STARTED;
}

unsigned long CurrentProcessId()
{
    return static_cast<unsigned long>(::getpid());
}

}  // namespace QZRITEST
