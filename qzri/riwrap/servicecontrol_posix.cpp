// Without a service control manager no agent service exists: none is listed, none can be removed or
// created.
#include "qzri/riwrap/servicecontrol.h"

namespace QZRI {
namespace {

// ERROR_SERVICE_DOES_NOT_EXIST, as the Windows manager answers for a name it does not know.
constexpr int SERVICE_DOES_NOT_EXIST = 1060;
// "Unsupported on this operating system" (QZSTD 1193): there is no manager to create a service with.
constexpr int UNSUPPORTED_ON_THIS_SYSTEM = 1193;

class NoServiceControl : public ServiceControl
{
public:
    std::optional<ServiceFailure> DeleteService(const std::wstring&) override
    {
        return ServiceFailure{ServiceFailure::OPEN_SERVICE, SERVICE_DOES_NOT_EXIST};
    }
    std::optional<ServiceFailure> CreateService(const std::wstring&, const std::wstring&) override
    {
        return ServiceFailure{ServiceFailure::OPEN_SCM, UNSUPPORTED_ON_THIS_SYSTEM};
    }
    std::vector<std::wstring> EnumServiceNames(std::optional<ServiceFailure>&) override { return {}; }
    std::wstring QueryBinaryPath(const std::wstring&, std::optional<ServiceFailure>& failure) override
    {
        failure = ServiceFailure{ServiceFailure::OPEN_SERVICE, SERVICE_DOES_NOT_EXIST};
        return std::wstring();
    }
};

}  // namespace

std::unique_ptr<ServiceControl> CreateSystemServiceControl()
{
    return std::make_unique<NoServiceControl>();
}

}  // namespace QZRI
