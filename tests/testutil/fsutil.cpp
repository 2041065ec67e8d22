// The platform-neutral part of the tests' file helpers, on std::filesystem.
#include "tests/testutil/fsutil.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "std/strconv.h"
#include "tests/testutil/fsutil_platform.h"

namespace QZTEST {
namespace {

namespace fs = std::filesystem;
using Platform::FsPath;
using Platform::WidePath;

std::wstring WithSeparator(std::wstring wstrPath)
{
    constexpr wchar_t SEPARATOR = static_cast<wchar_t>(fs::path::preferred_separator);
    if (wstrPath.empty() || wstrPath.back() != SEPARATOR)
        wstrPath += SEPARATOR;
    return wstrPath;
}

}  // namespace

TempFolder::TempFolder()
{
    static std::atomic<int> s_nCounter{0};
    const fs::path base = fs::temp_directory_path();
    for (int nAttempt = 0; nAttempt < 100; ++nAttempt) {
        const auto nTicks = std::chrono::steady_clock::now().time_since_epoch().count();
        const fs::path path = base / ("qz_test_" + std::to_string(Platform::ProcessId()) + "_" +
                                      std::to_string(s_nCounter++) + "_" + std::to_string(nTicks % 1000000));
        if (fs::create_directory(path)) {
            m_wstrPath = WithSeparator(WidePath(path));
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

std::wstring TempFolder::MakeSubFolder(const std::wstring& wstrName) const
{
    const std::wstring wstrPath = Join(wstrName);
    MakeFolder(wstrPath);
    return WithSeparator(wstrPath);
}

std::string ReadFileBytes(const std::wstring& wstrPath)
{
    std::ifstream in(FsPath(wstrPath), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFileBytes(const std::wstring& wstrPath, const std::string& strData)
{
    std::ofstream out(FsPath(wstrPath), std::ios::binary | std::ios::trunc);
    out.write(strData.data(), static_cast<std::streamsize>(strData.size()));
    if (!out)
        throw std::runtime_error("cannot write the test file " + QZSTD::WideToUtf8(wstrPath));
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

std::vector<std::string> FileNamesIn(const std::wstring& wstrFolder)
{
    std::vector<std::string> vecNames;
    for (const fs::directory_entry& entry : fs::directory_iterator(FsPath(wstrFolder)))
        vecNames.push_back(QZSTD::WideToUtf8(WidePath(entry.path().filename())));
    std::sort(vecNames.begin(), vecNames.end());
    return vecNames;
}

}  // namespace QZTEST
