// The shell's "open" through ShellExecuteW.
#include <objbase.h>
#include <shellapi.h>
#include <windows.h>

#include "qzri/riwrap/driverservices.h"

namespace QZRI {
namespace {

class WinShellOpener : public ShellOpener
{
public:
    int Open(const std::wstring& wstrVerb, const std::wstring& wstrFile, const std::wstring& wstrParams,
             const std::wstring& wstrFolder) override
    {
        // A file association may be a shell extension that is activated through COM.
        const HRESULT hrCom = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
        const HINSTANCE hResult = ::ShellExecuteW(
            nullptr, wstrVerb.c_str(), wstrFile.c_str(), wstrParams.empty() ? nullptr : wstrParams.c_str(),
            wstrFolder.empty() ? nullptr : wstrFolder.c_str(), SW_SHOWNORMAL);
        // Above 32 is success; otherwise the value is an error code of its own (SE_ERR_*), and the
        // thread's last error, when set, says more.
        const INT_PTR nResult = reinterpret_cast<INT_PTR>(hResult);
        const DWORD dwError = nResult > 32 ? 0 : ::GetLastError();
        if (SUCCEEDED(hrCom))
            ::CoUninitialize();
        if (nResult > 32)
            return 0;
        return dwError != 0 ? static_cast<int>(dwError) : static_cast<int>(nResult);
    }
};

}  // namespace

std::unique_ptr<ShellOpener> CreateSystemShellOpener()
{
    return std::make_unique<WinShellOpener>();
}

}  // namespace QZRI
