// The impersonation scope of a thread. Windows only.
#pragma once

#include <windows.h>

namespace QZWAT {

// Records the calling thread's token on construction (the thread may already impersonate someone) and
// puts it back on destruction, or reverts to self when there was none. Impersonation is per thread, so
// whatever the scope's body impersonates never outlives it. A failure to restore is logged as
// "Cannot revert thread token !!!" and not raised (destructors do not throw).
class CImpersonationKeeper
{
public:
    CImpersonationKeeper();
    ~CImpersonationKeeper();
    CImpersonationKeeper(const CImpersonationKeeper&) = delete;
    CImpersonationKeeper& operator=(const CImpersonationKeeper&) = delete;

private:
    HANDLE m_hToken = nullptr;
};

}  // namespace QZWAT
