// Windows half of the whole-file services: CreateFileW/ReadFile/WriteFile/FlushFileBuffers and
// MoveFileExW on UTF-16 paths.
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "std/error.h"
#include "std/ss/atomicfile.h"
#include "std/ss/sserrors.h"

namespace QZSTD {
namespace {

// A virus scanner or an indexer may hold the file for a moment; the replace waits for it this long.
constexpr int REPLACE_ATTEMPTS = 40;
constexpr std::chrono::milliseconds REPLACE_PAUSE{50};
// WriteFile and ReadFile take DWORD sizes.
constexpr size_t IO_CHUNK = 1u << 20;

// Closes the handle on every path out, keeping GetLastError() for the caller's report.
class UniqueHandle
{
public:
    explicit UniqueHandle(HANDLE h) : m_h(h) {}
    ~UniqueHandle()
    {
        if (IsValid()) {
            const DWORD dwError = GetLastError();
            CloseHandle(m_h);
            SetLastError(dwError);
        }
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    HANDLE Get() const { return m_h; }
    bool IsValid() const { return m_h != INVALID_HANDLE_VALUE && m_h != nullptr; }
    // False (with GetLastError) when closing reports a failure.
    bool Close() { return CloseHandle(std::exchange(m_h, INVALID_HANDLE_VALUE)) != 0; }

private:
    HANDLE m_h;
};

[[noreturn]] void ThrowFileError(int nCode, const std::wstring& wstrPath, DWORD dwError)
{
    QZ_THROW(SsErr::MODULE, nCode, wstrPath, SystemErrorText(static_cast<int>(dwError)));
}

bool IsFolder(const std::wstring& wstrPath)
{
    const DWORD dwAttributes = GetFileAttributesW(wstrPath.c_str());
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// ERROR_SUCCESS or the error of the first failure: writes, flushes and closes the temporary file.
DWORD WriteTemporary(const std::wstring& wstrTmp, std::string_view svData)
{
    UniqueHandle h(CreateFileW(wstrTmp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!h.IsValid())
        return GetLastError();
    while (!svData.empty()) {
        const DWORD dwChunk = static_cast<DWORD>(std::min(svData.size(), IO_CHUNK));
        DWORD dwWritten = 0;
        if (!WriteFile(h.Get(), svData.data(), dwChunk, &dwWritten, nullptr))
            return GetLastError();
        if (dwWritten == 0)
            return ERROR_WRITE_FAULT;
        svData.remove_prefix(dwWritten);
    }
    // Without this the move may reach the disk before the data: after a power loss the storage
    // would be empty instead of old or new.
    if (!FlushFileBuffers(h.Get()))
        return GetLastError();
    if (!h.Close())
        return GetLastError();
    return ERROR_SUCCESS;
}

bool IsTransientReplaceError(DWORD dwError)
{
    return dwError == ERROR_ACCESS_DENIED || dwError == ERROR_SHARING_VIOLATION ||
           dwError == ERROR_LOCK_VIOLATION;
}

// ERROR_SUCCESS or the error of the last attempt.
DWORD MoveOver(const std::wstring& wstrTmp, const std::wstring& wstrPath)
{
    DWORD dwError = ERROR_SUCCESS;
    for (int i = 0; i < REPLACE_ATTEMPTS; ++i) {
        if (MoveFileExW(wstrTmp.c_str(), wstrPath.c_str(),
                        MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return ERROR_SUCCESS;
        dwError = GetLastError();
        if (!IsTransientReplaceError(dwError))
            break;
        std::this_thread::sleep_for(REPLACE_PAUSE);
    }
    return dwError;
}

}  // namespace

bool FileExists(const std::wstring& wstrPath)
{
    const DWORD dwAttributes = GetFileAttributesW(wstrPath.c_str());
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool ReadWholeFile(const std::wstring& wstrPath, std::string& strData, size_t nMaxBytes)
{
    RegisterSettingsStorageErrors();
    strData.clear();
    // Sharing delete as well: a writer may replace the file while this handle is open.
    UniqueHandle h(CreateFileW(wstrPath.c_str(), GENERIC_READ,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!h.IsValid()) {
        const DWORD dwError = GetLastError();
        if (dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND)
            return false;
        ThrowFileError(SsErr::READ_FAILED, wstrPath, dwError);
    }
    LARGE_INTEGER liSize = {};
    if (!GetFileSizeEx(h.Get(), &liSize))
        ThrowFileError(SsErr::READ_FAILED, wstrPath, GetLastError());
    if (static_cast<unsigned long long>(liSize.QuadPart) > nMaxBytes)
        QZ_THROW(SsErr::MODULE, SsErr::TOO_LARGE, wstrPath, static_cast<long long>(liSize.QuadPart),
                 static_cast<long long>(nMaxBytes));
    strData.resize(static_cast<size_t>(liSize.QuadPart));
    size_t nDone = 0;
    while (nDone < strData.size()) {
        const DWORD dwChunk = static_cast<DWORD>(std::min(strData.size() - nDone, IO_CHUNK));
        DWORD dwRead = 0;
        if (!ReadFile(h.Get(), &strData[nDone], dwChunk, &dwRead, nullptr))
            ThrowFileError(SsErr::READ_FAILED, wstrPath, GetLastError());
        if (dwRead == 0)
            break;  // the file shrank meanwhile: what was read is all there is
        nDone += dwRead;
    }
    strData.resize(nDone);
    return true;
}

void ReplaceFileContent(const std::wstring& wstrPath, std::string_view svData)
{
    RegisterSettingsStorageErrors();
    const std::wstring wstrTmp = TemporaryPathOf(wstrPath);
    if (const DWORD dwError = WriteTemporary(wstrTmp, svData)) {
        DeleteFileW(wstrTmp.c_str());
        ThrowFileError(SsErr::WRITE_FAILED, wstrTmp, dwError);
    }
    if (const DWORD dwError = MoveOver(wstrTmp, wstrPath)) {
        DeleteFileW(wstrTmp.c_str());
        QZ_THROW(SsErr::MODULE, SsErr::REPLACE_FAILED, wstrPath, wstrTmp,
                 SystemErrorText(static_cast<int>(dwError)));
    }
}

std::wstring ParentFolderOf(const std::wstring& wstrPath)
{
    const size_t nSlash = wstrPath.find_last_of(L"\\/");
    if (nSlash == std::wstring::npos)
        return L"";
    // The parent of "\x" is the root of the current drive.
    return nSlash == 0 ? wstrPath.substr(0, 1) : wstrPath.substr(0, nSlash);
}

void CreateFolderChain(const std::wstring& wstrFolder)
{
    RegisterSettingsStorageErrors();
    if (wstrFolder.empty() || IsFolder(wstrFolder))
        return;
    const std::wstring wstrParent = ParentFolderOf(wstrFolder);
    if (wstrParent != wstrFolder)
        CreateFolderChain(wstrParent);
    // Another process may create it at the same moment: "already exists" is success.
    if (!CreateDirectoryW(wstrFolder.c_str(), nullptr)) {
        const DWORD dwError = GetLastError();
        if (!(dwError == ERROR_ALREADY_EXISTS && IsFolder(wstrFolder)))
            ThrowFileError(SsErr::CREATE_FOLDER_FAILED, wstrFolder, dwError);
    }
}

}  // namespace QZSTD
