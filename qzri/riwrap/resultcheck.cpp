// The result evaluation and the reboot decision.
#include "qzri/riwrap/resultcheck.h"

#include <fstream>
#include <iterator>

#include "common/ansicp.h"
#include "common/inifileparser.h"
#include "common/qztsk.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/autostart.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/reports.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/waits.h"
#include "std/profile.h"
#include "std/shutdown.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const wchar_t* MANAGED_BY_OTHER_SERVER_TEXT =
    L"Installation is not required. Host is managed by another Server";

// A value of the package's list, or nothing when the code is not listed.
bool FindListed(const QpdFile& qpd, const std::wstring& wstrSection, int32_t nCode, std::wstring& wstrText)
{
    QpdValueOrigin eOrigin = QpdValueOrigin::ABSENT;
    wstrText = qpd.GetString(wstrSection, std::to_wstring(nCode), L"", &eOrigin);
    return eOrigin != QpdValueOrigin::ABSENT;
}

// The text of a description file: UTF-16 (with or without a byte-order mark) or the ANSI code page.
// The text of a file the setup wrote, without its trailing line breaks: UTF-16 (with or without a
// byte-order mark) or the ANSI code page. Empty when the file is not there.
std::wstring ReadSetupText(const std::wstring& wstrPath, bool bUtf16)
{
    std::ifstream in(PathFromWide(wstrPath), std::ios::binary);
    const std::string strBytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::wstring wstrText = bUtf16 ? QZSTD::Utf16LeBytesToWide(strBytes) : AnsiToWide(strBytes);
    while (!wstrText.empty() &&
           (wstrText.back() == L'\n' || wstrText.back() == L'\r' || wstrText.back() == 0))
        wstrText.pop_back();
    return wstrText;
}

// The description file the package names for the kind ("DescriptionFileU" first); empty when it names
// none or the file is not there.
std::wstring DescriptionFromFile(const QpdFile& qpd, const std::wstring& wstrKind)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::ParseResultCode");
    for (const bool bUtf16 : {true, false}) {
        const std::wstring wstrPath =
            qpd.GetString(wstrKind, bUtf16 ? L"DescriptionFileU" : L"DescriptionFile", L"");
        if (wstrPath.empty())
            continue;
        const std::wstring wstrText = ReadSetupText(wstrPath, bUtf16);
        if (!wstrText.empty()) {
            QZ_TRACE_I(L"Description from %ls: %ls\n", wstrPath, wstrText);
            return wstrText;
        }
    }
    return std::wstring();
}

int32_t FailReasonOf(const QpdFile& qpd, const std::wstring& wstrKind, int32_t nCode,
                     const IniFileParser& result, const std::wstring& wstrSection)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::ParseResultCode");
    std::wstring wstrReason;
    if (FindListed(qpd, wstrKind + L"_FailReasons", nCode, wstrReason)) {
        const int32_t nReason = ParseDecimal(wstrReason);
        QZ_TRACE_I(L"Qpd-based reason value: %d\n", nReason);
        return nReason;
    }
    const std::wstring wstrValue = qpd.GetString(wstrKind, L"FailReasonValue", L"");
    if (!wstrValue.empty()) {
        QZ_TRACE_I(L"Look for fail reason value in section %ls\n", wstrSection);
        QZ_TRACE_I(L"Look for fail reason value in value %ls\n", wstrValue);
        wstrReason = result.GetString(wstrSection, wstrValue, L"");
        QZ_TRACE_I(L"Fail reason value: %ls\n", wstrReason);
    }
    if (wstrReason.empty()) {
        QZ_TRACE_I(L"Fail reason not set.\n");
        return -1;
    }
    const int32_t nReason = ParseDecimal(wstrReason);
    QZ_TRACE_I(L"Fail reason %d\n", nReason);
    return nReason;
}

const QpdFile& PackageOf(const RiWrpData& data)
{
    static const QZSTD::CAutoPtr<QpdFile> s_pNone = QpdFile::Create();
    return data.m_pQpd ? *data.m_pQpd : *s_pNone;
}

}  // namespace

