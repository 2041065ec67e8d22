// The reference removal engine on systems without a registry: the ini files are read here, nothing is
// ever found installed, and a command runs through /bin/sh.
#include <spawn.h>
#include <sys/wait.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <thread>

#include "qzri/cleanapi/cleanengine.h"

extern char** environ;

namespace QZCLEAN {
namespace {

std::string Utf8(const std::wstring& wstr)
{
    std::string str;
    for (wchar_t wch : wstr) {
        const uint32_t c = static_cast<uint32_t>(wch);
        if (c < 0x80) {
            str += static_cast<char>(c);
        } else if (c < 0x800) {
            str += static_cast<char>(0xC0 | (c >> 6));
            str += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            str += static_cast<char>(0xE0 | (c >> 12));
            str += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            str += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            str += static_cast<char>(0xF0 | (c >> 18));
            str += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            str += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            str += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return str;
}

std::wstring Trimmed(std::wstring wstr)
{
    const auto notBlank = [](wchar_t wch) { return !std::iswspace(wch); };
    wstr.erase(wstr.begin(), std::find_if(wstr.begin(), wstr.end(), notBlank));
    wstr.erase(std::find_if(wstr.rbegin(), wstr.rend(), notBlank).base(), wstr.end());
    if (wstr.size() >= 2 && (wstr[0] == L'"' || wstr[0] == L'\'') && wstr.back() == wstr[0])
        wstr = wstr.substr(1, wstr.size() - 2);
    return wstr;
}

bool SameName(const std::wstring& a, const wchar_t* b)
{
    const std::wstring wstrB(b);
    return a.size() == wstrB.size() &&
           std::equal(a.begin(), a.end(), wstrB.begin(),
                      [](wchar_t x, wchar_t y) { return std::towlower(x) == std::towlower(y); });
}

}  // namespace

// ASCII-only files are what the ini folder holds here; other bytes are taken one for one.
std::wstring ReadIniValue(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey)
{
    std::ifstream in(std::filesystem::path(wstrFile), std::ios::binary);
    std::string strLine;
    bool bInSection = false;
    while (std::getline(in, strLine)) {
        const std::wstring wstrLine = Trimmed(std::wstring(strLine.begin(), strLine.end()));
        if (!wstrLine.empty() && wstrLine[0] == L'[') {
            const size_t nEnd = wstrLine.find(L']');
            bInSection =
                nEnd != std::wstring::npos && SameName(Trimmed(wstrLine.substr(1, nEnd - 1)), szSection);
            continue;
        }
        const size_t nEq = wstrLine.find(L'=');
        if (bInSection && nEq != std::wstring::npos && SameName(Trimmed(wstrLine.substr(0, nEq)), szKey))
            return Trimmed(wstrLine.substr(nEq + 1));
    }
    return {};
}

std::vector<std::wstring> ListIniFiles(const std::wstring& wstrFolder)
{
    std::vector<std::wstring> vec;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(std::filesystem::path(wstrFolder), ec), end; !ec && it != end;
         it.increment(ec)) {
        if (it->path().extension() == ".ini")
            vec.push_back(it->path().wstring());
    }
    std::sort(vec.begin(), vec.end());
    return vec;
}

std::vector<UninstallEntry> ListUninstallEntries()
{
    return {};
}

std::optional<uint32_t> RunAndWait(const std::wstring& wstrCmdLine, uint32_t nTimeoutSec,
                                   std::wstring& wstrError)
{
    const std::string strCmd = Utf8(wstrCmdLine);
    const char* argv[] = {"/bin/sh", "-c", strCmd.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) {
        wstrError = L"the removal could not be started";
        return std::nullopt;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(nTimeoutSec);
    for (;;) {
        int nStatus = 0;
        if (waitpid(pid, &nStatus, WNOHANG) == pid)
            return WIFEXITED(nStatus) ? static_cast<uint32_t>(WEXITSTATUS(nStatus)) : 1u;
        if (std::chrono::steady_clock::now() >= end) {
            kill(pid, SIGKILL);
            waitpid(pid, &nStatus, 0);
            wstrError = L"the removal did not end in time";
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace QZCLEAN
