#include "common/impersonation.h"

#include "std/trace.h"

namespace QZWAT {

CImpersonationKeeper::CImpersonationKeeper()
{
    // ERROR_NO_TOKEN: the thread runs as the process; anything else leaves no token to restore either.
    if (!::OpenThreadToken(::GetCurrentThread(), TOKEN_IMPERSONATE | TOKEN_QUERY | TOKEN_DUPLICATE, TRUE,
                           &m_hToken))
        m_hToken = nullptr;
}

CImpersonationKeeper::~CImpersonationKeeper()
{
    QZ_TRACE_SCOPE("QZSTD", "QZWAT::CImpersonationKeeper::~CImpersonationKeeper");
    const DWORD dwErr = ::GetLastError();
    const BOOL bOk = m_hToken ? ::SetThreadToken(nullptr, m_hToken) : ::RevertToSelf();
    if (!bOk)
        QZ_TRACE_E(L"Cannot revert thread token !!!\n");
    if (m_hToken)
        ::CloseHandle(m_hToken);
    ::SetLastError(dwErr);
}

}  // namespace QZWAT
