// Helpers of the agent's tests: the trace's records, and in-memory stand-ins for what the agent talks
// to outside the process (the file helpers they share with every test are in tests/testutil/fsutil.h).
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/registry.h"
#include "common/winsessions.h"
#include "qzri/riwrap/agentactions.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/askuser.h"
#include "qzri/riwrap/autostart.h"
#include "qzri/riwrap/clock.h"
#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/download.h"
#include "qzri/riwrap/driverservices.h"
#include "qzri/riwrap/rebootrequest.h"
#include "qzri/riwrap/reports.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servcon.h"
#include "qzri/riwrap/serverid.h"
#include "qzri/riwrap/servicecontrol.h"
#include "qzri/riwrap/waits.h"
#include "std/error.h"
#include "transport/errors.h"

namespace QZRITEST {

// The records of a trace file as "MODULE L text" (date, time and ids cut off, line ends removed).
std::vector<std::string> TraceRecords(const std::wstring& wstrTraceFile);
// True when every expected record occurs among the records, in this order (others may lie between).
bool ContainsInOrder(const std::vector<std::string>& vecRecords, const std::vector<std::string>& vecExpected);
std::string Joined(const std::vector<std::string>& vecLines);
// ContainsInOrder as an assertion whose failure lists every record.
testing::AssertionResult HasInOrder(const std::vector<std::string>& vecRecords,
                                    const std::vector<std::string>& vecExpected);

// Stores one value, alone, in the management agent's "global" section of the settings storage at the
// path (created when missing).
void StoreAgentGlobal(const std::wstring& wstrStorage, const wchar_t* szName, const wchar_t* szValue);

// One removal of incompatible software as the driver makes it: its result, its description and whether
// it needs a restart.
using CompetitorOutcome = std::tuple<int32_t, std::wstring, bool>;
CompetitorOutcome RunCompetitorRemoval(QZRI::RiWrpData& data, QZRIWRP::CompetitorEnv& env);

// The records of a run's trace kept by a fixture, and the check on them.
struct TraceOfRun
{
    testing::AssertionResult Traced(const std::vector<std::string>& vecExpected) const
    {
        return HasInOrder(m_vecRecords, vecExpected);
    }
    std::string Dump() const { return Joined(m_vecRecords); }
    std::vector<std::string> m_vecRecords;
};

// The real file operations, with the agent's own file, the environment and the temporary folder set
// by the test, and renames that can be made to fail.
class TestOs : public QZRI::AgentOs
{
public:
    std::wstring GetModuleFilePath() override
    {
        if (m_bModulePathFails)
            QZ_THROW_SYSTEM_CODE(5);
        return m_wstrModulePath;
    }
    std::optional<std::wstring> GetEnvValue(const std::wstring& wstrName) override
    {
        const auto it = m_mapEnv.find(wstrName);
        return it != m_mapEnv.end() ? std::optional(it->second) : std::nullopt;
    }
    std::wstring GetTempFolder() override { return m_wstrTempFolder; }
    bool FileExists(const std::wstring& wstrPath) override { return m_pReal->FileExists(wstrPath); }
    bool IsWritableFolder(const std::wstring& wstrPath) override
    {
        return m_pReal->IsWritableFolder(wstrPath);
    }
    std::vector<std::wstring> ListFiles(const std::wstring& wstrFolder) override
    {
        return m_pReal->ListFiles(wstrFolder);
    }
    bool RemoveFile(const std::wstring& wstrPath) override { return m_pReal->RemoveFile(wstrPath); }
    bool RenameFile(const std::wstring& wstrFrom, const std::wstring& wstrTo) override
    {
        return !m_setFailingRenames.count(wstrFrom) && m_pReal->RenameFile(wstrFrom, wstrTo);
    }
    std::optional<std::chrono::system_clock::time_point> GetFileArrivalTime(
        const std::wstring& wstrPath) override
    {
        const auto it = m_mapArrival.find(wstrPath);
        return it != m_mapArrival.end() ? std::optional(it->second) : m_pReal->GetFileArrivalTime(wstrPath);
    }
    // Arrival times that stand in for the files' own.
    std::map<std::wstring, std::chrono::system_clock::time_point> m_mapArrival;

