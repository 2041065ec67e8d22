#include "qzri/riwrap/cmdlinekeys.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>

namespace {

using namespace QZRI;

// Keys are found case-sensitively anywhere in the line, the program name included; a value runs to
// the end of its word, and a quoted word gives its unquoted value.
TEST(CmdLineKeysTest, KeysAndTheirValues)
{
    EXPECT_TRUE(HasKey(L"qzriwrap.exe PxgRequest", Keys::PXG_REQUEST));
    EXPECT_FALSE(HasKey(L"qzriwrap.exe pxgrequest PXGREQUEST", Keys::PXG_REQUEST));
    EXPECT_TRUE(HasKey(L"C:\\QZRI$GUI\\qzriwrap.exe", Keys::GUI_PROCESS));
    EXPECT_TRUE(HasKey(L"x.exe TASK_ID=xPxgRequest", Keys::PXG_REQUEST));
    EXPECT_FALSE(HasKey(L"x.exe service_id=1", Keys::MASTER_SERVICE_ID));
    using Row = std::tuple<const wchar_t*, std::wstring_view, const wchar_t*>;
    const Row rows[] = {
        {L"x.exe TASK_ID=T-17 RI_ID=r1", Keys::TASK_ID, L"T-17"},
        {L"x.exe TASK_ID=T-17 RI_ID=r1 QZRI_START_CNT=3", Keys::START_COUNTER, L"3"},
        {L"x.exe TASK_ID= next", Keys::TASK_ID, L""},
        {L"x.exe \"TASK_ID=a b\" RI_ID=1", Keys::TASK_ID, L"a b"},
        {L"x.exe TASK_ID=\"a b\" RI_ID=1", Keys::TASK_ID, L"a b"},
        {L"\"C:\\Program Files\\p\\x.exe\" TASK_ID=\"\"", Keys::TASK_ID, L""},
        {L"x.exe RI_ID=1", Keys::TASK_ID, L""},
        {L"x.exe QZRI$ID", Keys::SERVICE_RESTART, L""},
        {L"", Keys::TASK_ID, L""},
    };
    for (const auto& [szLine, wsvKey, szValue] : rows)
        EXPECT_EQ(GetKeyValue(szLine, wsvKey), szValue) << szLine;
}

TEST(CmdLineKeysTest, SilentSwitchIsOnlyTheFourExactWordsAfterTheProgramName)
{
    for (const wchar_t* sz : {L"-s", L"-S", L"/s", L"/S", L"\"-s\"", L"\"/S"})
        EXPECT_TRUE(IsSilentSwitch(sz)) << sz;
    for (const wchar_t* sz : {L"", L"s", L"-silent", L"/s=1", L"--s", L"-s ", L"/S/", L"-s\"\"", L"/q"})
        EXPECT_FALSE(IsSilentSwitch(sz)) << sz;
    EXPECT_TRUE(HasSilentSwitch({L"x.exe", L"", L"TASK_ID=1", L"/S"}));
    EXPECT_FALSE(HasSilentSwitch({L"/s", L"TASK_ID=1"}));
    EXPECT_FALSE(HasSilentSwitch({}));
}

TEST(CmdLineKeysTest, DecimalConversionIsThePlainRuntimeOne)
{
    const std::pair<const wchar_t*, int> rows[] = {
        {L"12", 12},
        {L" 7x", 7},
        {L"-3", -3},
        {L"abc", 0},
        {L"", 0},
        {L"0x10", 0},
        {L"99999999999", INT_MAX},
        {L"-99999999999", INT_MIN},
    };
    for (const auto& [szText, nValue] : rows)
        EXPECT_EQ(ParseDecimal(szText), nValue) << szText;
}

}  // namespace
