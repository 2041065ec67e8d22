// The agent's own executable on a removal task (natively and under Wine): the test engine lies beside it
// as the removal engine, the example setup program as the reboot agent (it records its command line in
// "setup-ran.txt"). After a removal that asks for a restart, the command line the reboot agent got is run
// as it would run after the restart, and the task ends.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "qzri/rbtagt/rbtagt.h"
#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/riresult.h"
#include "std/cmdline.h"
#include "std/strconv.h"
#include "tests/qzri/childprocess.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace fs = std::filesystem;

namespace {

#ifdef _WIN32
const wchar_t* const AGENT_FILE = L"qzriwrap.exe";
#else
const wchar_t* const AGENT_FILE = L"qzriwrap";
#endif

class CompetitorAgentTest : public testing::Test, public QZRITEST::TraceOfRun
{
protected:
    void SetUp() override
    {
        m_wstrPkg = m_folder.MakeSubFolder(L"pkg");
        m_wstrTrace = m_folder.MakeSubFolder(L"trace");
        fs::copy_file(QZRITEST::BuildPath(QZRIWRAP_EXE_PATH), m_wstrPkg + AGENT_FILE);
        fs::copy_file(QZRITEST::BuildPath(QZ_TEST_ENGINE), m_wstrPkg + QZRIWRP::ENGINE_FILE);
        fs::copy_file(QZRITEST::BuildPath(QZ_EXAMPLE_SETUP_PATH), m_wstrPkg + L"qzrbtagt.exe");
        QZTEST::WriteFileBytes(m_wstrPkg + L"package.qpd",
                               "[Setup]\r\nExecutable=setup.exe\r\n"
                               "[CompetitorSoftwareUninstall]\r\nProduct=1\r\n");
        const std::wstring wstrIni = m_wstrPkg + QZRIWRP::INI_FOLDER;
        QZTEST::MakeFolder(wstrIni);
        QZTEST::WriteFileBytes(wstrIni + L"/a.ini", "[main]\r\nfullname=Alpha\r\n");
        QZTEST::WriteFileBytes(wstrIni + L"/b.ini", "[main]\r\nfullname=Beta\r\n");
        QZTEST::SetEnv("QZCSAK_SYSTEMP_PATH", m_wstrTrace);
        QZTEST::SetEnv("QZ_LOCAL_SS_PATH", m_folder.Path() + L"local_ss.xml");
    }
    void TearDown() override
    {
        QZTEST::SetEnv("QZCSAK_SYSTEMP_PATH", L"");
        QZTEST::SetEnv("QZ_LOCAL_SS_PATH", L"");
    }
    void Control(const std::string& strText)
    {
        QZTEST::WriteFileBytes(m_wstrPkg + QZRIWRP::INI_FOLDER + L"/control.txt", strText);
    }
    int RunAgent(const std::wstring& wstrProgram, const std::vector<std::wstring>& vecArgs)
    {
        const int n = QZRITEST::RunChild(wstrProgram, vecArgs, 60000);
        m_vecRecords = QZRITEST::TraceRecords(m_wstrTrace + L"$qzriwrp_cmpr.txt");
        return n;
    }
    // The reboot agent is started without waiting for it.
    std::string RebootAgentLine() const
    {
        for (int n = 0; n < 100 && !QZTEST::PathExists(m_wstrPkg + L"setup-ran.txt"); ++n)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return QZTEST::ReadFileBytes(m_wstrPkg + L"setup-ran.txt");
    }

    QZTEST::TempFolder m_folder;
    std::wstring m_wstrPkg;
    std::wstring m_wstrTrace;
};

TEST_F(CompetitorAgentTest, RemovalTaskAsksForTheRestartAndIsContinuedAfterIt)
{
    Control("list=Alpha|a.ini;Beta|b.ini\n");
    ASSERT_EQ(RunAgent(m_wstrPkg + AGENT_FILE, {L"/s", L"QZRI$CMTRS"}), 0) << Dump();
    EXPECT_TRUE(
        Traced({"QZRIWRP I RunExecutable: competitor found.",
                "QZRIWRP I RunExecutable: return nExitCode(0), bNeedReboot(1), wstrDescr(successfully "
                "deleted: Alpha, Beta.)..."}))
        << Dump();
    const std::string strLine = RebootAgentLine();
    ASSERT_NE(strLine, "") << Dump();
    const QZRBTAGT::Arguments args = QZRBTAGT::ParseArguments(QZSTD::Utf8ToWide(strLine));
    ASSERT_EQ(args.m_wstrError, L"") << strLine;
    EXPECT_NE(args.m_wstrRunAfterRestart.find(L"QZRI$CMTRS"), std::wstring::npos) << strLine;

    // After the restart: the products are gone, and the task ends without asking again (its description
    // is the "list=" row of CompetitorTest.ResultsOfRuns).
    fs::remove(fs::path(m_wstrPkg + L"setup-ran.txt"));
    Control("list=\n");
    const std::vector<std::wstring> vecWords = QZSTD::SplitCommandLine(args.m_wstrRunAfterRestart);
    ASSERT_FALSE(vecWords.empty());
    EXPECT_EQ(RunAgent(vecWords[0], std::vector<std::wstring>(vecWords.begin() + 1, vecWords.end())), 0)
        << Dump();
    EXPECT_FALSE(QZTEST::PathExists(m_wstrPkg + L"setup-ran.txt"));
}

// The failure's description is the "b.ini=failed" row of CompetitorTest.ResultsOfRuns; here its code
// leaves the real process, and no reboot agent starts.
TEST_F(CompetitorAgentTest, FailedRemovalEndsTheTaskWithoutRestart)
{
    Control("list=Alpha|a.ini;Beta|b.ini\nb.ini=failed\n");
    EXPECT_EQ(RunAgent(m_wstrPkg + AGENT_FILE, {L"/s", L"QZRI$CMTRS"}),
              QZRITEST::ExitStatusOf(QZRIWRP::CLEANER_RSLT_FAILED))
        << Dump();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(QZTEST::PathExists(m_wstrPkg + L"setup-ran.txt"));
}

}  // namespace
