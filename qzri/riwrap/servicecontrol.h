// The agent's Windows service as the service control manager keeps it. A run that ends for good, or
// that must not go on (a damaged state), removes the service so that the next boot does not start the
// agent again.
//
// Windows: the service control manager (servicecontrol_win.cpp). Other systems have no such services:
// every service there is one that does not exist (1060, ERROR_SERVICE_DOES_NOT_EXIST), and creating one
// fails with 1193, unsupported on this operating system.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QZRI {

// "QZ Deployment Wrapper" followed by the service id: the service's name and its display name.
inline constexpr const wchar_t* SERVICE_NAME_PREFIX = L"QZ Deployment Wrapper";
std::wstring ServiceNameOf(const std::wstring& wstrServiceId);

// The call that failed and the system error it gave.
struct ServiceFailure
{
    enum Step
    {
        OPEN_SCM,
        OPEN_SERVICE,
        DELETE_SERVICE,
        CREATE_SERVICE,
        ENUM_SERVICES,
        QUERY_CONFIG,
    } m_eStep;
    int m_nError;
};

class ServiceControl
{
public:
    virtual ~ServiceControl() = default;
    // Opens the service with all access (0xF01FF) and marks it for deletion; nothing when that worked.
    // A running service goes once it stops.
    virtual std::optional<ServiceFailure> DeleteService(const std::wstring& wstrName) = 0;
    // Creates a service of its own process (16) that starts automatically (2) as the local system
    // account, start errors ignored (0), named and displayed as wstrName; nothing when that worked.
    virtual std::optional<ServiceFailure> CreateService(const std::wstring& wstrName,
                                                        const std::wstring& wstrBinaryPath) = 0;
    // The names of all Win32 services, or the failure.
    virtual std::vector<std::wstring> EnumServiceNames(std::optional<ServiceFailure>& failure) = 0;
    // The binary path (the command line) of a service, or the failure.
    virtual std::wstring QueryBinaryPath(const std::wstring& wstrName,
                                         std::optional<ServiceFailure>& failure) = 0;

    // While this process runs as the agent's service: its name and how to tell the service control
    // manager that it has stopped. Removing that service reports it stopped first, so that the service
    // control manager lets it go as soon as it is deleted instead of waiting for a service that has
    // finished its work.
    void AttachOwnService(const std::wstring& wstrName, std::function<void()> fnReportStopped)
    {
        m_wstrOwnService = wstrName;
        m_fnReportOwnStopped = std::move(fnReportStopped);
    }
    void DetachOwnService() { AttachOwnService(std::wstring(), nullptr); }
    bool IsOwnService(const std::wstring& wstrName) const
    {
        return m_fnReportOwnStopped && wstrName == m_wstrOwnService;
    }
    void ReportOwnServiceStopped() const { m_fnReportOwnStopped(); }

private:
    std::wstring m_wstrOwnService;
    std::function<void()> m_fnReportOwnStopped;
};

std::unique_ptr<ServiceControl> CreateSystemServiceControl();

// Removes this run's service and traces each outcome; never throws.
void RemoveService(ServiceControl& services, const std::wstring& wstrServiceId);

}  // namespace QZRI
