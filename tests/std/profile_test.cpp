// Runs natively against the ini module of std/profile_posix.cpp and under Wine against the Win32
// private-profile functions, so it asserts only what both do.
#include "std/profile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <sstream>
#include <tuple>
#include <utility>

#include "tests/testutil/fsutil.h"

namespace {

using namespace QZSTD;

class ProfileTest : public testing::Test
{
protected:
    void WriteRaw(const std::string& str) { QZTEST::WriteFileBytes(m_wstrFile, str); }
    std::string ReadRaw() { return QZTEST::ReadFileBytes(m_wstrFile); }
    std::wstring Get(const wchar_t* szSection, const wchar_t* szKey, size_t nBuf = 4096)
    {
        return GetProfileString(m_wstrFile, szSection, szKey, L"<none>", nBuf);
    }

    QZTEST::TempFolder m_folder;
    const std::wstring m_wstrFile = m_folder.Join(L"run.ini");
};

TEST_F(ProfileTest, FirstWritesCreateTheFileWithCrlfLinesAndSectionsInOrder)
{
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"App1", L"key1", L"string1"));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"App1", L"key2", L"string2"));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"App2", L"key4", L"string4"));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"APP1", L"KEY1", L"changed"));
    EXPECT_EQ(ReadRaw(), "[App1]\r\nkey1=changed\r\nkey2=string2\r\n[App2]\r\nkey4=string4\r\n");
    EXPECT_EQ(Get(L"app2", L"Key4"), L"string4");
}

TEST_F(ProfileTest, WritesKeepCommentsOtherSectionsAndOrder)
{
    WriteRaw(
        "; settings of the run\n[Other]\nx=1\n[Setup]\n; the action\naction=0\ncmdline=abc\n[Last]\ny=2\n");
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"setup", L"ACTION", L"2"));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"Setup", L"start_counter", L"1"));
    std::istringstream ss(ReadRaw());
    std::vector<std::string> vecLines;
    for (std::string str; std::getline(ss, str);)
        vecLines.push_back(str.substr(0, str.find_last_not_of('\r') + 1));
    // Which spelling of the key ends up in the file is not promised: compare that line without case.
    ASSERT_EQ(vecLines.size(), 10u);
    for (char& c : vecLines[5])
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ(vecLines,
              (std::vector<std::string>{"; settings of the run", "[Other]", "x=1", "[Setup]", "; the action",
                                        "action=2", "cmdline=abc", "start_counter=1", "[Last]", "y=2"}));
}

TEST_F(ProfileTest, NullValueDeletesTheKeyAndNullKeyTheSection)
{
    WriteRaw("[A]\r\nk1=1\r\nk2=2\r\n[B]\r\nk3=3\r\n");
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"A", L"k1", nullptr));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"A", L"missing", nullptr));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"b", nullptr, nullptr));
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"NoSuchSection", nullptr, nullptr));
    EXPECT_EQ(ReadRaw(), "[A]\r\nk2=2\r\n");
    EXPECT_EQ(Get(L"A", L"k1"), L"<none>");
    EXPECT_EQ(Get(L"B", L"k3"), L"<none>");
}

TEST_F(ProfileTest, ValuesAreTrimmedUnquotedAndTruncatedLikeTheWin32Buffer)
{
    WriteRaw(
        "[s]\n  k1  =   two words  \t\n"
        "k2=\"quoted \"\r\nk3='single'\nk4=\"mixed'\nk5=\"\nk6=abcdefgh\nk7=\nk8=\"\"\n");
    // The key, the buffer size in characters and the value read; an empty value is not the default.
    const std::tuple<const wchar_t*, size_t, const wchar_t*> kCases[] = {
        {L"k1", 4096, L"two words"}, {L"k2", 4096, L"quoted "}, {L"k3", 4096, L"single"},
        {L"k4", 4096, L"\"mixed'"},  {L"k5", 4096, L"\""},      {L"k8", 4096, L""},
        {L"k6", 4, L"abc"},          {L"k6", 1, L""},           {L"k7", 4096, L""}};
    for (const auto& [szKey, nBuf, szExpected] : kCases)
        EXPECT_EQ(Get(L"s", szKey, nBuf), szExpected) << szKey << " " << nBuf;
    EXPECT_EQ(GetProfileString(m_wstrFile, L"s", L"none", L"default  ", 4096), L"default");
    EXPECT_EQ(GetProfileString(m_wstrFile, L"s", L"none", L"default", 4), L"def");
    EXPECT_EQ(GetProfileString(m_wstrFile, L"s", L"none", nullptr, 4096), L"");
}

