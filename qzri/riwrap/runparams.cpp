// The run-parameters file "$qzriwrp.ini" in the package folder: the only state of a task that
// survives a service restart or a reboot. Section "Setup" holds "action" (decimal QzriAction),
// "start_counter" (decimal) and "cmdline" (the first start's command line in the "$HEX_" form, so
// that quotes, line breaks and characters outside the ANSI code page survive the ini file).
#include <string>

#include "common/ristrutils.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/profile.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const wchar_t* SETUP_SECTION = L"Setup";
constexpr const wchar_t* ACTION_KEY = L"action";
constexpr const wchar_t* COUNTER_KEY = L"start_counter";
constexpr const wchar_t* CMDLINE_KEY = L"cmdline";
constexpr size_t VALUE_BUF_CHARS = 4096;
// The "$HEX_" form takes four digits per UTF-16 unit: a buffer of 4096 characters would cut every
// command line longer than 1022 characters, and a cut value no longer decodes. This one holds the
// longest command line Windows accepts (32767 units).
constexpr size_t CMDLINE_BUF_CHARS = 5 + 32767 * 4 + 1;

std::wstring ReadSetupValue(const std::wstring& wstrFile, const wchar_t* szKey, size_t nBufChars)
{
    return QZSTD::GetProfileString(wstrFile, SETUP_SECTION, szKey, L"", nBufChars);
}

bool WriteSetupValue(const std::wstring& wstrFile, const wchar_t* szKey, const std::wstring& wstrValue)
{
    return QZSTD::WriteProfileString(wstrFile, SETUP_SECTION, szKey, wstrValue.c_str());
}

}  // namespace

const wchar_t* ActionName(int nAction)
{
    switch (nAction) {
        case QZRI_ACTION_RUN:
            return L"QZRI_ACTION_RUN";
        case QZRI_ACTION_RUNNING_SETUP:
            return L"QZRI_ACTION_RUNNING_SETUP";
        case QZRI_ACTION_CHECK_RESULT:
            return L"QZRI_ACTION_CHECK_RESULT";
        case QZRI_ACTION_ASK_USER:
            return L"QZRI_ACTION_ASK_USER";
        default:
            return L"unknown";
    }
}

bool IsKnownAction(int nAction)
{
    return nAction >= QZRI_ACTION_RUN && nAction <= QZRI_ACTION_ASK_USER;
}

// The routine names itself in its first line, so that line carries no scope prefix.
void RiWrpData::GetServiceRunParams()
{
    QZ_TRACE_SCOPE("QZRIWRP", "RiWrpData::GetServiceRunParams");
    const std::wstring wstrFile = RunParamsFilePath();
    QZ_TRACE_I(L"RiWrpData::GetServiceRunParams from %ls\n", wstrFile);
    m_eAct = static_cast<QzriAction>(ParseDecimal(ReadSetupValue(wstrFile, ACTION_KEY, VALUE_BUF_CHARS)));
    m_nStartCounter = ParseDecimal(ReadSetupValue(wstrFile, COUNTER_KEY, VALUE_BUF_CHARS));
    m_wstrSavedCmdLine = DecodeHexString(ReadSetupValue(wstrFile, CMDLINE_KEY, CMDLINE_BUF_CHARS));
    QZ_TRACE_I(L"%hs: m_eAct = %d (%ls), m_nStartCounter = %d.\n", QZ_SCOPE_NAME, static_cast<int>(m_eAct),
               ActionName(m_eAct), m_nStartCounter);
}

bool RiWrpData::SetServiceRunParams(QzriAction eAction)
{
    QZ_TRACE_SCOPE("QZRIWRP", "RiWrpData::SetServiceRunParams");
    QZ_TRACE_I(L"Starting RiWrpData::SetServiceRunParams(%d, %d)...\n", static_cast<int>(eAction),
               m_nStartCounter);
    const std::wstring wstrFile = RunParamsFilePath();
    bool bWritten = WriteSetupValue(wstrFile, ACTION_KEY, std::to_wstring(static_cast<int>(eAction)));
    // The counter counts planned reruns, which the service restarts with QZRI_ACTION_RUN; checking the
    // result or asking the user is not another attempt at the setup.
    if (eAction == QZRI_ACTION_RUN) {
        const std::wstring wstrCounter = std::to_wstring(static_cast<long long>(m_nStartCounter) + 1);
        QZ_TRACE_I(L"%hs: Set %ls to %ls in %ls\n", QZ_SCOPE_NAME, COUNTER_KEY, wstrCounter, wstrFile);
        bWritten = WriteSetupValue(wstrFile, COUNTER_KEY, wstrCounter) && bWritten;
    }
    bWritten = WriteSetupValue(wstrFile, CMDLINE_KEY, EncodeHexString(m_wstrSavedCmdLine)) && bWritten;
    if (!bWritten)
        QZ_TRACE_E(L"%hs: '%ls' could not be written.\n", QZ_SCOPE_NAME, wstrFile);
    return bWritten;
}

}  // namespace QZRI
