#include "std/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "std/error.h"
#include "std/failfast.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZSTD;

// time, pid, tid, module, level, text
const std::regex kLine(R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\.\d{3} \[(\d+):(\d+)\] (\S+) ([EWID]) (.*))");

class TraceTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(TraceOpen(m_wstrPath, TL_DEBUG, false)); }
    void TearDown() override { TraceClose(); }
    // The records of the file (line ends removed), each checked against the line format.
    const std::vector<std::string>& Records()
    {
        m_vecRecords.clear();
        std::istringstream ss(QZTEST::ReadFileBytes(m_wstrPath));
        for (std::string str; std::getline(ss, str);) {
            m_vecRecords.push_back(str.substr(0, str.find_last_not_of('\r') + 1));
            EXPECT_TRUE(std::regex_match(m_vecRecords.back(), kLine)) << m_vecRecords.back();
        }
        return m_vecRecords;
    }
    // Level letter and text of each record.
    std::vector<std::string> Texts()
    {
        std::vector<std::string> vecTexts;
        for (const std::string& str : Records())
            vecTexts.push_back(std::regex_replace(str, kLine, "$5 $6"));
        return vecTexts;
    }

    QZTEST::TempFolder m_folder;
    const std::wstring m_wstrPath = m_folder.Join(L"trace.txt");
    std::vector<std::string> m_vecRecords;
};

TEST_F(TraceTest, RecordsCarryLocalTimeIdsModuleLevelAndUtf8TextOneLineEachWithTheSamePrefix)
{
    QZ_TRACE_SCOPE("QZRIWRP", "Dump");
    const std::wstring wstr = L"caf\u00E9 \u20AC \U0001F600";
    QZ_TRACE_W(L"%hs: first\nsecond\r\n%ls|%hs|%d%%\n", QZ_SCOPE_NAME, wstr, std::string("x"), 5);
    TraceLines("QZSTD", TL_ERROR, L"100% done\n%ls\n\nlast");
    EXPECT_EQ(Texts(), (std::vector<std::string>{"W Dump: first", "W second",
                                                 "W caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80|x|5%",
                                                 "E 100% done", "E %ls", "E ", "E last"}));
    const auto Prefix = [](const std::string& str) { return str.substr(0, str.find(" W ")); };
    EXPECT_EQ(Prefix(m_vecRecords[0]), Prefix(m_vecRecords[2])) << "one call, one time stamp";
    std::smatch m;
    ASSERT_TRUE(std::regex_match(m_vecRecords[0], m, kLine));
    EXPECT_EQ(m[4], "QZRIWRP");
    std::tm tm{};
    std::istringstream(m[1].str()) >> std::get_time(&tm, "%Y-%m-%d %H:%M:%S");
    tm.tm_isdst = -1;
    EXPECT_LE(std::abs(std::difftime(std::mktime(&tm), std::time(nullptr))), 5.0) << m[1];
}

TEST_F(TraceTest, LevelsAboveTheMaximumAreDroppedWithoutEvaluatingArguments)
{
    ASSERT_TRUE(TraceOpen(m_wstrPath, TL_WARNING, false));
    QZ_TRACE_SCOPE("QZTSK", "Levels");
    int n = 0;
    QZ_TRACE_E(L"e%d", ++n);
    QZ_TRACE_W(L"w%d", ++n);
    QZ_TRACE_I(L"i%d", ++n);
    EXPECT_EQ(n, 2);
    EXPECT_EQ(Texts(), (std::vector<std::string>{"E e1", "W w2"}));
}

TEST_F(TraceTest, ExceptionsAndTimedScopesAreTraced)
{
    {
        QZ_TRACE_SCOPE_TIMED("QZRI", "CUninstall::Run");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        try {
            QZ_THROW_STD(Err::BAD_PARAM, "value");
        } catch (const QZError& e) {
            QZ_TRACE_EXCEPTION(e);
        }
        QZ_TRACE_EXCEPTION_AT(TL_WARNING, std::runtime_error("boom"));
    }
    const std::vector<std::string> vec = Texts();
    // The error as Describe shows it, whose whole form error_test.cpp checks.
    ASSERT_THAT(vec, testing::ElementsAre("D CUninstall::Run: Enter.",
                                          testing::StartsWith("E CUninstall::Run: #1187 (QZSTD) "),
                                          "W CUninstall::Run: boom", testing::_));
    std::smatch m;
    ASSERT_TRUE(std::regex_match(vec.back(), m, std::regex(R"(D CUninstall::Run: Leave \((\d+) ms\)\.)")));
    EXPECT_GE(std::stoi(m[1]), 20);
}

