// The run-parameters file with the real ini functions (natively the ini module, under Wine Win32).
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "qzri/riwrap/riwrpdata.h"
#include "std/error.h"
#include "std/profile.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;

class RunParamsTest : public testing::Test
{
protected:
    void SetUp() override { m_data.m_wstrDirPath = m_folder.Path(); }
    std::wstring Stored(const wchar_t* szKey)
    {
        return QZSTD::GetProfileString(m_data.RunParamsFilePath(), L"Setup", szKey, L"<absent>");
    }
    RiWrpData ReadBack()
    {
        RiWrpData data;
        data.m_wstrDirPath = m_folder.Path();
        data.GetServiceRunParams();
        return data;
    }

    QZTEST::TempFolder m_folder;
    RiWrpData m_data;
};

// Only a planned rerun raises the counter; the command line survives quotes, characters outside the
// ANSI code page and lengths beyond the 4096-character value buffer.
TEST_F(RunParamsTest, WhatIsWrittenIsReadBack)
{
    // The action, the command line, and start_counter and cmdline as stored (nullptr: only read back).
    using Row = std::tuple<QzriAction, const wchar_t*, const wchar_t*, const wchar_t*>;
    const std::wstring wstrLong = L"setup.exe " + std::wstring(3000, L'x');
    const Row rows[] = {
        {QZRI_ACTION_RUN, L"a b", L"5", L"$HEX_610020006200"},
        {QZRI_ACTION_RUNNING_SETUP, L"", L"<absent>", L""},
        {QZRI_ACTION_CHECK_RESULT, L"\"C:\\Pakete\\setup.exe\" TASK_ID=\"\u00e9t\u00e9 \u4e2d\" -s",
         L"<absent>", nullptr},
        {QZRI_ACTION_ASK_USER, wstrLong.c_str(), L"<absent>", nullptr},
    };
    const std::wstring wstrTrace = m_folder.Path() + L"trace.txt";
    ASSERT_TRUE(QZSTD::TraceOpen(wstrTrace, QZSTD::TL_DEBUG, false));
    for (const auto& [eAction, szCmdLine, szStoredCounter, szStoredCmdLine] : rows) {
        SCOPED_TRACE(eAction);
        QZTEST::RemoveAll(m_data.RunParamsFilePath());
        m_data.m_nStartCounter = 4;
        m_data.m_wstrSavedCmdLine = szCmdLine;
        ASSERT_TRUE(m_data.SetServiceRunParams(eAction));
        EXPECT_EQ(m_data.m_nStartCounter, 4) << "only the file changes";
        EXPECT_EQ(Stored(L"action"), std::to_wstring(eAction));
        EXPECT_EQ(Stored(L"start_counter"), szStoredCounter);
        if (szStoredCmdLine) {
            EXPECT_EQ(Stored(L"cmdline"), szStoredCmdLine);
        }
        const RiWrpData data = ReadBack();
        EXPECT_EQ(data.m_eAct, eAction);
        EXPECT_EQ(data.m_wstrSavedCmdLine, szCmdLine);
    }
    QZSTD::TraceClose();
    // The first row's action and counters, and its reading back.
    const std::string strFile = QZSTD::WideToUtf8(m_data.RunParamsFilePath());
    EXPECT_TRUE(QZRITEST::HasInOrder(
        QZRITEST::TraceRecords(wstrTrace),
        {"QZRIWRP I Starting RiWrpData::SetServiceRunParams(0, 4)...",
         "QZRIWRP I RiWrpData::SetServiceRunParams: Set start_counter to 5 in " + strFile,
         "QZRIWRP I RiWrpData::GetServiceRunParams from " + strFile}));
    m_data.m_wstrDirPath = m_folder.Path() + L"missing" + PATH_SEPARATOR;
    EXPECT_FALSE(m_data.SetServiceRunParams(QZRI_ACTION_RUN));
}

TEST_F(RunParamsTest, MissingValuesPlainTextAndMalformedHex)
{
    m_data.m_eAct = QZRI_ACTION_CHECK_RESULT;
    m_data.m_nStartCounter = 9;
    m_data.m_wstrSavedCmdLine = L"stale";
    m_data.GetServiceRunParams();
    EXPECT_EQ(std::tuple(m_data.m_eAct, m_data.m_nStartCounter, m_data.m_wstrSavedCmdLine),
              std::tuple(QZRI_ACTION_RUN, 0, L""));
    EXPECT_FALSE(QZTEST::PathExists(m_data.RunParamsFilePath()));

    const std::wstring wstrFile = m_data.RunParamsFilePath();
    ASSERT_TRUE(QZSTD::WriteProfileString(wstrFile, L"Setup", L"start_counter", L"7"));
    ASSERT_TRUE(QZSTD::WriteProfileString(wstrFile, L"Setup", L"cmdline", L"setup.exe /s"));
    const RiWrpData data = ReadBack();
    EXPECT_EQ(std::tuple(data.m_nStartCounter, data.m_wstrSavedCmdLine), std::tuple(7, L"setup.exe /s"));
    ASSERT_TRUE(QZSTD::WriteProfileString(wstrFile, L"Setup", L"cmdline", L"$HEX_61002"));
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { ReadBack(); }), QZSTD::Err::BAD_PARAM);
}

}  // namespace
