// The hand-over of a pending reboot to the administration server, and the second instance that makes it.
#include "qzri/riwrap/rebootrequest.h"

#include <exception>
#include <fstream>
#include <functional>
#include <thread>

#include "common/qpdfile.h"
#include "common/rilaunch.h"
#include "common/rmtinstutils.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/qzcsmain.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servcon.h"
#include "qzri/riwrap/waits.h"
#include "std/error.h"
#include "std/fspath.h"
#include "std/par/dump.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/shutdown.h"
#include "std/trace.h"
#include "transport/errors.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRI";
constexpr const wchar_t* REQUEST_PREFIX = L"$qzriwrp_srvri_";
constexpr const wchar_t* REQUEST_EXTENSION = L".par";
constexpr const wchar_t* TASK_ID = L"QZRI_SRVRI_TASK_ID";
constexpr const wchar_t* SEND = L"QZRI_SRVRI_SEND";
constexpr const wchar_t* QUD = L"QZRI_SRVRI_QUD";

// A task id as part of a file name: anything but letters, digits, '-' and '_' becomes '_'.
std::wstring FileNamePartOf(const std::wstring& wstrTaskId)
{
    std::wstring wstrOut = wstrTaskId;
    for (wchar_t& ch : wstrOut) {
        const bool bKeep = (ch >= L'a' && ch <= L'z') || (ch >= L'A' && ch <= L'Z') ||
                           (ch >= L'0' && ch <= L'9') || ch == L'-' || ch == L'_';
        if (!bKeep)
            ch = L'_';
    }
    return wstrOut;
}

// The server reads the package's companion as the task left it; the copy keeps it when the package
// folder changes before the delivery. Empty when there is none or it cannot be copied.
std::wstring CopyCompanion(const RiWrpData& data, const std::wstring& wstrBase, const AgentServices& services)
{
    const std::wstring wstrQud = data.m_pQpd ? data.m_pQpd->GetCompanionPath() : std::wstring();
    if (wstrQud.empty() || !services.m_pOs->FileExists(wstrQud))
        return std::wstring();
    QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgReboot");
    const std::wstring wstrCopy = wstrBase + L".qud";
    try {
        Copy(wstrQud, wstrCopy, services.m_pFiles);
        return wstrCopy;
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    return std::wstring();
}

// The marker that tells the next start of the agent that the server accepted the reboot.
void CreateForceRebootFile(const RiWrpData& data)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
    const std::wstring wstrPath = data.m_wstrDirPath + FORCE_REBOOT_FILE;
    QZ_TRACE_I(L"%hs: Create force-reboot file: '%ls'", QZ_SCOPE_NAME, wstrPath);
    std::ofstream out(QZSTD::FsPath(wstrPath), std::ios::binary | std::ios::trunc);
    if (!out)
        QZ_TRACE_E(L"%hs: '%ls' could not be created.", QZ_SCOPE_NAME, wstrPath);
}

// The request once it is delivered: a restarted worker must not deliver it again.
void MarkDelivered(QZPAR::Params* pData, const std::wstring& wstrRequestPath)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
    QZPAR::SetBoolValue(pData, SEND, false);
    try {
        QZPAR::WriteParamsFile(wstrRequestPath, pData);
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
    }
}

bool IsAccessDenied(const QZSTD::QZError& e)
{
    return e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::ACCESS_DENIED);
}

// One connection: delivery when still due, then the decision polls. Counts the attempts down in
// nCounter; errors go to the caller, which decides whether to connect again.
class Poller
{
public:
    Poller(const RiWrpData& data, const std::wstring& wstrRequestPath, QZPAR::Params* pData,
           const PollLimits& limits, const AgentServices& services)
        : m_data(data),
          m_wstrRequestPath(wstrRequestPath),
          m_pData(pData),
          m_limits(limits),
          m_services(services),
          m_nCounter(limits.m_nAttempts)
    {
    }

