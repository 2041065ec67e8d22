// Portable: the setup run goes through the agent's launcher and result-file wrapper, the writable folder
// through the settings storage and the Registry interface, which is empty where there is no registry.
#include "common/qztsk.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "common/ansicp.h"
#include "common/qpdfile.h"
#include "common/rilaunch.h"
#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/settingsstorage.h"
#include "std/trace.h"

namespace QZTSK {

namespace fs = std::filesystem;

namespace {

std::wstring Join(const std::wstring& wstrFolder, const wchar_t* szName)
{
    return QZRI::WideFromPath(QZRI::PathFromWide(wstrFolder) / QZRI::PathFromWide(szName));
}

std::wstring Quoted(const std::wstring& wstrPath)
{
    return L"\"" + wstrPath + L"\"";
}

}  // namespace

std::wstring GetE2sStoragePath()
{
    const fs::path pathLocal = QZRI::PathFromWide(QZSTD::GetLocalSettingsStoragePath());
    return QZRI::WideFromPath(pathLocal.parent_path() / QZRI::PathFromWide(c_szE2sStorageFile));
}

std::wstring GetLocalWritableFolder(const std::wstring& wstrE2sStoragePath, QZRI::Registry& registry)
{
    QZ_TRACE_SCOPE("QZTSK", "QZTSK::GetLocalWritableFolder");
    try {
        QZ_TRACE_I(L"QZPRSS_OpenSettingsStorageR(%ls)\n", wstrE2sStoragePath);
        QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage =
            QZSTD::SettingsStorage::OpenReadOnly(wstrE2sStoragePath);
        QZ_TRACE_I(L"Reading c_spE2SSubscrSection...\n");
        QZSTD::CAutoPtr<QZPAR::Params> pSection =
            pStorage->ReadSection(c_szSubscrProduct, c_szSubscrVersion, c_szSubscrSection);
        QZSTD::CAutoPtr<QZPAR::Value> pValue = QZPAR::FindValue(pSection.Get(), c_szLocalWritableFolder);
        // A value of another type is not a folder: the registry is asked as if it were missing.
        if (pValue && pValue->GetType() == QZPAR::Value::STRING_T) {
            const std::wstring wstrFolder = QZPAR::GetStringValue(pValue.Get());
            QZ_TRACE_I(L"Local writable folder is %ls\n", wstrFolder);
            return wstrFolder;
        }
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_I(L"Can't read section!..\n");
        QZ_TRACE_EXCEPTION_AT(::QZSTD::TL_INFO, e);
    }
    std::wstring wstrShared;
    if (!registry.ReadLocalMachineString(c_szSharedFilesKey, c_szSharedFilesValue, wstrShared)) {
        QZ_TRACE_I(L"No SharedFiles info in registry\n");
        return {};
    }
    return Join(wstrShared, L"Data");
}

std::wstring GetLocalWritableFolder()
{
    return GetLocalWritableFolder(GetE2sStoragePath(), QZRI::SystemRegistry());
}

std::wstring CheckCreateZombieFile(const std::wstring& wstrDirPath, int32_t rebootState)
{
    QZ_TRACE_SCOPE("QZTSK", "QZTSK::CheckCreateZombieFile");
    QZ_TRACE_I(L"wstrDirPath = '%ls', rebootState = %d", wstrDirPath, rebootState);
    if (rebootState == 0)
        return std::wstring();
    const std::wstring wstrPath = Join(wstrDirPath, c_szZombieFile);
    std::ofstream out(QZRI::PathFromWide(wstrPath), std::ios::app);
    if (!out) {
        QZ_TRACE_E(L"%hs: '%ls' could not be created.\n", QZ_SCOPE_NAME, wstrPath);
        return std::wstring();
    }
    return wstrPath;
}

std::wstring BuildInstallerCommandLine(const std::wstring& wstrInstallerPath,
                                       const std::wstring& wstrArguments, bool bUserMode)
{
    std::wstring wstrCommandLine = Quoted(wstrInstallerPath);
    if (!wstrArguments.empty())
        wstrCommandLine += L" " + wstrArguments;
    if (bUserMode)
        wstrCommandLine += L" USRMOD=1 ";
    return wstrCommandLine;
}

SetupResult Setup(const SetupRequest& request)
{
    QZ_TRACE_SCOPE("QZTSK", "QZTSK::Setup");
    SetupResult result;
    const std::wstring wstrInstaller = Join(request.m_wstrPackageFolder, c_szSetupExecutable);
    QZSTD::CAutoPtr<QZRI::QpdFile> pQpd =
        QZRI::QpdFile::Create(request.m_wstrQpdPath, request.m_pFilesProvider);
    result.m_bExecutablePackage = pQpd->GetString(L"Product", L"Name", L"") == c_szExecutablePackage;
    result.m_nAdaptedProduct = pQpd->GetInt(L"Product", L"AdaptedProduct", 0);

    result.m_wstrRebootAgentCommandLine = Quoted(Join(request.m_wstrAgentFolder, c_szRebootAgentExecutable));
    QZ_TRACE_I(L"Reboot agent's command line: %ls\n", result.m_wstrRebootAgentCommandLine);
    result.m_wstrInstallerCommandLine =
        BuildInstallerCommandLine(wstrInstaller, request.m_wstrArguments, request.m_bUserMode);
    QZ_TRACE_I(L"Installer's command line: %ls\n", result.m_wstrInstallerCommandLine);

    const std::wstring wstrResultFile = Join(request.m_wstrWorkingFolder, c_szSetupResultFile);
    std::error_code ec;
    fs::remove(QZRI::PathFromWide(wstrResultFile), ec);
    const std::wstring wstrScript = QZRI::WrapCommandLineToStoreProcessResult(
        result.m_wstrInstallerCommandLine, request.m_wstrWorkingFolder, request.m_wstrWorkingFolder,
        wstrResultFile);
    QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter;
    const auto tpStart = std::chrono::steady_clock::now();
    QZRI::LaunchOptions options;
    options.m_wstrCommandLine = QZRI::ScriptCommandLine(wstrScript);
    options.m_wstrCurDir = request.m_wstrWorkingFolder;
    options.m_wstrStdErr = Join(request.m_wstrWorkingFolder, c_szSetupStdErrFile);
    options.m_pEnvironmentAddition = request.m_pEnvironment;
    options.m_bUseCmd = true;
    options.m_nWaitMode = QZRI::WAIT_WHOLE_JOB;
    QZRI::LaunchAsync(options, &pWaiter);
    QZ_TRACE_I(L"Waiting for process...\n");
    result.m_bFinished = pWaiter->Wait(request.m_lTimeoutMs);
    result.m_nElapsedMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tpStart)
            .count();
    if (!result.m_bFinished) {
        QZ_TRACE_W(L"%hs: time-out after %lld ms, the installer is still running\n", QZ_SCOPE_NAME,
                   static_cast<long long>(result.m_nElapsedMs));
        return result;
    }
    result.m_nWrapperExitCode = pWaiter->ExitCode();
    QZ_TRACE_I(L"Process stopped, result code %d.\n", static_cast<int>(result.m_nWrapperExitCode));
    QZ_TRACE_I(L"Read process result code from %ls\n", wstrResultFile);
    result.m_nResultCode =
        QZRI::IniFileParser::Create(wstrResultFile)->GetInt(L"cmd_proc_rslt", L"result", 0, false);
    QZ_TRACE_I(L"Process result code %d.\n", result.m_nResultCode);
    return result;
}

}  // namespace QZTSK
