// An installation through Windows Installer in this process: the command lines, the log, the handlers and
// what they collect.
#include "common/msisetup/msisetup.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <unordered_set>

#include "common/ansicp.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZMSISETUP";
constexpr uint32_t MSI_DLL_WITH_RECORD_HANDLER = (3u << 16) | 1u;
constexpr uint32_t FIRST_BUSY_PAUSE_MS = 5000;
constexpr uint32_t LONGEST_BUSY_PAUSE_MS = 60000;

const std::unordered_set<std::wstring>& PasswordProperties()
{
    static const std::unordered_set<std::wstring> setNames = {
        L"PROXYPASSWORD",         L"QZUNINSTPASSWD",          L"pwdInGUI",
        L"PWDINSSHASH",           L"MSSQLACCOUNTPWD",         L"MSSQLACCOUNTPWD_ENCODED",
        L"MYSQLACCOUNTPWD",       L"MYSQLACCOUNTPWD_ENCODED", L"NEW_PXEUSER_PWD",
        L"NEW_RIGHTLESSUSER_PWD", L"SERVERACCOUNTPWD",        L"SERVERACCOUNTPWDENC",
        L"SERVICESACCOUNTPWD",    L"SERVICESACCOUNTPWDENC",   L"SRVBACKUPPWD",
        L"SRVREQUIREDBACKUPPWD",  L"AZURE_FDE_CLIENT_SECRET"};
    return setNames;
}

bool IsPatch(const std::wstring& wstrPackage)
{
    const size_t nDot = wstrPackage.rfind(L'.');
    if (nDot == std::wstring::npos)
        return false;
    std::wstring wstrExt = wstrPackage.substr(nDot);
    for (wchar_t& c : wstrExt)
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    return wstrExt == L".MSP";
}

// "Action 12:34:56: InstallFiles. Copying new files" -> "InstallFiles"; a text of another form as it is.
std::wstring ActionNameOf(const std::wstring& wstrText)
{
    const size_t nColon = wstrText.find(L": ");
    std::wstring wstrName = nColon == std::wstring::npos ? wstrText : wstrText.substr(nColon + 2);
    const size_t nDot = wstrName.find(L'.');
    return nDot == std::wstring::npos ? wstrName : wstrName.substr(0, nDot);
}

