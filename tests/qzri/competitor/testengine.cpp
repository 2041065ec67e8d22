// A removal engine for the tests, built as a shared library (a DLL on Windows) that the agent loads like
// the real one. It answers from "control.txt" in the ini folder, one "key=value" a line:
//   enum=ok | fail | garbage | bignames    how the enumeration answers (garbage: a list without its end;
//                                          bignames: more than the agent's first buffer holds)
//   list=<name>|<ini name>;...             what it finds installed (ini names in the ini folder)
//   <ini name>=removed | failed | restart | odd   how the removal of that product ends (default removed;
//                                          odd: a value outside the interface)
// Each removal is appended to "calls.txt" in the ini folder and leaves "<ini stem>.log" in the work folder.
// Built with QZ_TEST_ENGINE_NO_REMOVE it lacks RemoveCompetitorSoftwareW.
#include <cstdio>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "common/cleanapi.h"

#ifdef _WIN32
#define QZ_EXPORT extern "C" __declspec(dllexport)
#else
#define QZ_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace {

std::map<std::string, std::string> ReadControl(const std::filesystem::path& folder)
{
    std::map<std::string, std::string> map;
    std::ifstream in(folder / "control.txt");
    std::string strLine;
    while (std::getline(in, strLine)) {
        if (!strLine.empty() && strLine.back() == '\r')
            strLine.pop_back();
        const size_t nEq = strLine.find('=');
        if (nEq != std::string::npos)
            map[strLine.substr(0, nEq)] = strLine.substr(nEq + 1);
    }
    return map;
}

void SetText(wchar_t* szError, uint32_t nChars, const wchar_t* szText)
{
    if (szError && nChars > 0)
        std::swprintf(szError, nChars, L"%ls", szText);
}

std::wstring Wide(const std::string& str)
{
    return std::wstring(str.begin(), str.end());
}

}  // namespace

QZ_EXPORT int32_t QZCLEAN_CALL EnumCompetitorSoftwareW(uint32_t, const wchar_t* szIniFolder, wchar_t* pList,
                                                       uint32_t* pnListChars, uint32_t* pnEngineVersion,
                                                       wchar_t* szError, uint32_t nErrorChars)
{
    *pnEngineVersion = 7;
    SetText(szError, nErrorChars, L"");
    const std::filesystem::path folder = szIniFolder;
    auto control = ReadControl(folder);
    const std::string strMode = control["enum"];
    if (strMode == "fail") {
        SetText(szError, nErrorChars, L"test engine: enumeration refused");
        return QZCLEAN_E_FAILED;
    }
    std::wstring wstrList;
    std::string strItems = control["list"];
    if (strMode == "bignames")
        strItems = std::string(5000, 'N') + "|a.ini";
    size_t nPos = 0;
    while (nPos < strItems.size()) {
        size_t nEnd = strItems.find(';', nPos);
        if (nEnd == std::string::npos)
            nEnd = strItems.size();
        const std::string strItem = strItems.substr(nPos, nEnd - nPos);
        nPos = nEnd + 1;
        const size_t nBar = strItem.find('|');
        wstrList += Wide(strItem.substr(0, nBar)) + L'\0' +
                    (folder / Wide(strItem.substr(nBar + 1))).wstring() + L'\0';
    }
    if (strMode != "garbage")
        wstrList += L'\0';
    if (*pnListChars < wstrList.size()) {
        *pnListChars = static_cast<uint32_t>(wstrList.size());
        return QZCLEAN_E_MORE_DATA;
    }
    wstrList.copy(pList, wstrList.size());
    *pnListChars = static_cast<uint32_t>(wstrList.size());
    return QZCLEAN_OK;
}

#ifndef QZ_TEST_ENGINE_NO_REMOVE
QZ_EXPORT int32_t QZCLEAN_CALL RemoveCompetitorSoftwareW(uint32_t, const wchar_t* szIniFile,
                                                         const wchar_t* szWorkFolder, wchar_t* szError,
                                                         uint32_t nErrorChars)
{
    SetText(szError, nErrorChars, L"");
    const std::filesystem::path ini = szIniFile;
    auto control = ReadControl(ini.parent_path());
    std::ofstream(ini.parent_path() / "calls.txt", std::ios::app | std::ios::binary)
        << ini.filename().string() << "\n";
    std::ofstream(std::filesystem::path(szWorkFolder) / (ini.stem().string() + ".log")) << "removing\n";
    const std::string strOutcome = control[ini.filename().string()];
    if (strOutcome == "failed") {
        SetText(szError, nErrorChars, L"test engine: uninstaller exited 1603");
        return QZCLEAN_REMOVE_FAILED;
    }
    if (strOutcome == "restart")
        return QZCLEAN_RESTART_NEEDED;
    if (strOutcome == "odd")
        return 77;
    return QZCLEAN_REMOVED;
}
#endif
