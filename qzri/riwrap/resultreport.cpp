// The two report channels, the user-action report and the hand-off of a pending reboot.
#include "qzri/riwrap/resultreport.h"

#include <fstream>

#include "common/ansicp.h"
#include "common/qztsk.h"
#include "common/rmtinstutils.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/clock.h"
#include "qzri/riwrap/rebootrequest.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/par/dump.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/profile.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRI";

// Replaces the file with the bytes; false (traced by the caller) when it cannot be written.
bool WriteWholeFile(const std::wstring& wstrPath, const std::string& strBytes)
{
    std::ofstream out(PathFromWide(wstrPath), std::ios::binary | std::ios::trunc);
    out.write(strBytes.data(), static_cast<std::streamsize>(strBytes.size()));
    return static_cast<bool>(out.flush());
}

void WriteDescriptionFiles(const std::wstring& wstrDescr, const std::wstring& wstrDescrFile,
                           const std::wstring& wstrUnicodeFile)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::WriteSetupLog");
    QZ_TRACE_I(L"%hs: Description: '%ls'", QZ_SCOPE_NAME, wstrDescr);
    QZ_TRACE_I(L"%hs: Save description to file: '%ls'", QZ_SCOPE_NAME, wstrDescrFile);
    if (!WriteWholeFile(wstrDescrFile, WideToAnsi(wstrDescr)))
        QZ_TRACE_E(L"%hs: '%ls' could not be written.", QZ_SCOPE_NAME, wstrDescrFile);
    QZ_TRACE_I(L"%hs: Save unicode description to file: '%ls'", QZ_SCOPE_NAME, wstrUnicodeFile);
    if (!WriteWholeFile(wstrUnicodeFile, QZSTD::WideToUtf16LeBytes(wstrDescr, true)))
        QZ_TRACE_E(L"%hs: '%ls' could not be written.", QZ_SCOPE_NAME, wstrUnicodeFile);
}

// Writes the keys into a temporary file beside wstrTarget and moves it onto wstrTarget, so that a
// reader sees the old file or the whole new one, never a part.
void WriteResponseFile(const std::wstring& wstrTarget,
                       const std::vector<std::pair<const wchar_t*, std::wstring>>& vecKeys, AgentOs& os,
                       const char* szScope)
{
    QZ_TRACE_SCOPE(MODULE, szScope);
    const std::wstring wstrTmp = wstrTarget + L".tmp~";
    QZ_TRACE_I(L"%hs: wstrTmpLogPath: '%ls'", QZ_SCOPE_NAME, wstrTmp);
    os.RemoveFile(wstrTmp);
    for (const auto& [szKey, wstrValue] : vecKeys)
        QZSTD::WriteProfileString(wstrTmp, RESPONSE_SECTION, szKey, wstrValue.c_str());
    QZSTD::FlushProfile(wstrTmp);
    QZ_TRACE_I(L"%hs: Copy result file to: '%ls'", QZ_SCOPE_NAME, wstrTarget);
    if (!os.RenameFile(wstrTmp, wstrTarget)) {
        QZ_TRACE_E(L"%hs: '%ls' could not be moved onto '%ls'.", QZ_SCOPE_NAME, wstrTmp, wstrTarget);
        os.RemoveFile(wstrTmp);
    }
}

std::wstring OrDefault(const std::wstring& wstrName, const wchar_t* szDefault)
{
    return wstrName.empty() ? std::wstring(szDefault) : wstrName;
}

// Adds the entry szEntry: a nested Params that maps the task id to the value (nothing when it is null).
void AddByTaskId(QZPAR::Params* pEntries, const wchar_t* szEntry, const std::wstring& wstrTaskId,
                 QZPAR::Value* pValue)
{
    QZSTD::CAutoPtr<QZPAR::Params> pByTask = QZPAR::CreateParams();
    if (pValue)
        pByTask->AddValue(wstrTaskId.c_str(), pValue);
    QZPAR::SetParamsValue(pEntries, szEntry, pByTask);
}

}  // namespace

const wchar_t* UserActionSuffix(int32_t nUserAction)
{
    switch (nUserAction) {
        case USER_ACTION_ASK:
            return L"_USR_ASK";
        case USER_ACTION_DEFER:
            return L"_USR_DEF";
        case USER_ACTION_OK:
            return L"_USR_OK";
        case USER_ACTION_FORCE:
            return L"_USR_FRC";
        case USER_ACTION_SKIP_SERVER:
            return L"_USR_SKSRV";
        case USER_ACTION_REBOOT_NOW:
            return L"_USR_RBTR";
        case USER_ACTION_REBOOT_LATER:
            return L"_USR_RBTP";
        default:
            return L"";
    }
}