std::wstring ResultFilePathOf(const RiWrpData& data, const std::wstring& wstrKind)
{
    const std::wstring wstrFile = PackageOf(data).GetString(wstrKind, L"File", L"");
    return wstrFile.empty() || IsAbsolutePath(wstrFile) ? wstrFile : data.m_wstrExecDirPath + wstrFile;
}

ClassifiedCode ClassifyCode(const QpdFile& qpd, const std::wstring& wstrKind, int32_t nCode)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::ParseResultCode");
    ClassifiedCode result;
    if (FindListed(qpd, wstrKind + L"_ErrorCodes", nCode, result.wstrDescription)) {
        result.eClass = CodeClass::LISTED_ERROR;
        QZ_TRACE_I(L"Description from error result code: %ls\n", result.wstrDescription);
    } else if (FindListed(qpd, wstrKind + L"_WarningCodes", nCode, result.wstrDescription)) {
        result.eClass = CodeClass::LISTED_WARNING;
        QZ_TRACE_I(L"Description from warning result code: %ls\n", result.wstrDescription);
    } else if (FindListed(qpd, wstrKind + L"_SuccessCodes", nCode, result.wstrDescription)) {
        result.eClass = CodeClass::LISTED_SUCCESS;
        QZ_TRACE_I(L"Description from success result code: %ls\n", result.wstrDescription);
    } else if (nCode == QZRI_RSLT_MANAGED_BY_OTHER_SERVER) {
        result.wstrDescription = MANAGED_BY_OTHER_SERVER_TEXT;
        QZ_TRACE_I(L"Description from default parsing: %ls\n", result.wstrDescription);
    } else {
        result.wstrDescription = std::to_wstring(nCode);
        QZ_TRACE_I(L"Description set to code: %ls\n", result.wstrDescription);
    }
    return result;
}

ParsedResult ParseResultCode(const QpdFile& qpd, const std::wstring& wstrKind,
                             const std::wstring& wstrResultFile)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::ParseResultCode");
    const std::wstring wstrSection = qpd.GetString(wstrKind, L"Section", L"");
    const std::wstring wstrValue = qpd.GetString(wstrKind, L"Value", L"ResultCode");
    QZ_TRACE_I(L"Parse result '%ls', section '%ls'\n", wstrResultFile, wstrSection);
    QZ_TRACE_I(L"Look for sections, success: [%ls], error: [%ls], warning: [%ls]\n",
               wstrKind + L"_SuccessCodes", wstrKind + L"_ErrorCodes", wstrKind + L"_WarningCodes");
    ParsedResult parsed;
    QZSTD::CAutoPtr<IniFileParser> pResult;
    std::wstring wstrCode;
    try {
        pResult = IniFileParser::Create(wstrResultFile);
        wstrCode = pResult->GetString(wstrSection, wstrValue, nullptr);
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        parsed.wstrProblem =
            L"No result code at [" + wstrSection + L"] " + wstrValue + L" of '" + wstrResultFile + L"'.";
        QZ_TRACE_W(L"%hs: %ls\n", QZ_SCOPE_NAME, parsed.wstrProblem);
        return parsed;
    }
    // A code that is no number must not pass for 0, which would read as success.
    const size_t nFirst = wstrCode.find_first_not_of(L"-+ \t");
    if (nFirst == std::wstring::npos || wstrCode[nFirst] < L'0' || wstrCode[nFirst] > L'9') {
        parsed.wstrProblem = L"The result code '" + wstrCode + L"' at [" + wstrSection + L"] " + wstrValue +
                             L" of '" + wstrResultFile + L"' is not a number.";
        QZ_TRACE_E(L"%hs: %ls\n", QZ_SCOPE_NAME, parsed.wstrProblem);
        return parsed;
    }
    parsed.nCode = ParseDecimal(wstrCode);
    parsed.bFound = true;
    QZ_TRACE_I(L"Result: %d\n", parsed.nCode);
    parsed.classified = ClassifyCode(qpd, wstrKind, parsed.nCode);
    parsed.nFailReason = FailReasonOf(qpd, wstrKind, parsed.nCode, *pResult, wstrSection);
    if (std::wstring wstrDescr = DescriptionFromFile(qpd, wstrKind); !wstrDescr.empty())
        parsed.classified.wstrDescription = std::move(wstrDescr);
    return parsed;
}

