// The reboot agent's Win32 side: the entry, the two dialogues (from rbtagt.rc) and the restart.
#include <windows.h>

#include <commctrl.h>

#include <memory>
#include <string>
#include <vector>

#include "common/localization.h"
#include "common/qpdfile.h"
#include "common/registry.h"
#include "qzri/rbtagt/rbtagt.h"
#include "qzri/rbtagt/resource.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/clock.h"
#include "qzri/riwrap/pkgsettings.h"
#include "qzri/riwrap/rebootrequest.h"
#include "std/trace.h"

namespace QZRBTAGT {
namespace {

constexpr const char* MODULE = "QZRBTAGT";
constexpr UINT_PTR COUNTDOWN_TIMER = 1;
constexpr const wchar_t* RUN_ONCE_KEY = L"Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
constexpr const wchar_t* RUN_ONCE_VALUE = L"QZ Deployment Wrapper task";

std::wstring OwnFolder()
{
    std::vector<wchar_t> vecPath(32768);
    const DWORD n = ::GetModuleFileNameW(nullptr, vecPath.data(), static_cast<DWORD>(vecPath.size()));
    std::wstring wstrPath(vecPath.data(), n);
    return wstrPath.substr(0, wstrPath.find_last_of(L'\\') + 1);
}

std::vector<std::wstring> FileNamesIn(const std::wstring& wstrFolder)
{
    std::vector<std::wstring> vecNames;
    WIN32_FIND_DATAW data;
    const HANDLE hFind = ::FindFirstFileW((wstrFolder + L"*").c_str(), &data);
    if (hFind == INVALID_HANDLE_VALUE)
        return vecNames;
    do {
        if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
            vecNames.push_back(data.cFileName);
    } while (::FindNextFileW(hFind, &data));
    ::FindClose(hFind);
    return vecNames;
}

// What a dialogue shows and how its countdown ends.
struct DialogState
{
    std::wstring m_wstrTitle;
    std::wstring m_wstrMessage;
    std::wstring m_wstrYes;
    std::wstring m_wstrNo;
    std::wstring m_wstrCountdown;  // template with %SECONDS%; empty: no countdown
    int m_nSeconds = 0;
    int m_nNoId = IDNO;       // the id of the second button
    int m_nTimeoutId = IDNO;  // what the countdown's end answers
    bool m_bNoEnabled = true;
};

void ShowCountdown(HWND hDlg, const DialogState& state)
{
    ::SetDlgItemTextW(hDlg, IDC_COUNTDOWN, FormatText(state.m_wstrCountdown, L"", state.m_nSeconds).c_str());
}

INT_PTR CALLBACK DialogProc(HWND hDlg, UINT nMsg, WPARAM wParam, LPARAM lParam)
{
    auto* pState = reinterpret_cast<DialogState*>(::GetWindowLongPtrW(hDlg, DWLP_USER));
    switch (nMsg) {
        case WM_INITDIALOG:
            pState = reinterpret_cast<DialogState*>(lParam);
            ::SetWindowLongPtrW(hDlg, DWLP_USER, lParam);
            ::SetWindowTextW(hDlg, pState->m_wstrTitle.c_str());
            ::SetDlgItemTextW(hDlg, IDC_MESSAGE, pState->m_wstrMessage.c_str());
            ::SetDlgItemTextW(hDlg, IDYES, pState->m_wstrYes.c_str());
            ::SetDlgItemTextW(hDlg, pState->m_nNoId, pState->m_wstrNo.c_str());
            ::EnableWindow(::GetDlgItem(hDlg, pState->m_nNoId), pState->m_bNoEnabled);
            if (!pState->m_wstrCountdown.empty()) {
                ShowCountdown(hDlg, *pState);
                ::SetTimer(hDlg, COUNTDOWN_TIMER, 1000, nullptr);
            }
            ::SetForegroundWindow(hDlg);
            return TRUE;  // the default button gets the focus: Enter answers, Tab moves
        case WM_TIMER:
            if (wParam == COUNTDOWN_TIMER && pState && --pState->m_nSeconds <= 0) {
                ::KillTimer(hDlg, COUNTDOWN_TIMER);
                ::EndDialog(hDlg, pState->m_nTimeoutId);
            } else if (pState) {
                ShowCountdown(hDlg, *pState);
            }
            return TRUE;
        case WM_COMMAND: {
            const int nId = LOWORD(wParam);
            if (nId == IDYES || (nId == pState->m_nNoId && pState->m_bNoEnabled)) {
                ::EndDialog(hDlg, nId);
                return TRUE;
            }
            // Esc and the close box mean the second button, when it may be chosen.
            if (nId == IDCANCEL && pState->m_bNoEnabled) {
                ::EndDialog(hDlg, pState->m_nNoId);
                return TRUE;
            }
            return FALSE;
        }
        default:
            return FALSE;
    }
}

// The dialogue's answer; 0 when it could not be shown (traced).
int ShowDialog(int nTemplate, DialogState& state)
{
    QZ_TRACE_SCOPE(MODULE, "ShowDialog");
    const INT_PTR nResult = ::DialogBoxParamW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(nTemplate),
                                              nullptr, &DialogProc, reinterpret_cast<LPARAM>(&state));
    if (nResult <= 0) {
        QZ_TRACE_E(L"%hs: The dialogue could not be shown - %d\n", QZ_SCOPE_NAME,
                   static_cast<int>(::GetLastError()));
        return 0;
    }
    QZ_TRACE_I(L"%hs: Answer %d.\n", QZ_SCOPE_NAME, static_cast<int>(nResult));
    return static_cast<int>(nResult);
}

// The package of the folder: its description and its language file (either may be missing).
struct Package
{
    std::wstring m_wstrFolder;
    std::wstring m_wstrQpd;
    Texts m_texts;
};

Package FindPackage()
{
    QZ_TRACE_SCOPE(MODULE, "FindPackage");
    Package package;
    package.m_wstrFolder = OwnFolder();
    const QZRI::QpdChoice choice = QZRI::ChooseQpdFile(FileNamesIn(package.m_wstrFolder));
    std::wstring wstrLanguageFile;
    if (!choice.m_wstrFileName.empty()) {
        package.m_wstrQpd = package.m_wstrFolder + choice.m_wstrFileName;
        wstrLanguageFile = QZRI::GetQpdLocIniFile(package.m_wstrQpd, package.m_wstrFolder);
    }
    package.m_texts = LoadTexts(wstrLanguageFile);
    QZ_TRACE_I(L"%hs: Package description '%ls', language file '%ls', %d text(s) in English.\n",
               QZ_SCOPE_NAME, package.m_wstrQpd, wstrLanguageFile,
               static_cast<int>(package.m_texts.m_vecMissing.size()));
    return package;
}

int AskConsent(const Package& package)
{
    QZ_TRACE_SCOPE(MODULE, "AskConsent");
    ConsentSettings settings;
    try {
        if (!package.m_wstrQpd.empty())
            settings = ReadConsentSettings(*QZRI::QpdFile::Create(package.m_wstrQpd));
    } catch (const std::exception& e) {
        QZ_TRACE_EXCEPTION(e);
    }
    const Texts& texts = package.m_texts;
    DialogState state;
    state.m_wstrTitle = texts[CONSENT_TITLE];
    state.m_wstrMessage =
        FormatText(texts[CONSENT_MESSAGE], settings.m_wstrProduct, settings.m_nCountdownSec);
    state.m_wstrYes = texts[INSTALL_NOW];
    state.m_wstrNo = texts[LATER];
    state.m_nNoId = IDRETRY;
    if (settings.m_nCountdownSec > 0) {
        state.m_wstrCountdown = texts[CONSENT_COUNTDOWN];
        state.m_nSeconds = settings.m_nCountdownSec;
        state.m_nTimeoutId = settings.m_nDefaultAnswer == EXIT_INSTALL_NOW ? IDYES : IDRETRY;
    }
    QZ_TRACE_I(L"%hs: '%ls', countdown %d s, default %d.\n", QZ_SCOPE_NAME, settings.m_wstrProduct,
               settings.m_nCountdownSec, settings.m_nDefaultAnswer);
    const int nAnswer = ShowDialog(IDD_CONSENT, state);
    return nAnswer == IDYES ? EXIT_INSTALL_NOW : nAnswer == IDRETRY ? EXIT_LATER : EXIT_SESSION_ENDED;
}

bool EnableShutdownPrivilege()
{
    HANDLE hToken = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &hToken))
        return false;
    TOKEN_PRIVILEGES tp = {};
    tp.PrivilegeCount = 1;
    tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    const bool bOk = ::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &tp.Privileges[0].Luid) &&
                     ::AdjustTokenPrivileges(hToken, FALSE, &tp, 0, nullptr, nullptr) &&
                     ::GetLastError() == ERROR_SUCCESS;
    ::CloseHandle(hToken);
    return bOk;
}