    std::wstring m_wstrModulePath;
    bool m_bModulePathFails = false;
    std::map<std::wstring, std::wstring> m_mapEnv;
    std::wstring m_wstrTempFolder;
    std::set<std::wstring> m_setFailingRenames;  // source paths

private:
    std::unique_ptr<QZRI::AgentOs> m_pReal = QZRI::CreateSystemAgentOs();
};

class FakeSessions : public QZRI::SessionList
{
public:
    std::vector<QZRI::UserSession> GetInteractiveSessions() override
    {
        ++m_nCalls;
        if (m_bFails)
            QZ_THROW_SYSTEM_CODE(1722);
        return m_vecSessions;
    }
    std::vector<QZRI::UserSession> m_vecSessions;
    bool m_bFails = false;
    int m_nCalls = 0;
};

class FakeServerId : public QZRI::ServerIdSource
{
public:
    std::wstring GetCurrentServerId() override { return m_wstrId; }
    std::wstring m_wstrId;
};

class RecordingReports : public QZRI::ReportSink
{
public:
    void ReportResult(const QZRI::RiWrpData&, const QZRI::RiMessage& msg, int32_t) override
    {
        m_vecReports.emplace_back(msg.m_szId, msg.m_szText);
    }
    std::vector<std::pair<std::wstring, std::wstring>> m_vecReports;
};

// The services as a map from name to command line. Deletions are recorded; m_vecCreateErrors answers
// the next creations (0: created).
class FakeServiceControl : public QZRI::ServiceControl
{
public:
    std::optional<QZRI::ServiceFailure> DeleteService(const std::wstring& wstrName) override
    {
        m_vecDeleted.push_back(wstrName);
        m_mapServices.erase(wstrName);
        return std::nullopt;
    }
    std::optional<QZRI::ServiceFailure> CreateService(const std::wstring& wstrName,
                                                      const std::wstring& wstrBinaryPath) override
    {
        const int nError = m_nCreations < m_vecCreateErrors.size() ? m_vecCreateErrors[m_nCreations] : 0;
        ++m_nCreations;
        if (nError != 0)
            return QZRI::ServiceFailure{QZRI::ServiceFailure::CREATE_SERVICE, nError};
        m_mapServices[wstrName] = wstrBinaryPath;
        return std::nullopt;
    }
    std::vector<std::wstring> EnumServiceNames(std::optional<QZRI::ServiceFailure>&) override
    {
        std::vector<std::wstring> vecNames;
        for (const auto& entry : m_mapServices)
            vecNames.push_back(entry.first);
        return vecNames;
    }
    std::wstring QueryBinaryPath(const std::wstring& wstrName,
                                 std::optional<QZRI::ServiceFailure>& failure) override
    {
        const auto it = m_mapServices.find(wstrName);
        if (it != m_mapServices.end())
            return it->second;
        failure = QZRI::ServiceFailure{QZRI::ServiceFailure::OPEN_SERVICE, 1060};
        return std::wstring();
    }
    std::map<std::wstring, std::wstring> m_mapServices;
    std::vector<std::wstring> m_vecDeleted;
    std::vector<int> m_vecCreateErrors;
    size_t m_nCreations = 0;
};

// A clock that stands still at m_tp.
class FixedClock : public QZRI::Clock
{
public:
    std::chrono::system_clock::time_point Now() override { return m_tp; }
    std::chrono::system_clock::time_point m_tp{std::chrono::milliseconds(1763894400042)};
};

// Answers the shared-files folder of the local writable folder's fall-back, and nothing else.
class FakeRegistry : public QZRI::Registry
{
public:
    bool ReadLocalMachineString(const std::wstring&, const std::wstring& wstrValueName,
                                std::wstring& wstrValue, QZRI::RegistryView) override
    {
        if (wstrValueName != L"Folder" || m_wstrSharedFolder.empty())
            return false;
        wstrValue = m_wstrSharedFolder;
        return true;
    }
    std::wstring m_wstrSharedFolder;
};

// Records "Register(<action>)" and "Unregister".
class RecordingAutostart : public QZRI::Autostart
{
public:
    bool RegisterAutostart(QZRI::RiWrpData&, QZRI::QzriAction eAction) override
    {
        m_vecCalls.push_back(L"Register(" + std::to_wstring(eAction) + L")");
        return true;
    }
    void UnregisterAutostart(QZRI::RiWrpData&) override { m_vecCalls.push_back(L"Unregister"); }
    std::vector<std::wstring> m_vecCalls;
};

// Each slice runs the next scripted step (nothing once they are used up) and advances the tick counter by
// the slice's length.
class ScriptedWaits : public QZRI::Waits
{
public:
    Slice PumpMessagesAndWait(uint32_t nMs) override
    {
        m_nTick += nMs;
        const size_t n = m_nSlices++;
        return n < m_vecSteps.size() ? m_vecSteps[n]() : Slice::ELAPSED;
    }
    bool WaitForStop(uint32_t nMs) override
    {
        m_nTick += nMs;
        ++m_nStopWaits;
        return m_bStopped;
    }
    uint32_t TickCount() override { return m_nTick; }
    int m_nStopWaits = 0;
    bool m_bStopped = false;
    std::vector<std::function<Slice()>> m_vecSteps;
    uint32_t m_nTick = 0;
    size_t m_nSlices = 0;
};

// Answers with the scripted exit codes in turn (nothing: nobody answered) and counts the questions.
class ScriptedConsent : public QZRI::ConsentDialog
{
public:
    std::optional<uint32_t> Ask(const QZRI::RiWrpData&) override
    {
        const size_t n = m_nAsks++;
        return n < m_vecAnswers.size() ? m_vecAnswers[n] : std::nullopt;
    }
    std::vector<std::optional<uint32_t>> m_vecAnswers;
    size_t m_nAsks = 0;
};

// Records the hand-overs as "RunExecutable", "RunAsService", "AskUserForStart",
// "StartNewRebootWorker" and "Cleanup(<kept id>)".
class RecordingActions : public QZRI::AgentActions
{
public:
    int StartNewRebootWorker(QZRI::RiWrpData& data) override { return Record(L"StartNewRebootWorker", data); }
    int RunAsService(QZRI::RiWrpData& data) override { return Record(L"RunAsService", data); }
    int RunRebootRequestWorker(QZRI::RiWrpData& data) override
    {
        return Record(L"RunRebootRequestWorker", data);
    }
    int AskUserForStart(QZRI::RiWrpData& data) override { return Record(L"AskUserForStart", data); }
    QZRI::DriverResult RunExecutable(QZRI::RiWrpData& data) override
    {
        Record(L"RunExecutable", data);
        return m_driverResult;
    }
    std::optional<int> CleanupOtherServices(const std::wstring& wstrKeepServiceId) override
    {
        m_vecCalls.push_back(L"Cleanup(" + wstrKeepServiceId + L")");
        return m_nCleanupEnd;
    }

