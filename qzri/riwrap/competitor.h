// Removing incompatible software before a setup, through the removal engine (common/cleanapi.h) that the
// agent loads at run time. CCompetitorSoftwareUninstall drives the engine for one run of the agent;
// CRemoveHandler keeps the state of the work in the work folder, so that a removal survives a reboot or a
// crash of the engine; CheckCleanapiOS loads the engine.
//
// The work folder "Work" (under the management agent's data folder) holds:
//   WorkState.txt          four sections, one key per product: <display name>=<ini file name>
//                            [Installed softwares]      found by this run's enumeration
//                            [Removed softwares]        removed by this run (a restart may finish it)
//                            [Remove failed softwares]  the engine failed to remove it
//                            [Shutdown softwares]       removal under way: the handler writes the product
//                                                       here before it calls the engine, and removes it once
//                                                       the outcome is recorded; a product still here when
//                                                       a run starts was cut off by a shutdown or a crash,
//                                                       and that run removes it again
//   RbtAgtCmdLineFile.txt  [General] CommandLine: the reboot agent's command line to continue the task
//   <ini name>.*           files the engine writes for a product during its removal
// docs/removal-engine.md describes the engine, the ini files and this folder for administrators.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "std/error.h"

namespace QZRI {
class RiWrpData;
}

namespace QZRIWRP {

inline constexpr const wchar_t* WORK_FOLDER = L"Work";
inline constexpr const wchar_t* STAT_FILE = L"WorkState.txt";
inline constexpr const wchar_t* RBTAGT_CMDLINE_FILE = L"RbtAgtCmdLineFile.txt";
inline constexpr const wchar_t* SECTION_INSTALLED = L"Installed softwares";
inline constexpr const wchar_t* SECTION_REMOVED = L"Removed softwares";
inline constexpr const wchar_t* SECTION_FAILED = L"Remove failed softwares";
inline constexpr const wchar_t* SECTION_SHUTDOWN = L"Shutdown softwares";
// The value StartRebootAgent reads back when no command line was saved.
inline constexpr const wchar_t* NO_SAVED_CMDLINE = L"{AB100708-E178-49b2-A7CF-D7728ED1D82E}";
// The package's ini names the incompatible software it needs removed.
inline constexpr const wchar_t* PACKAGE_SECTION = L"CompetitorSoftwareUninstall";
// The folder of the product ini files, in the package folder.
inline constexpr const wchar_t* INI_FOLDER = L"cleanini";
// The engine's file beside the agent.
#ifdef _WIN32
inline constexpr const wchar_t* ENGINE_FILE = L"cleanapi.dll";
#else
inline constexpr const wchar_t* ENGINE_FILE = L"libcleanapi.so";
#endif
// QZSTD: the work folder or its stat file cannot be written.
inline constexpr int ERR_WORK_FOLDER = QZSTD::Err::WRITE_FAILED;

// Result codes of a removal run.
inline constexpr int32_t CLEANER_RSLT_FAILED = -100;
inline constexpr int32_t CLEANER_RSLT_UNKNOWN = -50;

struct CompetitorProduct
{
    std::wstring m_wstrName;
    std::wstring m_wstrIniFile;
};

// The engine as the agent sees it; CheckCleanapiOS gives the loaded library, tests give others.
class CleanEngine
{
public:
    enum class Outcome
    {
        REMOVED,
        FAILED,
        RESTART_NEEDED,
    };
    virtual ~CleanEngine() = default;
    // False with the engine's text in wstrError when it could not enumerate.
    virtual bool Enumerate(const std::wstring& wstrIniFolder, std::vector<CompetitorProduct>& vecProducts,
                           std::wstring& wstrError) = 0;
    virtual Outcome Remove(const std::wstring& wstrIniFile, const std::wstring& wstrWorkFolder,
                           std::wstring& wstrError) = 0;
};

struct OsVersion
{
    unsigned m_nMajor = 0;
    unsigned m_nMinor = 0;
    unsigned m_nServicePack = 0;
};
// The running system's version (Linux: 0.0, which never counts as old).
OsVersion CurrentOsVersion();

// Loads the engine at wstrEnginePath (a full path) for the system os: QZError 1193 on a system too old
// for the search (5.1 and later 5.x with service pack 1 or lower); the library by its full path with the
// altered search path, else by its bare file name; a missing entry point is a system error (127).
std::unique_ptr<CleanEngine> CheckCleanapiOS(const std::wstring& wstrEnginePath, const OsVersion& os);

// Splits the engine's list ("name\0ini\0...\0"); a list without its final null, a name without an ini file
// or an empty name raises QZError 1187 ("list").
std::vector<CompetitorProduct> ParseEngineList(const wchar_t* pList, size_t nChars);

// The keys of one section of an ini file in file order ("" when the file cannot be read).
std::vector<std::wstring> ReadSectionKeys(const std::wstring& wstrFile, const wchar_t* szSection);

// The result message of a run.
struct RemoveResult
{
    int32_t m_nResult = 0;
    std::wstring m_wstrMessageId;
    std::wstring m_wstrDescription;
    bool m_bNeedReboot = false;
};

// One run of the removal over the work folder.
class CRemoveHandler
{
public:
    CRemoveHandler(CleanEngine& engine, std::wstring wstrWorkPath, std::wstring wstrIniFolder);
    // Creates the work folder when missing (QZError 1183 when it cannot).
    void init();
    // Reads [main] "fullname" of every ini file of the ini folder.
    void CollectIniFilesInfo();
    // Settles the products of the section: removes them from "Shutdown softwares" (for that section
    // itself: those an earlier run already recorded as removed or failed) and deletes their engine files.
    void cleanWorkPath(const wchar_t* szSection);
    // Takes over the products an earlier run left under "Shutdown softwares".
    void fillUnhandledIniFiles();
    void handleNextCompetitor(const std::wstring& wstrName, const std::wstring& wstrIniFile);
    // The whole run: products cut off earlier first, then those installed, each once.
    void Execute();
    RemoveResult GetResult(bool bEnumFailed) const;

