// Portable part of the trace: filtering, line building and the serialised file writes. The platform
// files supply the file opening, the clock and the process and thread ids.
#include "std/trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "std/error.h"
#include "std/failfast.h"
#include "std/strconv.h"
#include "std/wformat.h"

namespace QZSTD {

// Platform part (trace_win.cpp / trace_posix.cpp).
std::FILE* TraceOpenFile(const std::wstring& wstrPath, bool bAppend) noexcept;
void TraceLocalTime(std::tm& tmNow, int& nMillis) noexcept;
unsigned long TraceProcessId() noexcept;
unsigned long TraceThreadId() noexcept;
const char* TraceLineEnd() noexcept;

namespace {

struct TraceFile
{
    std::timed_mutex mtx;
    std::FILE* pFile = nullptr;
};

// Never destroyed: static destructors and fail-fast may still write while the process ends.
TraceFile& TheTrace()
{
    static TraceFile* p = new TraceFile;
    return *p;
}

// 0 while no trace is open, so that TraceIsEnabled is the only cost of a dropped line.
std::atomic<int> g_nMaxLevel{0};

TraceLevel ClampLevel(TraceLevel level)
{
    if (level < TL_ERROR)
        return TL_ERROR;
    return level > TL_DEBUG ? TL_DEBUG : level;
}

char LevelLetter(TraceLevel level)
{
    static constexpr char kLetters[] = {'E', 'W', 'I', 'D'};
    return kLetters[ClampLevel(level) - TL_ERROR];
}

// "2026-11-22 05:42:01.123 [1234:5678] QZRIWRP I "
std::string LinePrefix(const char* szModule, TraceLevel level)
{
    std::tm tmNow{};
    int nMillis = 0;
    TraceLocalTime(tmNow, nMillis);
    char buf[96];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d.%03d [%lu:%lu] ", tmNow.tm_year + 1900,
                  tmNow.tm_mon + 1, tmNow.tm_mday, tmNow.tm_hour, tmNow.tm_min, tmNow.tm_sec, nMillis,
                  TraceProcessId(), TraceThreadId());
    std::string str = buf;
    str += (szModule && *szModule) ? szModule : "-";
    str += ' ';
    str += LevelLetter(level);
    str += ' ';
    return str;
}

// The text as prefixed lines: one trailing line break belongs to the format and is dropped.
std::string BuildRecord(const char* szModule, TraceLevel level, std::wstring_view wstrText)
{
    if (!wstrText.empty() && wstrText.back() == L'\n')
        wstrText.remove_suffix(1);
    if (!wstrText.empty() && wstrText.back() == L'\r')
        wstrText.remove_suffix(1);
    const std::string strPrefix = LinePrefix(szModule, level);
    std::string strRecord;
    for (;;) {
        const size_t nEnd = wstrText.find(L'\n');
        std::wstring_view wstrLine = wstrText.substr(0, nEnd);
        if (!wstrLine.empty() && wstrLine.back() == L'\r')
            wstrLine.remove_suffix(1);
        strRecord += strPrefix;
        strRecord += WideToUtf8(wstrLine);
        strRecord += TraceLineEnd();
        if (nEnd == std::wstring_view::npos)
            return strRecord;
        wstrText.remove_prefix(nEnd + 1);
    }
}

// A failed write is forgotten (clearerr) so that the next line is tried again once space is back.
void WriteLocked(TraceFile& t, const std::string& strRecord)
{
    if (!t.pFile)
        return;
    if (std::fwrite(strRecord.data(), 1, strRecord.size(), t.pFile) != strRecord.size() ||
        std::fflush(t.pFile) != 0)
        std::clearerr(t.pFile);
}

void WriteRecord(const char* szModule, TraceLevel level, std::wstring_view wstrText)
{
    const std::string strRecord = BuildRecord(szModule, level, wstrText);
    TraceFile& t = TheTrace();
    std::lock_guard g(t.mtx);
    WriteLocked(t, strRecord);
}

// Runs just before a fail-fast ends the process. It waits only briefly for the lock: the thread that
// holds it may be the one that is failing.
void TraceFailFast(const char* szWhat)
{
    try {
        if (!TraceIsEnabled(TL_ERROR))
            return;
        const std::string strRecord = BuildRecord("QZSTD", TL_ERROR, L"Fail-fast: " + Utf8ToWide(szWhat));
        TraceFile& t = TheTrace();
        if (!t.mtx.try_lock_for(std::chrono::milliseconds(500)))
            return;
        WriteLocked(t, strRecord);
        t.mtx.unlock();
    } catch (...) {
    }
}

std::string DescribeException(const std::exception& e)
{
    if (const QZError* pErr = dynamic_cast<const QZError*>(&e))
        return WideToUtf8(pErr->Describe());
    return e.what();
}

}  // namespace

