// StartTrace on real files in a private folder: the folder choice, the rotation and the file names.
#include "qzri/riwrap/tracefiles.h"

#include <gtest/gtest.h>

#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using Names = std::vector<std::string>;

class TraceFilesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_wstrTraceFolder = m_folder.MakeSubFolder(L"trace");
        m_os.m_wstrTempFolder = m_folder.MakeSubFolder(L"tmp");
        m_os.m_mapEnv[TRACE_FOLDER_ENV] = m_wstrTraceFolder;
    }
    void TearDown() override { QZSTD::TraceClose(); }

    std::wstring File(int nGeneration) const { return m_wstrTraceFolder + TraceGenerationName(nGeneration); }
    void WriteGenerations(int nCount)
    {
        for (int n = 0; n < nCount; ++n)
            QZTEST::WriteFileBytes(File(n), "run-" + std::to_string(n) + "\n");
    }
    bool Start(const std::wstring& wstrCmdLine)
    {
        const bool b = StartTrace(wstrCmdLine, m_os);
        QZSTD::TraceClose();
        return b;
    }

    QZTEST::TempFolder m_folder;
    std::wstring m_wstrTraceFolder;
    QZRITEST::TestOs m_os;
};

TEST_F(TraceFilesTest, GenerationNames)
{
    EXPECT_EQ(TraceGenerationName(0), L"$qzriwrp.txt");
    EXPECT_EQ(TraceGenerationName(1), L"$qzriwrp.bak");
    EXPECT_EQ(TraceGenerationName(2), L"$qzriwrp.bak.bak");
    EXPECT_EQ(TraceGenerationName(3), L"$qzriwrp.bak.bak.bak");
    EXPECT_EQ(TraceGenerationName(4), L"$qzriwrp.bak.bak.bak.bak");
}

TEST_F(TraceFilesTest, FolderFromTheEnvironmentOnlyWhenItIsAWritableFolder)
{
    EXPECT_EQ(ChooseTraceFolder(m_os).m_wstrFolder, m_wstrTraceFolder);

    const std::wstring wstrNoSeparator = m_wstrTraceFolder.substr(0, m_wstrTraceFolder.size() - 1);
    m_os.m_mapEnv[TRACE_FOLDER_ENV] = wstrNoSeparator;
    EXPECT_EQ(ChooseTraceFolder(m_os).m_wstrFolder, m_wstrTraceFolder);

    for (const std::wstring& wstrBad :
         {std::wstring(), m_folder.Path() + L"missing", m_folder.Path() + L"file.txt"}) {
        QZTEST::WriteFileBytes(m_folder.Path() + L"file.txt", "x");
        m_os.m_mapEnv[TRACE_FOLDER_ENV] = wstrBad;
        const TraceFolderChoice choice = ChooseTraceFolder(m_os);
        EXPECT_EQ(choice.m_wstrFolder, m_os.m_wstrTempFolder) << QZSTD::WideToUtf8(wstrBad);
        EXPECT_EQ(choice.m_wstrRejectedEnvValue, wstrBad);
    }

    m_os.m_mapEnv.clear();
    EXPECT_EQ(ChooseTraceFolder(m_os).m_wstrFolder, m_os.m_wstrTempFolder);
}

TEST_F(TraceFilesTest, RotationKeepsExactlyFiveGenerationsEachOneStepOlder)
{
    WriteGenerations(5);
    ASSERT_TRUE(Start(L"qzriwrap.exe QZRI$ID=svc1"));
    EXPECT_EQ(QZTEST::FileNamesIn(m_wstrTraceFolder),
              (Names{"$qzriwrp.bak", "$qzriwrp.bak.bak", "$qzriwrp.bak.bak.bak", "$qzriwrp.bak.bak.bak.bak",
                     "$qzriwrp.txt"}));
    for (int n = 1; n < TRACE_GENERATIONS; ++n)
        EXPECT_EQ(QZTEST::ReadFileBytes(File(n)), "run-" + std::to_string(n - 1) + "\n") << n;
    const std::vector<std::string> vecRecords = QZRITEST::TraceRecords(File(0));
    ASSERT_FALSE(vecRecords.empty());
    EXPECT_EQ(vecRecords[0], "QZRIWRP I StartTrace: Trace of component 1093, version 1.0.0.0: '" +
                                 QZSTD::WideToUtf8(File(0)) + "'.");
}

