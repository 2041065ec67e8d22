// Removing incompatible software with the test engine loaded as a real library (tests/qzri/competitor/):
// loading and its refusals, the runs' results, the work folder across a cut-off run, the reboot agent.
#include <gtest/gtest.h>

#include <tuple>

#include "common/qpdfile.h"
#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/driver.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

using namespace QZRIWRP;
using QZTEST::ErrorCodeOf;

namespace {

class CompetitorTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_env.m_wstrEnginePath = QZSTD::Utf8ToWide(QZ_TEST_ENGINE);
        m_env.m_wstrIniFolder = m_tmp.MakeSubFolder(L"cleanini");
        m_env.m_wstrWorkPath = m_tmp.Join(L"data/Work/");
        m_env.m_wstrAgentFolder = m_tmp.Path();
        m_env.m_loadEngine = [](const std::wstring& wstrPath) {
            return CheckCleanapiOS(wstrPath, OsVersion{});
        };
        m_env.m_startProcess = [this](const std::wstring& wstrLine) { m_vecStarted.push_back(wstrLine); };
        m_env.m_fileExists = [this](const std::wstring&) { return m_bRbtAgtThere; };
        Product(L"a.ini", "Alpha Antivirus");
        Product(L"b.ini", "Beta Firewall");
    }
    void Product(const wchar_t* szIni, const char* szName)
    {
        QZTEST::WriteFileBytes(m_env.m_wstrIniFolder + szIni,
                               std::string("[main]\r\nfullname=") + szName + "\r\n");
    }
    void Control(const std::string& strText)
    {
        QZTEST::WriteFileBytes(m_env.m_wstrIniFolder + L"control.txt", strText);
    }
    std::wstring Stat() const { return m_env.m_wstrWorkPath + STAT_FILE; }

    using Outcome = QZRITEST::CompetitorOutcome;
    Outcome Run() { return QZRITEST::RunCompetitorRemoval(m_data, m_env); }

    QZTEST::TempFolder m_tmp;
    QZRI::RiWrpData m_data;
    CompetitorEnv m_env;
    std::vector<std::wstring> m_vecStarted;
    bool m_bRbtAgtThere = true;
};

TEST_F(CompetitorTest, LoadingRefusesOldSystemsMissingEnginesAndMissingEntryPoints)
{
    const struct
    {
        OsVersion m_os;
        bool m_bRefused;
    } rows[] = {
        {{5, 1, 1}, true}, {{5, 2, 0}, true}, {{5, 1, 2}, false}, {{5, 0, 0}, false}, {{6, 1, 1}, false}};
    for (const auto& row : rows) {
        const int nCode = ErrorCodeOf([&] { CheckCleanapiOS(m_env.m_wstrEnginePath, row.m_os); });
        EXPECT_EQ(nCode, row.m_bRefused ? QZSTD::Err::UNSUPPORTED : 0)
            << row.m_os.m_nMajor << "." << row.m_os.m_nMinor << " sp" << row.m_os.m_nServicePack;
    }
    EXPECT_NE(ErrorCodeOf([&] { CheckCleanapiOS(m_tmp.Join(L"none.so"), OsVersion{}); }), 0);
    // Positive: a system error, raised for the missing RemoveCompetitorSoftwareW.
    const std::wstring wstrNoRemove = QZSTD::Utf8ToWide(QZ_TEST_ENGINE_NO_REMOVE);
    EXPECT_GT(ErrorCodeOf([&] { CheckCleanapiOS(wstrNoRemove, OsVersion{}); }, QZSTD::SYSTEM_MODULE), 0);
}

