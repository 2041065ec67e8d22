// Removing incompatible software, POSIX part: the engine as a shared library (dlopen), a detached start.
#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include <string>
#include <vector>
#include "qzri/riwrap/competitor.h"

#include "std/cmdline.h"
#include "std/error.h"
#include "std/strconv.h"

extern char** environ;

namespace QZRIWRP {

OsVersion CurrentOsVersion()
{
    return {};
}

// dlopen has no altered search path: a name with a slash is a path, a bare name is searched for. The error
// a failed load leaves is ENOENT, so that the caller's system error says "not found".
void* LoadEngineLibrary(const std::wstring& wstrPath, bool)
{
    void* pModule = dlopen(QZSTD::WideToUtf8(wstrPath).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!pModule)
        errno = ENOENT;
    return pModule;
}

void* FindEngineEntry(void* pModule, const char* szName)
{
    void* p = dlsym(pModule, szName);
    if (!p)
        errno = ENOSYS;
    return p;
}

void FreeEngineLibrary(void* pModule)
{
    if (pModule)
        dlclose(pModule);
}

// Splits the line as the agent splits command lines and hands the words to /bin/sh as its positional
// parameters, so that nothing in them is expanded ("$HEX_..." stays as it is); the shell starts the
// program in the background and ends at once, which leaves no zombie behind.
void StartDetached(const std::wstring& wstrCmdLine)
{
    const std::vector<std::wstring> vecWords = QZSTD::SplitCommandLine(wstrCmdLine);
    QZ_CHECK_ARG(!vecWords.empty(), "wstrCmdLine");
    std::vector<std::string> vecArgs = {"/bin/sh", "-c", "exec \"$0\" \"$@\" </dev/null >/dev/null 2>&1 &"};
    for (const std::wstring& wstrWord : vecWords)
        vecArgs.push_back(QZSTD::WideToUtf8(wstrWord));
    std::vector<char*> argv;
    for (std::string& str : vecArgs)
        argv.push_back(str.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int nError = posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv.data(), environ);
    if (nError != 0)
        QZ_THROW_SYSTEM_CODE(nError);
    int nStatus = 0;
    waitpid(pid, &nStatus, 0);
}

}  // namespace QZRIWRP
