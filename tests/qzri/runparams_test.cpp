// The run-parameters file with the real ini functions (natively the ini module, under Wine Win32).
#include <gtest/gtest.h>

#include <string>

#include "qzri/riwrap/riwrpdata.h"
#include "std/error.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;
using QZTEST::TempFolder;

class RunParamsTest : public testing::Test
{
protected:
    void SetUp() override { m_data.m_wstrDirPath = m_folder.Path(); }
    std::wstring Stored(const wchar_t* szKey)
    {
        return QZSTD::GetProfileString(m_data.RunParamsFilePath(), L"Setup", szKey, L"<absent>");
    }
    void Store(const wchar_t* szKey, const wchar_t* szValue)
    {
        ASSERT_TRUE(QZSTD::WriteProfileString(m_data.RunParamsFilePath(), L"Setup", szKey, szValue));
    }
    RiWrpData ReadBack()
    {
        RiWrpData data;
        data.m_wstrDirPath = m_folder.Path();
        data.GetServiceRunParams();
        return data;
    }

    TempFolder m_folder;
    RiWrpData m_data;
};

TEST_F(RunParamsTest, MissingFileGivesActionRunCounterZeroAndNoCommandLine)
{
    m_data.m_eAct = QZRI_ACTION_CHECK_RESULT;
    m_data.m_nStartCounter = 9;
    m_data.m_wstrSavedCmdLine = L"stale";
    m_data.GetServiceRunParams();
    EXPECT_EQ(m_data.m_eAct, QZRI_ACTION_RUN);
    EXPECT_EQ(m_data.m_nStartCounter, 0);
    EXPECT_EQ(m_data.m_wstrSavedCmdLine, L"");
    EXPECT_FALSE(QZTEST::PathExists(m_data.RunParamsFilePath()));
}

TEST_F(RunParamsTest, PlannedRerunRaisesTheStoredCounterByOne)
{
    m_data.m_nStartCounter = 4;
    ASSERT_TRUE(m_data.SetServiceRunParams(QZRI_ACTION_RUN));
    EXPECT_EQ(Stored(L"action"), L"0");
    EXPECT_EQ(Stored(L"start_counter"), L"5");
    EXPECT_EQ(m_data.m_nStartCounter, 4) << "only the file changes";
    EXPECT_EQ(ReadBack().m_nStartCounter, 5);
}

TEST_F(RunParamsTest, OtherActionsLeaveTheCounterAlone)
{
    Store(L"start_counter", L"4");
    m_data.m_nStartCounter = 4;
    for (const QzriAction eAction :
         {QZRI_ACTION_RUNNING_SETUP, QZRI_ACTION_CHECK_RESULT, QZRI_ACTION_ASK_USER}) {
        ASSERT_TRUE(m_data.SetServiceRunParams(eAction));
        EXPECT_EQ(Stored(L"action"), std::to_wstring(eAction));
        EXPECT_EQ(Stored(L"start_counter"), L"4");
    }
    QZTEST::TempFolder fresh;
    RiWrpData data;
    data.m_wstrDirPath = fresh.Path();
    ASSERT_TRUE(data.SetServiceRunParams(QZRI_ACTION_CHECK_RESULT));
    EXPECT_EQ(QZSTD::GetProfileString(data.RunParamsFilePath(), L"Setup", L"start_counter", L"<absent>"),
              L"<absent>");
}

TEST_F(RunParamsTest, CommandLineIsStoredAsHexAndReadBack)
{
    m_data.m_wstrSavedCmdLine = L"a b";
    ASSERT_TRUE(m_data.SetServiceRunParams(QZRI_ACTION_CHECK_RESULT));
    EXPECT_EQ(Stored(L"cmdline"), L"$HEX_610020006200");
    EXPECT_NE(QZTEST::ReadFileBytes(m_data.RunParamsFilePath()).find("cmdline=$HEX_610020006200"),
              std::string::npos);
    const RiWrpData data = ReadBack();
    EXPECT_EQ(data.m_wstrSavedCmdLine, L"a b");
    EXPECT_EQ(data.m_eAct, QZRI_ACTION_CHECK_RESULT);
}

