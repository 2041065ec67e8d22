// The example package's setup program. It stands in for a product's installer in the demo and the tests:
// it writes the command line it got into "setup-ran.txt" beside itself and, when "examplesetup.ini" lies
// beside it, writes the result file and exits with the code that file names:
//   [Result]
//   ExitCode=3010                  the process exit code (default 0)
//   File=result.ini                the result file to write, relative to the program's folder
//   Section=Result                 where the code goes in it
//   Value=ResultCode
//   Code=1603
#ifdef _WIN32
#include <windows.h>
#endif

#include <fstream>
#include <string>
#include <vector>

// After <windows.h>: std/profile.h takes back its macros for the win.ini functions.
#include "std/cmdline.h"
#include "std/profile.h"
#include "std/strconv.h"

namespace {

std::wstring OwnFolder(const char* szArgv0)
{
#ifdef _WIN32
    (void)szArgv0;
    wchar_t szPath[MAX_PATH * 4] = {};
    ::GetModuleFileNameW(nullptr, szPath, MAX_PATH * 4);
    std::wstring wstr = szPath;
    return wstr.substr(0, wstr.find_last_of(L'\\') + 1);
#else
    const std::wstring wstr = QZSTD::Utf8ToWide(szArgv0);
    return wstr.substr(0, wstr.find_last_of(L'/') + 1);
#endif
}

std::wstring OwnCommandLine(int argc, char** argv)
{
#ifdef _WIN32
    (void)argc;
    (void)argv;
    return ::GetCommandLineW();
#else
    std::vector<std::wstring> vecArgs;
    for (int n = 0; n < argc; ++n)
        vecArgs.push_back(QZSTD::Utf8ToWide(argv[n]));
    return QZSTD::JoinCommandLine(vecArgs);
#endif
}

}  // namespace

int main(int argc, char** argv)
{
    const std::wstring wstrFolder = OwnFolder(argv[0]);
    std::ofstream(QZSTD::WideToUtf8(wstrFolder + L"setup-ran.txt"), std::ios::binary)
        << QZSTD::WideToUtf8(OwnCommandLine(argc, argv));
    const std::wstring wstrIni = wstrFolder + L"examplesetup.ini";
    const std::wstring wstrFile = QZSTD::GetProfileString(wstrIni, L"Result", L"File", L"");
    if (!wstrFile.empty()) {
        const std::wstring wstrCode = QZSTD::GetProfileString(wstrIni, L"Result", L"Code", L"0");
        QZSTD::WriteProfileString(
            wstrFolder + wstrFile, QZSTD::GetProfileString(wstrIni, L"Result", L"Section", L"Result").c_str(),
            QZSTD::GetProfileString(wstrIni, L"Result", L"Value", L"ResultCode").c_str(), wstrCode.c_str());
    }
    return QZSTD::GetProfileInt(wstrIni, L"Result", L"ExitCode", 0);
}
