// A package's "setup.exe" for the tests of the service mode: writes the command line it got (UTF-8) into
// "setup-ran.txt" beside itself and ends with 0.
#include <fstream>
#include <string>

#include "std/cmdline.h"
#include "std/strconv.h"

#ifdef _WIN32
#include <windows.h>
#endif

int main(int argc, char** argv)
{
#ifdef _WIN32
    (void)argc;
    (void)argv;
    wchar_t szPath[MAX_PATH * 4] = {};
    ::GetModuleFileNameW(nullptr, szPath, MAX_PATH * 4);
    std::wstring wstrFile = szPath;
    wstrFile = wstrFile.substr(0, wstrFile.find_last_of(L'\\') + 1) + L"setup-ran.txt";
    std::ofstream(wstrFile.c_str(), std::ios::binary) << QZSTD::WideToUtf8(::GetCommandLineW());
#else
    std::vector<std::wstring> vecArgs;
    for (int n = 0; n < argc; ++n)
        vecArgs.push_back(QZSTD::Utf8ToWide(argv[n]));
    const std::string strSelf = argv[0];
    std::ofstream(strSelf.substr(0, strSelf.find_last_of('/') + 1) + "setup-ran.txt")
        << QZSTD::WideToUtf8(QZSTD::JoinCommandLine(vecArgs));
#endif
    return 0;
}
