// Runs the real agent executable on example package folders: natively, and under Wine as a Windows
// process started by this (Windows) test. Each package folder holds a copy of the agent beside its
// package description, as the administration server lays it out; the trace goes to a private folder
// through QZCSAK_SYSTEMP_PATH and the management agent's storage is a private file (QZ_LOCAL_SS_PATH).
#ifdef _WIN32
#include <windows.h>

#include <msi.h>
#endif

#include <gtest/gtest.h>

#include <filesystem>

#include "common/ristrutils.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/servicecontrol.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "tests/qzri/childprocess.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/zipwriter.h"
#include "transport/httptransfer.h"
#ifndef _WIN32
#include "tests/testutil/httppeer.h"
#endif

namespace {

namespace fs = std::filesystem;
using namespace QZRI;
using QZRITEST::BuildPath;

class AgentRunTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    void SetUp() override
    {
        m_wstrPkg = m_folder.MakeSubFolder(L"pkg");
        m_wstrTraceFolder = m_folder.MakeSubFolder(L"trace");
        m_wstrIni = m_wstrPkg + L"$qzriwrp.ini";
        // The copy keeps the built program's name (".exe" on Windows only).
        const fs::path exe(BuildPath(QZRIWRAP_EXE_PATH));
        m_wstrAgent = m_wstrPkg + exe.filename().wstring();
        fs::copy_file(exe, fs::path(m_wstrAgent));
        QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd", "[Setup]\r\nExecutable=setup.exe\r\n");
        QZTEST::SetEnv("QZCSAK_SYSTEMP_PATH", m_wstrTraceFolder);
        QZTEST::SetEnv("QZ_LOCAL_SS_PATH", SsPath());
    }
    void TearDown() override
    {
        QZTEST::SetEnv("QZCSAK_SYSTEMP_PATH", L"");
        QZTEST::SetEnv("QZ_LOCAL_SS_PATH", L"");
    }

    std::wstring SsPath() const { return m_folder.Path() + L"local_ss.xml"; }
    std::wstring TraceFile() const { return m_wstrTraceFolder + L"$qzriwrp.txt"; }
    std::string Pkg() const { return QZSTD::WideToUtf8(m_wstrPkg); }

    // Runs the agent's copy and keeps its trace; fails, with the trace, unless it ends with nCode.
    testing::AssertionResult RunAgent(const std::vector<std::wstring>& vecArgs, int32_t nCode)
    {
        const int n = QZRITEST::RunChild(m_wstrAgent, vecArgs, 60000);  // a hang detector only
        m_vecRecords = QZRITEST::TraceRecords(TraceFile());
        if (n == QZRITEST::ExitStatusOf(nCode))
            return testing::AssertionSuccess();
        return testing::AssertionFailure()
               << "exit status " << n << ", not " << QZRITEST::ExitStatusOf(nCode) << "; trace:\n"
               << Dump();
    }

    QZTEST::TempFolder m_folder;
    std::wstring m_wstrPkg;
    std::wstring m_wstrTraceFolder;
    std::wstring m_wstrAgent;
    std::wstring m_wstrIni;
};

TEST_F(AgentRunTest, APackageWithoutItsSetupEndsWithTheMissingFile)
{
    ASSERT_TRUE(RunAgent({L"TASK_ID=T-17", L"RI_ID=r1"}, QZRI_RSLT_SETUP_NOT_FOUND));
    EXPECT_TRUE(Traced({
        "QZRIWRP I StartTrace: Trace of component 1093, version 1.0.0.0: '" + QZSTD::WideToUtf8(TraceFile()) +
            "'.",
        "QZRIWRP I RiWrpData::Initialize: m_wstrDirPath = " + Pkg() + ".",
        "QZWSSN I RiWrpData::Initialize: 0 interactive user session(s).",
        "QZRIWRP I RunExecutable: Check groups-uninstallation mode.",
        "QZRIWRP I RunExecutable: data.m_eAct = 0.",
        "QZRIWRP E File '" + Pkg() + "setup.exe' does not exist.",
        "QZRIWRP I QZCS_Main: Exit code: QZRI_RSLT_SETUP_NOT_FOUND (536871113, 0x200000C9, the agent's own).",
    }));
    const std::string strCmdLine = m_vecRecords.size() > 1 ? m_vecRecords[1] : "";
    EXPECT_EQ(strCmdLine.rfind("QZRIWRP I QZCS_Main: Command line: ", 0), 0u) << Dump();
    EXPECT_NE(strCmdLine.find(" TASK_ID=T-17 RI_ID=r1"), std::string::npos);
}

