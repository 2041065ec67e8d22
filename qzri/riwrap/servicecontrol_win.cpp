// The service control manager's side of the agent's service.
#include <windows.h>

#include "qzri/riwrap/servicecontrol.h"

#include <vector>

namespace QZRI {
namespace {

// Closes a service-manager handle however the call ends, keeping the last error of the call that failed.
class ScopedScHandle
{
public:
    explicit ScopedScHandle(SC_HANDLE h) : m_h(h) {}
    ~ScopedScHandle()
    {
        if (m_h) {
            const DWORD dwErr = ::GetLastError();
            ::CloseServiceHandle(m_h);
            ::SetLastError(dwErr);
        }
    }
    ScopedScHandle(const ScopedScHandle&) = delete;
    ScopedScHandle& operator=(const ScopedScHandle&) = delete;
    SC_HANDLE Get() const { return m_h; }

private:
    SC_HANDLE m_h;
};

ServiceFailure FailureAt(ServiceFailure::Step eStep)
{
    return ServiceFailure{eStep, static_cast<int>(::GetLastError())};
}

class WinServiceControl : public ServiceControl
{
public:
    std::optional<ServiceFailure> DeleteService(const std::wstring& wstrName) override
    {
        ScopedScHandle hScm(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        if (!hScm.Get())
            return FailureAt(ServiceFailure::OPEN_SCM);
        ScopedScHandle hService(::OpenServiceW(hScm.Get(), wstrName.c_str(), SERVICE_ALL_ACCESS));
        if (!hService.Get())
            return FailureAt(ServiceFailure::OPEN_SERVICE);
        if (!::DeleteService(hService.Get()))
            return FailureAt(ServiceFailure::DELETE_SERVICE);
        return std::nullopt;
    }

    std::optional<ServiceFailure> CreateService(const std::wstring& wstrName,
                                                const std::wstring& wstrBinaryPath) override
    {
        ScopedScHandle hScm(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        if (!hScm.Get())
            return FailureAt(ServiceFailure::OPEN_SCM);
        ScopedScHandle hService(
            ::CreateServiceW(hScm.Get(), wstrName.c_str(), wstrName.c_str(), STANDARD_RIGHTS_REQUIRED,
                             SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_IGNORE,
                             wstrBinaryPath.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        if (!hService.Get())
            return FailureAt(ServiceFailure::CREATE_SERVICE);
        return std::nullopt;
    }

    std::vector<std::wstring> EnumServiceNames(std::optional<ServiceFailure>& failure) override
    {
        std::vector<std::wstring> vecNames;
        ScopedScHandle hScm(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE));
        if (!hScm.Get()) {
            failure = FailureAt(ServiceFailure::OPEN_SCM);
            return vecNames;
        }
        DWORD dwResume = 0;
        for (;;) {
            DWORD dwNeeded = 0, dwReturned = 0;
            std::vector<BYTE> vecBuf(64 * 1024);
            const BOOL bOk = ::EnumServicesStatusExW(
                hScm.Get(), SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_STATE_ALL, vecBuf.data(),
                static_cast<DWORD>(vecBuf.size()), &dwNeeded, &dwReturned, &dwResume, nullptr);
            if (!bOk && ::GetLastError() != ERROR_MORE_DATA) {
                failure = FailureAt(ServiceFailure::ENUM_SERVICES);
                return vecNames;
            }
            const auto* pEntries = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(vecBuf.data());
            for (DWORD i = 0; i < dwReturned; ++i)
                vecNames.emplace_back(pEntries[i].lpServiceName);
            if (bOk)
                return vecNames;
        }
    }

    std::wstring QueryBinaryPath(const std::wstring& wstrName,
                                 std::optional<ServiceFailure>& failure) override
    {
        ScopedScHandle hScm(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
        if (!hScm.Get()) {
            failure = FailureAt(ServiceFailure::OPEN_SCM);
            return std::wstring();
        }
        ScopedScHandle hService(::OpenServiceW(hScm.Get(), wstrName.c_str(), SERVICE_QUERY_CONFIG));
        if (!hService.Get()) {
            failure = FailureAt(ServiceFailure::OPEN_SERVICE);
            return std::wstring();
        }
        DWORD dwNeeded = 0;
        ::QueryServiceConfigW(hService.Get(), nullptr, 0, &dwNeeded);
        std::vector<BYTE> vecBuf(dwNeeded ? dwNeeded : sizeof(QUERY_SERVICE_CONFIGW));
        auto* pConfig = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(vecBuf.data());
        if (!::QueryServiceConfigW(hService.Get(), pConfig, static_cast<DWORD>(vecBuf.size()), &dwNeeded)) {
            failure = FailureAt(ServiceFailure::QUERY_CONFIG);
            return std::wstring();
        }
        return pConfig->lpBinaryPathName ? pConfig->lpBinaryPathName : L"";
    }
};

}  // namespace

std::unique_ptr<ServiceControl> CreateSystemServiceControl()
{
    return std::make_unique<WinServiceControl>();
}

}  // namespace QZRI