TEST_F(TraceFilesTest, RotationOfAShortChainFillsTheNextLevel)
{
    WriteGenerations(2);
    ASSERT_TRUE(Start(L"qzriwrap.exe"));
    EXPECT_EQ(QZTEST::FileNamesIn(m_wstrTraceFolder),
              (Names{"$qzriwrp.bak", "$qzriwrp.bak.bak", "$qzriwrp.txt"}));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(1)), "run-0\n");
    EXPECT_EQ(QZTEST::ReadFileBytes(File(2)), "run-1\n");
}

TEST_F(TraceFilesTest, FreshStartKeepsTheLastTraceAsBakAndBeginsANewFile)
{
    WriteGenerations(1);
    ASSERT_TRUE(Start(L"qzriwrap.exe TASK_ID=T-1"));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(1)), "run-0\n");
    EXPECT_EQ(QZTEST::ReadFileBytes(File(0)).find("run-0"), std::string::npos);
}

TEST_F(TraceFilesTest, FreshStartRemovesATraceTheRotationCouldNotMove)
{
    WriteGenerations(1);
    m_os.m_setFailingRenames.insert(File(0));
    ASSERT_TRUE(Start(L"qzriwrap.exe"));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(0)).find("run-0"), std::string::npos);
    EXPECT_TRUE(QZRITEST::ContainsInOrder(QZRITEST::TraceRecords(File(0)),
                                          {"QZRIWRP W StartTrace: '$qzriwrp.txt' could not be renamed; the "
                                           "older traces were left as they were."}));
}

TEST_F(TraceFilesTest, RestartAppendsToATraceTheRotationCouldNotMove)
{
    WriteGenerations(1);
    m_os.m_setFailingRenames.insert(File(0));
    ASSERT_TRUE(Start(L"qzriwrap.exe QZRI$ID=svc1"));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(0)).rfind("run-0\n", 0), 0u);
}

TEST_F(TraceFilesTest, FailedRenameOverwritesNoOlderGeneration)
{
    WriteGenerations(4);
    m_os.m_setFailingRenames.insert(File(2));
    ASSERT_TRUE(Start(L"qzriwrap.exe QZRI$ID=svc1"));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(4)), "run-3\n");
    EXPECT_EQ(QZTEST::ReadFileBytes(File(3)), "");
    EXPECT_FALSE(QZTEST::PathExists(File(3)));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(2)), "run-2\n");
    EXPECT_EQ(QZTEST::ReadFileBytes(File(1)), "run-1\n");
}

TEST_F(TraceFilesTest, CompetitorRemovalRunWritesItsOwnFileWithoutRotating)
{
    WriteGenerations(2);
    ASSERT_TRUE(Start(L"qzriwrap.exe QZRI$CMTRS"));
    EXPECT_EQ(QZTEST::FileNamesIn(m_wstrTraceFolder),
              (Names{"$qzriwrp.bak", "$qzriwrp.txt", "$qzriwrp_cmpr.txt"}));
    EXPECT_EQ(QZTEST::ReadFileBytes(File(0)), "run-0\n");
    EXPECT_EQ(QZTEST::ReadFileBytes(File(1)), "run-1\n");
    EXPECT_FALSE(QZRITEST::TraceRecords(m_wstrTraceFolder + COMPETITOR_TRACE_FILE).empty());
}

TEST_F(TraceFilesTest, RejectedEnvironmentFolderIsTracedInTheTemporaryFolder)
{
    m_os.m_mapEnv[TRACE_FOLDER_ENV] = m_folder.Path() + L"missing";
    ASSERT_TRUE(Start(L"qzriwrap.exe"));
    const std::vector<std::string> vecRecords = QZRITEST::TraceRecords(m_os.m_wstrTempFolder + TRACE_FILE);
    EXPECT_TRUE(QZRITEST::ContainsInOrder(
        vecRecords, {"QZRIWRP W StartTrace: QZCSAK_SYSTEMP_PATH = '" + QZSTD::WideToUtf8(m_folder.Path()) +
                     "missing' is not a writable folder; the temporary folder is used."}))
        << QZRITEST::Joined(vecRecords);
}

}  // namespace