// The driver runs the package's setup, reads the result file the package names, classifies its code
// with the package's list and reports it into setup.log.
TEST_F(AgentRunTest, TheSetupRunsAndItsResultFileIsJudgedAndReported)
{
    fs::copy_file(fs::path(BuildPath(QZ_EXAMPLE_SETUP_PATH)), fs::path(m_wstrPkg + L"setup.exe"));
    QZTEST::WriteFileBytes(
        m_wstrPkg + L"package.qpd",
        "[Setup]\r\nExecutable=setup.exe\r\n[SetupMainResult]\r\nFile=result.ini\r\n"
        "Section=Result\r\n[SetupMainResult_ErrorCodes]\r\n1603=Fatal error during installation\r\n");
    QZTEST::WriteFileBytes(m_wstrPkg + L"examplesetup.ini", "[Result]\r\nFile=result.ini\r\nCode=1603\r\n");
    ASSERT_TRUE(RunAgent({L"/s"}, 1603));
    EXPECT_TRUE(QZTEST::PathExists(m_wstrPkg + L"setup-ran.txt"));
    EXPECT_EQ(QZSTD::GetProfileInt(m_wstrPkg + L"setup.log", L"ResponseResult", L"ResultCode", 0), 1603);
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPkg + L"ovxsetup.rep"), "Fatal error during installation");
}

#ifdef _WIN32
// The agent's service as the service control manager holds it; false when it could not be made.
bool CreateAgentService(const std::wstring& wstrName, const std::wstring& wstrBinary)
{
    SC_HANDLE hScm = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    if (!hScm)
        return false;
    SC_HANDLE hService =
        ::CreateServiceW(hScm, wstrName.c_str(), wstrName.c_str(), SERVICE_ALL_ACCESS,
                         SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE,
                         wstrBinary.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    if (hService)
        ::CloseServiceHandle(hService);
    ::CloseServiceHandle(hScm);
    return hService != nullptr;
}

bool AgentServiceExists(const std::wstring& wstrName)
{
    std::optional<ServiceFailure> failure;
    CreateSystemServiceControl()->QueryBinaryPath(wstrName, failure);
    return !failure;
}
#endif

// Start-up failures of the real executable: each ends with its own code, after its report.
TEST_F(AgentRunTest, StartUpFailuresEndWithTheirOwnCodes)
{
    // A damaged state (an unknown action in the run parameters) removes the agent's service: the real service
    // control manager under Wine.
    const std::wstring wstrServiceId = L"e2e" + std::to_wstring(QZRITEST::CurrentProcessId());
    const std::wstring wstrService = L"QZ Deployment Wrapper" + wstrServiceId;
#ifdef _WIN32
    ASSERT_TRUE(CreateAgentService(wstrService, L"\"" + m_wstrAgent + L"\" QZRI$ID=" + wstrServiceId));
#endif
    ASSERT_TRUE(QZSTD::WriteProfileString(m_wstrIni, L"Setup", L"action", L"42"));
    ASSERT_TRUE(RunAgent({L"QZRI$ID=" + wstrServiceId}, QZRI_RSLT_DAMAGED_STATE));
#ifdef _WIN32
    EXPECT_FALSE(AgentServiceExists(wstrService));
    const char* szRemoved = "QZRIWRP I RemoveService: Service removed.";
#else
    const char* szRemoved = "QZRIWRP E RemoveService: OpenService failed - 1060";
#endif
    EXPECT_TRUE(
        Traced({"QZRIWRP I RemoveService: Trying to remove service " + QZSTD::WideToUtf8(wstrService) + ".",
                szRemoved}));

    QZTEST::RemoveAll(m_wstrIni);
    // A host of another server is skipped, by the management agent's settings storage.
    QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd",
                           "[Setup]\r\nExecutable=setup.exe\r\n[ExtendedSettings]\r\nMgdByOtherSrv=1\r\n"
                           "ServerID=srv-A\r\n");
    QZRITEST::StoreAgentGlobal(SsPath(), L"QZNAG_SRVID", L"srv-B");

    ASSERT_TRUE(RunAgent({}, QZRI_RSLT_MANAGED_BY_OTHER_SERVER));
    // The current server's id as the real program read it from the storage.
    EXPECT_TRUE(Traced({"QZRIWRP I RiWrpData::Initialize: wstrCurrentServerID = 'srv-B'"}));
}

