// POSIX half of the whole-file services: open/read/write/fsync/rename on UTF-8 paths.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "std/error.h"
#include "std/ss/atomicfile.h"
#include "std/ss/sserrors.h"
#include "std/strconv.h"

namespace QZSTD {
namespace {

// Closes the descriptor on every path out; Release() hands the close (and its error) to the caller.
class UniqueFd
{
public:
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    int Get() const { return m_fd; }
    int Release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

int OpenNoInterrupt(const std::string& strPath, int nFlags, mode_t nMode = 0)
{
    int fd;
    do {
        fd = ::open(strPath.c_str(), nFlags | O_CLOEXEC, nMode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

[[noreturn]] void ThrowFileError(int nCode, const std::wstring& wstrPath, int nErrno)
{
    QZ_THROW(SsErr::MODULE, nCode, wstrPath, SystemErrorText(nErrno));
}

// 0 or the errno of the first failure.
int WriteAll(int fd, std::string_view svData)
{
    while (!svData.empty()) {
        const ssize_t n = ::write(fd, svData.data(), svData.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? errno : EIO;
        svData.remove_prefix(static_cast<size_t>(n));
    }
    return 0;
}

// The new file keeps the permissions of the one it replaces; a new storage gets 0644.
mode_t ModeToKeep(const std::string& strPath)
{
    struct stat st = {};
    if (::stat(strPath.c_str(), &st) == 0)
        return st.st_mode & 07777;
    return 0644;
}

// 0 or the errno: writes, flushes and closes the temporary file.
int WriteTemporary(const std::string& strTmp, std::string_view svData, mode_t nMode)
{
    UniqueFd fd(OpenNoInterrupt(strTmp, O_WRONLY | O_CREAT | O_TRUNC, nMode));
    if (fd.Get() < 0)
        return errno;
    // A temporary file left by a crashed writer keeps its old mode unless it is set again.
    struct stat st = {};
    if (::fstat(fd.Get(), &st) != 0)
        return errno;
    if (S_ISREG(st.st_mode) && (st.st_mode & 07777) != nMode && ::fchmod(fd.Get(), nMode) != 0)
        return errno;
    if (const int nErr = WriteAll(fd.Get(), svData))
        return nErr;
    // Without this the rename may reach the disk before the data: after a power loss the storage
    // would be empty instead of old or new.
    if (::fsync(fd.Get()) != 0)
        return errno;
    if (::close(fd.Release()) != 0)
        return errno;
    return 0;
}

// Makes the rename itself durable. Failures are not reported: the content is complete either way.
void SyncFolder(const std::string& strFolder)
{
    UniqueFd fd(OpenNoInterrupt(strFolder.empty() ? std::string(".") : strFolder, O_RDONLY | O_DIRECTORY));
    if (fd.Get() >= 0)
        ::fsync(fd.Get());
}

bool IsFolder(const std::string& strPath)
{
    struct stat st = {};
    return ::stat(strPath.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

bool FileExists(const std::wstring& wstrPath)
{
    struct stat st = {};
    return ::stat(WideToUtf8(wstrPath).c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

bool ReadWholeFile(const std::wstring& wstrPath, std::string& strData, size_t nMaxBytes)
{
    RegisterSettingsStorageErrors();
    strData.clear();
    UniqueFd fd(OpenNoInterrupt(WideToUtf8(wstrPath), O_RDONLY));
    if (fd.Get() < 0) {
        if (errno == ENOENT)
            return false;
        ThrowFileError(SsErr::READ_FAILED, wstrPath, errno);
    }
    struct stat st = {};
    if (::fstat(fd.Get(), &st) != 0)
        ThrowFileError(SsErr::READ_FAILED, wstrPath, errno);
    if (S_ISDIR(st.st_mode))
        ThrowFileError(SsErr::READ_FAILED, wstrPath, EISDIR);
    if (static_cast<unsigned long long>(st.st_size) > nMaxBytes)
        QZ_THROW(SsErr::MODULE, SsErr::TOO_LARGE, wstrPath, static_cast<long long>(st.st_size),
                 static_cast<unsigned long>(nMaxBytes));
    // Read to the end rather than trusting st_size: the size is only a hint for the buffer.
    strData.reserve(static_cast<size_t>(st.st_size));
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            ThrowFileError(SsErr::READ_FAILED, wstrPath, errno);
        if (n == 0)
            return true;
        if (strData.size() + static_cast<size_t>(n) > nMaxBytes)
            QZ_THROW(SsErr::MODULE, SsErr::TOO_LARGE, wstrPath,
                     static_cast<unsigned long>(strData.size() + n), static_cast<unsigned long>(nMaxBytes));
        strData.append(buf, static_cast<size_t>(n));
    }
}

void ReplaceFileContent(const std::wstring& wstrPath, std::string_view svData)
{
    RegisterSettingsStorageErrors();
    const std::string strPath = WideToUtf8(wstrPath);
    const std::wstring wstrTmp = TemporaryPathOf(wstrPath);
    const std::string strTmp = WideToUtf8(wstrTmp);
    if (const int nErr = WriteTemporary(strTmp, svData, ModeToKeep(strPath))) {
        ::unlink(strTmp.c_str());
        ThrowFileError(SsErr::WRITE_FAILED, wstrTmp, nErr);
    }
    if (::rename(strTmp.c_str(), strPath.c_str()) != 0) {
        const int nErr = errno;
        ::unlink(strTmp.c_str());
        QZ_THROW(SsErr::MODULE, SsErr::REPLACE_FAILED, wstrPath, wstrTmp, SystemErrorText(nErr));
    }
    SyncFolder(WideToUtf8(ParentFolderOf(wstrPath)));
}

std::wstring ParentFolderOf(const std::wstring& wstrPath)
{
    const size_t nSlash = wstrPath.find_last_of(L'/');
    if (nSlash == std::wstring::npos)
        return L"";
    // The parent of "/x" is the root itself.
    return nSlash == 0 ? std::wstring(L"/") : wstrPath.substr(0, nSlash);
}

void CreateFolderChain(const std::wstring& wstrFolder)
{
    RegisterSettingsStorageErrors();
    const std::string strFolder = WideToUtf8(wstrFolder);
    if (strFolder.empty() || IsFolder(strFolder))
        return;
    const std::wstring wstrParent = ParentFolderOf(wstrFolder);
    if (wstrParent != wstrFolder)
        CreateFolderChain(wstrParent);
    // Another process may create it at the same moment: EEXIST is success.
    if (::mkdir(strFolder.c_str(), 0755) != 0 && !(errno == EEXIST && IsFolder(strFolder)))
        ThrowFileError(SsErr::CREATE_FOLDER_FAILED, wstrFolder, errno);
}

}  // namespace QZSTD