int32_t UserActionRebootState(int32_t nUserAction)
{
    return nUserAction == USER_ACTION_REBOOT_NOW || nUserAction == USER_ACTION_REBOOT_LATER ? 1 : 0;
}

int32_t RiwrapReportResult(const RiWrpData& data, const RiResult& rslt, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::RiwrapReportResult");
    int32_t nResult = rslt.m_nProcessResult;
    try {
        nResult = ReportResult(data, rslt, services);
        if (data.m_bSilentModeCmdLine && !data.m_wstrTaskId.empty() && rslt.m_nProcessResult == 0)
            RequestPxgReboot(data, data.m_wstrTaskId, rslt, services);
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    return nResult;
}

int32_t ReportResult(const RiWrpData& data, const RiResult& rslt, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::ReportResult");
    QZ_TRACE_I(L"%hs: Now let's report result: %d, %d, %d, %d", QZ_SCOPE_NAME, rslt.m_nProcessResult,
               rslt.m_nResultCode, rslt.m_nScriptResultCode, rslt.m_nErrClass);
    if (!rslt.m_wstrDescription.empty())
        QZ_TRACE_I(L"%hs: Description: '%ls'", QZ_SCOPE_NAME, rslt.m_wstrDescription);
    if (rslt.m_rebootState != 0)
        QZ_TRACE_I(L"%hs: Reboot state: %d", QZ_SCOPE_NAME, rslt.m_rebootState);
    if (!data.m_bSilentModeCmdLine) {
        QZ_TRACE_I(L"%hs: Skip report result - not silent mode", QZ_SCOPE_NAME);
        return rslt.m_nProcessResult;
    }
    if (data.m_wstrTaskId.empty())
        return WriteSetupLog(data.m_wstrDirPath, rslt, data.m_wstrResultFileName, data.m_wstrDescrFileName,
                             data.m_wstrUnicodeDescrFileName, services);
    if (rslt.m_nProcessResult != 0) {
        QZ_TRACE_I(L"%hs: Process result: %d", QZ_SCOPE_NAME, rslt.m_nProcessResult);
        return rslt.m_nProcessResult;
    }
    QZ_TRACE_I(L"%hs: TaskId = '%ls'", QZ_SCOPE_NAME, data.m_wstrTaskId);
    ReportResultSS(data.m_wstrTaskId, rslt,
                   QZTSK::CheckCreateZombieFile(data.m_wstrDirPath, rslt.m_rebootState), services);
    return rslt.m_nProcessResult;
}

void ReportResultSS(const std::wstring& wstrTaskId, const RiResult& rslt, const std::wstring& wstrZombiePath,
                    const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::ReportResultSS");
    const std::wstring wstrFolder =
        QZTSK::GetLocalWritableFolder(QZTSK::GetE2sStoragePath(), *services.m_pRegistry);
    if (wstrFolder.empty()) {
        QZ_TRACE_E(L"Can't detect local writable folder.\n");
        return;
    }
    const std::wstring wstrPath = WithTrailingSeparator(wstrFolder) + E2S_SUBSCRIPTION_FILE;
    QZ_TRACE_I(L"e2s_subscription folder: %ls\n", wstrFolder);
    QZ_TRACE_I(L"e2s_subscription: %ls\n", wstrPath);
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage;
    try {
        pStorage = QZSTD::SettingsStorage::OpenOrCreate(wstrPath);
        QZ_TRACE_I(L"QZPRSS_CreateSettingsStorage: %ls\n", L"succeed");
    } catch (const QZSTD::QZError&) {
        QZ_TRACE_E(L"QZPRSS_CreateSettingsStorage: %ls\n", L"failed");
        throw;
    }
    QZSTD::CAutoPtr<QZPAR::Params> pEntries = QZPAR::CreateParams();
    AddByTaskId(pEntries, L"TASK_ID", wstrTaskId, QZPAR::CreateBool(false));
    AddByTaskId(pEntries, L"TASK_ID_RSLT_CODE", wstrTaskId, QZPAR::CreateInt(rslt.m_nScriptResultCode));
    AddByTaskId(pEntries, L"TASK_ID_RSLT_DESCR", wstrTaskId,
                rslt.m_wstrDescription.empty() ? nullptr : QZPAR::CreateString(rslt.m_wstrDescription).Get());
    AddByTaskId(pEntries, L"TASK_ID_DEL_ON_RESTART", wstrTaskId,
                wstrZombiePath.empty() ? nullptr : QZPAR::CreateString(wstrZombiePath).Get());
    AddByTaskId(pEntries, L"TASK_ID_ERR_CLASS", wstrTaskId, QZPAR::CreateInt(rslt.m_nErrClass));
    pStorage->CreateSection(QZTSK::c_szSubscrProduct, QZTSK::c_szSubscrVersion, QZTSK::c_szSubscrSection);
    QZ_TRACE_I(L"%hs: Ready to replace pSection:", QZ_SCOPE_NAME);
    QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(pEntries));
    // Merged, so that the entries of other tasks in the same nested Params stay.
    pStorage->MergeEntries(QZTSK::c_szSubscrProduct, QZTSK::c_szSubscrVersion, QZTSK::c_szSubscrSection,
                           pEntries);
}