int32_t RestartLimitOf(const RiWrpData& data)
{
    const int32_t nLimit = PackageOf(data).GetInt(L"Setup", L"MaxRestarts", 0);
    return nLimit > 0 ? nLimit : DEFAULT_MAX_RESTARTS;
}

bool RebootLoopTrips(const RiWrpData& data, int32_t lErrClass)
{
    return lErrClass == ERR_CLASS_REBOOT_AND_RERUN && data.m_nStartCounter >= RestartLimitOf(data);
}

bool CheckNeedRebootAndRerun(RiWrpData& data, int32_t lErrClass, bool bIsFinalCheck,
                             const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "CheckNeedRebootAndRerun");
    QZ_TRACE_I(L"lErrClass = %d, bIsFinalCheck = %d", lErrClass, bIsFinalCheck ? 1 : 0);
    if (lErrClass != ERR_CLASS_REBOOT_AND_RERUN && lErrClass != ERR_CLASS_REBOOT_AND_CHECK)
        return false;
    if (RebootLoopTrips(data, lErrClass)) {
        QZ_TRACE_E(L"%hs: stopped after %d restarts.\n", QZ_SCOPE_NAME, RestartLimitOf(data));
        return false;
    }
    const bool bRerun = lErrClass == ERR_CLASS_REBOOT_AND_RERUN;
    services.m_pAutostart->RegisterAutostart(data, bRerun ? QZRI_ACTION_RUN : QZRI_ACTION_CHECK_RESULT);
    if (bIsFinalCheck)
        ReportUserAction(data, bRerun ? USER_ACTION_REBOOT_NOW : USER_ACTION_REBOOT_LATER, services);
    return true;
}

bool CheckResult(RiWrpData& data, const CheckInput& in, RiResult& rslt, int32_t& nExitCode,
                 const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "CheckResult");
    QZ_TRACE_I(
        L"%hs: bNeedProcessing = %d, bIsNagentUninstall = %d, bCheckProcessResult = %d, "
        L"lProcessResultCode = %d, bIsFinalCheck = %d, bIsFirstPackage = %d",
        QZ_SCOPE_NAME, in.bNeedProcessing, in.bIsNagentUninstall, in.bCheckProcessResult,
        in.lProcessResultCode, in.bIsFinalCheck, in.bIsFirstPackage);
    if (data.m_bSilentModeCmdLine && in.bIsFinalCheck) {
        QZ_TRACE_I(L"%hs: data.m_bSilentModeCmdLine && bIsFinalCheck, unregister autostart", QZ_SCOPE_NAME);
        services.m_pAutostart->UnregisterAutostart(data);
    }
    if (!in.bNeedProcessing) {
        QZ_TRACE_I(L"return false, nExitCode = QZRI_RSLT_NO_ERROR(0)");
        nExitCode = QZRI_RSLT_NO_ERROR;
        return false;
    }
    const QpdFile& qpd = PackageOf(data);
    const int32_t n = in.lProcessResultCode;
    if (in.bNeedWaitForResult) {
        QZ_TRACE_I(L"CheckResult:if bNeedWaitForResult");
        nExitCode = n;
        const bool bOsImage = qpd.GetString(L"Product", L"Name", L"") == L"pxe_osimage_package";
        for (const wchar_t* szKind : {PROCESS_RESULT_KIND, MAIN_RESULT_KIND}) {
            const std::wstring wstrFile = ResultFilePathOf(data, szKind);
            if (wstrFile.empty() || (bOsImage && szKind == MAIN_RESULT_KIND))
                continue;
            const ParsedResult parsed = ParseResultCode(qpd, szKind, wstrFile);
            if (!parsed.bFound) {
                rslt.m_wstrDescription = parsed.wstrProblem;
                continue;
            }
            nExitCode = parsed.nCode;
            rslt.m_wstrDescription = parsed.classified.wstrDescription;
        }
        return true;
    }
    if (in.bIsUninstall && in.bPrimitiveUninst) {
        QZ_TRACE_I(L"CheckResult:if bIsUninstall && bPrimitiveUninst");
        nExitCode = n;
        return true;
    }
    if (n == -1 && data.m_bIsMsi) {
        // Windows Installer's code could not be read: the result is checked after the restart.
        QZ_TRACE_I(L"%hs: n == -1 && data.m_bIsMsi, n ==  '%d'.", QZ_SCOPE_NAME, n);
        CheckNeedRebootAndRerun(data, ERR_CLASS_REBOOT_AND_CHECK, in.bIsFinalCheck, services);
        rslt.m_nErrClass = ERR_CLASS_REBOOT_AND_CHECK;
        nExitCode = QZRI_RSLT_NO_ERROR;
        return true;
    }
    std::wstring wstrListed;
    if (FindListed(qpd, NEED_REBOOT_SECTION, n, wstrListed) &&
        CheckNeedRebootAndRerun(data, ERR_CLASS_REBOOT_AND_CHECK, in.bIsFinalCheck, services)) {
        QZ_TRACE_I(L"CheckResult:else if CheckNeedRebootAndRerun, nExitCode = QZRI_RSLT_NO_ERROR");
        rslt.m_nErrClass = ERR_CLASS_REBOOT_AND_CHECK;
        rslt.m_rebootState = 1;
        nExitCode = QZRI_RSLT_NO_ERROR;
        return true;
    }
    rslt.m_wstrDescription = ClassifyCode(qpd, PROCESS_RESULT_KIND, n).wstrDescription;
    QZ_TRACE_I(L"CheckResult:else else CheckNeedRebootAndRerun (wstrDescr = '%ls')", rslt.m_wstrDescription);
    if (in.bIsFinalCheck || in.bIsFirstPackage)
        QZ_TRACE_I(L"%hs: bIsFinalCheck || bIsFirstPackage, nExitCode = '%d'.", QZ_SCOPE_NAME, n);
    QZ_TRACE_I(L"return true, nExitCode = lProcessResultCode(%d)", n);
    nExitCode = n;
    return true;
}

