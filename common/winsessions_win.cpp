// Win32 part of the sessions: the terminal-services enumeration of the local server, the process start in
// a session and the message-aware wait of the cycle.
#include <windows.h>

#include <userenv.h>
#include <wtsapi32.h>

#include "common/winsessions.h"
#include "std/error.h"
#include "std/shutdown.h"
#include "std/trace.h"
#include "std/win/scopedhandle.h"

namespace QZRI {
namespace {

// The enumeration's buffer belongs to the terminal-services library and goes back through it.
class WtsSessionBuffer
{
public:
    WtsSessionBuffer() = default;
    ~WtsSessionBuffer()
    {
        if (m_pInfo)
            WTSFreeMemory(m_pInfo);
    }
    WtsSessionBuffer(const WtsSessionBuffer&) = delete;
    WtsSessionBuffer& operator=(const WtsSessionBuffer&) = delete;

    WTS_SESSION_INFOW* m_pInfo = nullptr;
    DWORD m_nCount = 0;
};

class WtsSessionList : public SessionList
{
public:
    std::vector<UserSession> GetInteractiveSessions() override
    {
        WtsSessionBuffer buffer;
        if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &buffer.m_pInfo, &buffer.m_nCount))
            QZ_THROW_SYSTEM();
        std::vector<UserSession> vecSessions;
        for (DWORD i = 0; i < buffer.m_nCount; ++i) {
            const WTS_SESSION_INFOW& info = buffer.m_pInfo[i];
            if (!IsInteractiveUserSession(info.SessionId, static_cast<SessionState>(info.State)))
                continue;
            vecSessions.push_back({info.SessionId, info.pWinStationName ? info.pWinStationName : L""});
        }
        return vecSessions;
    }
};

}  // namespace

std::unique_ptr<SessionList> CreateSystemSessionList()
{
    return std::make_unique<WtsSessionList>();
}

}  // namespace QZRI

namespace QZWSSN {
namespace {

constexpr const char* MODULE = "QZWSSN";

using QZSTD::Win::ScopedHandle;

// The session user's primary token: the service may start processes as that user.
ScopedHandle SessionUserToken(DWORD dwSessionId)
{
    HANDLE hImpersonation = nullptr;
    if (!::WTSQueryUserToken(dwSessionId, &hImpersonation))
        return ScopedHandle();
    ScopedHandle hUser(hImpersonation);
    HANDLE hPrimary = nullptr;
    if (!::DuplicateTokenEx(hUser.Get(), MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary,
                            &hPrimary))
        return ScopedHandle();
    return ScopedHandle(hPrimary);
}

BOOL CreateAsSessionUser(DWORD dwSessionId, std::wstring& wstrLine, STARTUPINFOW& si, PROCESS_INFORMATION& pi)
{
    const ScopedHandle hToken = SessionUserToken(dwSessionId);
    if (!hToken.IsValid())
        return FALSE;
    // The user's own environment (profile folders, TEMP), not the service's.
    void* pEnvironment = nullptr;
    const BOOL bEnvironment = ::CreateEnvironmentBlock(&pEnvironment, hToken.Get(), FALSE);
    const BOOL bCreated = ::CreateProcessAsUserW(hToken.Get(), nullptr, wstrLine.data(), nullptr, nullptr,
                                                 FALSE, bEnvironment ? CREATE_UNICODE_ENVIRONMENT : 0,
                                                 bEnvironment ? pEnvironment : nullptr, nullptr, &si, &pi);
    const DWORD dwError = ::GetLastError();
    if (bEnvironment)
        ::DestroyEnvironmentBlock(pEnvironment);
    ::SetLastError(dwError);
    return bCreated;
}

class WinSessionDesktop : public SessionDesktop
{
public:
    explicit WinSessionDesktop(const QZSTD::ShutdownSignal& shutdown) : m_shutdown(shutdown) {}