int32_t WriteSetupLog(const std::wstring& wstrFolder, const RiResult& rslt,
                      const std::wstring& wstrResultFile, const std::wstring& wstrDescrFile,
                      const std::wstring& wstrUnicodeDescrFile, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::WriteSetupLog");
    const std::wstring wstrResultPath = wstrFolder + OrDefault(wstrResultFile, SETUP_LOG_FILE);
    const std::wstring wstrZombie = QZTSK::CheckCreateZombieFile(wstrFolder, rslt.m_rebootState);
    if (!rslt.m_wstrDescription.empty())
        WriteDescriptionFiles(rslt.m_wstrDescription, wstrFolder + OrDefault(wstrDescrFile, DESCR_FILE),
                              wstrFolder + OrDefault(wstrUnicodeDescrFile, UNICODE_DESCR_FILE));
    std::vector<std::pair<const wchar_t*, std::wstring>> vecKeys{
        {L"ProcessResultCode", std::to_wstring(rslt.m_nProcessResult)}};
    if (rslt.m_nProcessResult == 0) {
        vecKeys.emplace_back(L"ResultCode", std::to_wstring(rslt.m_nResultCode));
        if (rslt.m_nErrClass != 0)
            vecKeys.emplace_back(L"ErrorClass", std::to_wstring(rslt.m_nErrClass));
        // -50 (a removal that needs a restart) counts as 0 here: both leave a script result and,
        // with a pending restart, the zombie file to report.
        const bool bFinished = rslt.m_nResultCode == QZRI_RSLT_NO_ERROR ||
                               rslt.m_nResultCode == QZRI_RSLT_CLEANER_RESTART_NEEDED;
        if (bFinished && !wstrZombie.empty())
            vecKeys.emplace_back(L"RebootZombieFile", wstrZombie);
        if (bFinished)
            vecKeys.emplace_back(L"ScriptResultCode", std::to_wstring(rslt.m_nScriptResultCode));
    }
    WriteResponseFile(wstrResultPath, vecKeys, *services.m_pOs, "QZRI::WriteSetupLog");
    return rslt.m_nProcessResult;
}

std::wstring ResultTimeText(const AgentServices& services)
{
    const long long nMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(services.m_pClock->Now().time_since_epoch())
            .count();
    std::wstring wstrMs = std::to_wstring(nMs % 1000);
    wstrMs.insert(0, 3 - wstrMs.size(), L'0');
    return std::to_wstring(nMs / 1000) + L"." + wstrMs;
}

void WriteUserActionSetupLog(const std::wstring& wstrFolder, int32_t nUserAction,
                             const AgentServices& services)
{
    WriteResponseFile(
        wstrFolder + USER_ACTION_FILE,
        {{L"ResultCode", std::to_wstring(nUserAction)}, {L"ResultTime", ResultTimeText(services)}},
        *services.m_pOs, "QZRI::WriteUserActionSetupLog");
}

void ReportUserAction(const RiWrpData& data, int32_t nUserAction, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "ReportUserAction");
    QZ_TRACE_I(L"%hs: Now let's report user action '%d'", QZ_SCOPE_NAME, nUserAction);
    try {
        if (data.m_wstrTaskId.empty()) {
            WriteUserActionSetupLog(data.m_wstrDirPath, nUserAction, services);
            return;
        }
        const std::wstring wstrVirtualTaskId = data.m_wstrTaskId + UserActionSuffix(nUserAction);
        QZ_TRACE_I(L"%hs: wstrVirtualTaskId = '%ls'", QZ_SCOPE_NAME, wstrVirtualTaskId);
        RiResult rslt;
        rslt.m_wstrDescription = ResultTimeText(services);
        rslt.m_rebootState = UserActionRebootState(nUserAction);
        ReportResultSS(wstrVirtualTaskId, rslt, std::wstring(), services);
        RequestPxgReboot(data, wstrVirtualTaskId, rslt, services);
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
    }
}

}  // namespace QZRI
