// The installation's logic against a fake Windows Installer that plays the installer's messages.
#include "common/msisetup/msisetup.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "tests/testutil/fsutil.h"
#include "tests/testutil/msicallback.h"

namespace {

using namespace QZRI;
using Params = std::vector<MsiSetupParameter>;

// Records what is asked of it; Install and ApplyPatch answer in turn from m_vecResults (then 0) and
// play m_fnMessages to the current installation while they "run".
class FakeInstaller : public WindowsInstaller
{
public:
    uint32_t MsiDllVersion() override { return m_nVersion; }
    std::wstring LogFolder() override { return L"logs/"; }
    std::wstring LocalTimeStamp() override { return L"2026-11-24-10-00-00"; }
    uint32_t EnableLog(uint32_t nMode, const std::wstring& wstrPath) override
    {
        m_vecCalls.push_back(L"log " + std::to_wstring(nMode) + L" " + wstrPath);
        return 0;
    }
    uint32_t SetRecordHandler(MsiMessageSink*, uint32_t nFilter) override
    {
        m_vecCalls.push_back(L"record " + std::to_wstring(nFilter));
        return m_nRecordError;
    }
    void SetStringHandlerAndNoUi(MsiMessageSink*, uint32_t nFilter) override
    {
        m_vecCalls.push_back(L"string " + std::to_wstring(nFilter));
    }
    void RestoreHandlers(bool bRecord) override
    {
        m_vecCalls.push_back(bRecord ? L"restore+record" : L"restore");
    }
    uint32_t InstallProduct(const std::wstring& wstrPackage, const std::wstring& wstrCmdLine) override
    {
        return Run(L"install " + wstrPackage + L" [" + wstrCmdLine + L"]");
    }
    uint32_t ApplyPatch(const std::wstring& wstrPatch, const std::wstring& wstrCmdLine) override
    {
        return Run(L"patch " + wstrPatch + L" [" + wstrCmdLine + L"]");
    }

