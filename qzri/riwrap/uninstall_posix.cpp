// No Windows Installer here: every question is answered with 1193, unsupported on this operating system.
#include "qzri/riwrap/uninstall.h"

namespace QZRI {

namespace {

class NoMsiProducts : public MsiProducts
{
public:
    uint32_t EnumRelatedProducts(const std::wstring&, uint32_t, std::wstring&) override
    {
        return QZSTD::Err::UNSUPPORTED;
    }
    uint32_t RemoveProduct(const std::wstring&, const std::wstring&) override
    {
        return QZSTD::Err::UNSUPPORTED;
    }
};

}  // namespace

std::unique_ptr<MsiProducts> CreateSystemMsiProducts()
{
    return std::make_unique<NoMsiProducts>();
}

}  // namespace QZRI