TEST_F(CompetitorTest, ResultsOfRuns)
{
    const struct
    {
        const char* m_szControl;
        int32_t m_nResult;
        const wchar_t* m_szDescr;
        bool m_bNeedReboot;
    } rows[] = {
        {"list=Alpha Antivirus|a.ini;Beta Firewall|b.ini\n", 0,
         L"successfully deleted: Alpha Antivirus, Beta Firewall.", true},
        {"list=Alpha Antivirus|a.ini;Beta Firewall|b.ini\nb.ini=failed\n", -100,
         L"deletion failed for: Beta Firewall. successfully deleted: Alpha Antivirus.", false},
        {"list=Alpha Antivirus|a.ini\na.ini=restart\n", 0, L"successfully deleted: Alpha Antivirus.", true},
        {"list=Alpha Antivirus|a.ini\na.ini=odd\n", -100, L"deletion failed for: Alpha Antivirus.", false},
        {"list=\n", 0, L"there are no incompatible applications for delete.", false},
        {"enum=fail\n", -100, L"cleanapi error: enum_competitor_software failed.", false},
        {"enum=garbage\nlist=Alpha Antivirus|a.ini\n", -100,
         L"cleanapi error: enum_competitor_software failed.", false},
        {"enum=bignames\n", 0, L"", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.m_szControl);
        QZTEST::RemoveAll(m_env.m_wstrWorkPath);
        Control(row.m_szControl);
        const Outcome outcome = Run();
        if (std::string(row.m_szControl) == "enum=bignames\n") {
            // A long name travels through a second, larger buffer; no ini file of the folder has that name,
            // so it is skipped and not counted as removed.
            EXPECT_EQ(ReadSectionKeys(Stat(), SECTION_INSTALLED),
                      std::vector<std::wstring>{std::wstring(5000, L'N')});
            EXPECT_TRUE(ReadSectionKeys(Stat(), SECTION_REMOVED).empty());
            continue;
        }
        EXPECT_EQ(outcome, Outcome(row.m_nResult, row.m_szDescr, row.m_bNeedReboot));
        // Nothing is left under way, and the engine's own files are gone once the outcome is recorded.
        EXPECT_TRUE(ReadSectionKeys(Stat(), SECTION_SHUTDOWN).empty());
        EXPECT_FALSE(QZTEST::PathExists(m_env.m_wstrWorkPath + L"a.log"));
    }
}

// A removal cut off by a shutdown (or an engine that took the agent down) leaves the product under
// "Shutdown softwares"; the next run removes it first, before what is installed, and only once.
TEST_F(CompetitorTest, ProductLeftUnderWayIsTakenOverByTheNextRun)
{
    QZTEST::MakeFolder(m_env.m_wstrWorkPath);
    // Damaged around the entries that matter: lines without '=', an unterminated section, stray bytes.
    QZTEST::WriteFileBytes(Stat(), "\x01\xfe garbage\r\n[Removed softwares\r\n=\r\n");
    ASSERT_TRUE(QZSTD::WriteProfileString(Stat(), SECTION_SHUTDOWN, L"Beta Firewall", L"b.ini"));
    ASSERT_TRUE(QZSTD::WriteProfileString(Stat(), SECTION_SHUTDOWN, L"Gone Product", L"gone.ini"));
    Control("list=Alpha Antivirus|a.ini;Beta Firewall|b.ini\n");
    EXPECT_EQ(Run(), Outcome(CLEANER_RSLT_UNKNOWN,
                             L"successfully deleted: Beta Firewall, Alpha Antivirus. "
                             L"unknown status by shutdown reason: Gone Product.",
                             true));
    EXPECT_EQ(QZTEST::ReadFileBytes(m_env.m_wstrIniFolder + L"calls.txt"), "b.ini\na.ini\n");
    // The product without an ini file stays under way: nobody can finish it, and nobody forgets it.
    EXPECT_EQ(ReadSectionKeys(Stat(), SECTION_SHUTDOWN), std::vector<std::wstring>{L"Gone Product"});
}

// What the stat file says while the engine works: the product is under way.
class SnoopingEngine : public CleanEngine
{
public:
    explicit SnoopingEngine(std::wstring wstrStat) : m_wstrStat(std::move(wstrStat)) {}
    bool Enumerate(const std::wstring&, std::vector<CompetitorProduct>&, std::wstring&) override
    {
        return true;
    }
    Outcome Remove(const std::wstring&, const std::wstring&, std::wstring&) override
    {
        m_vecUnderWay = ReadSectionKeys(m_wstrStat, SECTION_SHUTDOWN);
        return Outcome::REMOVED;
    }
    std::wstring m_wstrStat;
    std::vector<std::wstring> m_vecUnderWay;
};

TEST_F(CompetitorTest, HandlerRecordsUnderWaySkipsMissingOrNamelessIniFilesAndNeedsItsWorkFolder)
{
    QZTEST::WriteFileBytes(m_env.m_wstrIniFolder + L"c.ini", "[main]\r\nname=x\r\n");
    SnoopingEngine engine(Stat());
    CRemoveHandler handler(engine, m_env.m_wstrWorkPath, m_env.m_wstrIniFolder);
    handler.init();
    handler.CollectIniFilesInfo();
    EXPECT_EQ(handler.IniFiles().size(), 2u) << "c.ini has no fullname";
    handler.handleNextCompetitor(L"Alpha Antivirus", handler.IniFiles().at(L"Alpha Antivirus"));
    EXPECT_EQ(engine.m_vecUnderWay, std::vector<std::wstring>{L"Alpha Antivirus"});
    engine.m_vecUnderWay.clear();
    handler.handleNextCompetitor(L"Vanished", m_env.m_wstrIniFolder + L"vanished.ini");
    EXPECT_TRUE(engine.m_vecUnderWay.empty());
    EXPECT_EQ(ReadSectionKeys(Stat(), SECTION_REMOVED), std::vector<std::wstring>{L"Alpha Antivirus"});
    // A file where the work folder should be.
    QZTEST::WriteFileBytes(m_tmp.Join(L"blocked"), "x");
    CRemoveHandler blocked(engine, m_tmp.Join(L"blocked/Work"), m_env.m_wstrIniFolder);
    EXPECT_EQ(ErrorCodeOf([&] { blocked.init(); }), ERR_WORK_FOLDER);
}

