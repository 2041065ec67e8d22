// The scoped handle of the Windows code: every kernel handle a *_win.cpp file opens is owned by one, so
// that no error path can leak it. Included only by *_win.cpp files.
#pragma once

#include <windows.h>

#include <utility>

namespace QZSTD::Win {

// Owns a kernel handle (null and INVALID_HANDLE_VALUE both mean none). Closing keeps GetLastError()
// as it was, so an error path can close its handles and still raise the error of the call that failed.
class ScopedHandle
{
public:
    ScopedHandle() = default;
    explicit ScopedHandle(HANDLE h) : m_h(h) {}
    ScopedHandle(ScopedHandle&& o) noexcept : m_h(std::exchange(o.m_h, nullptr)) {}
    ScopedHandle& operator=(ScopedHandle&& o) noexcept
    {
        if (this != &o)
            Reset(std::exchange(o.m_h, nullptr));
        return *this;
    }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;
    ~ScopedHandle() { Reset(); }

    void Reset(HANDLE h = nullptr)
    {
        if (IsValid()) {
            const DWORD dwErr = ::GetLastError();
            ::CloseHandle(m_h);
            ::SetLastError(dwErr);
        }
        m_h = h;
    }
    HANDLE Get() const { return m_h; }
    HANDLE Release() { return std::exchange(m_h, nullptr); }
    bool IsValid() const { return m_h != nullptr && m_h != INVALID_HANDLE_VALUE; }

private:
    HANDLE m_h = nullptr;
};

}  // namespace QZSTD::Win
