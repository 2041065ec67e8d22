// A task's setup run driven by the package description, and the folder where the agent may write when
// it runs for a task.
#pragma once

#include <cstdint>
#include <string>

#include "common/inifileparser.h"
#include "common/registry.h"
#include "std/par/params.h"

namespace QZTSK {

// ---- the local writable folder ----

// Where the subscription data names the folder: product ".core", version ".independent", section
// "SubscriptionData", string value "LocalWritableFolder".
inline constexpr const wchar_t* c_szSubscrProduct = L".core";
inline constexpr const wchar_t* c_szSubscrVersion = L".independent";
inline constexpr const wchar_t* c_szSubscrSection = L"SubscriptionData";
inline constexpr const wchar_t* c_szLocalWritableFolder = L"LocalWritableFolder";
// The storage file of the subscription data, beside the local settings storage.
inline constexpr const wchar_t* c_szE2sStorageFile = L"e2s_subscription.xml";
// The fall-back: HKEY_LOCAL_MACHINE key and string value of the shared files; the result is its "Data"
// sub-folder.
inline constexpr const wchar_t* c_szSharedFilesKey = L"Software\\OrvaneLab\\SharedFiles";
inline constexpr const wchar_t* c_szSharedFilesValue = L"Folder";

// "e2s_subscription.xml" in the folder of QZSTD::GetLocalSettingsStoragePath() (so QZ_LOCAL_SS_PATH
// moves both).
std::wstring GetE2sStoragePath();

// The "LocalWritableFolder" string of the subscription data in the storage at wstrE2sStoragePath; when
// the storage, the section or the string is missing (or the storage cannot be read), the registry's
// shared-files folder joined with "Data"; empty when that is missing too. Never raises for missing data.
std::wstring GetLocalWritableFolder(const std::wstring& wstrE2sStoragePath, QZRI::Registry& registry);
// The same with GetE2sStoragePath() and the machine's registry (on Linux: none, so the storage only).
std::wstring GetLocalWritableFolder();

// ---- the zombie file ----

// The marker that keeps a package folder recognised as in use across a reboot, so that nothing cleans
// it away while a restart is pending.
inline constexpr const wchar_t* c_szZombieFile = L"$qzriwrp_zombie.tmp";

// With a non-zero reboot state: creates the marker in the folder (kept when it is there already) and
// returns its path. With 0, or when the marker cannot be created (traced): an empty path.
std::wstring CheckCreateZombieFile(const std::wstring& wstrDirPath, int32_t rebootState);

// ---- the setup run ----

// The names in the working folder: the setup's standard error and the file with its exit code.
inline constexpr const wchar_t* c_szSetupStdErrFile = L"$qzsetuperr.txt";
inline constexpr const wchar_t* c_szSetupResultFile = L"$qzsetuprslt.ini";
inline constexpr const wchar_t* c_szSetupExecutable = L"setup.exe";
inline constexpr const wchar_t* c_szRebootAgentExecutable = L"qzrbtagt.exe";
// The [Product] "Name" of a package that is a bare executable rather than a product installer.
inline constexpr const wchar_t* c_szExecutablePackage = L"executable_package";

struct SetupRequest
{
    // Holds "setup.exe".
    std::wstring m_wstrPackageFolder;
    // The package description (qpd file, or its ".qud" companion alone).
    std::wstring m_wstrQpdPath;
    // Holds the agent's own executables ("qzrbtagt.exe").
    std::wstring m_wstrAgentFolder;
    // The installer's current folder; the wrapper script, the standard-error file and the result file
    // are written here.
    std::wstring m_wstrWorkingFolder;
    // The installer's arguments as the task gives them; appended after the quoted installer path.
    std::wstring m_wstrArguments;
    // The installer runs for the logged-on user: " USRMOD=1 " is appended.
    bool m_bUserMode = false;
    // Set over the inherited environment of the installer; may be null. Not owned.
    QZPAR::Params* m_pEnvironment = nullptr;
    // -1: no limit.
    long m_lTimeoutMs = -1;
    // Reads the package description when the package does not lie in the local file system; may be null.
    QZRI::FilesProvider* m_pFilesProvider = nullptr;
};

struct SetupResult
{
    // [Product] "Name" is "executable_package"; [Product] "AdaptedProduct" (0 when absent).
    bool m_bExecutablePackage = false;
    int32_t m_nAdaptedProduct = 0;
    std::wstring m_wstrRebootAgentCommandLine;
    std::wstring m_wstrInstallerCommandLine;
    // False when the time-out ran out first: the installer is left running and nothing else is set.
    bool m_bFinished = false;
    // The exit code of the wrapper (the command interpreter), not of the installer.
    uint32_t m_nWrapperExitCode = 0;
    // [cmd_proc_rslt] "result" of the result file: the installer's exit code, to be judged by the caller.
    int32_t m_nResultCode = 0;
    int64_t m_nElapsedMs = 0;
};

// The installer's command line: the quoted installer path, then the arguments (after one blank), then
// " USRMOD=1 " in user mode.
std::wstring BuildInstallerCommandLine(const std::wstring& wstrInstallerPath,
                                       const std::wstring& wstrArguments, bool bUserMode);

// Runs the package's "setup.exe" with its exit code stored through the result-file wrapper, standard
// error to "$qzsetuperr.txt" in the working folder, and waits for it and for what it leaves in its job.
// Raises the errors of the launch (1199 on shutdown, system errors), of the wait (1199) and of the
// result file (1205 when the wrapper wrote none, 1186 without "result"). A result file left from an
// earlier run is removed first, so its code is never taken for this run's.
SetupResult Setup(const SetupRequest& request);

}  // namespace QZTSK