// RunOnce of the machine: runs once, at the next logon after the restart, with the rights the task had.
class SystemRestarter : public Restarter
{
public:
    bool Restart(const std::wstring& wstrRunAfterRestart) override
    {
        QZ_TRACE_SCOPE(MODULE, "SystemRestarter::Restart");
        if (!wstrRunAfterRestart.empty()) {
            const LSTATUS nStatus = ::RegSetKeyValueW(
                HKEY_LOCAL_MACHINE, RUN_ONCE_KEY, RUN_ONCE_VALUE, REG_SZ, wstrRunAfterRestart.c_str(),
                static_cast<DWORD>((wstrRunAfterRestart.size() + 1) * sizeof(wchar_t)));
            if (nStatus != ERROR_SUCCESS) {
                QZ_TRACE_E(L"%hs: The command line could not be registered to run after the restart - %d\n",
                           QZ_SCOPE_NAME, static_cast<int>(nStatus));
                return false;
            }
        }
        if (!EnableShutdownPrivilege() ||
            !::InitiateSystemShutdownExW(nullptr, nullptr, 0, FALSE, TRUE,
                                         SHTDN_REASON_MAJOR_APPLICATION | SHTDN_REASON_MINOR_INSTALLATION |
                                             SHTDN_REASON_FLAG_PLANNED)) {
            QZ_TRACE_E(L"%hs: The restart could not be requested - %d\n", QZ_SCOPE_NAME,
                       static_cast<int>(::GetLastError()));
            if (!wstrRunAfterRestart.empty())
                ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, RUN_ONCE_KEY, RUN_ONCE_VALUE);
            return false;
        }
        QZ_TRACE_I(L"%hs: Restart requested.\n", QZ_SCOPE_NAME);
        return true;
    }
};

