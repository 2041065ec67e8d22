// The system's data protection, machine scope.
#include <windows.h>

#include <dpapi.h>

#include "std/error.h"
#include "std/pwdstore.h"

namespace QZSTD {
namespace {

std::string Run(bool bProtect, std::string_view svIn)
{
    DATA_BLOB in{static_cast<DWORD>(svIn.size()), reinterpret_cast<BYTE*>(const_cast<char*>(svIn.data()))};
    DATA_BLOB out{};
    const DWORD dwFlags = CRYPTPROTECT_LOCAL_MACHINE | CRYPTPROTECT_UI_FORBIDDEN;
    const BOOL bOk = bProtect ? ::CryptProtectData(&in, L"qz", nullptr, nullptr, nullptr, dwFlags, &out)
                              : ::CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, dwFlags, &out);
    if (!bOk) {
        if (bProtect)
            QZ_THROW_SYSTEM();
        QZ_THROW_STD(Err::BAD_PARAM, "protected data");
    }
    std::string str(reinterpret_cast<const char*>(out.pbData), out.cbData);
    ::SecureZeroMemory(out.pbData, out.cbData);
    ::LocalFree(out.pbData);
    return str;
}

}  // namespace

std::string ProtectData(std::string_view svClear)
{
    return Run(true, svClear);
}

std::string UnprotectData(std::string_view svProtected)
{
    return Run(false, svProtected);
}

}  // namespace QZSTD