    const std::map<std::wstring, std::wstring>& IniFiles() const { return m_iniFiles; }

private:
    std::wstring StatFile() const { return m_wstrWorkPath + STAT_FILE; }
    void Write(const wchar_t* szSection, const std::wstring& wstrName, const wchar_t* szValue);
    void DeleteEngineFiles(const std::wstring& wstrIniFile);

    CleanEngine& m_engine;
    std::wstring m_wstrWorkPath;
    std::wstring m_wstrIniFolder;
    std::map<std::wstring, std::wstring> m_iniFiles;  // name -> ini file (full path)
    // The products under way when the run started, less those settled since.
    std::vector<std::wstring> m_vecShutdown;
    std::map<std::wstring, std::wstring> m_unhandledIniFiles;
};

// Where the removal works and what it starts.
struct CompetitorEnv
{
    std::wstring m_wstrEnginePath;   // the engine's full path
    std::wstring m_wstrIniFolder;    // the product ini files, with a final separator; empty: the package's
    std::wstring m_wstrWorkPath;     // the work folder, with a final separator
    std::wstring m_wstrAgentFolder;  // where "qzrbtagt.exe" is, with a final separator
    // Loads the engine (CheckCleanapiOS by default).
    std::function<std::unique_ptr<CleanEngine>(const std::wstring&)> m_loadEngine;
    // Starts the reboot agent's command line without waiting (a new console on Windows).
    std::function<void(const std::wstring&)> m_startProcess;
    // Whether a file exists.
    std::function<bool(const std::wstring&)> m_fileExists;
};

// The real environment: the engine beside the agent (wstrAgentFile is the agent's own file), the ini folder
// "cleanini" of the package folder (left empty here: the run fills it in), the work folder under the
// management agent's data folder beside its local settings storage ("1103/1.0.0.0/Work/").
CompetitorEnv SystemCompetitorEnv(const std::wstring& wstrAgentFile);
// "<package folder>cleanini" with a final separator.
std::wstring PackageIniFolder(const std::wstring& wstrPackageFolder);

class CCompetitorSoftwareUninstall
{
public:
    CCompetitorSoftwareUninstall(const QZRI::RiWrpData& data, CompetitorEnv env);
    bool IfUninstall();
    // Loads the engine (errors raise) and records what is installed; false when the enumeration failed.
    bool PrepareToRemove();
    std::vector<std::wstring> GetInstalledSoftwareNames() const;
    int32_t RemoveProducts(std::wstring& wstrDescription, bool& bNeedReboot);
    const RemoveResult& LastResult() const { return m_result; }
    void SaveRebootAgentCmdLine(const std::wstring& wstrCmdLine);
    void StartRebootAgent();

private:
    const QZRI::RiWrpData& m_data;
    CompetitorEnv m_env;
    std::unique_ptr<CleanEngine> m_pEngine;
    bool m_bEnumFailed = false;
    RemoveResult m_result;
};

// The work folder of this computer (what SystemCompetitorEnv uses).
std::wstring SystemWorkPath();

// The state of a work folder, for display: the four lists and the saved reboot-agent command line
// (empty when none). ReadWorkFolderState(SystemWorkPath()) is this computer's.
struct WorkFolderState
{
    std::vector<std::wstring> m_vecInstalled, m_vecRemoved, m_vecFailed, m_vecShutdown;
    std::wstring m_wstrRebootAgentCmdLine;
};
WorkFolderState ReadWorkFolderState(const std::wstring& wstrWorkPath);

// Platform parts (competitor_win.cpp, competitor_posix.cpp): the library, the process start.
void* LoadEngineLibrary(const std::wstring& wstrPath, bool bAlteredSearchPath);
void* FindEngineEntry(void* pModule, const char* szName);
void FreeEngineLibrary(void* pModule);
void StartDetached(const std::wstring& wstrCmdLine);

}  // namespace QZRIWRP