#ifdef _WIN32
// After a reboot the service control manager starts the agent as its service; for a planned rerun it
// starts the package's setup again, silently, with the first start's arguments and the next counter,
// and stops once that setup has ended.
TEST_F(AgentRunTest, TheServiceRelaunchesTheSetupAfterAReboot)
{
    fs::copy_file(fs::path(BuildPath(QZ_EXAMPLE_SETUP_PATH)), fs::path(m_wstrPkg + L"setup.exe"));
    ASSERT_TRUE(QZSTD::WriteProfileString(m_wstrIni, L"Setup", L"action", L"0"));
    ASSERT_TRUE(QZSTD::WriteProfileString(m_wstrIni, L"Setup", L"start_counter", L"2"));
    ASSERT_TRUE(QZSTD::WriteProfileString(
        m_wstrIni, L"Setup", L"cmdline",
        QZRI::EncodeHexString(L"qzriwrap.exe TASK_ID=T1 MASTER_SERVICE_ID=old").c_str()));
    const std::wstring wstrId = L"svc" + std::to_wstring(QZRITEST::CurrentProcessId());
    const std::wstring wstrService = L"QZ Deployment Wrapper" + wstrId;
    ASSERT_TRUE(CreateAgentService(wstrService, L"\"" + m_wstrAgent + L"\" QZRI$ID=" + wstrId));
    SC_HANDLE hScm = ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS);
    SC_HANDLE hService = ::OpenServiceW(hScm, wstrService.c_str(), SERVICE_ALL_ACCESS);
    ASSERT_TRUE(hService);
    EXPECT_TRUE(::StartServiceW(hService, 0, nullptr)) << ::GetLastError();
    // Hang detectors only: the service starts the setup and stops within seconds.
    SERVICE_STATUS status = {};
    for (int n = 0; n < 600; ++n) {
        ::QueryServiceStatus(hService, &status);
        if (QZTEST::PathExists(m_wstrPkg + L"setup-ran.txt") && status.dwCurrentState == SERVICE_STOPPED)
            break;
        ::Sleep(100);
    }
    EXPECT_EQ(status.dwCurrentState, static_cast<DWORD>(SERVICE_STOPPED));
    const std::string strCmdLine = QZTEST::ReadFileBytes(m_wstrPkg + L"setup-ran.txt");
    const std::string strArgs =
        " TASK_ID=T1 MASTER_SERVICE_ID=" + QZSTD::WideToUtf8(wstrId) + " /s QZRI_START_CNT=2";
    EXPECT_TRUE(strCmdLine.ends_with(strArgs)) << strCmdLine;
    ::DeleteService(hService);
    ::CloseServiceHandle(hService);
    ::CloseServiceHandle(hScm);
}
#endif