TEST_F(TraceTest, AppendKeepsEarlierLinesAndTruncateDropsThem)
{
    TraceLines("QZSTD", TL_INFO, L"one");
    ASSERT_TRUE(TraceOpen(m_wstrPath, TL_INFO, true));
    TraceLines("QZSTD", TL_INFO, L"two");
    EXPECT_EQ(Texts(), (std::vector<std::string>{"I one", "I two"}));
    ASSERT_TRUE(TraceOpen(m_wstrPath, TL_INFO, false));
    TraceLines("QZSTD", TL_INFO, L"three");
    EXPECT_EQ(Texts(), (std::vector<std::string>{"I three"}));
}

TEST_F(TraceTest, ConcurrentWritersProduceWholeLinesInOrder)
{
    constexpr int kThreads = 8, kLines = 300;
    const std::string strPad(200, 'x');
    // Not std::latch: libstdc++ 12 implements its wait without futexes on Windows, and that wait can
    // miss a wake-up (seen as a hang under Wine). A counter that every thread waits to see complete.
    std::atomic<int> nStarted{0}, nWritten{0};
    const auto ArriveAndWait = [](std::atomic<int>& n) {
        for (++n; n < kThreads;)
            std::this_thread::yield();
    };
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < kThreads; ++t)
        vecThreads.emplace_back([&, t] {
            ArriveAndWait(nStarted);
            for (int i = 0; i < kLines; ++i)
                Trace("QZSTD", TL_INFO, L"T%d #%d %hs|end", t, i, strPad);
            ArriveAndWait(nWritten);  // all alive at once: their thread ids differ
        });
    for (std::thread& th : vecThreads)
        th.join();
    std::vector<int> vecNext(kThreads, 0);
    std::set<std::string> setTids;
    const std::regex rePayload(R"(.*\[\d+:(\d+)\] QZSTD I T(\d) #(\d+) )" + strPad + R"(\|end)");
    for (const std::string& str : Records()) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(str, m, rePayload)) << str;
        EXPECT_EQ(std::stoi(m[3]), vecNext[std::stoi(m[2])]++);
        setTids.insert(m[1]);
    }
    EXPECT_EQ(vecNext, std::vector<int>(kThreads, kLines));
    EXPECT_EQ(setTids.size(), static_cast<size_t>(kThreads));
}

TEST(Trace, WritesWithoutAnOpenFileOrAfterAFailedOpenAreHarmless)
{
    QZTEST::TempFolder folder;
    ASSERT_TRUE(TraceOpen(folder.Join(L"harmless.txt"), TL_INFO, false));
    EXPECT_FALSE(TraceOpen(folder.Join(L"no_such_dir/t.txt"), TL_DEBUG, true));
    EXPECT_FALSE(TraceIsOpen()) << "a failed open leaves no trace open";
    EXPECT_FALSE(TraceOpen(L"", TL_DEBUG, true));
    EXPECT_FALSE(TraceIsEnabled(TL_ERROR));
    QZ_TRACE_SCOPE("QZSTD", "Closed");
    EXPECT_NO_THROW(QZ_TRACE_E(L"%hs: %ls", QZ_SCOPE_NAME, L"dropped"));
    EXPECT_NO_THROW(TraceLines("QZSTD", TL_ERROR, L"dropped"));
    EXPECT_NO_THROW(QZ_TRACE_EXCEPTION(std::runtime_error("dropped")));
    EXPECT_EQ(QZTEST::ReadFileBytes(folder.Join(L"harmless.txt")), "");
}

TEST(TraceDeathTest, FailFastReasonReachesTheTrace)
{
    // A fixed path: on Windows the death test's child is a new process, which would make its own folder.
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "qz_trace_failfast.txt";
    std::filesystem::remove(path);
    EXPECT_EXIT(
        {
            TraceOpen(path.wstring(), TL_INFO, false);
            FailFast("lock lost");
        },
        testing::ExitedWithCode(1), "lock lost");
    EXPECT_NE(QZTEST::ReadFileBytes(path.wstring()).find(" QZSTD E Fail-fast: lock lost"), std::string::npos);
    std::filesystem::remove(path);
}

}  // namespace