    std::vector<std::wstring> m_vecCalls;
    int m_nResult = 0;
    QZRI::DriverResult m_driverResult;
    std::optional<int> m_nCleanupEnd;
    // Whether g_pData pointed at the data handed over.
    bool m_bRunDataPublished = false;
    bool m_bThrows = false;

private:
    int Record(const wchar_t* szCall, QZRI::RiWrpData& data)
    {
        m_vecCalls.push_back(szCall);
        m_bRunDataPublished = QZRI::g_pData == &data;
        if (m_bThrows)
            QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
        return m_nResult;
    }
};

// The products as listed; "ConnInstalled" answers the script in turn, the last answer repeating (an empty
// script: it cannot be read).
class FakeProducts : public QZRI::ControlledProducts
{
public:
    std::vector<QZRI::ControlledProduct> List() override { return m_vecProducts; }
    std::optional<bool> ConnInstalled() override
    {
        const size_t n = m_nConnReads++;
        if (m_vecConn.empty())
            return std::nullopt;
        return n < m_vecConn.size() ? m_vecConn[n] : m_vecConn.back();
    }
    std::vector<QZRI::ControlledProduct> m_vecProducts;
    std::vector<std::optional<bool>> m_vecConn;
    size_t m_nConnReads = 0;
};

// Records the product that [Uninstall] "Product" of the run's package description names at each call,
// and answers with its code in m_mapCodes (absent: 0); a code of -1 raises instead.
class ScriptedUninstaller : public QZRI::ProductUninstaller
{
public:
    int32_t Uninstall(QZRI::RiWrpData& data, bool* pbNeedRestart) override
    {
        m_vecProducts.push_back(data.m_pQpd->GetString(L"Uninstall", L"Product", L""));
        const auto it = m_mapCodes.find(m_vecProducts.back());
        if (it != m_mapCodes.end() && it->second == -1)
            QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
        *pbNeedRestart = false;
        return it == m_mapCodes.end() ? 0 : it->second;
    }
    std::map<std::wstring, int32_t> m_mapCodes;
    std::vector<std::wstring> m_vecProducts;
};

// Records "verb|file|params|folder" and answers m_nError.
class RecordingShell : public QZRI::ShellOpener
{
public:
    int Open(const std::wstring& wstrVerb, const std::wstring& wstrFile, const std::wstring& wstrParams,
             const std::wstring& wstrFolder) override
    {
        m_vecCalls.push_back(wstrVerb + L"|" + wstrFile + L"|" + wstrParams + L"|" + wstrFolder);
        return m_nError;
    }
    std::vector<std::wstring> m_vecCalls;
    int m_nError = 0;
};

// A direct connection, whatever the management agent's settings say.
class NoProxy : public QZRI::ProxySource
{
public:
    QZTRANSPORT::ProxySettings Get() override { return {}; }
};

// Records the command lines of the instances started.
class RecordingStarter : public QZRI::InstanceStarter
{
public:
    std::wstring AgentPath() override { return m_wstrAgentPath; }
    void StartInstance(const std::wstring& wstrCommandLine, const std::wstring&) override
    {
        m_vecCommandLines.push_back(wstrCommandLine);
    }
    std::vector<std::wstring> m_vecCommandLines;
    std::wstring m_wstrAgentPath = L"C:\\pkg\\qzriwrap.exe";
};

// The administration server as a script: each remote call takes the next answer (the last one repeats).
// An answer is ShouldForceReboot2's result, or for a delivery any number means it arrived; the codes below
// raise instead. Every call is recorded as "Connect", "SetRiTaskResults" or "ShouldForceReboot2(host,task)".
class ScriptedServer : public QZRI::ServerLink
{
public:
    enum : int
    {
        OLD_SERVER = -1194,   // QZSTD 1194
        DENIED = -403,        // the transport's access denied
        UNREACHABLE = -7,     // the transport's transfer failure
        NO_SETTINGS = -2006,  // Connect fails
    };
    std::wstring GetHostId() override { return L"host-1"; }
    std::unique_ptr<QZRI::SrvRi> Connect(const std::wstring&) override
    {
        m_vecCalls.push_back(L"Connect");
        if (m_nFailingConnects > 0 && m_nFailingConnects--)
            Raise(NO_SETTINGS);
        return std::make_unique<Proxy>(*this);
    }
    std::vector<int> m_vecAnswers;
    int m_nFailingConnects = 0;
    std::vector<std::wstring> m_vecCalls;

private:
    class Proxy : public QZRI::SrvRi
    {
    public:
        explicit Proxy(ScriptedServer& server) : m_server(server) {}
        void SetRiTaskResults(const std::wstring&, QZPAR::Params*) override
        {
            m_server.Next(L"SetRiTaskResults");
        }
        int ShouldForceReboot(const std::wstring&, const std::wstring&) override
        {
            return m_server.Next(L"ShouldForceReboot");
        }
        int ShouldForceReboot2(const std::wstring& wstrHost, const std::wstring& wstrTask) override
        {
            return m_server.Next(L"ShouldForceReboot2(" + wstrHost + L"," + wstrTask + L")");
        }
        void SetRebootConfirmedHosts(const std::vector<std::wstring>&) override
        {
            m_server.Next(L"SetRebootConfirmedHosts");
        }