    WorkerEnd Run()
    {
        QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
        m_wstrHostId = m_services.m_pServerLink->GetHostId();
        QZ_TRACE_I(L"%hs: wstrHostID = '%ls'", QZ_SCOPE_NAME, m_wstrHostId);
        for (;;) {
            bool bConnected = false;
            try {
                return ConnectAndPoll(bConnected);
            } catch (const QZSTD::QZError& e) {
                QZ_TRACE_EXCEPTION(e);
                if (e.Is(QZSTD::Err::MODULE, QZSTD::Err::NOT_IMPLEMENTED)) {
                    QZ_TRACE_I(L"%hs: Finish pooling, old qzserver detected", QZ_SCOPE_NAME);
                    return Exit(WorkerEnd::OLD_SERVER);
                }
                if (IsAccessDenied(e) && bConnected) {
                    QZ_TRACE_I(
                        L"%hs: Exit in case of access denied error on already created connection on %d "
                        L"attempt.",
                        QZ_SCOPE_NAME, m_nCounter);
                    m_nCounter = 0;
                    return Exit(WorkerEnd::ACCESS_DENIED);
                }
            }
            QZ_TRACE_I(L"%hs: Sleep for %d seconds after error was caught.", QZ_SCOPE_NAME,
                       m_limits.m_nIntervalSec);
            if (Sleep())
                return Shutdown();
            if (--m_nCounter <= 0)
                return Exit(WorkerEnd::EXHAUSTED);
        }
    }

private:
    WorkerEnd ConnectAndPoll(bool& bConnected)
    {
        QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
        ServCon::ServerConnector connector(m_services.m_pServerLink->Connect(m_data.m_wstrDirPath),
                                           m_wstrHostId);
        bConnected = true;
        if (QZPAR::GetBoolValue(m_pData, SEND, false)) {
            connector.CallSetRiTaskResults(m_pData);
            MarkDelivered(m_pData, m_wstrRequestPath);
        }
        const std::wstring wstrTaskId = QZPAR::GetStringValue(m_pData, TASK_ID, L"");
        QZ_TRACE_I(L"%hs: Lets pool reboot accepting", QZ_SCOPE_NAME);
        // A wait of no time is the shutdown flag's test.
        while (!m_services.m_pWaits->WaitForStop(0) && m_nCounter > 0) {
            switch (connector.CallShouldForceReboot(m_wstrHostId, wstrTaskId)) {
                case 1:
                    QZ_TRACE_I(L"%hs: Finish pooling, reboot accepted", QZ_SCOPE_NAME);
                    CreateForceRebootFile(m_data);
                    return Exit(WorkerEnd::ACCEPTED);
                case 2:
                    QZ_TRACE_I(L"%hs: Finish pooling, request canceled", QZ_SCOPE_NAME);
                    return Exit(WorkerEnd::CANCELLED);
                default:
                    break;
            }
            QZ_TRACE_I(L"%hs: Pooling iteration %d is finished, go to next attempt, sleep for %d seconds.",
                       QZ_SCOPE_NAME, m_nCounter, m_limits.m_nIntervalSec);
            if (Sleep())
                return Shutdown();
            --m_nCounter;
        }
        if (m_nCounter > 0)
            return Shutdown();
        return Exit(WorkerEnd::EXHAUSTED);
    }

    // True when the agent must stop.
    bool Sleep()
    {
        return m_services.m_pWaits->WaitForStop(static_cast<uint32_t>(m_limits.m_nIntervalSec) * 1000u);
    }

    WorkerEnd Shutdown()
    {
        QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
        QZ_TRACE_I(L"%hs: Finish pooling, shutdown flag detected", QZ_SCOPE_NAME);
        return Exit(WorkerEnd::SHUTDOWN);
    }

    WorkerEnd Exit(WorkerEnd eEnd)
    {
        QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
        QZ_TRACE_I(L"%hs: Exit. Attempts counter value is %d.", QZ_SCOPE_NAME, m_nCounter);
        return eEnd;
    }