// A setup whose restart result asks for a reboot and a rerun: the agent registers to start again with
// QZRI_ACTION_RUN and the counter raised (a real service under Wine). The loop guard at the package's
// restart limit is a row of ResultWaitTest; its removal of the service goes through the same RemoveService
// that the damaged-state run above proves on the real service control manager.
TEST_F(AgentRunTest, ARestartResultOf32RegistersTheRerun)
{
    fs::copy_file(fs::path(BuildPath(QZ_EXAMPLE_SETUP_PATH)), fs::path(m_wstrPkg + L"setup.exe"));
    QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd",
                           "[Setup]\r\nExecutable=setup.exe\r\nMaxRestarts=2\r\n[SetupRestartResult]\r\n"
                           "File=restart.ini\r\nSection=Restart\r\nValue=Class\r\n");
    QZTEST::WriteFileBytes(m_wstrPkg + L"examplesetup.ini",
                           "[Result]\r\nFile=restart.ini\r\nSection=Restart\r\nValue=Class\r\nCode=32\r\n");
    const std::wstring wstrId = L"rerun" + std::to_wstring(QZRITEST::CurrentProcessId());
    ASSERT_TRUE(RunAgent({L"/s", L"MASTER_SERVICE_ID=" + wstrId, L"QZRI_START_CNT=1"}, QZRI_RSLT_NO_ERROR));
    EXPECT_TRUE(Traced({"QZRIWRP I Reboot needed!", "QZRIWRP I RegisterAutostart(0)..."}));
    EXPECT_EQ(QZSTD::GetProfileInt(m_wstrIni, L"Setup", L"action", -1), 0);
    EXPECT_EQ(QZSTD::GetProfileInt(m_wstrIni, L"Setup", L"start_counter", -1), 2);
#ifdef _WIN32
    EXPECT_TRUE(AgentServiceExists(L"QZ Deployment Wrapper" + wstrId));
    RemoveService(*CreateSystemServiceControl(), wstrId);
#endif
}

// Bad setups: one that is no program ends with the system's reason in the result and leaves the package
// as it was; a command line close to the 32,767 characters of process creation reaches the setup whole.
TEST_F(AgentRunTest, ASetupThatIsNoProgramOrHasAVeryLongCommandLine)
{
    QZTEST::WriteFileBytes(m_wstrPkg + L"setup.exe", "not a program");
#ifndef _WIN32
    fs::permissions(fs::path(m_wstrPkg + L"setup.exe"), fs::perms::owner_exec, fs::perm_options::add);
#endif
    ASSERT_TRUE(RunAgent({L"/s"}, QZRI_RSLT_GENERAL_ERROR));
    const std::string strDescr = QZTEST::ReadFileBytes(m_wstrPkg + L"ovxsetup.rep");
    EXPECT_EQ(strDescr.rfind("General error. ", 0), 0u) << strDescr;
    EXPECT_GT(strDescr.size(), std::string("General error. ").size()) << "the system's reason";
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPkg + L"setup.exe"), "not a program");
    EXPECT_TRUE(QZTEST::PathExists(m_wstrPkg + L"package.qpd"));

    fs::remove(fs::path(m_wstrPkg + L"setup.exe"));
    fs::copy_file(fs::path(BuildPath(QZ_EXAMPLE_SETUP_PATH)), fs::path(m_wstrPkg + L"setup.exe"));
    const std::wstring wstrLong = L"AKINSTALLDATA=" + std::wstring(32000 - 2 * m_wstrPkg.size(), L'x');
    ASSERT_TRUE(RunAgent({L"/s", wstrLong}, QZRI_RSLT_NO_ERROR));
    EXPECT_TRUE(QZTEST::ReadFileBytes(m_wstrPkg + L"setup-ran.txt").ends_with(QZSTD::WideToUtf8(wstrLong)));
}

