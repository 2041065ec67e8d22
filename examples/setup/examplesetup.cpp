// The example package's setup program. It stands in for a product's installer in the demo and the tests:
// it writes the command line it got into "setup-ran.txt" beside itself and, when "examplesetup.ini" lies
// beside it, writes the result file and exits with the code that file names:
//   [Result]
//   ExitCode=3010                  the process exit code (default 0)
//   File=result.ini                the result file to write, relative to the program's folder
//   Section=Result                 where the code goes in it
//   Value=ResultCode
//   Code=1603
//   Codes=32,0                     instead of Code: the code of the first, second, ... run of the
//                                  setup in this folder (the last one repeats); the runs are counted
//                                  in "setup-runs.txt"
//   SleepSec=60                    runs that long before it exits (a setup that hangs or is cut off)
#ifdef _WIN32
#include <windows.h>
#endif

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
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

// How often the setup has run in this folder, this run included.
int CountRun(const std::wstring& wstrFolder)
{
    const std::string strPath = QZSTD::WideToUtf8(wstrFolder + L"setup-runs.txt");
    int nRuns = 0;
    std::ifstream(strPath) >> nRuns;
    std::ofstream(strPath, std::ios::binary) << ++nRuns;
    return nRuns;
}

// The n-th (from 1) of the comma-separated codes, the last one for any later run.
std::wstring NthCode(const std::wstring& wstrCodes, int nRun)
{
    std::vector<std::wstring> vecCodes;
    size_t nStart = 0;
    for (size_t nComma; (nComma = wstrCodes.find(L',', nStart)) != std::wstring::npos; nStart = nComma + 1)
        vecCodes.push_back(wstrCodes.substr(nStart, nComma - nStart));
    vecCodes.push_back(wstrCodes.substr(nStart));
    return vecCodes[std::min<size_t>(static_cast<size_t>(nRun - 1), vecCodes.size() - 1)];
}

}  // namespace

int main(int argc, char** argv)
{
    const std::wstring wstrFolder = OwnFolder(argv[0]);
    std::ofstream(QZSTD::WideToUtf8(wstrFolder + L"setup-ran.txt"), std::ios::binary)
        << QZSTD::WideToUtf8(OwnCommandLine(argc, argv));
    const int nRun = CountRun(wstrFolder);
    const std::wstring wstrIni = wstrFolder + L"examplesetup.ini";
    const int nSleepSec = QZSTD::GetProfileInt(wstrIni, L"Result", L"SleepSec", 0);
    if (nSleepSec > 0)
        std::this_thread::sleep_for(std::chrono::seconds(nSleepSec));
    const std::wstring wstrFile = QZSTD::GetProfileString(wstrIni, L"Result", L"File", L"");
    if (!wstrFile.empty()) {
        const std::wstring wstrCodes = QZSTD::GetProfileString(wstrIni, L"Result", L"Codes", L"");
        const std::wstring wstrCode = wstrCodes.empty()
                                          ? QZSTD::GetProfileString(wstrIni, L"Result", L"Code", L"0")
                                          : NthCode(wstrCodes, nRun);
        QZSTD::WriteProfileString(
            wstrFolder + wstrFile, QZSTD::GetProfileString(wstrIni, L"Result", L"Section", L"Result").c_str(),
            QZSTD::GetProfileString(wstrIni, L"Result", L"Value", L"ResultCode").c_str(), wstrCode.c_str());
    }
    return QZSTD::GetProfileInt(wstrIni, L"Result", L"ExitCode", 0);
}
