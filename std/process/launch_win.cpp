// Windows side of the standard launcher: CreateProcessW, a wait on the process and the stop event.
#include "std/process/launch_win.h"

#include <string>

#include "std/process/launch.h"
#include "std/process/launchwaiterimpl.h"
#include "std/shutdown.h"
#include "std/trace.h"

namespace QZSTD::Win {

std::vector<wchar_t> BuildEnvironmentBlock(QZPAR::Params* pEnvironmentAddition)
{
    std::vector<std::wstring> vecInherited;
    if (wchar_t* pBlock = ::GetEnvironmentStringsW()) {
        for (const wchar_t* p = pBlock; *p; p += wcslen(p) + 1)
            vecInherited.emplace_back(p);
        ::FreeEnvironmentStringsW(pBlock);
    }
    std::vector<wchar_t> vecBlock;
    for (const std::wstring& wstr : MergeEnvironment(vecInherited, pEnvironmentAddition, true)) {
        vecBlock.insert(vecBlock.end(), wstr.begin(), wstr.end());
        vecBlock.push_back(L'\0');
    }
    vecBlock.push_back(L'\0');
    if (vecBlock.size() == 1)
        vecBlock.push_back(L'\0');
    return vecBlock;
}

bool TryGetProcessExitCode(HANDLE hProcess, uint32_t* pnExitCode)
{
    const DWORD dwWait = ::WaitForSingleObject(hProcess, 0);
    if (dwWait == WAIT_FAILED)
        QZ_THROW_SYSTEM();
    if (dwWait != WAIT_OBJECT_0)
        return false;
    DWORD dwCode = 0;
    if (!::GetExitCodeProcess(hProcess, &dwCode))
        QZ_THROW_SYSTEM();
    *pnExitCode = dwCode;
    return true;
}

ScopedHandle OpenStdStream(const std::wstring& wstrFile, bool bWrite)
{
    SECURITY_ATTRIBUTES sa = {sizeof(sa), nullptr, TRUE};
    const std::wstring wstrName = wstrFile.empty() ? L"NUL" : wstrFile;
    ScopedHandle h(::CreateFileW(wstrName.c_str(), bWrite ? GENERIC_WRITE : GENERIC_READ,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE, &sa,
                                 bWrite ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!h.IsValid())
        QZ_THROW_SYSTEM();
    return h;
}

}  // namespace QZSTD::Win

namespace QZSTD {
namespace {

class LaunchWaiterWin : public LaunchWaiterImpl
{
public:
    LaunchWaiterWin(Win::ScopedHandle&& hProcess, DWORD dwPid, const ShutdownSignal& shutdown)
        : LaunchWaiterImpl(static_cast<long>(dwPid), shutdown), m_hProcess(std::move(hProcess))
    {
    }

protected:
    bool WaitI(long lTimeout, bool bCheckShutdown) override
    {
        QZ_TRACE_SCOPE("QZSTD", "QZSTD::LaunchWaiterImpl::WaitI");
        HANDLE vecHandles[2] = {m_hProcess.Get(), static_cast<HANDLE>(m_shutdown.Event())};
        QZ_ASSERT(vecHandles[0]);
        QZ_ASSERT(vecHandles[1]);
        const DWORD dwTimeout = lTimeout < 0 ? INFINITE : static_cast<DWORD>(lTimeout);
        const DWORD dwWait = ::WaitForMultipleObjects(bCheckShutdown ? 2 : 1, vecHandles, FALSE, dwTimeout);
        QZ_TRACE_I(L"%hs: WaitForMultipleObjects returned 0x%X", QZ_SCOPE_NAME, dwWait);
        if (dwWait == WAIT_FAILED)
            QZ_THROW_SYSTEM();
        if (WAIT_OBJECT_0 == dwWait) {
            QZ_TRACE_I(L"%hs: the process finished", QZ_SCOPE_NAME);
            return true;
        }
        if (WAIT_OBJECT_0 + 1u == dwWait) {
            QZ_TRACE_I(L"%hs: the shutdown flag set", QZ_SCOPE_NAME);
            QZ_THROW_STD(Err::SHUTDOWN);
        }
        if (WAIT_TIMEOUT == dwWait) {
            QZ_TRACE_I(L"%hs: timeout expired", QZ_SCOPE_NAME);
            return false;
        }
        QZ_ASSERTION_FAILED(
            "WAIT_OBJECT_0 == dwWait || WAIT_OBJECT_0 + 1u == dwWait || WAIT_TIMEOUT == dwWait");
    }
    bool TryGetExitCode(uint32_t* pnExitCode) override
    {
        return Win::TryGetProcessExitCode(m_hProcess.Get(), pnExitCode);
    }

private:
    Win::ScopedHandle m_hProcess;
};

}  // namespace
}  // namespace QZSTD

void QZSTD_LaunchAsync(const wchar_t* szCommandline, const wchar_t* szCurDir, const wchar_t* szStdOut,
                       const wchar_t* szStdErr, const wchar_t* szStdIn, QZPAR::Params* pEnvironmentAddition,
                       QZSTD::LaunchWaiter** ppLaunchWaiter, const QZSTD::ShutdownSignal* pShutdown)
{
    using QZSTD::Win::ScopedHandle;
    QZ_TRACE_SCOPE("QZSTD", "QZSTD_LaunchAsync");
    QZ_ASSERT(szCommandline);
    QZ_ASSERT(ppLaunchWaiter);
    QZ_ASSERT(*ppLaunchWaiter == nullptr);
    const QZSTD::ShutdownSignal& shutdown = pShutdown ? *pShutdown : QZSTD::ProcessShutdown();
    shutdown.ThrowIfRaised();
    const std::wstring wstrOut = szStdOut ? szStdOut : L"";
    const std::wstring wstrErr = szStdErr ? szStdErr : L"";
    const std::wstring wstrIn = szStdIn ? szStdIn : L"";
    const std::wstring wstrCurDir = szCurDir ? szCurDir : L"";
    QZ_TRACE_I(L"%hs: CommandLine: '%ls', szCurDir:'%ls'", QZ_SCOPE_NAME, szCommandline, wstrCurDir);

    ScopedHandle hOut = QZSTD::Win::OpenStdStream(wstrOut, true);
    // Output and error into one file share one handle, so neither overwrites the other.
    ScopedHandle hErr;
    if (wstrErr.empty() || wstrErr != wstrOut)
        hErr = QZSTD::Win::OpenStdStream(wstrErr, true);
    ScopedHandle hIn = QZSTD::Win::OpenStdStream(wstrIn, false);

    std::vector<wchar_t> vecEnv = QZSTD::Win::BuildEnvironmentBlock(pEnvironmentAddition);
    std::wstring wstrCmd = szCommandline;
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = hIn.Get();
    si.hStdOutput = hOut.Get();
    si.hStdError = hErr.IsValid() ? hErr.Get() : hOut.Get();
    PROCESS_INFORMATION pi = {};
    if (!::CreateProcessW(nullptr, wstrCmd.data(), nullptr, nullptr, TRUE,
                          CREATE_UNICODE_ENVIRONMENT | CREATE_NO_WINDOW, vecEnv.data(),
                          wstrCurDir.empty() ? nullptr : wstrCurDir.c_str(), &si, &pi))
        QZ_THROW_SYSTEM();
    ScopedHandle hThread(pi.hThread);
    ScopedHandle hProcess(pi.hProcess);
    QZ_TRACE_I(L"%hs: started Pid=%lu", QZ_SCOPE_NAME, pi.dwProcessId);
    *ppLaunchWaiter =
        new QZSTD::RcClassImpl<QZSTD::LaunchWaiterWin>(std::move(hProcess), pi.dwProcessId, shutdown);
}
