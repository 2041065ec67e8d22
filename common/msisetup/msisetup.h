// Installing a Windows Installer package, or applying a patch (".msp" in any case), in this process:
// the package's properties on the command line, a verbose log, no Windows Installer user interface, and
// the installer's messages handed to the caller's callback (trace module "QZMSISETUP").
//
// Windows Installer itself is behind WindowsInstaller: on Windows msi.dll (msisetup_win.cpp); elsewhere
// every call fails with 1193, unsupported on this operating system. Tests drive the logic with a fake
// that plays the installer's messages.
//
// Beyond the bare installation:
// - Busy (1618, another installation is in progress): tried again after growing pauses (5 s, doubling,
//   at most 60 s) until MsiLaunchOptions::m_lBusyLimitMs has gone by; then 1618 is returned, which the
//   caller reports as "retry later".
// - Why it failed: the last action started and the last error message the installer sent make the
//   failure's description ("Action InstallFiles failed: Error 1310. ...").
// - Secrets: the password properties passed are also named in "MsiHiddenProperties", so that Windows
//   Installer keeps them out of its log; as not every installer honours that, their values are replaced
//   by asterisks in the log file after the run.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/msisetup/msisetupparameter.h"

namespace QZRI {

// Windows Installer's answers that the agent tells apart.
inline constexpr uint32_t MSI_ERROR_SUCCESS = 0;
inline constexpr uint32_t MSI_ERROR_INSTALL_FAILURE = 1603;
inline constexpr uint32_t MSI_ERROR_INSTALL_ALREADY_RUNNING = 1618;
inline constexpr uint32_t MSI_ERROR_SUCCESS_REBOOT_INITIATED = 1641;
inline constexpr uint32_t MSI_ERROR_SUCCESS_REBOOT_REQUIRED = 3010;
inline constexpr uint32_t MSI_ERROR_NOT_SUPPORTED = 1193;

// Message kinds, in the high byte of a message's type.
inline constexpr uint32_t MSI_MESSAGE_ERROR = 0x01000000;
inline constexpr uint32_t MSI_MESSAGE_WARNING = 0x02000000;
inline constexpr uint32_t MSI_MESSAGE_USER = 0x03000000;
inline constexpr uint32_t MSI_MESSAGE_INFO = 0x04000000;
inline constexpr uint32_t MSI_MESSAGE_FILESINUSE = 0x05000000;
inline constexpr uint32_t MSI_MESSAGE_ACTIONSTART = 0x08000000;
inline constexpr uint32_t MSI_MESSAGE_ACTIONDATA = 0x09000000;
inline constexpr uint32_t MSI_MESSAGE_PROGRESS = 0x0A000000;
// The filters of the two handlers, and the log mode (property dump, verbose, extra debug).
inline constexpr uint32_t MSI_RECORD_FILTER = 0x1F0;
inline constexpr uint32_t MSI_STRING_FILTER = 0xE1F;
inline constexpr uint32_t MSI_LOG_MODE = 0x3400;
// The text an information message carries when it hands the agent a property: fields 1 and 2 of its
// record are the property's name and value.
inline constexpr const wchar_t* EXTERNAL_PROPERTY_MARK = L"QZAK_EXTERNAL_PROPERTY";

// What the installer says while it runs. Each answer is returned to Windows Installer; 0 leaves the
// message to the installer's own (absent) user interface.
class QZMsiSetupCallback
{
public:
    virtual ~QZMsiSetupCallback() = default;
    virtual int OnError(const std::wstring& wstrText) = 0;
    virtual int OnWarning(const std::wstring& wstrText) = 0;
    virtual int OnUser(const std::wstring& wstrText) = 0;
    virtual int OnInformation(const std::wstring& wstrText) = 0;
    // Pairs of process name and window title, from the record's fields 1, 2, 3, ...
    virtual int OnFilesInUse(const std::vector<std::pair<std::wstring, std::wstring>>& vecProcesses) = 0;
    virtual int OnActionStart(const std::wstring& wstrText) = 0;
    virtual int OnActionData(const std::wstring& wstrText) = 0;
    virtual int OnProgress(const std::wstring& wstrText) = 0;
};

// The handlers' side of an installation: the system handlers pass each message here.
class MsiMessageSink
{
public:
    virtual ~MsiMessageSink() = default;
    virtual int OnStringMessage(uint32_t nType, const std::wstring& wstrText) = 0;
    // The record's fields from 0 (the template) on, and its formatted text.
    virtual int OnRecordMessage(uint32_t nType, const std::vector<std::wstring>& vecFields,
                                const std::wstring& wstrText) = 0;
};

class WindowsInstaller
{
public:
    virtual ~WindowsInstaller() = default;
    // The file version of the system's "msi.dll" as (major << 16) | minor; 0 when unknown.
    virtual uint32_t MsiDllVersion() = 0;
    // "%WINDIR%\Temp\" when that folder exists, else the process's temporary folder; with a separator.
    virtual std::wstring LogFolder() = 0;
    // The local time as "%04u-%02u-%02u-%02u-%02u-%02u".
    virtual std::wstring LocalTimeStamp() = 0;
    virtual uint32_t EnableLog(uint32_t nMode, const std::wstring& wstrPath) = 0;
    // Routes the record messages of nFilter to the sink; an error code when it could not.
    virtual uint32_t SetRecordHandler(MsiMessageSink* pSink, uint32_t nFilter) = 0;
    // Routes the string messages of nFilter to the sink and sets the internal UI level to none, keeping
    // the previous handler and level for RestoreHandlers.
    virtual void SetStringHandlerAndNoUi(MsiMessageSink* pSink, uint32_t nFilter) = 0;
    // Puts back the previous string handler and UI level, and removes the record handler when bRecord.
    virtual void RestoreHandlers(bool bRecord) = 0;
    virtual uint32_t InstallProduct(const std::wstring& wstrPackage, const std::wstring& wstrCmdLine) = 0;
    // A null command line when wstrCmdLine is empty.
    virtual uint32_t ApplyPatch(const std::wstring& wstrPatch, const std::wstring& wstrCmdLine) = 0;
};

std::unique_ptr<WindowsInstaller> CreateSystemWindowsInstaller();

struct MsiLaunchOptions
{
    // How long an installer that is busy with another installation is waited for.
    long m_lBusyLimitMs = 10 * 60 * 1000;
    // Waits nMs between two attempts; false when the agent is being stopped (no more attempts).
    std::function<bool(uint32_t nMs)> m_fnWait;
};

class QZMsiSetup
{
public:
    using Ptr = std::shared_ptr<QZMsiSetup>;
    virtual ~QZMsiSetup() = default;
    // Installs or patches; Windows Installer's answer. The properties the package handed over
    // ("QZAK_EXTERNAL_PROPERTY") land in vecExternal.
    virtual uint32_t Launch(const MsiLaunchOptions& options, std::vector<MsiSetupParameter>& vecExternal) = 0;
    // After a failure: "Action <name> failed: <the last error message>", or what of it is known. The
    // action is the one the log says failed, else the last one started.
    virtual std::wstring FailureDescription() const = 0;
    virtual const std::wstring& LogPath() const = 0;
};

// The package, its properties in order, the callback (which must outlive the object), the installer,
// and a log path (empty: "$msisetup-<local time>.txt" in the log folder).
QZMsiSetup::Ptr CreateMsiSetup(const std::wstring& wstrPackage, std::vector<MsiSetupParameter> vecParams,
                               QZMsiSetupCallback& callback, WindowsInstaller& installer,
                               const std::wstring& wstrLogPath = std::wstring());

// The installation that runs in this process now, to which the system handlers pass the messages; null
// between installations.
MsiMessageSink* CurrentMsiSetup();

// Whether a property's value is a secret (exact, case-sensitive name).
bool IsPasswordProperty(const std::wstring& wstrName);

// The command line passed to Windows Installer (every parameter, ' NAME="value"', then
// ' MsiHiddenProperties="..."' naming the password properties passed) and the line that is traced (only
// the agent's own parameters, a password's value as ten asterisks).
struct MsiCommandLines
{
    std::wstring m_wstrPassed;
    std::wstring m_wstrLogged;
};
MsiCommandLines BuildMsiCommandLines(const std::vector<MsiSetupParameter>& vecParams);

// Replaces every occurrence of the values (UTF-8, UTF-16LE and the bytes of their ASCII form) in the file
// by as many asterisks; false when the file could not be read or written back.
bool ScrubSecretsInFile(const std::wstring& wstrPath, const std::vector<std::wstring>& vecSecrets);

}  // namespace QZRI
