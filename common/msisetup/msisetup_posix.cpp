// No Windows Installer on this system: every call fails with 1193, unsupported on this operating system.
#include "common/msisetup/msisetup.h"

namespace QZRI {
namespace {

class NoWindowsInstaller : public WindowsInstaller
{
public:
    uint32_t MsiDllVersion() override { return 0; }
    std::wstring LogFolder() override { return L"/tmp/"; }
    std::wstring LocalTimeStamp() override { return L"0000-00-00-00-00-00"; }
    uint32_t EnableLog(uint32_t, const std::wstring&) override { return MSI_ERROR_NOT_SUPPORTED; }
    uint32_t SetRecordHandler(MsiMessageSink*, uint32_t) override { return MSI_ERROR_NOT_SUPPORTED; }
    void SetStringHandlerAndNoUi(MsiMessageSink*, uint32_t) override {}
    void RestoreHandlers(bool) override {}
    uint32_t InstallProduct(const std::wstring&, const std::wstring&) override
    {
        return MSI_ERROR_NOT_SUPPORTED;
    }
    uint32_t ApplyPatch(const std::wstring&, const std::wstring&) override { return MSI_ERROR_NOT_SUPPORTED; }
};

}  // namespace

std::unique_ptr<WindowsInstaller> CreateSystemWindowsInstaller()
{
    return std::make_unique<NoWindowsInstaller>();
}

}  // namespace QZRI
