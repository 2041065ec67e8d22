// The reboot agent's command line, texts and settings (every platform).
#include "qzri/rbtagt/rbtagt.h"

#include <algorithm>
#include <chrono>
#include <cwchar>
#include <fstream>

#include "common/inifileparser.h"
#include "common/qpdfile.h"
#include "common/ristrutils.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/cmdline.h"
#include "std/fspath.h"
#include "std/profile.h"
#include "std/strconv.h"

namespace QZRBTAGT {
namespace {

struct TextEntry
{
    const wchar_t* m_szKey;
    const wchar_t* m_szEnglish;
};
constexpr TextEntry TEXTS[TEXT_COUNT] = {
    {L"ConsentTitle", L"Installation"},
    {L"ConsentMessage", L"%PRODUCT% is ready to be installed on this computer.\n\nInstall it now, or later?"},
    {L"InstallNow", L"&Install now"},
    {L"Later", L"&Later"},
    {L"ConsentCountdown", L"The default choice applies in %SECONDS% s."},
    {L"RebootTitle", L"Restart required"},
    {L"RebootMessage", L"The computer must restart to complete the installation.\n\nSave your work first."},
    {L"RestartNow", L"&Restart now"},
    {L"RestartLater", L"Restart &later"},
    {L"RebootCountdown", L"The computer restarts in %SECONDS% s."},
};

bool StartsWithKey(const std::wstring& wstrWord, const wchar_t* szKey, std::wstring* pValue)
{
    const std::wstring wstrPrefix = std::wstring(szKey) + L"=";
    if (wstrWord.compare(0, wstrPrefix.size(), wstrPrefix) != 0)
        return false;
    *pValue = wstrWord.substr(wstrPrefix.size());
    return true;
}

void ReplaceAll(std::wstring& wstr, const std::wstring& wstrWhat, const std::wstring& wstrWith)
{
    for (size_t n = wstr.find(wstrWhat); n != std::wstring::npos;
         n = wstr.find(wstrWhat, n + wstrWith.size()))
        wstr.replace(n, wstrWhat.size(), wstrWith);
}

Arguments Refused(std::wstring wstrWhy)
{
    Arguments args;
    args.m_wstrError = std::move(wstrWhy);
    return args;
}

}  // namespace

Arguments ParseArguments(const std::wstring& wstrCmdLine)
{
    Arguments args;
    const std::vector<std::wstring> vecWords = QZSTD::SplitCommandLine(wstrCmdLine);
    for (size_t n = 1; n < vecWords.size(); ++n) {
        std::wstring wstrValue;
        if (StartsWithKey(vecWords[n], L"PreInstall", &wstrValue)) {
            args.m_bPreInstall = wstrValue == L"1";
        } else if (StartsWithKey(vecWords[n], L"SID", &wstrValue)) {
            const bool bDigits = !wstrValue.empty() && wstrValue.size() <= 9 &&
                                 wstrValue.find_first_not_of(L"0123456789") == std::wstring::npos;
            if (!bDigits)
                return Refused(L"SID is not a session number: '" + wstrValue + L"'");
            args.m_nSessionId = std::stoul(wstrValue);
        } else if (StartsWithKey(vecWords[n], TASK_ID_KEY, &wstrValue)) {
            args.m_wstrTaskId = wstrValue;
        } else if (StartsWithKey(vecWords[n], AGENT_KEY, &wstrValue)) {
            try {
                args.m_wstrAgent = QZRI::DecodeHexString(wstrValue);
            } catch (const std::exception&) {
                return Refused(L"Agent is not a $HEX_ text");
            }
            if (args.m_wstrAgent.empty() || args.m_wstrAgent.find_first_of(L"/\\:") != std::wstring::npos)
                return Refused(L"Agent is not a file name of the package folder");
        } else if (StartsWithKey(vecWords[n], RUN_AFTER_RESTART_KEY, &wstrValue)) {
            try {
                args.m_wstrRunAfterRestart = QZRI::DecodeHexString(wstrValue);
            } catch (const std::exception&) {
                return Refused(L"RunAfterRestart is not a $HEX_ text");
            }
        } else {
            return Refused(L"unknown argument '" + vecWords[n] + L"'");
        }
    }
    if (args.m_bPreInstall && !args.m_wstrRunAfterRestart.empty())
        args.m_wstrError =
            L"PreInstall=1 asks before an installation: there is nothing to run after a restart";
    return args;
}

const wchar_t* TextKey(TextId eId)
{
    return TEXTS[eId].m_szKey;
}

const wchar_t* EnglishText(TextId eId)
{
    return TEXTS[eId].m_szEnglish;
}

Texts LoadTexts(const std::wstring& wstrLanguageFile)
{
    Texts texts;
    QZSTD::CAutoPtr<QZRI::IniFileParser> pIni;
    if (!wstrLanguageFile.empty()) {
        try {
            // The language files are written in UTF-8 so that every language fits.
            pIni = QZRI::IniFileParser::Create(wstrLanguageFile, nullptr, true);
        } catch (const std::exception&) {
            pIni = nullptr;
        }
    }
    for (int n = 0; n < TEXT_COUNT; ++n) {
        const TextId eId = static_cast<TextId>(n);
        std::wstring wstrText = pIni ? pIni->GetString(L"qzrbtagt", TextKey(eId), L"") : std::wstring();
        if (wstrText.empty()) {
            texts.m_vecMissing.push_back(TextKey(eId));
            wstrText = EnglishText(eId);
        }
        // An ini value is one line: "\n" in it stands for a line break.
        ReplaceAll(wstrText, L"\\n", L"\n");
        texts.m_vec[n] = wstrText;
    }
    return texts;
}

std::wstring FormatText(const std::wstring& wstrTemplate, const std::wstring& wstrProduct, int nSeconds)
{
    std::wstring wstr = wstrTemplate;
    ReplaceAll(wstr, L"%PRODUCT%", wstrProduct);
    ReplaceAll(wstr, L"%SECONDS%", std::to_wstring(nSeconds));
    return wstr;
}

ConsentSettings ReadConsentSettings(const QZRI::QpdFile& qpd)
{
    ConsentSettings settings;
    settings.m_wstrProduct = qpd.GetString(L"Product", L"DisplayName", L"");
    if (settings.m_wstrProduct.empty())
        settings.m_wstrProduct = qpd.GetString(L"Product", L"Name", L"The package");
    settings.m_nCountdownSec = std::max(0, qpd.GetInt(L"Setup", L"AskUserTimeoutSec", 0));
    settings.m_nDefaultAnswer =
        qpd.GetInt(L"Setup", L"AskUserDefaultAnswer", 0) == 1 ? EXIT_INSTALL_NOW : EXIT_LATER;
    return settings;
}

RebootSettings ReadRebootSettings(const std::wstring& wstrSettingsFile)
{
    RebootSettings settings;
    if (QZSTD::GetProfileInt(wstrSettingsFile, L"Action", L"RebootImmediately", 0) > 0)
        settings.m_eMode = RebootSettings::IMMEDIATE;
    else if (QZSTD::GetProfileInt(wstrSettingsFile, L"Action", L"AskReboot", 1) == 0)
        settings.m_eMode = RebootSettings::NONE;
    settings.m_nMaxDeferrals =
        std::max(0, QZSTD::GetProfileInt(wstrSettingsFile, L"Action", L"MaxDeferrals", 0));
    settings.m_nRemindSec =
        std::max(1, QZSTD::GetProfileInt(wstrSettingsFile, L"Action", L"RemindSec", 3600));
    settings.m_nCountdownSec =
        std::max(1, QZSTD::GetProfileInt(wstrSettingsFile, L"Action", L"CountdownSec", 300));
    settings.m_nDeferrals = std::max(0, QZSTD::GetProfileInt(wstrSettingsFile, L"State", L"Deferrals", 0));
    return settings;
}

void CountDeferral(const std::wstring& wstrSettingsFile, RebootSettings& settings)
{
    ++settings.m_nDeferrals;
    QZSTD::WriteProfileString(wstrSettingsFile, L"State", L"Deferrals",
                              std::to_wstring(settings.m_nDeferrals).c_str());
    QZSTD::FlushProfile(wstrSettingsFile);
}

bool DryRunRestarter::Restart(const std::wstring& wstrRunAfterRestart)
{
    std::ofstream file(QZSTD::FsPath(m_wstrFile), std::ios::app | std::ios::binary);
    file << "restart\n";
    if (!wstrRunAfterRestart.empty())
        file << "run after restart: " << QZSTD::WideToUtf8(wstrRunAfterRestart) << "\n";
    return static_cast<bool>(file);
}

void ReportAnswer(const Arguments& args, const std::wstring& wstrFolder, int nUserAction,
                  const QZRI::AgentServices& services)
{
    QZRI::RiWrpData data;
    data.m_wstrDirPath = wstrFolder;
    data.m_wstrTaskId = args.m_wstrTaskId;
    QZRI::ReportUserAction(data, nUserAction, services);
}

}  // namespace QZRBTAGT
