// The operating system as the agent's start-up sees it: its own file, the environment, the temporary
// folder and the few file operations on the package and trace folders. The decisions of start-up are
// written against this interface so that they are tested with a fake; the real one is a thin layer
// over Win32 (agentos_win.cpp) or POSIX (agentos_posix.cpp).
//
// Folder paths handed around by the agent end with the platform's separator, so that a file's path is
// the folder's path followed by the file name ("C:\pkg\" + "$qzriwrp.ini").
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QZRI {

#ifdef _WIN32
inline constexpr wchar_t PATH_SEPARATOR = L'\\';
#else
inline constexpr wchar_t PATH_SEPARATOR = L'/';
#endif

// The folder part of a path with its trailing separator ("C:\pkg\qzriwrap.exe" -> "C:\pkg\"); empty
// when the path holds no separator. Windows also takes '/' as a separator.
std::wstring DirectoryOf(const std::wstring& wstrPath);
// "C:\x", "\\server\share\x", "/x" and "\x" are absolute, on every platform: package files name
// paths of both forms.
bool IsAbsolutePath(const std::wstring& wstrPath);
// The path with a separator at its end (an empty path stays empty).
std::wstring WithTrailingSeparator(const std::wstring& wstrPath);
// Whether a file name ends with szSuffix, given in lower case (".msi"), in any case of ASCII letters.
bool EndsWithNoCase(const std::wstring& wstr, const wchar_t* szSuffix);

class AgentOs
{
public:
    virtual ~AgentOs() = default;

    // Full path of the agent's own executable. Raises a system error when it cannot be found.
    virtual std::wstring GetModuleFilePath() = 0;
    // The variable's value; nothing when it is not set (an empty value is a value).
    virtual std::optional<std::wstring> GetEnvValue(const std::wstring& wstrName) = 0;
    // The system's temporary folder, with its trailing separator.
    virtual std::wstring GetTempFolder() = 0;

    // True when the path names an existing file (not a folder).
    virtual bool FileExists(const std::wstring& wstrPath) = 0;
    // True when the path names an existing folder in which this process can create files.
    virtual bool IsWritableFolder(const std::wstring& wstrPath) = 0;
    // Names (without the folder) of the files directly in the folder, in no particular order; empty
    // when the folder cannot be read.
    virtual std::vector<std::wstring> ListFiles(const std::wstring& wstrFolder) = 0;
    // True when the file is gone afterwards; a file that did not exist counts as removed.
    virtual bool RemoveFile(const std::wstring& wstrPath) = 0;
    // Renames a file, replacing wstrTo when it exists. False (and nothing changed) on failure.
    virtual bool RenameFile(const std::wstring& wstrFrom, const std::wstring& wstrTo) = 0;
    // When the file came to this computer: its creation time on Windows (a copy keeps the last-write
    // time of its source, which may be months old), the inode's change time elsewhere (set by the copy
    // too). Nothing when the file does not exist.
    virtual std::optional<std::chrono::system_clock::time_point> GetFileArrivalTime(
        const std::wstring& wstrPath) = 0;
};

std::unique_ptr<AgentOs> CreateSystemAgentOs();

}  // namespace QZRI
