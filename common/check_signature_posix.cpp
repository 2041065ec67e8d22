// No Authenticode here: a signature cannot be checked, so no file passes (QZSTD 1193, unsupported on
// this operating system). Answering true would run unchecked programs.
#include "common/check_signature.h"
#include "std/error.h"
#include "std/trace.h"

namespace QZSIGNATURES {

bool CheckQZSignatures(const std::wstring& szwExecuteFilePath)
{
    QZ_TRACE_SCOPE("QZRI", "QZSIGNATURES::CheckQZSignatures");
    QZ_TRACE_I(L"QZSIGNATURES::CheckQZSignatures szwExecuteFilePath  - '%ls'\n", szwExecuteFilePath);
    QZ_TRACE_E(
        L"%hs: #%d (%hs) Signature checks are unsupported on this operating system; '%ls' is not "
        L"accepted.\n",
        QZ_SCOPE_NAME, QZSTD::Err::UNSUPPORTED, QZSTD::Err::MODULE, szwExecuteFilePath);
    QZ_TRACE_E(L"bRes = %d.\n", 0);
    return false;
}

}  // namespace QZSIGNATURES
