// The SrvRi proxy: the arguments under their names, the result under "PxgRetVal".
#include "qzri/riwrap/srvri.h"

#include "std/par/paramshelpers.h"

namespace QZPXGPROXY {
namespace {

constexpr const char* INTERFACE = "SrvRi";
constexpr const wchar_t* RESULT = L"PxgRetVal";

}  // namespace

void PxgSrvRiProxyImplT<QZRI::SrvRi>::SetRiTaskResults(const std::wstring& wstrHostID, QZPAR::Params* pData)
{
    QZSTD::CAutoPtr<QZPAR::Params> pArgs = QZPAR::CreateParams();
    QZPAR::SetStringValue(pArgs, L"wstrHostID", wstrHostID);
    QZPAR::SetParamsValue(pArgs, L"pData", pData);
    QZTRANSPORT::CallRemote(m_endpoint, INTERFACE, "SetRiTaskResults", pArgs);
}

int PxgSrvRiProxyImplT<QZRI::SrvRi>::ShouldForceReboot(const std::wstring& wstrHostID,
                                                       const std::wstring& wstrTaskID)
{
    return CallForInt("ShouldForceReboot", wstrHostID, wstrTaskID);
}

int PxgSrvRiProxyImplT<QZRI::SrvRi>::ShouldForceReboot2(const std::wstring& wstrHostID,
                                                        const std::wstring& wstrTaskID)
{
    return CallForInt("ShouldForceReboot2", wstrHostID, wstrTaskID);
}

void PxgSrvRiProxyImplT<QZRI::SrvRi>::SetRebootConfirmedHosts(const std::vector<std::wstring>& vecHostIds)
{
    QZSTD::CAutoPtr<QZPAR::ArrayValue> pHosts = QZPAR::CreateArray(vecHostIds.size());
    for (size_t n = 0; n < vecHostIds.size(); ++n)
        pHosts->SetAt(n, QZPAR::CreateString(vecHostIds[n]));
    QZSTD::CAutoPtr<QZPAR::Params> pArgs = QZPAR::CreateParams();
    QZPAR::SetArrayValue(pArgs, L"pHostsArray", pHosts);
    QZTRANSPORT::CallRemote(m_endpoint, INTERFACE, "SetRebootConfirmedHosts", pArgs);
}

// A reply without an integer "PxgRetVal" raises the value tree's own error (missing, or of another type).
int PxgSrvRiProxyImplT<QZRI::SrvRi>::CallForInt(const char* szOperation, const std::wstring& wstrHostID,
                                                const std::wstring& wstrTaskID)
{
    QZSTD::CAutoPtr<QZPAR::Params> pArgs = QZPAR::CreateParams();
    QZPAR::SetStringValue(pArgs, L"wstrHostID", wstrHostID);
    QZPAR::SetStringValue(pArgs, L"wstrTaskID", wstrTaskID);
    QZSTD::CAutoPtr<QZPAR::Params> pResult =
        QZTRANSPORT::CallRemote(m_endpoint, INTERFACE, szOperation, pArgs);
    return QZPAR::GetIntValue(pResult, RESULT);
}

}  // namespace QZPXGPROXY
