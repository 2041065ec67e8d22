// The service main, its control handler, Service_Init and Service_Wait.
#include <windows.h>

#include <string>
#include <vector>

#include "common/ristrutils.h"
#include "common/winsessions.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservice.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/driver.h"
#include "qzri/riwrap/rbtagtcmdline.h"
#include "qzri/riwrap/resultcheck.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/servicemain.h"
#include "qzri/riwrap/waits.h"
#include "std/error.h"
#include "std/shutdown.h"
#include "std/trace.h"
#include "std/win/scopedhandle.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr DWORD STATUS_WAIT_HINT_MS = 10000;

struct ServiceContext
{
    RiWrpData* pData = nullptr;
    const AgentServices* pServices = nullptr;
    std::wstring wstrName;
    SERVICE_STATUS_HANDLE hStatus = nullptr;
    SERVICE_STATUS status = {};
    int nResult = QZRI_RSLT_NO_ERROR;
    // The relaunched setup, which the service outlives.
    QZSTD::Win::ScopedHandle hSetup;
    // Set when the service main has done its work. Removing its own service reports the service
    // stopped before the task's last steps, and the dispatcher returns as soon as it sees that: the
    // process must not end before the service main has.
    QZSTD::Win::ScopedHandle hServiceMainDone{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

// The dispatcher calls the service main without a context of its own: the one service of this process
// finds its context here while the dispatcher runs.
ServiceContext* g_pContext = nullptr;

void ReportStatus(ServiceContext& ctx, DWORD dwState, DWORD dwWaitHint, DWORD dwAccepted)
{
    ctx.status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    ctx.status.dwCurrentState = dwState;
    ctx.status.dwWaitHint = dwWaitHint;
    ctx.status.dwControlsAccepted = dwAccepted;
    ::SetServiceStatus(ctx.hStatus, &ctx.status);
}

DWORD WINAPI ControlHandler(DWORD dwControl, DWORD, void*, void* pContext)
{
    ServiceContext& ctx = *static_cast<ServiceContext*>(pContext);
    ServiceState state{ctx.status.dwCurrentState, ctx.status.dwWaitHint, ctx.status.dwCheckPoint,
                       ctx.status.dwControlsAccepted};
    const bool bEnd = HandleServiceControl(dwControl, state);
    ctx.status.dwCheckPoint = state.m_nCheckPoint;
    ReportStatus(ctx, state.m_nState, state.m_nWaitHintMs, state.m_nControlsAccepted);
    // Ends Service_Wait and every wait of the agent within one slice.
    if (bEnd)
        QZSTD::RaiseShutdown();
    return NO_ERROR;
}

// Starts a program of the package folder on the interactive desktop; the process handle, or none
// (traced) when it could not be started.
QZSTD::Win::ScopedHandle StartOnDesktop(const std::wstring& wstrProgram, std::wstring wstrCmdLine,
                                        const std::wstring& wstrDir, DWORD* pdwPid)
{
    wchar_t szDesktop[] = L"WinSta0\\Default";
    STARTUPINFOW si = {};
    si.cb = sizeof(si);
    si.lpDesktop = szDesktop;
    PROCESS_INFORMATION pi = {};
    if (!::CreateProcessW(wstrProgram.c_str(), wstrCmdLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                          wstrDir.c_str(), &si, &pi))
        return QZSTD::Win::ScopedHandle();
    ::CloseHandle(pi.hThread);
    *pdwPid = pi.dwProcessId;
    return QZSTD::Win::ScopedHandle(pi.hProcess);
}

// The reboot agent in every interactive user session (a service's own desktop is seen by nobody); with
// no session listed, on the service's desktop as before, where a later logon does not see it either.
void StartRebootAgent(ServiceContext& ctx)
{
    QZ_TRACE_SCOPE(MODULE, "Service_Init");
    RiWrpData& data = *ctx.pData;
    const std::wstring wstrAgent = data.m_wstrDirPath + REBOOT_AGENT;
    // The reboot agent reports the user's answer for this task, through this agent's file for the
    // delivery to the server.
    std::wstring wstrSelfName;
    try {
        const std::wstring wstrSelf = ctx.pServices->m_pOs->GetModuleFilePath();
        wstrSelfName = wstrSelf.substr(DirectoryOf(wstrSelf).size());
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    const std::wstring wstrAgentCmd = RebootAgentCommandLine(wstrAgent, L"", data.m_wstrTaskId, wstrSelfName);
    QZ_TRACE_I(L"%hs: Command line: '%ls'.", QZ_SCOPE_NAME, wstrAgentCmd);
    std::vector<UserSession> vecSessions;
    try {
        vecSessions = ctx.pServices->m_pSessions->GetInteractiveSessions();
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    for (const UserSession& session : vecSessions) {
        const QZSTD::Win::ScopedHandle hAgent(
            QZWSSN::CreateProcessForSession2(session.m_nSessionId, wstrAgentCmd));
        if (hAgent.IsValid())
            QZ_TRACE_I(L"%hs: Created process PID = '%d'.", QZ_SCOPE_NAME,
                       static_cast<int>(::GetProcessId(hAgent.Get())));
    }
    if (!vecSessions.empty())
        return;
    DWORD dwPid = 0;
    QZSTD::Win::ScopedHandle hAgent = StartOnDesktop(wstrAgent, wstrAgentCmd, data.m_wstrDirPath, &dwPid);
    if (hAgent.IsValid())
        QZ_TRACE_I(L"%hs: Created process PID = '%d'.", QZ_SCOPE_NAME, static_cast<int>(dwPid));
    else
        QZ_TRACE_W(L"%hs: '%ls' could not be started - %d\n", QZ_SCOPE_NAME, wstrAgent,
                   static_cast<int>(::GetLastError()));
}

void RelaunchSetup(ServiceContext& ctx)
{
    QZ_TRACE_SCOPE(MODULE, "Service_Init");
    RiWrpData& data = *ctx.pData;
    const std::wstring wstrSetup = data.m_wstrDirPath + PACKAGE_SETUP;
    const std::wstring wstrCmdLine =
        BuildRelaunchCommandLine(wstrSetup, data.m_wstrSavedCmdLine, ServiceIdOf(data), data.m_nStartCounter);
    QZ_TRACE_I(L"Command line: %ls\n", MaskPasswords(wstrCmdLine));
    DWORD dwPid = 0;
    ctx.hSetup = StartOnDesktop(wstrSetup, wstrCmdLine, data.m_wstrDirPath, &dwPid);
    if (!ctx.hSetup.IsValid()) {
        const int nError = static_cast<int>(::GetLastError());
        QZ_TRACE_E(L"%hs: '%ls' could not be started - %d\n", QZ_SCOPE_NAME, wstrSetup, nError);
        LogSetupProcessFailure(data, nError);
        return;
    }
    QZ_TRACE_I(L"Created process PID = %d", static_cast<int>(dwPid));
    QZ_TRACE_I(L"%hs: Sleep for '%d' ms.", QZ_SCOPE_NAME, static_cast<int>(RELAUNCH_WAIT_MS));
    ::Sleep(10);
    ::WaitForSingleObject(ctx.hSetup.Get(), RELAUNCH_WAIT_MS - 10);

    StartRebootAgent(ctx);
}

// A planned rerun starts the setup again; any other action is carried on by the service itself once it
// runs (Service_Wait). False when the service has nothing to wait for.
bool Service_Init(ServiceContext& ctx)
{
    QZ_TRACE_SCOPE(MODULE, "Service_Init");
    if (ctx.pData->m_eAct != QZRI_ACTION_RUN)
        return true;
    RelaunchSetup(ctx);
    return ctx.hSetup.IsValid();
}

// A rerun: the service stays until it is stopped or the relaunched setup, which carries the task on,
// has ended. A check after the reboot or a question to the user: the installation driver goes on here
// and removes the service on every path that ends the task.
void Service_Wait(ServiceContext& ctx)
{
    QZ_TRACE_SCOPE(MODULE, "Service_Wait");
    RiWrpData& data = *ctx.pData;
    QZ_TRACE_I(L"g_pData->m_eAct: %d\n", static_cast<int>(data.m_eAct));
    if (data.m_eAct == QZRI_ACTION_ASK_USER) {
        ctx.nResult = AskUserThenRunExecutable(data, *ctx.pServices).m_nResult;
    } else if (data.m_eAct != QZRI_ACTION_RUN) {
        ctx.nResult = RunExecutable(data, *ctx.pServices).m_nResult;
    } else {
        HANDLE vecHandles[2] = {ctx.hSetup.Get(), static_cast<HANDLE>(QZSTD::ProcessShutdown().Event())};
        ::WaitForMultipleObjects(2, vecHandles, FALSE, INFINITE);
    }
}

void RunServiceMain(ServiceContext& ctx);

void WINAPI ServiceMain(DWORD, LPWSTR*)
{
    ServiceContext& ctx = *g_pContext;
    RunServiceMain(ctx);
    ::SetEvent(ctx.hServiceMainDone.Get());
}

void RunServiceMain(ServiceContext& ctx)
{
    QZ_TRACE_SCOPE(MODULE, "ServiceMain");
    ctx.hStatus = ::RegisterServiceCtrlHandlerExW(ctx.wstrName.c_str(), &ControlHandler, &ctx);
    if (!ctx.hStatus) {
        QZ_TRACE_E(L"%hs: RegisterServiceCtrlHandlerEx failed - %d\n", QZ_SCOPE_NAME,
                   static_cast<int>(::GetLastError()));
        ctx.nResult = QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE;
        return;
    }
    ReportStatus(ctx, SERVICE_START_PENDING, STATUS_WAIT_HINT_MS, 0);
    ctx.pServices->m_pServices->AttachOwnService(ctx.wstrName,
                                                 [&ctx] { ReportStatus(ctx, SERVICE_STOPPED, 0, 0); });
    const bool bWait = Service_Init(ctx);
    ReportStatus(ctx, SERVICE_RUNNING, 0, SERVICE_ACCEPT_STOP);
    if (bWait)
        Service_Wait(ctx);
    ctx.pServices->m_pServices->DetachOwnService();
    ReportStatus(ctx, SERVICE_STOPPED, 0, 0);
}

}  // namespace

int RunServiceDispatcher(RiWrpData& data, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZCS_Main");
    ServiceContext ctx;
    ctx.pData = &data;
    ctx.pServices = &services;
    ctx.wstrName = ServiceNameOf(ServiceIdOf(data));
    g_pContext = &ctx;
    SERVICE_TABLE_ENTRYW table[] = {{ctx.wstrName.data(), &ServiceMain}, {nullptr, nullptr}};
    const BOOL bDispatched = ::StartServiceCtrlDispatcherW(table);
    if (bDispatched)
        ::WaitForSingleObject(ctx.hServiceMainDone.Get(), INFINITE);
    g_pContext = nullptr;
    if (!bDispatched) {
        QZ_TRACE_E(L"%hs: StartServiceCtrlDispatcher failed - %d\n", QZ_SCOPE_NAME,
                   static_cast<int>(::GetLastError()));
        return QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE;
    }
    return ctx.nResult;
}

}  // namespace QZRI
