// Windows building blocks of the launchers (std/process and common/rilaunch). Included only by
// *_win.cpp files.
#pragma once

#include <windows.h>

#include <cstdint>

#include <string>
#include <utility>
#include <vector>

namespace QZPAR {
struct Params;
}

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

// The Unicode environment block of a child: this process's environment with the addition set over it.
std::vector<wchar_t> BuildEnvironmentBlock(QZPAR::Params* pEnvironmentAddition);

// Opens a standard stream of a child as an inheritable handle: empty means "NUL".
// bWrite: created or truncated for writing (shared for reading and writing); else opened for reading.
ScopedHandle OpenStdStream(const std::wstring& wstrFile, bool bWrite);

// The exit code of an ended process; false while it runs. System errors are raised.
bool TryGetProcessExitCode(HANDLE hProcess, uint32_t* pnExitCode);

}  // namespace QZSTD::Win
