// Win32 part of the agent's operating-system layer.
#include <windows.h>

#include <cstdint>
#include <vector>

#include "qzri/riwrap/agentos.h"
#include "std/error.h"

namespace QZRI {
namespace {

// A find handle goes back to the system however the listing ends.
class FindHandle
{
public:
    explicit FindHandle(HANDLE h) : m_h(h) {}
    ~FindHandle()
    {
        if (m_h != INVALID_HANDLE_VALUE)
            FindClose(m_h);
    }
    FindHandle(const FindHandle&) = delete;
    FindHandle& operator=(const FindHandle&) = delete;
    HANDLE Get() const { return m_h; }

private:
    HANDLE m_h;
};

DWORD Attributes(const std::wstring& wstrPath)
{
    return wstrPath.empty() ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(wstrPath.c_str());
}

class WinAgentOs : public AgentOs
{
public:
    std::wstring GetModuleFilePath() override
    {
        std::vector<wchar_t> vecBuf(MAX_PATH);
        for (;;) {
            const DWORD n = GetModuleFileNameW(nullptr, vecBuf.data(), static_cast<DWORD>(vecBuf.size()));
            if (n == 0)
                QZ_THROW_SYSTEM();
            // A path that does not fit is cut and the call reports the buffer size.
            if (n < vecBuf.size())
                return std::wstring(vecBuf.data(), n);
            vecBuf.resize(vecBuf.size() * 2);
        }
    }

    std::optional<std::wstring> GetEnvValue(const std::wstring& wstrName) override
    {
        SetLastError(ERROR_SUCCESS);
        const DWORD nSize = GetEnvironmentVariableW(wstrName.c_str(), nullptr, 0);
        if (nSize == 0)
            return GetLastError() == ERROR_ENVVAR_NOT_FOUND ? std::nullopt
                                                            : std::optional<std::wstring>(std::wstring());
        std::vector<wchar_t> vecBuf(nSize);
        const DWORD n = GetEnvironmentVariableW(wstrName.c_str(), vecBuf.data(), nSize);
        return std::wstring(vecBuf.data(), n < nSize ? n : 0);
    }

    std::wstring GetTempFolder() override
    {
        wchar_t szBuf[MAX_PATH + 1] = {};
        const DWORD n = GetTempPathW(MAX_PATH + 1, szBuf);
        if (n == 0 || n > MAX_PATH)
            QZ_THROW_SYSTEM();
        return WithTrailingSeparator(std::wstring(szBuf, n));
    }

    bool FileExists(const std::wstring& wstrPath) override
    {
        const DWORD nAttr = Attributes(wstrPath);
        return nAttr != INVALID_FILE_ATTRIBUTES && !(nAttr & FILE_ATTRIBUTE_DIRECTORY);
    }

    // The read-only attribute means nothing on folders and access rights are hard to judge from
    // outside, so the folder is tried: a temporary file is created there and removed again.
    bool IsWritableFolder(const std::wstring& wstrPath) override
    {
        const DWORD nAttr = Attributes(wstrPath);
        if (nAttr == INVALID_FILE_ATTRIBUTES || !(nAttr & FILE_ATTRIBUTE_DIRECTORY))
            return false;
        wchar_t szProbe[MAX_PATH + 1] = {};
        if (!GetTempFileNameW(wstrPath.c_str(), L"qzr", 0, szProbe))
            return false;
        DeleteFileW(szProbe);
        return true;
    }

    std::vector<std::wstring> ListFiles(const std::wstring& wstrFolder) override
    {
        std::vector<std::wstring> vecNames;
        WIN32_FIND_DATAW fd{};
        FindHandle find(FindFirstFileW((WithTrailingSeparator(wstrFolder) + L"*").c_str(), &fd));
        if (find.Get() == INVALID_HANDLE_VALUE)
            return vecNames;
        do {
            if (!(fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
                vecNames.push_back(fd.cFileName);
        } while (FindNextFileW(find.Get(), &fd));
        return vecNames;
    }

    bool RemoveFile(const std::wstring& wstrPath) override
    {
        if (DeleteFileW(wstrPath.c_str()))
            return true;
        const DWORD nErr = GetLastError();
        return nErr == ERROR_FILE_NOT_FOUND || nErr == ERROR_PATH_NOT_FOUND;
    }

    bool RenameFile(const std::wstring& wstrFrom, const std::wstring& wstrTo) override
    {
        return MoveFileExW(wstrFrom.c_str(), wstrTo.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
    }

    std::optional<std::chrono::system_clock::time_point> GetFileArrivalTime(
        const std::wstring& wstrPath) override
    {
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        if (wstrPath.empty() || !GetFileAttributesExW(wstrPath.c_str(), GetFileExInfoStandard, &data) ||
            (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            return std::nullopt;
        // FILETIME counts 100 ns steps since 1601; the system clock's epoch is 1970.
        const uint64_t nTicks = (static_cast<uint64_t>(data.ftCreationTime.dwHighDateTime) << 32) |
                                data.ftCreationTime.dwLowDateTime;
        constexpr uint64_t EPOCH_DIFFERENCE_SECONDS = 11644473600ULL;
        const int64_t nSeconds =
            static_cast<int64_t>(nTicks / 10000000ULL) - static_cast<int64_t>(EPOCH_DIFFERENCE_SECONDS);
        return std::chrono::system_clock::time_point(std::chrono::seconds(nSeconds));
    }
};

}  // namespace

std::unique_ptr<AgentOs> CreateSystemAgentOs()
{
    return std::make_unique<WinAgentOs>();
}

}  // namespace QZRI
