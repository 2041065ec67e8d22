// The administration server's connection settings, the connector, and the link the worker uses.
#include "qzri/riwrap/servcon.h"

#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/download.h"
#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "transport/errors.h"

namespace ServCon {
namespace {

constexpr const char* MODULE = "QZRI";
constexpr const wchar_t* NAGENT_PRODUCT = L"1103";
constexpr const wchar_t* NAGENT_VERSION = L"1.0.0.0";
constexpr const wchar_t* HOSTID_SECTION = L"QZNAG_HOSTID_SECTION";
constexpr const wchar_t* NAGENT_SETTINGS_SECTION = L"SSP_SETTINGS";

// The caller's name: this agent as a component of its product.
const std::pair<std::string, std::string> CALLER_HEADERS[] = {
    {"X-QZ-Component", "QZCS_COMPONENT_QZRIWRAP"},
    {"X-QZ-Product", "1093"},
    {"X-QZ-Version", "1.0.0.0"},
    {"X-QZ-Instance", "1093-87"},
};

QZSTD::CAutoPtr<QZPAR::Params> ReadNagentSection(const std::wstring& wstrStoragePath,
                                                 const wchar_t* szSection)
{
    return QZSTD::SettingsStorage::OpenReadOnly(wstrStoragePath)
        ->ReadSection(NAGENT_PRODUCT, NAGENT_VERSION, szSection);
}

// The management agent's id and name; a host without them sends none, and the server decides.
void AddAuthentication(const std::wstring& wstrStoragePath, QZTRANSPORT::RemoteEndpoint& endpoint)
{
    QZ_TRACE_SCOPE(MODULE, "ServCon::GetServerConnection");
    try {
        QZSTD::CAutoPtr<QZPAR::Params> pSection = ReadNagentSection(wstrStoragePath, HOSTID_SECTION);
        const std::wstring wstrId = QZPAR::GetStringValue(pSection, L"QZNAG_AUTH_NAGENT_ID", L"");
        const std::wstring wstrName = QZPAR::GetStringValue(pSection, L"QZNAG_AUTH_NAGENT_NAME", L"");
        if (!wstrId.empty())
            endpoint.m_vecHeaders.emplace_back("X-QZ-NAgent-Id", QZSTD::WideToUtf8(wstrId));
        if (!wstrName.empty())
            endpoint.m_vecHeaders.emplace_back("X-QZ-NAgent-Name", QZSTD::WideToUtf8(wstrName));
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION_AT(QZSTD::TL_INFO, e);
        QZ_TRACE_W(L"%hs: No management agent identity: the calls are not authenticated.\n", QZ_SCOPE_NAME);
    }
}

std::string Base(bool bSsl, const std::wstring& wstrHost, int32_t nPort)
{
    QZ_CHECK_ARG(!wstrHost.empty(), "ServerName");
    QZ_CHECK_ARG(nPort > 0 && nPort < 65536, bSsl ? "ServerSSLPort" : "ServerPort");
    return (bSsl ? "https://" : "http://") + QZSTD::WideToUtf8(wstrHost) + ":" + std::to_string(nPort);
}

ServerConnection FromInstallSettings(const std::wstring& wstrDirPath, const std::wstring& wstrFile)
{
    QZSTD::CAutoPtr<QZPAR::Params> p = QZSTD::SettingsStorage::OpenReadOnly(wstrFile)->ReadSection(
        NAGENT_PRODUCT, NAGENT_VERSION, SS_INSTALL_SECTION);
    ServerConnection connection;
    connection.m_wstrSource = wstrFile;
    QZTRANSPORT::RemoteEndpoint& endpoint = connection.m_endpoint;
    if (QZPAR::GetBoolValue(p, L"HOSTED_MODE", false)) {
        endpoint.m_strBase = QZSTD::WideToUtf8(QZPAR::GetStringValue(p, L"HdsUrl"));
        QZ_CHECK_ARG(endpoint.m_strBase.rfind("https://", 0) == 0, "HdsUrl");
        while (!endpoint.m_strBase.empty() && endpoint.m_strBase.back() == '/')
            endpoint.m_strBase.pop_back();
    } else {
        const bool bSsl = QZPAR::GetBoolValue(p, L"UseSSLConnection", false);
        endpoint.m_strBase = Base(bSsl, QZPAR::GetStringValue(p, L"ServerName"),
                                  QZPAR::GetIntValue(p, bSsl ? L"ServerSSLPort" : L"ServerPort"));
    }
    QZTRANSPORT::ProxySettings& proxy = endpoint.m_proxy;
    proxy.m_bUse = QZPAR::GetBoolValue(p, L"UseProxy", false);
    if (proxy.m_bUse) {
        proxy.m_wstrLocation = QZPAR::GetStringValue(p, L"ProxyServerAddress");
        proxy.m_wstrUser = QZPAR::GetStringValue(p, L"ProxyServerUser", L"");
        proxy.m_wstrPassword = QZPAR::GetStringValue(p, L"ProxyServerPassword", L"");
        proxy.m_bAuthenticate = !proxy.m_wstrUser.empty();
    }
    const std::wstring wstrCert = QZPAR::GetStringValue(p, L"ServerCert", L"");
    if (!wstrCert.empty())
        endpoint.m_wstrServerCert = QZRI::IsAbsolutePath(wstrCert) ? wstrCert : wstrDirPath + wstrCert;
    return connection;
}

int32_t FirstPort(QZPAR::Params* pProfile, const wchar_t* szName)
{
    QZSTD::CAutoPtr<QZPAR::ArrayValue> pPorts = QZPAR::GetArrayValue(pProfile, szName);
    QZ_CHECK_ARG(pPorts->GetSize() > 0, szName);
    QZSTD::CAutoPtr<QZPAR::Value> pFirst;
    pPorts->GetAt(0, &pFirst);
    return QZPAR::GetIntValue(pFirst);
}

ServerConnection FromManagementAgent(const std::wstring& wstrStoragePath, QZRI::ProxySource& agentProxy)
{
    QZ_TRACE_SCOPE(MODULE, "ServCon::GetServerConnection");
    ServerConnection connection;
    try {
        QZSTD::CAutoPtr<QZPAR::Params> pProfile = QZPAR::GetParamsValue(
            ReadNagentSection(wstrStoragePath, NAGENT_SETTINGS_SECTION), L"QZNLA_CUR_PROFILE");
        const bool bSsl = QZPAR::GetBoolValue(pProfile, L"UseSsl", false);
        connection.m_endpoint.m_strBase =
            Base(bSsl, QZPAR::GetStringValue(pProfile, L"ServerAddress"),
                 FirstPort(pProfile, bSsl ? L"ServerSslPorts" : L"Serverports"));
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        QZ_THROW(QZTRANSPORT::MODULE, QZTRANSPORT::NO_CONNECTION_SETTINGS);
    }
    connection.m_endpoint.m_proxy = agentProxy.Get();
    connection.m_wstrSource = wstrStoragePath;
    return connection;
}

}  // namespace

ServerConnection GetServerConnection(const std::wstring& wstrDirPath, const std::wstring& wstrStoragePath,
                                     QZRI::ProxySource& agentProxy)
{
    QZ_TRACE_SCOPE(MODULE, "ServCon::GetServerConnection");
    QZTRANSPORT::RegisterTransportErrors();
    const std::wstring wstrInstall = wstrDirPath + SS_INSTALL_FILE;
    ServerConnection connection;
    try {
        connection = FromInstallSettings(wstrDirPath, wstrInstall);
    } catch (const QZSTD::QZError& e) {
        if (!e.Is(QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND))
            throw;
        QZ_TRACE_I(L"%hs: No '%ls': the management agent's settings.\n", QZ_SCOPE_NAME, wstrInstall);
        connection = FromManagementAgent(wstrStoragePath, agentProxy);
    }
    AddAuthentication(wstrStoragePath, connection.m_endpoint);
    for (const auto& header : CALLER_HEADERS)
        connection.m_endpoint.m_vecHeaders.push_back(header);
    QZ_TRACE_I(
        L"%hs: Server '%hs' from '%ls', proxy %ls, server certificate '%ls'.\n", QZ_SCOPE_NAME,
        connection.m_endpoint.m_strBase, connection.m_wstrSource,
        connection.m_endpoint.m_proxy.m_bUse ? connection.m_endpoint.m_proxy.m_wstrLocation.c_str() : L"none",
        connection.m_endpoint.m_wstrServerCert);
    return connection;
}

std::wstring ReadHostId(const std::wstring& wstrStoragePath)
{
    QZ_TRACE_SCOPE(MODULE, "ServCon::ReadHostId");
    try {
        return QZPAR::GetStringValue(ReadNagentSection(wstrStoragePath, HOSTID_SECTION), L"QZNAG_HOSTID",
                                     L"");
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    return std::wstring();
}

void ServerConnector::CallSetRiTaskResults(QZPAR::Params* pData)
{
    QZ_TRACE_SCOPE(MODULE, "ServCon::ServerConnector::CallSetRiTaskResults");
    QZ_CHECK_ARG(pData, "pData");
    m_pSrvRi->SetRiTaskResults(m_wstrHostID, pData);
}

int ServerConnector::CallShouldForceReboot(const std::wstring& wstrHostID, const std::wstring& wstrTaskID)
{
    QZ_TRACE_SCOPE(MODULE, "ServCon::ServerConnector::CallShouldForceReboot");
    QZ_TRACE_I(L"%hs: wstrHostID = '%ls', wstrTaskID = '%ls'", QZ_SCOPE_NAME, wstrHostID, wstrTaskID);
    QZ_CHECK_ARG(!wstrHostID.empty(), "wstrHostID");
    QZ_CHECK_ARG(!wstrTaskID.empty(), "wstrTaskID");
    const int nAcceptReboot = m_pSrvRi->ShouldForceReboot2(wstrHostID, wstrTaskID);
    QZ_TRACE_I(L"%hs: nAcceptReboot = %d", QZ_SCOPE_NAME, nAcceptReboot);
    return nAcceptReboot;
}

}  // namespace ServCon

namespace QZRI {
namespace {

class TransportServerLink : public ServerLink
{
public:
    TransportServerLink(std::wstring wstrStoragePath, ProxySource& agentProxy)
        : m_wstrStoragePath(std::move(wstrStoragePath)), m_agentProxy(agentProxy)
    {
    }
    std::wstring GetHostId() override { return ServCon::ReadHostId(m_wstrStoragePath); }
    std::unique_ptr<SrvRi> Connect(const std::wstring& wstrDirPath) override
    {
        return std::make_unique<QZPXGPROXY::PxgSrvRiProxyImplT<SrvRi>>(
            ServCon::GetServerConnection(wstrDirPath, m_wstrStoragePath, m_agentProxy).m_endpoint);
    }

private:
    std::wstring m_wstrStoragePath;
    ProxySource& m_agentProxy;
};

}  // namespace

std::unique_ptr<ServerLink> CreateServerLink(const std::wstring& wstrStoragePath, ProxySource& agentProxy)
{
    return std::make_unique<TransportServerLink>(wstrStoragePath, agentProxy);
}

}  // namespace QZRI
