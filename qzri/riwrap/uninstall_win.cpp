// Windows Installer's product database through msi.dll.
#include <windows.h>

#include <msi.h>

#include "qzri/riwrap/uninstall.h"

namespace QZRI {

namespace {

class SystemMsiProducts : public MsiProducts
{
public:
    uint32_t EnumRelatedProducts(const std::wstring& wstrUpgradeCode, uint32_t nIndex,
                                 std::wstring& wstrProductCode) override
    {
        // A product code is a GUID in braces: 38 characters and the null.
        wchar_t szProduct[39] = {};
        const UINT nError = ::MsiEnumRelatedProductsW(wstrUpgradeCode.c_str(), 0, nIndex, szProduct);
        if (nError == ERROR_SUCCESS)
            wstrProductCode = szProduct;
        return nError;
    }
    uint32_t RemoveProduct(const std::wstring& wstrProductCode, const std::wstring& wstrCmdLine) override
    {
        return ::MsiConfigureProductExW(wstrProductCode.c_str(), INSTALLLEVEL_DEFAULT, INSTALLSTATE_ABSENT,
                                        wstrCmdLine.c_str());
    }
};

}  // namespace

std::unique_ptr<MsiProducts> CreateSystemMsiProducts()
{
    return std::make_unique<SystemMsiProducts>();
}

}  // namespace QZRI