    private:
        ScriptedServer& m_server;
    };
    int Next(const std::wstring& wstrCall)
    {
        m_vecCalls.push_back(wstrCall);
        const int nAnswer =
            m_vecAnswers.empty() ? 0 : m_vecAnswers[std::min(m_nNext++, m_vecAnswers.size() - 1)];
        Raise(nAnswer);
        return nAnswer;
    }
    static void Raise(int nAnswer)
    {
        if (nAnswer == OLD_SERVER)
            QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
        if (nAnswer == DENIED)
            QZ_THROW(QZTRANSPORT::MODULE, QZTRANSPORT::ACCESS_DENIED, 403);
        if (nAnswer == UNREACHABLE)
            QZ_THROW(QZTRANSPORT::MODULE, QZTRANSPORT::TRANSFER_FAILED, "refused", 7);
        if (nAnswer == NO_SETTINGS)
            QZ_THROW(QZTRANSPORT::MODULE, QZTRANSPORT::NO_CONNECTION_SETTINGS);
    }
    size_t m_nNext = 0;
};

// The stand-ins of one run, the driver's included, and the services structure that hands them to the
// agent's routines.
struct TestServices
{
    // Named, so a stand-in cannot land in the wrong member. No files provider, installer, transfer,
    // proxy or removal engine.
    QZRI::AgentServices Get()
    {
        return {.m_pOs = &m_os,
                .m_pRegistry = &m_registry,
                .m_pServices = &m_serviceControl,
                .m_pSessions = &m_sessions,
                .m_pServerIds = &m_serverIds,
                .m_pReports = &m_reports,
                .m_pClock = &m_clock,
                .m_pAutostart = &m_autostart,
                .m_pConsent = &m_consent,
                .m_pWaits = &m_waits,
                .m_pProducts = &m_products,
                .m_pUninstaller = &m_uninstaller,
                .m_pShell = &m_shell,
                .m_pServerLink = &m_server,
                .m_pStarter = &m_starter};
    }
    TestOs m_os;
    FakeServiceControl m_serviceControl;
    FakeSessions m_sessions;
    FakeServerId m_serverIds;
    RecordingReports m_reports;
    FakeRegistry m_registry;
    FixedClock m_clock;
    RecordingAutostart m_autostart;
    ScriptedWaits m_waits;
    ScriptedConsent m_consent;
    FakeProducts m_products;
    ScriptedUninstaller m_uninstaller;
    RecordingShell m_shell;
    RecordingStarter m_starter;
    ScriptedServer m_server;
};

}  // namespace QZRITEST
