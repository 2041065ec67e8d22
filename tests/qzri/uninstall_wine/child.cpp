// The uninstallers of the Wine tests, each a way an uninstaller behaves towards the registry:
//   child remove <entry>  another program's change under the Uninstall key first, then the product's own
//                         entry removed (64-bit view), each followed by a pause; exit code 0
//   child exit <code>     a change under the Uninstall key, then the exit code
//   child hang <file>     its process id into the file, then a minute of sleep
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>

namespace {

const std::wstring UNINSTALL = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\";

void TouchOtherEntry()
{
    const DWORD dwTick = ::GetTickCount();
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, (UNINSTALL + L"QzTestOther").c_str(), L"Touched", REG_DWORD,
                      &dwTick, sizeof(dwTick));
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc < 3)
        return 2;
    const std::wstring wstrMode = argv[1];
    if (wstrMode == L"remove") {
        TouchOtherEntry();
        ::Sleep(700);
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, (UNINSTALL + argv[2]).c_str());
        ::Sleep(700);
        return 0;
    }
    if (wstrMode == L"exit") {
        TouchOtherEntry();
        ::Sleep(500);
        return static_cast<int>(std::wcstoul(argv[2], nullptr, 10));
    }
    if (wstrMode == L"hang") {
        if (FILE* pFile = _wfopen(argv[2], L"w")) {
            std::fprintf(pFile, "%lu", ::GetCurrentProcessId());
            std::fclose(pFile);
        }
        ::Sleep(60000);
        return 0;
    }
    return 2;
}