#ifdef _WIN32
// A package whose setup is the example Windows Installer package, with its properties and a password
// among them: installed in the agent's process and reported; the password is in none of the trace, the
// installer's log and the package's result files.
TEST_F(AgentRunTest, AWindowsInstallerPackageIsInstalledWithoutLeakingItsPassword)
{
    const std::string strCanary = "Canary-5d1bX";
    fs::copy_file(fs::path(BuildPath(QZ_EXAMPLE_MSI_PATH)), fs::path(m_wstrPkg + L"example.msi"));
    QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd",
                           "[Setup]\r\nExecutable=example.msi\r\nMsiProperties=EXAMPLEDATA=\"set by the "
                           "package\" PROXYPASSWORD=" +
                               strCanary + "\r\n");
    ASSERT_TRUE(RunAgent({L"/s"}, QZRI_RSLT_NO_ERROR));
    EXPECT_EQ(QZSTD::GetProfileInt(m_wstrPkg + L"setup.log", L"ResponseResult", L"ResultCode", -1), 0);
    std::string strLog;
    for (const std::string& strRecord : m_vecRecords) {
        const size_t nAt = strRecord.find("its log is '");
        if (strRecord.find("Windows Installer returned 0;") != std::string::npos && nAt != std::string::npos)
            strLog = strRecord.substr(nAt + 12, strRecord.size() - nAt - 14);
    }
    ASSERT_FALSE(strLog.empty()) << Dump();
    std::vector<std::wstring> vecFiles{QZSTD::Utf8ToWide(strLog)};
    for (const std::wstring& wstrFolder : {m_wstrTraceFolder, m_wstrPkg})
        for (const std::string& strName : QZTEST::FileNamesIn(wstrFolder))
            if (strName != "package.qpd" && strName != "example.msi")
                vecFiles.push_back(wstrFolder + QZSTD::Utf8ToWide(strName));
    for (const std::wstring& wstrFile : vecFiles) {
        const std::string strData = QZTEST::ReadFileBytes(wstrFile);
        EXPECT_FALSE(strData.empty() && wstrFile == vecFiles.front()) << "no installer log";
        EXPECT_EQ(strData.find(strCanary), std::string::npos) << QZSTD::WideToUtf8(wstrFile);
        EXPECT_EQ(strData.find(QZSTD::WideToUtf16LeBytes(QZSTD::Utf8ToWide(strCanary), false)),
                  std::string::npos)
            << QZSTD::WideToUtf8(wstrFile);
    }
    // The example package is a 32-bit one: its value is in the 32-bit view of the registry.
    HKEY hKey = nullptr;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\QZ Example Product", 0,
                              KEY_READ | KEY_WOW64_32KEY, &hKey),
              ERROR_SUCCESS);
    wchar_t szData[64] = {};
    DWORD dwSize = sizeof(szData);
    EXPECT_EQ(::RegGetValueW(hKey, nullptr, L"Data", RRF_RT_REG_SZ, nullptr, szData, &dwSize), ERROR_SUCCESS);
    ::RegCloseKey(hKey);
    EXPECT_EQ(std::wstring(szData), L"set by the package");
    EXPECT_EQ(::MsiInstallProductW((m_wstrPkg + L"example.msi").c_str(), L"REMOVE=ALL"), ERROR_SUCCESS);
}
#endif

#ifndef _WIN32
// A package that carries only a pointer to its setup: the agent fetches the zip from a local server,
// checks its hash, unpacks it, takes the setup out of it (still a program) and runs it, and records that
// the download is done.
TEST_F(AgentRunTest, ASetupDownloadedFromAServerIsVerifiedUnpackedAndRun)
{
    QZTEST::TempFolder served;
    QZTEST::WriteZip(served.Join(L"product.zip"),
                     {{"bin/setup.exe", QZTEST::ReadFileBytes(BuildPath(QZ_EXAMPLE_SETUP_PATH)), "", 0755}});
    QZTEST::HttpPeer peer(served.Path());
    QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd", "[Setup]\r\nExecutable=bin/setup.exe\r\n");
    QZTEST::WriteFileBytes(m_wstrPkg + L"qzriwrap.cfg", "[qzpkgsrc]\r\nshould_download=1\r\n");
    QZTEST::WriteFileBytes(m_wstrPkg + L"qzpkgsrc.ini",
                           "[source]\r\nurl=" + peer.Url("/product.zip") +
                               "\r\nsha256=" + QZTRANSPORT::Sha256OfFile(served.Join(L"product.zip")) +
                               "\r\nextract_root=unpacked\r\nrel_paths=bin/setup.exe\r\n");
    ASSERT_TRUE(RunAgent({L"/s"}, QZRI_RSLT_NO_ERROR));
    // Only the zip held bin/setup.exe. What the download leaves behind is checked by DownloadTest.
    EXPECT_TRUE(QZTEST::PathExists(m_wstrPkg + L"bin/setup-ran.txt"));
}
#endif

}  // namespace
