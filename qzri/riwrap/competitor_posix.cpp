// Removing incompatible software, POSIX part: the engine as a shared library (dlopen), a detached start.
#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include "qzri/riwrap/competitor.h"
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

// Runs the line through /bin/sh without waiting; a double fork leaves no zombie behind.
void StartDetached(const std::wstring& wstrCmdLine)
{
    const std::string strCmd = "(" + QZSTD::WideToUtf8(wstrCmdLine) + ") </dev/null >/dev/null 2>&1 &";
    const char* argv[] = {"/bin/sh", "-c", strCmd.c_str(), nullptr};
    pid_t pid = 0;
    const int nError = posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ);
    if (nError != 0)
        QZ_THROW_SYSTEM_CODE(nError);
    int nStatus = 0;
    waitpid(pid, &nStatus, 0);
}

}  // namespace QZRIWRP
