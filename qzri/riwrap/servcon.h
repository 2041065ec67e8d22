// The connection to the administration server: where its settings come from, the connector that makes
// the agent's two calls, and the link that AgentServices hands to the reboot-request worker.
//
// The settings, in this order (docs/server-link.md):
// 1. the package folder's "ss_install.xml", a settings storage file with the section "SS_INSTALL" of
//    product "1103", version "1.0.0.0": "ServerName", "ServerPort", "ServerSSLPort", "UseSSLConnection",
//    "UseProxy", "ProxyServerAddress", "ProxyServerUser", "ProxyServerPassword", "ServerCert" (a PEM file,
//    relative to the package folder), "HOSTED_MODE" and "HdsUrl". The package names the server that
//    deployed it, which is the one that waits for this task's result;
// 2. the installed management agent's settings in the local settings storage: section "SSP_SETTINGS",
//    its current profile "QZNLA_CUR_PROFILE" ("ServerAddress", "Serverports", "ServerSslPorts",
//    "UseSsl"), and the agent's proxy.
// The caller names itself as the agent's component and authenticates with the management agent's id
// and name (section "QZNAG_HOSTID_SECTION": "QZNAG_AUTH_NAGENT_ID", "QZNAG_AUTH_NAGENT_NAME").
#pragma once

#include <memory>
#include <string>

#include "qzri/riwrap/srvri.h"
#include "transport/remotecall.h"

namespace QZRI {
class ProxySource;
}

namespace ServCon {

inline constexpr const wchar_t* SS_INSTALL_FILE = L"ss_install.xml";
inline constexpr const wchar_t* SS_INSTALL_SECTION = L"SS_INSTALL";

struct ServerConnection
{
    QZTRANSPORT::RemoteEndpoint m_endpoint;
    // The file the settings came from.
    std::wstring m_wstrSource;
};

// The connection settings for the package folder wstrDirPath (with its separator). Raises when
// "ss_install.xml" is there but lacks a value or holds one of a wrong type, and the transport's
// NO_CONNECTION_SETTINGS when neither source gives a server.
ServerConnection GetServerConnection(const std::wstring& wstrDirPath, const std::wstring& wstrStoragePath,
                                     QZRI::ProxySource& agentProxy);

// This host's id as the management agent knows it ("QZNAG_HOSTID"); empty when it is not there.
std::wstring ReadHostId(const std::wstring& wstrStoragePath);

// The agent's calls on one connection.
class ServerConnector
{
public:
    ServerConnector(std::unique_ptr<QZRI::SrvRi> pSrvRi, std::wstring wstrHostID)
        : m_pSrvRi(std::move(pSrvRi)), m_wstrHostID(std::move(wstrHostID))
    {
    }
    // Delivers a task's result; a null pData is error 1187 "pData".
    void CallSetRiTaskResults(QZPAR::Params* pData);
    // The server's reboot decision (ShouldForceReboot2); empty ids are error 1187.
    int CallShouldForceReboot(const std::wstring& wstrHostID, const std::wstring& wstrTaskID);

private:
    std::unique_ptr<QZRI::SrvRi> m_pSrvRi;
    std::wstring m_wstrHostID;
};

}  // namespace ServCon

namespace QZRI {

// What the reboot-request worker needs of the server: this host's id and a connection.
class ServerLink
{
public:
    virtual ~ServerLink() = default;
    virtual std::wstring GetHostId() = 0;
    // A new connection for the package folder; raises when there are no usable settings.
    virtual std::unique_ptr<SrvRi> Connect(const std::wstring& wstrDirPath) = 0;
};

std::unique_ptr<ServerLink> CreateServerLink(const std::wstring& wstrStoragePath, ProxySource& agentProxy);

}  // namespace QZRI
