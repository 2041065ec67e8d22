// No registry on Linux means empty: every value is missing.
#include "common/registry.h"

namespace QZRI {

namespace {

class NoRegistry : public Registry
{
public:
    bool ReadLocalMachineString(const std::wstring&, const std::wstring&, std::wstring&,
                                RegistryView) override
    {
        return false;
    }
};

}  // namespace

Registry& SystemRegistry()
{
    static NoRegistry s_registry;
    return s_registry;
}

}  // namespace QZRI