    const RiWrpData& m_data;
    const std::wstring& m_wstrRequestPath;
    QZPAR::Params* m_pData;
    const PollLimits& m_limits;
    const AgentServices& m_services;
    int32_t m_nCounter;
    std::wstring m_wstrHostId;
};

// A delivered request and its companion copy are done with once the worker ends; one that never reached
// the server stays for the administrator to see.
void RemoveDeliveredRequest(QZPAR::Params* pData, const std::wstring& wstrRequestPath,
                            const AgentServices& services)
{
    if (QZPAR::GetBoolValue(pData, SEND, false))
        return;
    const std::wstring wstrQud = QZPAR::GetStringValue(pData, QUD, L"");
    if (!wstrQud.empty())
        services.m_pOs->RemoveFile(wstrQud);
    services.m_pOs->RemoveFile(wstrRequestPath);
}

class LaunchingStarter : public InstanceStarter
{
public:
    explicit LaunchingStarter(std::function<std::wstring()> fnAgentPath)
        : m_fnAgentPath(std::move(fnAgentPath))
    {
    }
    std::wstring AgentPath() override { return m_fnAgentPath(); }
    void StartInstance(const std::wstring& wstrCommandLine, const std::wstring& wstrCurDir) override
    {
        LaunchOptions options;
        options.m_wstrCommandLine = wstrCommandLine;
        options.m_wstrCurDir = wstrCurDir;
        QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter;
        LaunchAsync(options, &pWaiter);
    }

private:
    std::function<std::wstring()> m_fnAgentPath;
};

}  // namespace

std::unique_ptr<InstanceStarter> CreateSystemInstanceStarter(AgentOs& os)
{
    return std::make_unique<LaunchingStarter>([&os] { return os.GetModuleFilePath(); });
}

std::unique_ptr<InstanceStarter> CreateSystemInstanceStarter(const std::wstring& wstrAgentPath)
{
    return std::make_unique<LaunchingStarter>([wstrAgentPath] { return wstrAgentPath; });
}

std::wstring RequestPxgReboot(const RiWrpData& data, const std::wstring& wstrTaskId, const RiResult& rslt,
                              const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgReboot");
    if (rslt.m_rebootState != 1) {
        QZ_TRACE_I(L"%hs: Reboot not need", QZ_SCOPE_NAME);
        return std::wstring();
    }
    QZ_ASSERT(services.m_pOs && services.m_pStarter);
    const std::wstring wstrName = REQUEST_PREFIX + FileNamePartOf(wstrTaskId);
    QZSTD::CAutoPtr<QZPAR::Params> pData = QZPAR::CreateParams();
    QZPAR::SetStringValue(pData, TASK_ID, wstrTaskId);
    QZPAR::SetStringValue(pData, L"QZRI_SRVRI_RES_DESCR", rslt.m_wstrDescription);
    QZPAR::SetIntValue(pData, L"QZRI_SRVRI_RES_CODE", rslt.m_nResultCode);
    QZPAR::SetStringValue(pData, QUD, CopyCompanion(data, data.m_wstrDirPath + wstrName, services));
    QZPAR::SetBoolValue(pData, SEND, true);
    QZ_TRACE_I(L"%hs: pData:", QZ_SCOPE_NAME);
    QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(pData));
    const std::wstring wstrRequest = data.m_wstrDirPath + wstrName + REQUEST_EXTENSION;
    QZPAR::WriteParamsFile(wstrRequest, pData);
    const std::wstring wstrCmdLine = L"\"" + services.m_pStarter->AgentPath() + L"\" " +
                                     std::wstring(Keys::PXG_REQUEST) + L"=" + wstrName + REQUEST_EXTENSION;
    QZ_TRACE_I(L"%hs: Run another instance of 'qzriwrap' with cmd_line '%ls'.", QZ_SCOPE_NAME, wstrCmdLine);
    services.m_pStarter->StartInstance(wstrCmdLine, data.m_wstrDirPath);
    return wstrRequest;
}

