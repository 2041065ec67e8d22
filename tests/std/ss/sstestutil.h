// Helpers of the settings storage tests: a private temporary folder, raw file access and the
// process environment, with wide paths as the storage takes them.
#pragma once

#include <string>

namespace QZSSTEST {

// A new empty folder under the system's temporary folder, removed with everything in it at the end.
class TempFolder
{
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::wstring& Path() const { return m_wstrPath; }
    // Path() joined with a relative name ("a/b" uses the platform's separator).
    std::wstring Join(const std::wstring& wstrName) const;

private:
    std::wstring m_wstrPath;
};

// The bytes of a file ("" when it does not exist).
std::string ReadBytes(const std::wstring& wstrPath);
void WriteBytes(const std::wstring& wstrPath, const std::string& strData);
bool PathExists(const std::wstring& wstrPath);
void MakeFolder(const std::wstring& wstrPath);
void RemoveAll(const std::wstring& wstrPath);

// Sets (or, with an empty value, removes) a variable of this process's environment.
void SetEnv(const char* szName, const std::wstring& wstrValue);
std::wstring GetEnv(const char* szName);

}  // namespace QZSSTEST