ResultWait WaitForResultFile(const RiWrpData& data, const std::wstring& wstrKind, long lTimeoutMs,
                             const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "WaitForResult");
    const QpdFile& qpd = PackageOf(data);
    ResultWait wait;
    wait.wstrFile = ResultFilePathOf(data, wstrKind);
    if (wait.wstrFile.empty())
        return wait;
    QZ_TRACE_I(L"Waiting for result: %ls\n", wait.wstrFile);
    AgentOs& os = *services.m_pOs;
    Waits& waits = *services.m_pWaits;
    const uint32_t nStart = waits.TickCount();
    for (;;) {
        if (os.FileExists(wait.wstrFile))
            break;
        const Waits::Slice eSlice = waits.PumpMessagesAndWait(RESULT_WAIT_SLICE_MS);
        if (eSlice == Waits::Slice::QUIT) {
            QZ_TRACE_I(L"WM_QUIT\n");
            wait.eEnd = ResultWaitEnd::QUIT;
            return wait;
        }
        if (eSlice == Waits::Slice::STOPPED) {
            QZ_TRACE_I(L"Stopped.\n");
            wait.eEnd = ResultWaitEnd::STOPPED;
            return wait;
        }
        if (!os.FileExists(data.m_wstrQpdFilePath)) {
            QZ_TRACE_W(L"Qpd file deleted.\n");
            wait.eEnd = ResultWaitEnd::QPD_DELETED;
            return wait;
        }
        const uint32_t nNow = waits.TickCount();
        // The smaller of the two differences: right whether or not the counter wrapped meanwhile.
        const uint32_t nElapsed = std::min<uint32_t>(nNow - nStart, nStart - nNow);
        if (lTimeoutMs == 0 || (lTimeoutMs > 0 && nElapsed > static_cast<uint32_t>(lTimeoutMs))) {
            QZ_TRACE_W(L"Timeout elapsed!\n");
            wait.eEnd = ResultWaitEnd::TIMEOUT;
            return wait;
        }
    }
    QZ_TRACE_I(L"Result ready: %ls\n", wait.wstrFile);
    wait.eEnd = ResultWaitEnd::READY;
    try {
        wait.nValue = IniFileParser::Create(wait.wstrFile)
                          ->GetInt(qpd.GetString(wstrKind, L"Section", L""),
                                   qpd.GetString(wstrKind, L"Value", L"ResultCode"), 0, true);
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    QZ_TRACE_I(L"Result value: %d\n", wait.nValue);
    return wait;
}