    int GetPlatform(bool* pbIsolated) override
    {
        // GetVersionExW answers what the manifest allows; the kernel's own record tells the truth.
        OSVERSIONINFOEXW info = {};
        info.dwOSVersionInfoSize = sizeof(info);
        using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOEXW*);
        const HMODULE hNtdll = ::GetModuleHandleW(L"ntdll.dll");
        const auto pfn = hNtdll ? reinterpret_cast<RtlGetVersionFn>(
                                      reinterpret_cast<void*>(::GetProcAddress(hNtdll, "RtlGetVersion")))
                                : nullptr;
        if (!pfn || pfn(&info) != 0) {
            info.dwPlatformId = VER_PLATFORM_WIN32_NT;
            info.dwMajorVersion = 6;
        }
        *pbIsolated = info.dwMajorVersion >= 6;
        return static_cast<int>(info.dwPlatformId);
    }

    Handle CreateDummyEvent() override
    {
        const std::wstring wstrName = L"WINSESSdummyEv_" + std::to_wstring(::GetCurrentProcessId());
        const HANDLE hEvent = ::CreateEventW(nullptr, FALSE, FALSE, wstrName.c_str());
        if (!hEvent)
            QZ_THROW_SYSTEM();
        return hEvent;
    }

    bool DrainMessages() override
    {
        MSG msg;
        while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT)
                return true;
            ::TranslateMessage(&msg);
            ::DispatchMessageW(&msg);
        }
        return false;
    }

    uint32_t MsgWaitAny(const std::vector<Handle>& vecHandles, uint32_t nMs, uint32_t nWakeMask) override
    {
        const DWORD dwResult = ::MsgWaitForMultipleObjects(static_cast<DWORD>(vecHandles.size()),
                                                           vecHandles.data(), FALSE, nMs, nWakeMask);
        if (dwResult == WAIT_FAILED)
            QZ_THROW_SYSTEM();
        return dwResult;
    }

    bool GetExitCode(Handle hProcess, uint32_t* pnCode) override
    {
        DWORD dwCode = 0;
        if (!::GetExitCodeProcess(hProcess, &dwCode))
            return false;
        *pnCode = dwCode;
        return true;
    }

    void CloseHandle(Handle h) override { ::CloseHandle(h); }

    Handle CreateProcessForSession(unsigned long nSessionId, const std::wstring& wstrCmdLine) override
    {
        return CreateProcessForSession2(nSessionId, wstrCmdLine);
    }

    bool IsShutdownRaised() override { return m_shutdown.IsRaised(); }

private:
    const QZSTD::ShutdownSignal& m_shutdown;
};

}  // namespace

std::unique_ptr<SessionDesktop> CreateSystemSessionDesktop(const QZSTD::ShutdownSignal& shutdown)
{
    return std::make_unique<WinSessionDesktop>(shutdown);
}

Handle CreateProcessForSession2(unsigned long dwSessionId, const std::wstring& wstrCommandLine)
{
    QZ_TRACE_SCOPE(MODULE, "QZWSSN::CreateProcessForSession2");
    QZ_TRACE_I(L"%hs: dwSessionId=%d, lpCommandLine='%ls')\n", QZ_SCOPE_NAME, static_cast<int>(dwSessionId),
               wstrCommandLine);
    wchar_t szDesktop[] = L"WinSta0\\Default";
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    si.lpDesktop = szDesktop;
    PROCESS_INFORMATION pi = {};
    std::wstring wstrLine = wstrCommandLine;
    DWORD dwOwnSession = 0;
    BOOL bCreated = FALSE;
    // In its own session the agent starts the process itself: a user who runs the agent has no right to
    // another user's token, and needs none for their own desktop.
    if (::ProcessIdToSessionId(::GetCurrentProcessId(), &dwOwnSession) && dwOwnSession == dwSessionId)
        bCreated = ::CreateProcessW(nullptr, wstrLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                    &si, &pi);
    else
        bCreated = CreateAsSessionUser(dwSessionId, wstrLine, si, pi);
    if (!bCreated) {
        const int nError = static_cast<int>(::GetLastError());
        QZ_TRACE_E(L"Can't create interactive process.\n");
        QZ_TRACE_E(L"%hs: Session %d, error %d.\n", QZ_SCOPE_NAME, static_cast<int>(dwSessionId), nError);
        return nullptr;
    }
    ::CloseHandle(pi.hThread);
    QZ_TRACE_I(L"Process has succesfully been created: PID=%u", static_cast<unsigned>(pi.dwProcessId));
    return pi.hProcess;
}

}  // namespace QZWSSN