TEST_F(CompetitorTest, RebootAgentStartsOnlyWithSavedLineAndProgram)
{
    CCompetitorSoftwareUninstall uninstall(m_data, m_env);
    QZTEST::MakeFolder(m_env.m_wstrWorkPath);
    uninstall.StartRebootAgent();
    EXPECT_TRUE(m_vecStarted.empty());
    uninstall.SaveRebootAgentCmdLine(L"\"qzrbtagt.exe\" RunAfterRestart=$HEX_41");
    m_bRbtAgtThere = false;
    uninstall.StartRebootAgent();
    EXPECT_TRUE(m_vecStarted.empty());
    m_bRbtAgtThere = true;
    uninstall.StartRebootAgent();
    EXPECT_EQ(m_vecStarted, std::vector<std::wstring>{L"\"qzrbtagt.exe\" RunAfterRestart=$HEX_41"});
    EXPECT_EQ(ReadWorkFolderState(m_env.m_wstrWorkPath).m_wstrRebootAgentCmdLine, m_vecStarted[0]);
}

// The driver's step for a run with QZRI$CMTRS: the run is a removal task that reports and ends (no setup
// runs: the package has none, which would end the run differently), its service removed.
TEST_F(CompetitorTest, DriverEndsTheRemovalTaskWithItsResult)
{
    // A removal that succeeds or fails is run through the driver by competitor_agent_test.cpp.
    const struct
    {
        const char* m_szControl;  // null: no engine file at all
        bool m_bHasEnv;
        int32_t m_nResult;
        std::vector<std::string> m_vecLines;
    } rows[] = {
        {"enum=fail\n",
         true,
         -100,
         {"QZRIWRP E RunExecutable: udata.PrepareToRemove failed, generating report...",
          "QZRIWRP I RunExecutable: return nExitCode(-100), bNeedReboot(0), wstrDescr(cleanapi error: "
          "enum_competitor_software failed.)..."}},
        {nullptr, true, -100, {"QZRIWRP E RunExecutable: An error occured, generating report..."}},
        {"list=\n", false, QZRI::QZRI_RSLT_NOT_AVAILABLE, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.m_szControl ? row.m_szControl : "no engine");
        QZTEST::RemoveAll(m_env.m_wstrWorkPath);
        const std::wstring wstrPkg = m_tmp.MakeSubFolder(L"pkg");
        QZTEST::WriteFileBytes(wstrPkg + L"package.qpd", "[CompetitorSoftwareUninstall]\r\nProduct=1\r\n");
        QZRI::RiWrpData data;
        data.m_wstrDirPath = data.m_wstrExecDirPath = wstrPkg;
        data.m_wstrQpdFilePath = wstrPkg + L"package.qpd";
        data.m_pQpd = QZRI::QpdFile::Create(data.m_wstrQpdFilePath);
        data.m_bSilentModeCmdLine = true;
        data.m_wstrSavedCmdLine = L"qzriwrap.exe QZRI$CMTRS";
        CompetitorEnv env = m_env;
        if (!row.m_szControl)
            env.m_wstrEnginePath = m_tmp.Join(L"none");
        else
            Control(row.m_szControl);
        QZRITEST::TestServices fakes;
        QZRI::AgentServices services = fakes.Get();
        services.m_pCompetitorEnv = row.m_bHasEnv ? &env : nullptr;
        ASSERT_TRUE(QZSTD::TraceOpen(m_tmp.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        const int32_t nResult = QZRI::RunExecutable(data, services).m_nResult;
        QZSTD::TraceClose();
        EXPECT_EQ(nResult, row.m_nResult);
        EXPECT_TRUE(QZRITEST::HasInOrder(QZRITEST::TraceRecords(m_tmp.Join(L"trace.txt")), row.m_vecLines));
        EXPECT_TRUE(m_vecStarted.empty());
        EXPECT_EQ(fakes.m_serviceControl.m_vecDeleted.size(), 1u);
    }
}

}  // namespace
