// Helpers of the tests for files, folders and the environment: a private temporary folder, raw file
// contents and this process's environment variables, all with wide paths as the product takes them.
// Built into qz_testmain, so every test executable has them.
#pragma once

#include <string>
#include <vector>

namespace QZTEST {

// A new empty folder under the system's temporary folder, removed with everything in it at the end.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    // With its trailing separator.
    const std::wstring& Path() const { return m_wstrPath; }
    // Path() joined with a relative name ("a/b" uses the platform's separator); nothing is created.
    std::wstring Join(const std::wstring& wstrName) const;
    // A sub-folder, created with its parents; with its trailing separator.
    std::wstring MakeSubFolder(const std::wstring& wstrName) const;

private:
    std::wstring m_wstrPath;
};

// The bytes of a file as they are ("" when it does not exist).
std::string ReadFileBytes(const std::wstring& wstrPath);
// Creates or replaces a file; throws std::runtime_error when the file cannot be written.
void WriteFileBytes(const std::wstring& wstrPath, const std::string& strData);
// True for a file, a folder, and also a symbolic link whose target is missing.
bool PathExists(const std::wstring& wstrPath);
// Creates a folder with its parents (nothing when it exists already).
void MakeFolder(const std::wstring& wstrPath);
// Removes a file, or a folder with everything in it (nothing when the path does not exist).
void RemoveAll(const std::wstring& wstrPath);
// The names of the entries of a folder, in UTF-8, sorted.
std::vector<std::string> FileNamesIn(const std::wstring& wstrFolder);

// Sets (or, with an empty value, removes) a variable of this process's environment, which children
// inherit and the C runtime's getenv sees.
void SetEnv(const std::string& strName, const std::wstring& wstrValue);
// The variable's value ("" when it is not set).
std::wstring GetEnv(const std::string& strName);

// True in a Windows build that runs under Wine: some Windows behaviour (cmd.exe's errorlevel, logons)
// can only be asserted on Windows itself.
bool RunningUnderWine();

}  // namespace QZTEST