// Waits the deferral out, taking messages; false when WM_QUIT ends it first.
bool WaitDeferral(int nSeconds)
{
    const ULONGLONG nEnd = ::GetTickCount64() + static_cast<ULONGLONG>(nSeconds) * 1000;
    for (ULONGLONG nNow = ::GetTickCount64(); nNow < nEnd; nNow = ::GetTickCount64()) {
        ::MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(nEnd - nNow), QS_ALLINPUT);
        MSG msg;
        while (::PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            if (msg.message == WM_QUIT)
                return false;
            ::DispatchMessageW(&msg);
        }
    }
    return true;
}

// The answer reported by the agent's own routine, with the system's services and the agent's file of the
// package folder for the instance that takes a reboot answer to the server.
void Report(const Package& package, const Arguments& args, int nUserAction)
{
    QZ_TRACE_SCOPE(MODULE, "Report");
    QZ_TRACE_I(L"%hs: User action %d for task '%ls'.\n", QZ_SCOPE_NAME, nUserAction, args.m_wstrTaskId);
    const std::unique_ptr<QZRI::AgentOs> pOs = QZRI::CreateSystemAgentOs();
    const std::unique_ptr<QZRI::InstanceStarter> pStarter =
        QZRI::CreateSystemInstanceStarter(package.m_wstrFolder + args.m_wstrAgent);
    QZRI::SystemClock clock;
    QZRI::AgentServices services;
    services.m_pOs = pOs.get();
    services.m_pRegistry = &QZRI::SystemRegistry();
    services.m_pClock = &clock;
    services.m_pStarter = pStarter.get();
    ReportAnswer(args, package.m_wstrFolder, nUserAction, services);
}

int RestartNow(const Package& package, const Arguments& args, Restarter& restarter)
{
    Report(package, args, USER_ACTION_REBOOT_NOW);
    return restarter.Restart(args.m_wstrRunAfterRestart) ? EXIT_RESTART_REQUESTED : EXIT_RESTART_FAILED;
}

