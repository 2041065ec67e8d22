// The agent's trace: one UTF-8 text file of timestamped lines that every module writes through.
//
// A line reads (fields separated by single spaces, see docs/trace-format.md):
//   2026-11-22 05:42:01.123 [1234:5678] QZRIWRP I RiWrpData::Initialize: m_eAct set to 0 (0)
// local time with milliseconds, [process id:thread id], module, level letter (E W I D), text.
//
// Usage inside a routine:
//   QZ_TRACE_SCOPE("QZRIWRP", "RiWrpData::Initialize");
//   QZ_TRACE_I(L"%hs: Command line: %ls\n", QZ_SCOPE_NAME, wstrCmd);
//   try { ... } catch (const QZSTD::QZError& e) { QZ_TRACE_EXCEPTION(e); }
// Formats are wide printf formats with the Windows meaning of the string conversions on every
// platform ("%hs" narrow UTF-8, "%ls" and "%s" wide; see std/wformat.h). std::wstring and std::string
// arguments may be passed as they are.
//
// The trace never stops the agent: nothing here throws, a file that cannot be opened makes TraceOpen
// return false, and a write that fails (full disk) is dropped. Every line is flushed at once, so a
// crash loses nothing that was written before it. Writes from any thread are serialised; one call
// writes all its lines together.
#pragma once

#include <chrono>
#include <exception>
#include <string>
#include <type_traits>

namespace QZSTD {

enum TraceLevel : int
{
    TL_ERROR = 1,
    TL_WARNING = 2,
    TL_INFO = 3,
    TL_DEBUG = 4,
};

// Opens (bAppend: appends to, else truncates) the trace file; lines above maxLevel are dropped.
// A trace already open is closed first. On failure no trace is open and false is returned. The file is
// not handed down to child processes; on Windows others may read it while it is written.
bool TraceOpen(const std::wstring& wstrPath, TraceLevel maxLevel, bool bAppend) noexcept;
void TraceClose() noexcept;
bool TraceIsOpen() noexcept;
// True when a line of this level would be written; false whenever no trace is open. One atomic load.
bool TraceIsEnabled(TraceLevel level) noexcept;

// Writes formatted text. One trailing "\n" is dropped; every other "\n" (or "\r\n") starts a new line
// with the same prefix. Levels outside TL_ERROR..TL_DEBUG are taken as the nearest of them.
void TraceFormatC(const char* szModule, TraceLevel level, const wchar_t* szFormat, ...) noexcept;

// Writes text as it stands (no format), one line per line of the text: for dumps of files, command
// output or ini contents, which may hold '%'.
void TraceLines(const char* szModule, TraceLevel level, const std::wstring& wstrText) noexcept;

// Writes "<scope>: <description>", where the description of a QZError is its Describe() text and that
// of any other exception its what() text.
void TraceException(const char* szModule, TraceLevel level, const char* szScope,
                    const std::exception& e) noexcept;

namespace TraceArgs {
// Strings travel through the C variable argument list as pointers; other arguments as they are.
inline const wchar_t* Pass(const std::wstring& wstr) noexcept
{
    return wstr.c_str();
}
inline const char* Pass(const std::string& str) noexcept
{
    return str.c_str();
}
template <class T>
concept PassedAsIs = std::is_scalar_v<std::decay_t<const T>>;
template <PassedAsIs T>
std::decay_t<const T> Pass(const T& v) noexcept
{
    return v;
}
}  // namespace TraceArgs

// Type-checked front end of TraceFormatC: a class argument other than the two string types does not
// compile instead of corrupting the argument list.
template <class... A>
void Trace(const char* szModule, TraceLevel level, const wchar_t* szFormat, const A&... args) noexcept
{
    if (TraceIsEnabled(level))
        TraceFormatC(szModule, level, szFormat, TraceArgs::Pass(args)...);
}

// The trace scope of a routine: carries the module and the qualified routine name for the lines written
// in it. With bEnterLeave it also writes "<name>: Enter." and "<name>: Leave (<n> ms)." at debug level.
// Both strings must outlive the scope (they are normally literals).
class TraceScope
{
public:
    TraceScope(const char* szModule, const char* szName, bool bEnterLeave = false) noexcept;
    ~TraceScope();
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

    const char* Module() const noexcept { return m_szModule; }
    const char* Name() const noexcept { return m_szName; }

private:
    const char* m_szModule;
    const char* m_szName;
    bool m_bEnterWritten = false;
    std::chrono::steady_clock::time_point m_tpStart;
};

}  // namespace QZSTD

// Declares the scope of the enclosing routine; one per block.
#define QZ_TRACE_SCOPE(module, name) ::QZSTD::TraceScope qzTraceScope((module), (name))
// The same, also writing enter and leave lines with the elapsed time at debug level.
#define QZ_TRACE_SCOPE_TIMED(module, name) ::QZSTD::TraceScope qzTraceScope((module), (name), true)
// The qualified routine name of the scope, for the "%hs: " that begins the routine's trace texts.
#define QZ_SCOPE_NAME (qzTraceScope.Name())

// Writes in the module of the enclosing scope. The arguments are not evaluated when the level is off.
#define QZ_TRACE(level, ...)                                             \
    do {                                                                 \
        if (::QZSTD::TraceIsEnabled(level))                              \
            ::QZSTD::Trace(qzTraceScope.Module(), (level), __VA_ARGS__); \
    } while (0)
#define QZ_TRACE_E(...) QZ_TRACE(::QZSTD::TL_ERROR, __VA_ARGS__)
#define QZ_TRACE_W(...) QZ_TRACE(::QZSTD::TL_WARNING, __VA_ARGS__)
#define QZ_TRACE_I(...) QZ_TRACE(::QZSTD::TL_INFO, __VA_ARGS__)
#define QZ_TRACE_D(...) QZ_TRACE(::QZSTD::TL_DEBUG, __VA_ARGS__)

// A caught exception as an error line ("<scope>: #1187 (QZSTD) ..."), or at another level.
#define QZ_TRACE_EXCEPTION(e) \
    ::QZSTD::TraceException(qzTraceScope.Module(), ::QZSTD::TL_ERROR, qzTraceScope.Name(), (e))
#define QZ_TRACE_EXCEPTION_AT(level, e) \
    ::QZSTD::TraceException(qzTraceScope.Module(), (level), qzTraceScope.Name(), (e))
// Multi-line text without format interpretation, in the module of the scope.
#define QZ_TRACE_LINES(level, text) ::QZSTD::TraceLines(qzTraceScope.Module(), (level), (text))
