// No desktop shell here: a package's file to open after the installation is not opened.
#include "qzri/riwrap/driverservices.h"
#include "std/error.h"
#include "std/trace.h"

namespace QZRI {
namespace {

class NoShellOpener : public ShellOpener
{
public:
    int Open(const std::wstring&, const std::wstring& wstrFile, const std::wstring&,
             const std::wstring&) override
    {
        QZ_TRACE_SCOPE("QZRI", "QZRI::ShellOpener::Open");
        QZ_TRACE_W(L"%hs: Opening '%ls' through the shell is unsupported on this operating system.\n",
                   QZ_SCOPE_NAME, wstrFile);
        return QZSTD::Err::UNSUPPORTED;
    }
};

}  // namespace

std::unique_ptr<ShellOpener> CreateSystemShellOpener()
{
    return std::make_unique<NoShellOpener>();
}

}  // namespace QZRI