int AskReboot(const Package& package, const Arguments& args, Restarter& restarter)
{
    QZ_TRACE_SCOPE(MODULE, "AskReboot");
    const std::wstring wstrSettings = package.m_wstrFolder + SETTINGS_FILE;
    RebootSettings settings = ReadRebootSettings(wstrSettings);
    QZ_TRACE_I(L"%hs: Mode %d, deferrals %d of %d, remind after %d s.\n", QZ_SCOPE_NAME,
               static_cast<int>(settings.m_eMode), settings.m_nDeferrals, settings.m_nMaxDeferrals,
               settings.m_nRemindSec);
    if (settings.m_eMode == RebootSettings::IMMEDIATE)
        return RestartNow(package, args, restarter);
    if (settings.m_eMode == RebootSettings::NONE)
        return EXIT_NO_RESTART;
    const Texts& texts = package.m_texts;
    for (;;) {
        DialogState state;
        state.m_wstrTitle = texts[REBOOT_TITLE];
        state.m_wstrMessage = texts[REBOOT_MESSAGE];
        state.m_wstrYes = texts[RESTART_NOW];
        state.m_wstrNo = texts[RESTART_LATER];
        state.m_nNoId = IDNO;
        if (!settings.CanDefer()) {
            // No deferral left: the restart follows after the countdown.
            state.m_bNoEnabled = false;
            state.m_wstrCountdown = texts[REBOOT_COUNTDOWN];
            state.m_nSeconds = settings.m_nCountdownSec;
            state.m_nTimeoutId = IDYES;
        }
        const int nAnswer = ShowDialog(IDD_REBOOT, state);
        if (nAnswer == IDYES)
            return RestartNow(package, args, restarter);
        if (nAnswer != IDNO)
            return EXIT_SESSION_ENDED;
        Report(package, args, USER_ACTION_REBOOT_LATER);
        CountDeferral(wstrSettings, settings);
        QZ_TRACE_I(L"%hs: Restart deferred (%d).\n", QZ_SCOPE_NAME, settings.m_nDeferrals);
        if (!WaitDeferral(settings.m_nRemindSec))
            return EXIT_NO_RESTART;
    }
}

int Run()
{
    QZ_TRACE_SCOPE(MODULE, "qzrbtagt");
    const std::wstring wstrCmdLine = ::GetCommandLineW();
    QZ_TRACE_I(L"%hs: Command line: %ls\n", QZ_SCOPE_NAME, wstrCmdLine);
    const Arguments args = ParseArguments(wstrCmdLine);
    if (!args.m_wstrError.empty()) {
        QZ_TRACE_E(L"%hs: %ls.\n", QZ_SCOPE_NAME, args.m_wstrError);
        return EXIT_BAD_COMMAND_LINE;
    }
    DWORD dwSession = 0;
    if (args.m_nSessionId && ::ProcessIdToSessionId(::GetCurrentProcessId(), &dwSession) &&
        dwSession != *args.m_nSessionId)
        QZ_TRACE_W(L"%hs: Started for session %d, running in session %d.\n", QZ_SCOPE_NAME,
                   static_cast<int>(*args.m_nSessionId), static_cast<int>(dwSession));
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_STANDARD_CLASSES};
    ::InitCommonControlsEx(&icc);
    const Package package = FindPackage();
    if (args.m_bPreInstall)
        return AskConsent(package);
    std::vector<wchar_t> vecDryRun(32768);
    const DWORD nDryRun = ::GetEnvironmentVariableW(L"QZRBTAGT_DRY_RUN", vecDryRun.data(),
                                                    static_cast<DWORD>(vecDryRun.size()));
    if (nDryRun > 0 && nDryRun < vecDryRun.size()) {
        DryRunRestarter restarter(std::wstring(vecDryRun.data(), nDryRun));
        return AskReboot(package, args, restarter);
    }
    SystemRestarter restarter;
    return AskReboot(package, args, restarter);
}

std::wstring TraceFilePath()
{
    wchar_t szTemp[MAX_PATH + 1] = {};
    const DWORD n = ::GetTempPathW(MAX_PATH + 1, szTemp);
    return std::wstring(szTemp, n) + L"$qzrbtagt.txt";
}

}  // namespace
}  // namespace QZRBTAGT

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int)
{
    QZSTD::TraceOpen(QZRBTAGT::TraceFilePath(), QZSTD::TL_DEBUG, true);
    int nExit = QZRBTAGT::EXIT_BAD_COMMAND_LINE;
    try {
        nExit = QZRBTAGT::Run();
    } catch (const std::exception& e) {
        QZ_TRACE_SCOPE("QZRBTAGT", "qzrbtagt");
        QZ_TRACE_EXCEPTION(e);
    } catch (...) {
    }
    {
        QZ_TRACE_SCOPE("QZRBTAGT", "qzrbtagt");
        QZ_TRACE_I(L"%hs: Exit code %d.\n", QZ_SCOPE_NAME, nExit);
    }
    QZSTD::TraceClose();
    return nExit;
}