PollLimits ReadPollLimits(const RiWrpData& data)
{
    PollLimits limits;
    if (!data.m_pQpd)
        return limits;
    const int32_t nAttempts = data.m_pQpd->GetInt(L"ExtendedSettings", L"RebootPollAttempts", 0);
    const int32_t nIntervalSec = data.m_pQpd->GetInt(L"ExtendedSettings", L"RebootPollIntervalSec", 0);
    if (nAttempts > 0)
        limits.m_nAttempts = nAttempts;
    if (nIntervalSec > 0)
        limits.m_nIntervalSec = nIntervalSec;
    return limits;
}

WorkerEnd RequestPxgRebootWorker(const RiWrpData& data, const std::wstring& wstrRequestPath,
                                 const PollLimits& limits, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::RequestPxgRebootWorker");
    QZ_ASSERT(services.m_pServerLink && services.m_pWaits && services.m_pOs);
    QZSTD::CAutoPtr<QZPAR::Params> pData;
    try {
        pData = QZPAR::ReadParamsFile(wstrRequestPath);
        QZ_TRACE_I(L"%hs: pData:", QZ_SCOPE_NAME);
        QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(pData));
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        QZ_TRACE_E(L"%hs: The request '%ls' cannot be read: nothing to deliver.", QZ_SCOPE_NAME,
                   wstrRequestPath);
        return WorkerEnd::NO_REQUEST;
    }
    const WorkerEnd eEnd = Poller(data, wstrRequestPath, pData, limits, services).Run();
    RemoveDeliveredRequest(pData, wstrRequestPath, services);
    return eEnd;
}

std::wstring RequestFileNameOf(const std::wstring& wstrCmdLine)
{
    const std::wstring wstrName = GetKeyValue(wstrCmdLine, Keys::PXG_REQUEST);
    const bool bOurs = wstrName.rfind(REQUEST_PREFIX, 0) == 0 &&
                       EndsWithNoCase(wstrName, REQUEST_EXTENSION) &&
                       wstrName.find_first_of(L"/\\:") == std::wstring::npos;
    return bOurs ? wstrName : std::wstring();
}

int RunRebootRequestInstance(const RiWrpData& data, const std::wstring& wstrCmdLine,
                             const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::RunRebootRequestInstance");
    const std::wstring wstrName = RequestFileNameOf(wstrCmdLine);
    if (wstrName.empty()) {
        QZ_TRACE_E(L"%hs: '%ls' is no request file of this folder.", QZ_SCOPE_NAME,
                   GetKeyValue(wstrCmdLine, Keys::PXG_REQUEST));
        return QZRI_RSLT_INIT_FAILED;
    }
    const PollLimits limits = ReadPollLimits(data);
    QZ_TRACE_I(L"%hs: %d attempts, %d seconds apart.", QZ_SCOPE_NAME, limits.m_nAttempts,
               limits.m_nIntervalSec);
    WorkerEnd eEnd = WorkerEnd::NO_REQUEST;
    std::thread worker([&] {
        try {
            eEnd = RequestPxgRebootWorker(data, data.m_wstrDirPath + wstrName, limits, services);
        } catch (const std::exception& e) {
            QZ_TRACE_EXCEPTION(e);
        }
        QZSTD::RaiseShutdown();
    });
    // The worker raises the shutdown when it ends, which ends this wait too.
    while (services.m_pWaits->PumpMessagesAndWait(2000) == Waits::Slice::ELAPSED) {
    }
    QZSTD::RaiseShutdown();
    worker.join();
    return eEnd == WorkerEnd::NO_REQUEST ? QZRI_RSLT_INIT_FAILED : QZRI_RSLT_NO_ERROR;
}

}  // namespace QZRI
