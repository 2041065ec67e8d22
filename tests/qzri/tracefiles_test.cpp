// StartTrace on real files in a private folder: the folder choice, the rotation and the file names.
#include "qzri/riwrap/tracefiles.h"

#include <gtest/gtest.h>

#include <tuple>

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

    // The trace, in the temporary folder, says why.
    m_os.m_mapEnv[TRACE_FOLDER_ENV] = m_folder.Path() + L"missing";
    ASSERT_TRUE(Start(L"qzriwrap.exe"));
    EXPECT_TRUE(QZRITEST::HasInOrder(
        QZRITEST::TraceRecords(m_os.m_wstrTempFolder + TRACE_FILE),
        {"QZRIWRP W StartTrace: QZCSAK_SYSTEMP_PATH = '" + QZSTD::WideToUtf8(m_folder.Path()) +
         "missing' is not a writable folder; the temporary folder is used."}));
}

// Each row: how many generations lie there, which one cannot be renamed, whether the run is a restart;
// then what each generation holds afterwards, a character each ('-': absent, 'n': this run's trace only,
// 'o': run-0 and then this run's trace, a digit d: "run-d" as it was).
TEST_F(TraceFilesTest, RotationMovesEachGenerationOneStepAndNeverOverwritesAnUnmovedOne)
{
    // What is tried, the generations, the one whose rename fails (-1: none), whether the run is a
    // restart, and generations 0..4 afterwards.
    using Row = std::tuple<const char*, int, int, bool, const char*>;
    const Row rows[] = {
        {"five generations, the oldest falls off", 5, -1, true, "n0123"},
        {"a short chain fills the next level", 2, -1, false, "n01--"},
        {"a fresh start removes what could not be moved", 1, 0, false, "n----"},
        {"a restart appends to what could not be moved", 1, 0, true, "o----"},
        {"a failed rename stops the rotation", 4, 2, true, "o12-3"},
    };
    for (const auto& [szWhat, nGenerations, nFailingRename, bRestart, szExpected] : rows) {
        SCOPED_TRACE(szWhat);
        for (int n = 0; n < TRACE_GENERATIONS; ++n)
            QZTEST::RemoveAll(File(n));
        WriteGenerations(nGenerations);
        m_os.m_setFailingRenames.clear();
        if (nFailingRename >= 0)
            m_os.m_setFailingRenames.insert(File(nFailingRename));
        ASSERT_TRUE(Start(bRestart ? L"qzriwrap.exe QZRI$ID=svc1" : L"qzriwrap.exe"));
        for (int n = 0; n < TRACE_GENERATIONS; ++n) {
            const char c = szExpected[n];
            const std::string strContent = QZTEST::PathExists(File(n)) ? QZTEST::ReadFileBytes(File(n)) : "-";
            if (c == 'n' || c == 'o') {
                EXPECT_EQ(strContent.rfind("run-0\n", 0) == 0, c == 'o') << strContent;
                EXPECT_NE(strContent.find("QZRIWRP I StartTrace: Trace of component 1093, version 1.0.0.0"),
                          std::string::npos);
            } else
                EXPECT_EQ(strContent, c == '-' ? "-" : "run-" + std::string(1, c) + "\n") << n;
        }
    }
    EXPECT_TRUE(QZRITEST::HasInOrder(QZRITEST::TraceRecords(File(0)),
                                     {"QZRIWRP W StartTrace: '$qzriwrp.bak.bak' could not be renamed; the "
                                      "older traces were left as they were."}));
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

}  // namespace