namespace {

// True when the wait ended the evaluation (time-out or interruption), which the result then says.
bool EndsEvaluation(ResultWaitEnd eEnd, ProcessedResult& processed)
{
    processed.bTimeout = eEnd == ResultWaitEnd::TIMEOUT;
    processed.bInterrupted =
        eEnd == ResultWaitEnd::STOPPED || eEnd == ResultWaitEnd::QUIT || eEnd == ResultWaitEnd::QPD_DELETED;
    return processed.bTimeout || processed.bInterrupted;
}

std::wstring ReadStdErr(const RiWrpData& data)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::WaitAndProcessResult");
    const std::wstring wstrPath = data.m_wstrExecDirPath + SETUP_STDERR_FILE;
    QZ_TRACE_I(L"Try to read stderr from: %ls\n", wstrPath);
    const std::wstring wstrText = ReadSetupText(wstrPath, false);
    if (!wstrText.empty())
        QZ_TRACE_I(L"Descr from stderr: %ls\n", wstrText);
    return wstrText;
}

}  // namespace

ProcessedResult WaitAndProcessResult(const RiWrpData& data, long lTimeoutMs, const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::WaitAndProcessResult");
    const QpdFile& qpd = PackageOf(data);
    ProcessedResult processed;
    for (const wchar_t* szKind : {MAIN_RESULT_KIND, DETAILED_RESULT_KIND}) {
        const bool bMain = szKind == MAIN_RESULT_KIND;
        QZ_TRACE_I(bMain ? L"Main result file path: %ls\n" : L"Detailed result file path: %ls\n",
                   ResultFilePathOf(data, szKind));
        const ResultWait wait = WaitForResultFile(data, szKind, lTimeoutMs, services);
        if (EndsEvaluation(wait.eEnd, processed))
            return processed;
        if (wait.eEnd != ResultWaitEnd::READY)
            continue;
        processed.parsed = ParseResultCode(qpd, szKind, wait.wstrFile);
        processed.bFound = processed.parsed.bFound;
        processed.wstrDescription = processed.parsed.classified.wstrDescription;
        if (processed.bFound)
            break;
    }
    if (processed.wstrDescription.empty())
        processed.wstrDescription = ReadStdErr(data);
    QZ_TRACE_I(L"Restart result file path: %ls\n", ResultFilePathOf(data, RESTART_RESULT_KIND));
    if (QZSTD::IsShutdownRaised()) {
        QZ_TRACE_I(L"QZRIWrap shutdown.\n");
        processed.bInterrupted = true;
        return processed;
    }
    if (!services.m_pOs->FileExists(data.m_wstrQpdFilePath)) {
        QZ_TRACE_W(L"QPD file not available any longer!\n");
        processed.bInterrupted = true;
        return processed;
    }
    const ResultWait restart = WaitForResultFile(data, RESTART_RESULT_KIND, 0, services);
    const int32_t nRestart = restart.eEnd == ResultWaitEnd::READY ? restart.nValue : 0;
    if (nRestart == 0) {
        QZ_TRACE_I(L"Reboot noot needed.\n");
        return processed;
    }
    QZ_TRACE_I(L"Reboot needed!\n");
    processed.nErrClass =
        nRestart == ERR_CLASS_REBOOT_AND_RERUN ? ERR_CLASS_REBOOT_AND_RERUN : ERR_CLASS_REBOOT_AND_CHECK;
    processed.wstrZombieFile = QZTSK::CheckCreateZombieFile(data.m_wstrDirPath, 1);
    QZ_TRACE_I(L"Zombie file path: %ls\n", processed.wstrZombieFile);
    return processed;
}