bool TraceOpen(const std::wstring& wstrPath, TraceLevel maxLevel, bool bAppend) noexcept
{
    try {
        TraceFile& t = TheTrace();
        std::FILE* pNew = nullptr;
        {
            // The old file is closed first: on Windows it denies the write access that reopening the
            // same path needs.
            std::lock_guard g(t.mtx);
            g_nMaxLevel.store(0);
            if (t.pFile)
                std::fclose(t.pFile);
            t.pFile = pNew = wstrPath.empty() ? nullptr : TraceOpenFile(wstrPath, bAppend);
            g_nMaxLevel.store(pNew ? static_cast<int>(maxLevel) : 0);
        }
        if (pNew)
            SetFailFastHook(&TraceFailFast);
        return pNew != nullptr;
    } catch (...) {
        return false;
    }
}

void TraceClose() noexcept
{
    try {
        TraceFile& t = TheTrace();
        std::lock_guard g(t.mtx);
        g_nMaxLevel.store(0);
        if (t.pFile)
            std::fclose(t.pFile);
        t.pFile = nullptr;
    } catch (...) {
    }
}

bool TraceIsOpen() noexcept
{
    try {
        TraceFile& t = TheTrace();
        std::lock_guard g(t.mtx);
        return t.pFile != nullptr;
    } catch (...) {
        return false;
    }
}

bool TraceIsEnabled(TraceLevel level) noexcept
{
    return ClampLevel(level) <= g_nMaxLevel.load(std::memory_order_relaxed);
}

void TraceFormatC(const char* szModule, TraceLevel level, const wchar_t* szFormat, ...) noexcept
{
    if (!TraceIsEnabled(level))
        return;
    va_list args;
    va_start(args, szFormat);
    try {
        WriteRecord(szModule, level, FormatWV(szFormat ? szFormat : L"", args));
    } catch (...) {
    }
    va_end(args);
}

void TraceLines(const char* szModule, TraceLevel level, const std::wstring& wstrText) noexcept
{
    if (!TraceIsEnabled(level))
        return;
    try {
        WriteRecord(szModule, level, wstrText);
    } catch (...) {
    }
}

void TraceException(const char* szModule, TraceLevel level, const char* szScope,
                    const std::exception& e) noexcept
{
    if (!TraceIsEnabled(level))
        return;
    try {
        TraceFormatC(szModule, level, L"%hs: %hs", szScope ? szScope : "", DescribeException(e).c_str());
    } catch (...) {
    }
}

TraceScope::TraceScope(const char* szModule, const char* szName, bool bEnterLeave) noexcept
    : m_szModule(szModule), m_szName(szName ? szName : "")
{
    if (!bEnterLeave || !TraceIsEnabled(TL_DEBUG))
        return;
    m_bEnterWritten = true;
    m_tpStart = std::chrono::steady_clock::now();
    TraceFormatC(m_szModule, TL_DEBUG, L"%hs: Enter.", m_szName);
}

TraceScope::~TraceScope()
{
    if (!m_bEnterWritten)
        return;
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_tpStart);
    TraceFormatC(m_szModule, TL_DEBUG, L"%hs: Leave (%lld ms).", m_szName,
                 static_cast<long long>(ms.count()));
}

}  // namespace QZSTD
