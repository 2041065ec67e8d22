// Helpers of the settings storage tests; std::filesystem with the platform's path encoding.
#include "tests/std/ss/sstestutil.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

#include "std/strconv.h"

namespace QZSSTEST {
namespace {

namespace fs = std::filesystem;

fs::path FsPath(const std::wstring& wstrPath)
{
#ifdef _WIN32
    return fs::path(wstrPath);
#else
    return fs::path(QZSTD::WideToUtf8(wstrPath));
#endif
}

std::wstring WidePath(const fs::path& path)
{
#ifdef _WIN32
    return path.wstring();
#else
    return QZSTD::Utf8ToWide(path.string());
#endif
}

long ProcessId()
{
#ifdef _WIN32
    return static_cast<long>(GetCurrentProcessId());
#else
    return static_cast<long>(getpid());
#endif
}

}  // namespace

TempFolder::TempFolder()
{
    static std::atomic<int> s_nCounter{0};
    const fs::path base = fs::temp_directory_path();
    for (int nAttempt = 0; nAttempt < 100; ++nAttempt) {
        const auto nTicks = std::chrono::steady_clock::now().time_since_epoch().count();
        const fs::path path = base / ("qz_ss_test_" + std::to_string(ProcessId()) + "_" +
                                      std::to_string(s_nCounter++) + "_" + std::to_string(nTicks % 1000000));
        if (fs::create_directory(path)) {
            m_wstrPath = WidePath(path);
            return;
        }
    }
    throw std::runtime_error("cannot create a temporary folder");
}

TempFolder::~TempFolder()
{
    std::error_code ec;
    fs::remove_all(FsPath(m_wstrPath), ec);
}

std::wstring TempFolder::Join(const std::wstring& wstrName) const
{
    return WidePath((FsPath(m_wstrPath) / FsPath(wstrName)).make_preferred());
}

std::string ReadBytes(const std::wstring& wstrPath)
{
    std::ifstream in(FsPath(wstrPath), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::wstring& wstrPath, const std::string& strData)
{
    std::ofstream out(FsPath(wstrPath), std::ios::binary | std::ios::trunc);
    out.write(strData.data(), static_cast<std::streamsize>(strData.size()));
    if (!out)
        throw std::runtime_error("cannot write a test file");
}

bool PathExists(const std::wstring& wstrPath)
{
    std::error_code ec;
    return fs::exists(fs::symlink_status(FsPath(wstrPath), ec));
}

void MakeFolder(const std::wstring& wstrPath)
{
    fs::create_directories(FsPath(wstrPath));
}

void RemoveAll(const std::wstring& wstrPath)
{
    fs::remove_all(FsPath(wstrPath));
}

void SetEnv(const char* szName, const std::wstring& wstrValue)
{
#ifdef _WIN32
    const std::wstring wstrName = QZSTD::Utf8ToWide(szName);
    SetEnvironmentVariableW(wstrName.c_str(), wstrValue.empty() ? nullptr : wstrValue.c_str());
#else
    if (wstrValue.empty())
        unsetenv(szName);
    else
        setenv(szName, QZSTD::WideToUtf8(wstrValue).c_str(), 1);
#endif
}

std::wstring GetEnv(const char* szName)
{
#ifdef _WIN32
    const std::wstring wstrName = QZSTD::Utf8ToWide(szName);
    wchar_t buf[32768];
    const DWORD n = GetEnvironmentVariableW(wstrName.c_str(), buf, 32768);
    return n > 0 && n < 32768 ? std::wstring(buf, n) : std::wstring();
#else
    const char* sz = std::getenv(szName);
    return sz ? QZSTD::Utf8ToWide(sz) : std::wstring();
#endif
}

}  // namespace QZSSTEST
