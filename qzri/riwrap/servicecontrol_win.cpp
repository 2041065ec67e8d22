// The service control manager's side of the agent's service.
#include <windows.h>

#include "qzri/riwrap/servicecontrol.h"

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
};

}  // namespace

std::unique_ptr<ServiceControl> CreateSystemServiceControl()
{
    return std::make_unique<WinServiceControl>();
}

}  // namespace QZRI