    uint32_t m_nVersion = (5u << 16);
    uint32_t m_nRecordError = 0;
    std::vector<uint32_t> m_vecResults;
    std::function<void(MsiMessageSink&)> m_fnMessages;
    std::vector<std::wstring> m_vecCalls;

private:
    uint32_t Run(const std::wstring& wstrCall)
    {
        m_vecCalls.push_back(wstrCall);
        if (m_fnMessages && CurrentMsiSetup())
            m_fnMessages(*CurrentMsiSetup());
        const size_t n = m_nRuns++;
        return n < m_vecResults.size() ? m_vecResults[n] : 0;
    }
    size_t m_nRuns = 0;
};

TEST(MsiCommandLinesTest, EveryParameterIsPassedOnlyTheAgentsAreLoggedSecretsHidden)
{
    const Params params{{L"INSTALLDIR", L"C:\\a \"b\"", 0},
                        {L"PROXYPASSWORD", L"s3cret", 1},
                        {L"QZUNINSTPASSWD", L"x", 0},
                        {L"proxypassword", L"y", 1},
                        {L"REBOOT", L"ReallySuppress", 1}};
    const MsiCommandLines lines = BuildMsiCommandLines(params);
    EXPECT_EQ(
        lines.m_wstrPassed,
        L" INSTALLDIR=\"C:\\a \"b\"\" PROXYPASSWORD=\"s3cret\" QZUNINSTPASSWD=\"x\" proxypassword=\"y\" "
        L"REBOOT=\"ReallySuppress\" MsiHiddenProperties=\"PROXYPASSWORD;QZUNINSTPASSWD\"");
    EXPECT_EQ(lines.m_wstrLogged,
              L" PROXYPASSWORD=\"**********\" proxypassword=\"y\" REBOOT=\"ReallySuppress\"");
    EXPECT_EQ(BuildMsiCommandLines({}).m_wstrPassed, L"");
}

// The order of the calls, the handlers put back on every path, a patch by its extension in any case.
TEST(MsiLaunchTest, HandlersAreSetAndRestoredAroundTheInstallationOrThePatch)
{
    // What is tried, the package, the log asked for, msi.dll's version, the record handler's error, the
    // result and the calls.
    using Row = std::tuple<const char*, const wchar_t*, const wchar_t*, uint32_t, uint32_t, uint32_t,
                           std::vector<std::wstring>>;
    const Row rows[] = {
        Row("product", L"p.msi", L"l.txt", 5u << 16, 0, 0,
            {L"log 13312 l.txt", L"record 496", L"string 3615", L"install p.msi [ A=\"1\"]",
             L"restore+record"}),
        Row("patch in mixed case", L"C:\\x.y\\fix.MsP", L"l.txt", (3u << 16) | 1, 0, 3010,
            {L"log 13312 l.txt", L"record 496", L"string 3615", L"patch C:\\x.y\\fix.MsP [ A=\"1\"]",
             L"restore+record"}),
        Row("no extension, msi.dll 3.0", L"C:\\x.msp\\pkg", L"l.txt", 3u << 16, 0, 1603,
            {L"log 13312 l.txt", L"string 3615", L"install C:\\x.msp\\pkg [ A=\"1\"]", L"restore"}),
        Row("the record handler refused", L"p.msi", L"l.txt", 5u << 16, 87, 87,
            {L"log 13312 l.txt", L"record 496"}),
        Row("no log asked for", L"f.msp", L"", 5u << 16, 0, 0,
            {L"log 13312 logs/$msisetup-2026-11-24-10-00-00.txt", L"record 496", L"string 3615",
             L"patch f.msp [ A=\"1\"]", L"restore+record"}),
    };
    for (const auto& [szWhat, szPackage, szLog, nVersion, nRecordError, nResult, vecCalls] : rows) {
        SCOPED_TRACE(szWhat);
        FakeInstaller installer;
        installer.m_nVersion = nVersion;
        installer.m_nRecordError = nRecordError;
        installer.m_vecResults = {nResult};
        QZTEST::RecordingMsiCallback callback(7);
        QZMsiSetup::Ptr pSetup = CreateMsiSetup(szPackage, {{L"A", L"1", 0}}, callback, installer, szLog);
        Params vecExternal;
        EXPECT_EQ(pSetup->Launch(MsiLaunchOptions(), vecExternal), nResult);
        EXPECT_EQ(installer.m_vecCalls, vecCalls);
        EXPECT_EQ(L"log 13312 " + pSetup->LogPath(), vecCalls.front());
        EXPECT_EQ(CurrentMsiSetup(), nullptr);
    }
}

// Messages reach the callback by kind; an information record with the mark hands over a property; the
// last action and error explain a failure.
TEST(MsiLaunchTest, MessagesGoToTheCallbackPropertiesAreCollectedAFailureIsExplained)
{
    FakeInstaller installer;
    installer.m_vecResults = {1603, 1603};
    installer.m_fnMessages = [](MsiMessageSink& sink) {
        EXPECT_EQ(
            sink.OnRecordMessage(MSI_MESSAGE_ACTIONSTART, {}, L"Action 10:00:01: InstallFiles. Copying"), 7);
        EXPECT_EQ(sink.OnRecordMessage(MSI_MESSAGE_INFO | 0x10, {L"[1]", L"SERIAL", L"42"},
                                       L"QZAK_EXTERNAL_PROPERTY SERIAL 42"),
                  1);
        EXPECT_EQ(sink.OnRecordMessage(MSI_MESSAGE_INFO, {L"x"}, L"plain information"), 0);
        EXPECT_EQ(sink.OnRecordMessage(MSI_MESSAGE_FILESINUSE, {L"", L"app.exe", L"App window"}, L""), 7);
        EXPECT_EQ(sink.OnStringMessage(MSI_MESSAGE_PROGRESS, L"1: 2"), 7);
        EXPECT_EQ(sink.OnStringMessage(MSI_MESSAGE_ERROR | 0x30, L"Error 1310. Cannot write C:\\f"), 7);
        EXPECT_EQ(sink.OnStringMessage(0x0B000000, L"common data"), 0);
    };
    QZTEST::RecordingMsiCallback callback(7);
    QZMsiSetup::Ptr pSetup = CreateMsiSetup(L"p.msi", {}, callback, installer, L"l.txt");
    Params vecExternal;
    EXPECT_EQ(pSetup->Launch(MsiLaunchOptions(), vecExternal), 1603u);
    EXPECT_EQ(vecExternal, (Params{{L"SERIAL", L"42", 0}}));
    EXPECT_EQ(callback.m_vecNotes,
              (std::vector<std::wstring>{L"action:Action 10:00:01: InstallFiles. Copying",
                                         L"files:app.exe/App window", L"progress:1: 2",
                                         L"error:Error 1310. Cannot write C:\\f"}));
    EXPECT_EQ(pSetup->FailureDescription(), L"Action InstallFiles failed: Error 1310. Cannot write C:\\f");

    // The log names the action that failed where the handlers were not told that it started.
    QZTEST::TempFolder folder;
    installer.m_fnMessages = [&](MsiMessageSink& sink) {
        sink.OnRecordMessage(MSI_MESSAGE_ACTIONSTART, {}, L"Action 10:00:01: ProcessComponents. Updating");
        QZTEST::WriteFileBytes(folder.Join(L"l.txt"),
                               "Action ended 10:00:01: InstallFiles. Return value 1.\r\n"
                               "Action ended 10:00:02: QzCa. Return value 3.\r\n"
                               "Action ended 10:00:02: INSTALL. Return value 3.\r\n");
    };
    pSetup = CreateMsiSetup(L"p.msi", {}, callback, installer, folder.Join(L"l.txt"));
    EXPECT_EQ(pSetup->Launch(MsiLaunchOptions(), vecExternal), 1603u);
    EXPECT_EQ(pSetup->FailureDescription(), L"Action QzCa failed");
}

// Busy: tried again after growing pauses until the limit, never beyond it; a stop ends the waiting.
TEST(MsiLaunchTest, ABusyInstallerIsTriedAgainAfterGrowingPausesUpToTheLimit)
{
    // What is tried, the installer's answers, the limit, whether a stop comes at the second pause, the
    // result and the pauses.
    using Row = std::tuple<const char*, std::vector<uint32_t>, long, bool, uint32_t, std::vector<uint32_t>>;
    const Row rows[] = {
        {"free after two waits", {1618, 1618, 0}, 600000, false, 0, {5000, 10000}},
        {"busy until the limit", {1618, 1618, 1618, 1618}, 12000, false, 1618, {5000, 7000}},
        {"stopped while waiting", {1618, 1618, 1618}, 600000, true, 1618, {5000, 10000}},
        {"no limit", {1618}, 0, false, 1618, {}},
    };
    for (const auto& [szWhat, vecResults, lLimitMs, bStopAtSecondWait, nResult, vecExpectedPauses] : rows) {
        SCOPED_TRACE(szWhat);
        FakeInstaller installer;
        installer.m_vecResults = vecResults;
        QZTEST::RecordingMsiCallback callback(7);
        QZMsiSetup::Ptr pSetup = CreateMsiSetup(L"p.msi", {}, callback, installer, L"l.txt");
        std::vector<uint32_t> vecPauses;
        MsiLaunchOptions options;
        options.m_lBusyLimitMs = lLimitMs;
        const bool bStop = bStopAtSecondWait;
        options.m_fnWait = [&](uint32_t nMs) {
            vecPauses.push_back(nMs);
            return !(bStop && vecPauses.size() == 2);
        };
        Params vecExternal;
        EXPECT_EQ(pSetup->Launch(options, vecExternal), nResult);
        EXPECT_EQ(vecPauses, vecExpectedPauses);
    }
}

// The passed secrets leave the installer's messages before anyone sees them, and the log after the run,
// in whichever encoding the installer wrote it; the rest stays.
TEST(MsiLaunchTest, PasswordsAreScrubbedFromTheLogAfterTheRun)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrLog = folder.Join(L"msi.log");
    FakeInstaller installer;
    installer.m_fnMessages = [&](MsiMessageSink& sink) {
        sink.OnStringMessage(MSI_MESSAGE_INFO, L"Property(S): PROXYPASSWORD = s3cret");
        sink.OnRecordMessage(MSI_MESSAGE_ACTIONSTART, {}, L"Action s3cret.");
        QZTEST::WriteFileBytes(wstrLog, std::string("PROXYPASSWORD = s3cret; A = 1\n") +
                                            std::string("s\0"
                                                        "3\0c\0r\0e\0t\0",
                                                        12) +
                                            "end");
    };
    QZTEST::RecordingMsiCallback callback(7);
    QZMsiSetup::Ptr pSetup = CreateMsiSetup(L"p.msi", {{L"PROXYPASSWORD", L"s3cret", 0}, {L"A", L"1", 0}},
                                            callback, installer, wstrLog);
    Params vecExternal;
    EXPECT_EQ(pSetup->Launch(MsiLaunchOptions(), vecExternal), 0u);
    EXPECT_EQ(callback.m_vecNotes, (std::vector<std::wstring>{L"info:Property(S): PROXYPASSWORD = ******",
                                                              L"action:Action ******."}));
    EXPECT_EQ(QZTEST::ReadFileBytes(wstrLog),
              std::string("PROXYPASSWORD = ******; A = 1\n") + std::string("*\0*\0*\0*\0*\0*\0", 12) + "end");
}

}  // namespace
