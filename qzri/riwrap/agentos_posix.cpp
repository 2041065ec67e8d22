// POSIX part of the agent's operating-system layer: paths are UTF-8 on the system side.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "qzri/riwrap/agentos.h"
#include "std/error.h"
#include "std/strconv.h"

namespace QZRI {
namespace {

using QZSTD::Utf8ToWide;
using QZSTD::WideToUtf8;

bool StatPath(const std::wstring& wstrPath, struct stat& st)
{
    return !wstrPath.empty() && ::stat(WideToUtf8(wstrPath).c_str(), &st) == 0;
}

// The directory stream goes back to the system however the listing ends.
class DirStream
{
public:
    explicit DirStream(const std::string& strPath) : m_pDir(::opendir(strPath.c_str())) {}
    ~DirStream()
    {
        if (m_pDir)
            ::closedir(m_pDir);
    }
    DirStream(const DirStream&) = delete;
    DirStream& operator=(const DirStream&) = delete;
    DIR* Get() const { return m_pDir; }

private:
    DIR* m_pDir;
};

class PosixAgentOs : public AgentOs
{
public:
    std::wstring GetModuleFilePath() override
    {
        std::vector<char> vecBuf(4096);
        for (;;) {
            const ssize_t n = ::readlink("/proc/self/exe", vecBuf.data(), vecBuf.size());
            if (n < 0)
                QZ_THROW_SYSTEM();
            if (static_cast<size_t>(n) < vecBuf.size())
                return Utf8ToWide(std::string_view(vecBuf.data(), static_cast<size_t>(n)));
            vecBuf.resize(vecBuf.size() * 2);
        }
    }

    std::optional<std::wstring> GetEnvValue(const std::wstring& wstrName) override
    {
        const char* sz = std::getenv(WideToUtf8(wstrName).c_str());
        if (!sz)
            return std::nullopt;
        return Utf8ToWide(sz);
    }

    std::wstring GetTempFolder() override
    {
        const char* sz = std::getenv("TMPDIR");
        return WithTrailingSeparator(Utf8ToWide(sz && *sz ? sz : "/tmp"));
    }

    bool FileExists(const std::wstring& wstrPath) override
    {
        struct stat st
        {
        };
        return StatPath(wstrPath, st) && !S_ISDIR(st.st_mode);
    }

    bool IsWritableFolder(const std::wstring& wstrPath) override
    {
        struct stat st
        {
        };
        return StatPath(wstrPath, st) && S_ISDIR(st.st_mode) &&
               ::access(WideToUtf8(wstrPath).c_str(), W_OK | X_OK) == 0;
    }

    std::vector<std::wstring> ListFiles(const std::wstring& wstrFolder) override
    {
        std::vector<std::wstring> vecNames;
        const std::string strFolder = WideToUtf8(WithTrailingSeparator(wstrFolder));
        DirStream dir(strFolder);
        if (!dir.Get())
            return vecNames;
        while (const dirent* pEntry = ::readdir(dir.Get())) {
            struct stat st
            {
            };
            const std::string strPath = strFolder + pEntry->d_name;
            if (::stat(strPath.c_str(), &st) == 0 && S_ISREG(st.st_mode))
                vecNames.push_back(Utf8ToWide(pEntry->d_name));
        }
        return vecNames;
    }

    bool RemoveFile(const std::wstring& wstrPath) override
    {
        return ::unlink(WideToUtf8(wstrPath).c_str()) == 0 || errno == ENOENT;
    }

    std::optional<std::chrono::system_clock::time_point> GetFileArrivalTime(
        const std::wstring& wstrPath) override
    {
        struct stat st;
        if (!StatPath(wstrPath, st) || !S_ISREG(st.st_mode))
            return std::nullopt;
        return std::chrono::system_clock::from_time_t(st.st_ctime);
    }

    bool RenameFile(const std::wstring& wstrFrom, const std::wstring& wstrTo) override
    {
        return std::rename(WideToUtf8(wstrFrom).c_str(), WideToUtf8(wstrTo).c_str()) == 0;
    }
};

}  // namespace

std::unique_ptr<AgentOs> CreateSystemAgentOs()
{
    return std::make_unique<PosixAgentOs>();
}

}  // namespace QZRI