bool ReportWaitAndProcessResult(RiWrpData& data, long lTimeoutMs, bool bIsFinalCheck, RiResult& rslt,
                                const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, "ReportWaitAndProcessResult");
    const ProcessedResult processed = WaitAndProcessResult(data, lTimeoutMs, services);
    if (processed.bTimeout) {
        QZ_TRACE_I(L"ReportWaitAndProcessResult: if bTimeoutOccured");
        rslt.m_nResultCode = QZRI_RSLT_TIMEOUT;
        rslt.m_wstrDescription = MSG_TIMEOUT_EXPIRED.m_szText;
        services.m_pReports->ReportResult(data, MSG_TIMEOUT_EXPIRED, QZRI_RSLT_TIMEOUT);
        return true;
    }
    if (processed.bInterrupted)
        return true;
    if (!processed.bFound && processed.nErrClass == 0)
        return false;
    rslt.m_nResultCode = processed.bFound ? processed.parsed.nCode : QZRI_RSLT_NO_ERROR;
    rslt.m_nScriptResultCode = rslt.m_nResultCode;
    rslt.m_wstrDescription = processed.wstrDescription;
    rslt.m_nErrClass = processed.nErrClass;
    if (const int32_t nLimit = RestartLimitOf(data); RebootLoopTrips(data, processed.nErrClass)) {
        // The setup asks for yet another reboot and rerun: stop, distinctly from an ordinary failure.
        rslt.m_nResultCode = QZRI_RSLT_REBOOT_LOOP;
        rslt.m_nErrClass = 0;
        rslt.m_wstrDescription = L"Stopped after " + std::to_wstring(nLimit) +
                                 L" restarts: the setup asked for a reboot and a rerun each time.";
        QZ_TRACE_E(L"%hs: %ls\n", QZ_SCOPE_NAME, rslt.m_wstrDescription);
        services.m_pAutostart->UnregisterAutostart(data);
        RiwrapReportResult(data, rslt, services);
        return true;
    }
    QZ_TRACE_I(L"ReportWaitAndProcessResult: else CheckNeedRebootAndRerun");
    if (CheckNeedRebootAndRerun(data, processed.nErrClass, bIsFinalCheck, services)) {
        QZ_TRACE_I(L"ReportWaitAndProcessResult: if CheckNeedRebootAndRerun");
        rslt.m_rebootState = 1;
    } else {
        QZ_TRACE_I(L"ReportWaitAndProcessResult: Need finish");
        services.m_pAutostart->UnregisterAutostart(data);
    }
    RiwrapReportResult(data, rslt, services);
    QZ_TRACE_I(L"%hs: rslt.m_rebootState = '%d'.", QZ_SCOPE_NAME, rslt.m_rebootState);
    return true;
}

bool WaitForSetupProcess(const RiWrpData& data)
{
    QZ_TRACE_SCOPE(MODULE, "WaitForSetupProcess");
    if (!data.m_pSetupWaiter)
        return true;
    while (!data.m_pSetupWaiter->Wait(1000)) {
    }
    const int32_t nCode = static_cast<int32_t>(data.m_pSetupWaiter->ExitCode());
    if (nCode == 0)
        return true;
    QZ_TRACE_W(L"%hs: the setup process ended with %ls.\n", QZ_SCOPE_NAME, DescribeResultCode(nCode));
    LogSetupProcessFailure(data, nCode);
    return false;
}

void LogSetupProcessFailure(const RiWrpData& data, int32_t nCode)
{
    QZ_TRACE_SCOPE(MODULE, "LogSetupProcessFailure");
    const std::wstring wstrLog = data.m_wstrDirPath + SETUP_LOG_FILE;
    if (!QZSTD::WriteProfileString(wstrLog, RESPONSE_SECTION, L"ProcessResultCode",
                                   std::to_wstring(nCode).c_str()))
        QZ_TRACE_E(L"%hs: '%ls' could not be written.\n", QZ_SCOPE_NAME, wstrLog);
}

}  // namespace QZRI