// The verbose log's text, in whichever of its two encodings the installer wrote it.
std::wstring ReadLogText(const std::wstring& wstrPath)
{
    std::ifstream in(PathFromWide(wstrPath), std::ios::binary);
    const std::string strData((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (strData.size() >= 2 && strData[0] == '\xFF' && strData[1] == '\xFE')
        return QZSTD::Utf16LeBytesToWide(std::string_view(strData).substr(2));
    return AnsiToWide(strData);
}

// The first action that the log says ended otherwise than with success ("Action ended 10:00:01:
// QzCa. Return value 3."), the sequences that hold the actions left out. Not every installer tells
// its handlers when a custom action starts, but each writes its end into the log.
std::wstring FailedActionInLog(const std::wstring& wstrLog)
{
    static const std::wstring wstrEnded = L"Action ended ";
    static const std::wstring wstrValue = L". Return value ";
    for (size_t nAt = 0; (nAt = wstrLog.find(wstrEnded, nAt)) != std::wstring::npos;
         nAt += wstrEnded.size()) {
        const size_t nLineEnd = std::min(wstrLog.find(L'\n', nAt), wstrLog.size());
        const std::wstring wstrLine = wstrLog.substr(nAt, nLineEnd - nAt);
        const size_t nName = wstrLine.find(L": ");
        const size_t nValue = wstrLine.find(wstrValue);
        if (nName == std::wstring::npos || nValue == std::wstring::npos || nValue < nName)
            continue;
        const std::wstring wstrName = wstrLine.substr(nName + 2, nValue - nName - 2);
        const bool bSequence = wstrName == L"INSTALL" || wstrName == L"ADMIN" || wstrName == L"ADVERTISE";
        if (!bSequence && wstrLine.compare(nValue + wstrValue.size(), 2, L"1.") != 0)
            return wstrName;
    }
    return std::wstring();
}

MsiMessageSink* g_pCurrent = nullptr;

}  // namespace

class QZMsiSetupImpl : public MsiMessageSink, public QZMsiSetup
{
public:
    QZMsiSetupImpl(std::wstring wstrPackage, std::vector<MsiSetupParameter> vecParams,
                   QZMsiSetupCallback& callback, WindowsInstaller& installer, std::wstring wstrLogPath)
        : m_wstrPackage(std::move(wstrPackage)),
          m_vecParams(std::move(vecParams)),
          m_callback(callback),
          m_installer(installer),
          m_wstrLogPath(std::move(wstrLogPath))
    {
    }

    uint32_t Launch(const MsiLaunchOptions& options, std::vector<MsiSetupParameter>& vecExternal) override
    {
        QZ_TRACE_SCOPE(MODULE, "QZMsiSetupImpl::Launch");
        const MsiCommandLines lines = BuildMsiCommandLines(m_vecParams);
        if (m_wstrLogPath.empty())
            m_wstrLogPath = m_installer.LogFolder() + L"$msisetup-" + m_installer.LocalTimeStamp() + L".txt";
        QZ_TRACE_I(L"QZMsiSetupImpl::Launch(%ls) log file is %ls, params: %ls\n", m_wstrPackage,
                   m_wstrLogPath, lines.m_wstrLogged);
        m_vecExternal.clear();
        m_vecSecrets = SecretsOf(m_vecParams);
        const uint32_t nResult = LaunchWhileBusy(options, lines.m_wstrPassed);
        ScrubLog();
        if (nResult != MSI_ERROR_SUCCESS && nResult != MSI_ERROR_SUCCESS_REBOOT_REQUIRED &&
            nResult != MSI_ERROR_SUCCESS_REBOOT_INITIATED) {
            const std::wstring wstrFailed = FailedActionInLog(ReadLogText(m_wstrLogPath));
            if (!wstrFailed.empty())
                m_wstrLastAction = wstrFailed;
        }
        vecExternal = m_vecExternal;
        return nResult;
    }

    std::wstring FailureDescription() const override
    {
        std::wstring wstrOut;
        if (!m_wstrLastAction.empty())
            wstrOut = L"Action " + m_wstrLastAction + L" failed";
        if (!m_wstrLastError.empty())
            wstrOut += (wstrOut.empty() ? L"" : L": ") + m_wstrLastError;
        return wstrOut;
    }

    const std::wstring& LogPath() const override { return m_wstrLogPath; }

    int OnStringMessage(uint32_t nType, const std::wstring& wstrMessage) override
    {
        const std::wstring wstrText = WithoutSecrets(wstrMessage);
        switch (nType & 0xFF000000) {
            case MSI_MESSAGE_ERROR:
                m_wstrLastError = wstrText;
                return m_callback.OnError(wstrText);
            case MSI_MESSAGE_WARNING:
                return m_callback.OnWarning(wstrText);
            case MSI_MESSAGE_USER:
                return m_callback.OnUser(wstrText);
            case MSI_MESSAGE_INFO:
                return m_callback.OnInformation(wstrText);
            case MSI_MESSAGE_ACTIONDATA:
                return m_callback.OnActionData(wstrText);
            case MSI_MESSAGE_PROGRESS:
                return m_callback.OnProgress(wstrText);
            default:
                return 0;
        }
    }

    int OnRecordMessage(uint32_t nType, const std::vector<std::wstring>& vecFields,
                        const std::wstring& wstrMessage) override
    {
        const std::wstring wstrText = WithoutSecrets(wstrMessage);
        switch (nType & 0xFF000000) {
            case MSI_MESSAGE_INFO:
                if (wstrText.find(EXTERNAL_PROPERTY_MARK) == std::wstring::npos)
                    return 0;
                CollectExternalProperty(vecFields);
                return 1;
            case MSI_MESSAGE_FILESINUSE: {
                std::vector<std::pair<std::wstring, std::wstring>> vecProcesses;
                for (size_t n = 1; n + 1 < vecFields.size(); n += 2)
                    vecProcesses.emplace_back(vecFields[n], vecFields[n + 1]);
                return vecFields.size() > 1 ? m_callback.OnFilesInUse(vecProcesses) : 0;
            }
            case MSI_MESSAGE_ACTIONSTART:
                m_wstrLastAction = ActionNameOf(wstrText);
                return m_callback.OnActionStart(wstrText);
            default:
                return 0;
        }
    }

private:
    uint32_t LaunchWhileBusy(const MsiLaunchOptions& options, const std::wstring& wstrCmdLine)
    {
        QZ_TRACE_SCOPE(MODULE, "QZMsiSetupImpl::Launch");
        long lWaitedMs = 0;
        uint32_t nPauseMs = FIRST_BUSY_PAUSE_MS;
        for (int nAttempt = 1;; ++nAttempt) {
            const uint32_t nResult = LaunchOnce(wstrCmdLine);
            if (nResult != MSI_ERROR_INSTALL_ALREADY_RUNNING)
                return nResult;
            if (lWaitedMs >= options.m_lBusyLimitMs || !options.m_fnWait) {
                QZ_TRACE_E(L"%hs: Windows Installer is still busy with another installation after %ld s.\n",
                           QZ_SCOPE_NAME, lWaitedMs / 1000);
                return nResult;
            }
            nPauseMs = static_cast<uint32_t>(std::min<long>(nPauseMs, options.m_lBusyLimitMs - lWaitedMs));
            QZ_TRACE_W(
                L"%hs: attempt %d: Windows Installer is busy with another installation; again in %u s.\n",
                QZ_SCOPE_NAME, nAttempt, nPauseMs / 1000);
            if (!options.m_fnWait(nPauseMs))
                return nResult;
            lWaitedMs += static_cast<long>(nPauseMs);
            nPauseMs = std::min(nPauseMs * 2, LONGEST_BUSY_PAUSE_MS);
        }
    }

    uint32_t LaunchOnce(const std::wstring& wstrCmdLine)
    {
        QZ_TRACE_SCOPE(MODULE, "QZMsiSetupImpl::Launch");
        m_wstrLastAction.clear();
        m_wstrLastError.clear();
        m_installer.EnableLog(MSI_LOG_MODE, m_wstrLogPath);
        const bool bRecord = m_installer.MsiDllVersion() >= MSI_DLL_WITH_RECORD_HANDLER;
        CurrentInstance current(*this, m_wstrPackage);
        if (bRecord) {
            if (const uint32_t nError = m_installer.SetRecordHandler(this, MSI_RECORD_FILTER)) {
                QZ_TRACE_E(L"QZMsiSetupImpl::Launch(%ls) MsiSetExternalUIRecord returned error %u\n",
                           m_wstrPackage, nError);
                return nError;
            }
        }
        m_installer.SetStringHandlerAndNoUi(this, MSI_STRING_FILTER);
        uint32_t nResult = 0;
        if (IsPatch(m_wstrPackage)) {
            nResult = m_installer.ApplyPatch(m_wstrPackage, wstrCmdLine);
            QZ_TRACE_I(L"QZMsiSetupImpl::Launch(%ls) MsiApplyPatchW returned error %u\n", m_wstrPackage,
                       nResult);
        } else {
            nResult = m_installer.InstallProduct(m_wstrPackage, wstrCmdLine);
            QZ_TRACE_I(L"QZMsiSetupImpl::Launch(%ls) MsiInstallProductW returned error %u\n", m_wstrPackage,
                       nResult);
        }
        m_installer.RestoreHandlers(bRecord);
        return nResult;
    }

    void CollectExternalProperty(const std::vector<std::wstring>& vecFields)
    {
        QZ_TRACE_SCOPE(MODULE, "QZMsiSetupImpl::OnRecordMessage");
        if (vecFields.size() < 3 || vecFields[1].empty()) {
            QZ_TRACE_W(L"%hs: a property message without a name.\n", QZ_SCOPE_NAME);
            return;
        }
        QZ_TRACE_I(L"%hs: external property '%ls'.\n", QZ_SCOPE_NAME, vecFields[1]);
        m_vecExternal.push_back(MsiSetupParameter{vecFields[1], vecFields[2], 0});
    }

    static std::vector<std::wstring> SecretsOf(const std::vector<MsiSetupParameter>& vecParams)
    {
        std::vector<std::wstring> vecSecrets;
        for (const MsiSetupParameter& param : vecParams)
            if (IsPasswordProperty(param.m_wstrName) && !param.m_wstrValue.empty())
                vecSecrets.push_back(param.m_wstrValue);
        return vecSecrets;
    }

    // Not every installer honours MsiHiddenProperties: the messages it sends may quote a password
    // (a property dump at the end of the run), and they go on to the trace and the failure's description.
    std::wstring WithoutSecrets(std::wstring wstrText) const
    {
        for (const std::wstring& wstrSecret : m_vecSecrets)
            for (size_t nAt = 0; (nAt = wstrText.find(wstrSecret, nAt)) != std::wstring::npos;
                 nAt += wstrSecret.size())
                wstrText.replace(nAt, wstrSecret.size(), wstrSecret.size(), L'*');
        return wstrText;
    }

    // Windows Installer writes what it was given into the verbose log, for the same reason.
    void ScrubLog()
    {
        if (!m_vecSecrets.empty() && !ScrubSecretsInFile(m_wstrLogPath, m_vecSecrets)) {
            QZ_TRACE_SCOPE(MODULE, "QZMsiSetupImpl::Launch");
            QZ_TRACE_W(L"%hs: the log '%ls' could not be cleared of the passwords.\n", QZ_SCOPE_NAME,
                       m_wstrLogPath);
        }
    }

    // The process-wide current installation while one runs.
    class CurrentInstance
    {
    public:
        CurrentInstance(QZMsiSetupImpl& self, const std::wstring& wstrPackage)
        {
            QZ_TRACE_SCOPE(MODULE, "QZMsiSetupImpl::SetInstancePtr");
            if (g_pCurrent)
                QZ_TRACE_W(
                    L"QZMsiSetup::Ptr CreateMsiSetup: GetInstancePtr() returned NOT NULL for file %ls.\n",
                    wstrPackage);
            QZ_TRACE_I(L"QZMsiSetupImpl::SetInstancePtr: old = 0x%p, new = 0x%p",
                       static_cast<void*>(g_pCurrent), static_cast<void*>(&self));
            g_pCurrent = &self;
        }
        ~CurrentInstance() { g_pCurrent = nullptr; }
        CurrentInstance(const CurrentInstance&) = delete;
        CurrentInstance& operator=(const CurrentInstance&) = delete;
    };

    std::wstring m_wstrPackage;
    std::vector<MsiSetupParameter> m_vecParams;
    QZMsiSetupCallback& m_callback;
    WindowsInstaller& m_installer;
    std::wstring m_wstrLogPath;
    std::vector<MsiSetupParameter> m_vecExternal;
    std::vector<std::wstring> m_vecSecrets;
    std::wstring m_wstrLastAction;
    std::wstring m_wstrLastError;
};

QZMsiSetup::Ptr CreateMsiSetup(const std::wstring& wstrPackage, std::vector<MsiSetupParameter> vecParams,
                               QZMsiSetupCallback& callback, WindowsInstaller& installer,
                               const std::wstring& wstrLogPath)
{
    return std::make_shared<QZMsiSetupImpl>(wstrPackage, std::move(vecParams), callback, installer,
                                            wstrLogPath);
}

MsiMessageSink* CurrentMsiSetup()
{
    return g_pCurrent;
}

bool IsPasswordProperty(const std::wstring& wstrName)
{
    return PasswordProperties().count(wstrName) != 0;
}

MsiCommandLines BuildMsiCommandLines(const std::vector<MsiSetupParameter>& vecParams)
{
    MsiCommandLines lines;
    std::wstring wstrHidden;
    for (const MsiSetupParameter& param : vecParams) {
        const std::wstring wstrItem = L" " + param.m_wstrName + L"=\"" + param.m_wstrValue + L"\"";
        lines.m_wstrPassed += wstrItem;
        const bool bPassword = IsPasswordProperty(param.m_wstrName);
        if (bPassword)
            wstrHidden += (wstrHidden.empty() ? L"" : L";") + param.m_wstrName;
        if (param.m_nAddedByAgent)
            lines.m_wstrLogged += bPassword ? L" " + param.m_wstrName + L"=\"**********\"" : wstrItem;
    }
    if (!wstrHidden.empty())
        lines.m_wstrPassed += L" MsiHiddenProperties=\"" + wstrHidden + L"\"";
    return lines;
}

bool ScrubSecretsInFile(const std::wstring& wstrPath, const std::vector<std::wstring>& vecSecrets)
{
    std::string strData;
    {
        std::ifstream in(PathFromWide(wstrPath), std::ios::binary);
        if (!in)
            return false;
        strData.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    for (const std::wstring& wstrSecret : vecSecrets) {
        const std::string strUtf8 = QZSTD::WideToUtf8(wstrSecret);
        const std::string strUtf16 = QZSTD::WideToUtf16LeBytes(wstrSecret, false);
        const std::string strUtf16Stars =
            QZSTD::WideToUtf16LeBytes(std::wstring(strUtf16.size() / 2, L'*'), false);
        for (const auto& [strFind, strStars] :
             {std::pair{strUtf8, std::string(strUtf8.size(), '*')}, std::pair{strUtf16, strUtf16Stars}}) {
            for (size_t nAt = 0; (nAt = strData.find(strFind, nAt)) != std::string::npos;
                 nAt += strStars.size())
                strData.replace(nAt, strFind.size(), strStars);
        }
    }
    std::ofstream out(PathFromWide(wstrPath), std::ios::binary | std::ios::trunc);
    out << strData;
    return static_cast<bool>(out);
}

}  // namespace QZRI