TEST_F(ProfileTest, IntegersAreReadTheWindowsWay)
{
    WriteRaw(
        "[n]\nplain=123\nneg=-5\nplus=+7\ntail=42abc\nword=abc\nhex=0x1A\nwrap=4294967297\n"
        "quoted=\"12\"\nempty=\n");
    // The key and the number read.
    const std::pair<const wchar_t*, int> kCases[] = {
        {L"plain", 123}, {L"neg", -5}, {L"plus", 7},    {L"tail", 42},  {L"word", 0},
        {L"hex", 26},    {L"wrap", 1}, {L"quoted", 12}, {L"empty", -9}, {L"missing", -9}};
    for (const auto& [szKey, nExpected] : kCases)
        EXPECT_EQ(GetProfileInt(m_wstrFile, L"n", szKey, -9), nExpected) << szKey;
}

TEST_F(ProfileTest, MissingFilesGiveDefaultsAndUnwritablePlacesFalse)
{
    EXPECT_EQ(GetProfileString(m_wstrFile, L"Setup", L"cmdline", L"", 4096), L"");
    EXPECT_EQ(GetProfileInt(m_wstrFile, L"Setup", L"action", 3), 3);
    EXPECT_FALSE(WriteProfileString(m_folder.Join(L"no_dir/x.ini"), L"Setup", L"action", L"1"));
    EXPECT_FALSE(WriteProfileString(m_folder.Path(), L"Setup", L"action", L"1")) << "a directory";
}

TEST_F(ProfileTest, ArgumentsThatWouldBreakTheFileAreRejected)
{
    const auto BadParam = [](const wchar_t* szName) {
        return testing::Throws<QZError>(
            testing::AllOf(testing::Property(&QZError::GetCode, 1187),
                           testing::Property(&QZError::GetArgs, testing::ElementsAre(szName))));
    };
    EXPECT_THAT([&] { WriteProfileString(m_wstrFile, L"s", L"k", L"a\r\n[x]\r\nb=c"); },
                BadParam(L"szValue"));
    EXPECT_THAT([&] { WriteProfileString(m_wstrFile, L"s", L"k=v", L"1"); }, BadParam(L"szKey"));
    EXPECT_THAT([&] { WriteProfileString(m_wstrFile, L"s\n", L"k", L"1"); }, BadParam(L"szSection"));
    EXPECT_THAT([&] { WriteProfileString(m_wstrFile, nullptr, L"k", L"1"); }, BadParam(L"szSection"));
    EXPECT_THAT([&] { Get(L"s", L"k", 0); }, BadParam(L"nBufChars"));
    EXPECT_THAT([&] { Get(L"s", nullptr); }, BadParam(L"szKey"));
    EXPECT_THAT([&] { GetProfileInt(L"", L"s", L"k", 0); }, BadParam(L"wstrFile"));
    EXPECT_FALSE(QZTEST::PathExists(m_wstrFile)) << "nothing was written";
}

#ifndef _WIN32
// The module's own choices where Windows uses the ANSI code page and its own file handling.
TEST_F(ProfileTest, LinuxModuleStoresUtf8AndLeavesNoTemporaryFiles)
{
    WriteRaw("\xEF\xBB\xBF[s]\nold=1\n");
    EXPECT_TRUE(WriteProfileString(m_wstrFile, L"s", L"k", L"caf\u00E9 \u65E5\u672C \U0001F600"));
    EXPECT_EQ(ReadRaw(),
              "\xEF\xBB\xBF[s]\nold=1\nk=caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80\r\n");
    EXPECT_EQ(Get(L"S", L"K"), L"caf\u00E9 \u65E5\u672C \U0001F600");
    EXPECT_EQ(QZTEST::FileNamesIn(m_folder.Path()), std::vector<std::string>{"run.ini"});
}
#endif

}  // namespace