TEST_F(RunParamsTest, QuotesAndCharactersOutsideAnsiSurviveTheFile)
{
    m_data.m_wstrSavedCmdLine = L"\"C:\\Pakete\\setup.exe\" TASK_ID=\"\u00e9t\u00e9 \u4e2d\" -s";
    ASSERT_TRUE(m_data.SetServiceRunParams(QZRI_ACTION_RUN));
    EXPECT_EQ(ReadBack().m_wstrSavedCmdLine, m_data.m_wstrSavedCmdLine);
}

TEST_F(RunParamsTest, LongCommandLineIsNotCutWhenReadBack)
{
    m_data.m_wstrSavedCmdLine = L"setup.exe " + std::wstring(3000, L'x');
    ASSERT_TRUE(m_data.SetServiceRunParams(QZRI_ACTION_RUN));
    EXPECT_EQ(ReadBack().m_wstrSavedCmdLine, m_data.m_wstrSavedCmdLine);
}

TEST_F(RunParamsTest, EmptyCommandLineIsWrittenAsEmptyValue)
{
    ASSERT_TRUE(m_data.SetServiceRunParams(QZRI_ACTION_RUN));
    EXPECT_EQ(Stored(L"cmdline"), L"");
    EXPECT_NE(QZTEST::ReadFileBytes(m_data.RunParamsFilePath()).find("cmdline="), std::string::npos);
}

TEST_F(RunParamsTest, ValueWithoutHexPrefixIsReadAsPlainText)
{
    Store(L"action", L"2");
    Store(L"start_counter", L"7");
    Store(L"cmdline", L"setup.exe /s");
    const RiWrpData data = ReadBack();
    EXPECT_EQ(data.m_eAct, QZRI_ACTION_CHECK_RESULT);
    EXPECT_EQ(data.m_nStartCounter, 7);
    EXPECT_EQ(data.m_wstrSavedCmdLine, L"setup.exe /s");
}

TEST_F(RunParamsTest, MalformedHexCommandLineIsABadParameter)
{
    Store(L"cmdline", L"$HEX_61002");
    try {
        ReadBack();
        FAIL() << "no error";
    } catch (const QZSTD::QZError& e) {
        EXPECT_TRUE(e.Is(QZSTD::Err::MODULE, QZSTD::Err::BAD_PARAM)) << QZSTD::WideToUtf8(e.Describe());
    }
}

TEST_F(RunParamsTest, UnwritableFileIsReportedAsFalse)
{
    m_data.m_wstrDirPath = m_folder.Path() + L"missing" + PATH_SEPARATOR;
    EXPECT_FALSE(m_data.SetServiceRunParams(QZRI_ACTION_RUN));
}

TEST_F(RunParamsTest, WritingTracesActionCounterAndTheNewCounter)
{
    const std::wstring wstrTrace = m_folder.Path() + L"trace.txt";
    ASSERT_TRUE(QZSTD::TraceOpen(wstrTrace, QZSTD::TL_DEBUG, false));
    m_data.m_nStartCounter = 4;
    m_data.SetServiceRunParams(QZRI_ACTION_RUN);
    m_data.GetServiceRunParams();
    QZSTD::TraceClose();
    const std::string strFile = QZSTD::WideToUtf8(m_data.RunParamsFilePath());
    const std::vector<std::string> vecRecords = QZRITEST::TraceRecords(wstrTrace);
    EXPECT_TRUE(QZRITEST::ContainsInOrder(
        vecRecords, {"QZRIWRP I Starting RiWrpData::SetServiceRunParams(0, 4)...",
                     "QZRIWRP I RiWrpData::SetServiceRunParams: Set start_counter to 5 in " + strFile,
                     "QZRIWRP I RiWrpData::GetServiceRunParams from " + strFile}))
        << QZRITEST::Joined(vecRecords);
}

TEST(ActionNameTest, EveryActionHasItsName)
{
    EXPECT_STREQ(ActionName(QZRI_ACTION_RUN), L"QZRI_ACTION_RUN");
    EXPECT_STREQ(ActionName(QZRI_ACTION_RUNNING_SETUP), L"QZRI_ACTION_RUNNING_SETUP");
    EXPECT_STREQ(ActionName(QZRI_ACTION_CHECK_RESULT), L"QZRI_ACTION_CHECK_RESULT");
    EXPECT_STREQ(ActionName(QZRI_ACTION_ASK_USER), L"QZRI_ACTION_ASK_USER");
    EXPECT_STREQ(ActionName(4), L"unknown");
    EXPECT_STREQ(ActionName(-1), L"unknown");
}

}  // namespace
