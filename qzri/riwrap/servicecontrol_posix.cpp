// Without a service control manager no agent service exists to be removed.
#include "qzri/riwrap/servicecontrol.h"

namespace QZRI {
namespace {

// ERROR_SERVICE_DOES_NOT_EXIST, as the Windows manager answers for a name it does not know.
constexpr int SERVICE_DOES_NOT_EXIST = 1060;

class NoServiceControl : public ServiceControl
{
public:
    std::optional<ServiceFailure> DeleteService(const std::wstring&) override
    {
        return ServiceFailure{ServiceFailure::OPEN_SERVICE, SERVICE_DOES_NOT_EXIST};
    }
};

}  // namespace

std::unique_ptr<ServiceControl> CreateSystemServiceControl()
{
    return std::make_unique<NoServiceControl>();
}

}  // namespace QZRI
