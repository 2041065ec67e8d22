// The administration server's remote interface for remote installation results ("SrvRi"), and its proxy
// over the transport's remote calls. docs/remote-calls.md gives the wire form of each operation.
#pragma once

#include <string>
#include <vector>

#include "std/par/params.h"
#include "transport/remotecall.h"

namespace QZRI {

// The operations in the server's slot order, with the names under which their arguments travel.
class SrvRi
{
public:
    virtual ~SrvRi() = default;
    // "wstrHostID", "pData"; no result.
    virtual void SetRiTaskResults(const std::wstring& wstrHostID, QZPAR::Params* pData) = 0;
    // "wstrHostID", "wstrTaskID"; "PxgRetVal".
    virtual int ShouldForceReboot(const std::wstring& wstrHostID, const std::wstring& wstrTaskID) = 0;
    // As ShouldForceReboot: 1 reboot accepted, 2 request cancelled, anything else not decided yet.
    virtual int ShouldForceReboot2(const std::wstring& wstrHostID, const std::wstring& wstrTaskID) = 0;
    // "pHostsArray": an array of host ids as strings; no result.
    virtual void SetRebootConfirmedHosts(const std::vector<std::wstring>& vecHostIds) = 0;
};

}  // namespace QZRI

namespace QZPXGPROXY {

// The proxy of a remote interface: each operation is one remote call of the interface's name.
template <class Interface>
class PxgSrvRiProxyImplT;

template <>
class PxgSrvRiProxyImplT<QZRI::SrvRi> : public QZRI::SrvRi
{
public:
    explicit PxgSrvRiProxyImplT(QZTRANSPORT::RemoteEndpoint endpoint) : m_endpoint(std::move(endpoint)) {}
    void SetRiTaskResults(const std::wstring& wstrHostID, QZPAR::Params* pData) override;
    int ShouldForceReboot(const std::wstring& wstrHostID, const std::wstring& wstrTaskID) override;
    int ShouldForceReboot2(const std::wstring& wstrHostID, const std::wstring& wstrTaskID) override;
    void SetRebootConfirmedHosts(const std::vector<std::wstring>& vecHostIds) override;

private:
    int CallForInt(const char* szOperation, const std::wstring& wstrHostID, const std::wstring& wstrTaskID);

    QZTRANSPORT::RemoteEndpoint m_endpoint;
};

}  // namespace QZPXGPROXY
