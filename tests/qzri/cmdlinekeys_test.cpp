#include "qzri/riwrap/cmdlinekeys.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using namespace QZRI;

TEST(CmdLineKeysTest, KeyIsFoundCaseSensitivelyAnywhereInTheLine)
{
    EXPECT_TRUE(HasKey(L"qzriwrap.exe PxgRequest", Keys::PXG_REQUEST));
    EXPECT_FALSE(HasKey(L"qzriwrap.exe pxgrequest PXGREQUEST", Keys::PXG_REQUEST));
    // The whole line is searched, the program name included, and a key inside another word counts.
    EXPECT_TRUE(HasKey(L"C:\\QZRI$GUI\\qzriwrap.exe", Keys::GUI_PROCESS));
    EXPECT_TRUE(HasKey(L"x.exe TASK_ID=xPxgRequest", Keys::PXG_REQUEST));
    EXPECT_TRUE(HasKey(L"x.exe QZRI$ID=svc", Keys::SERVICE_RESTART));
    EXPECT_FALSE(HasKey(L"x.exe service_id=1", Keys::MASTER_SERVICE_ID));
}

TEST(CmdLineKeysTest, ValueRunsToTheEndOfItsWord)
{
    const std::wstring wstrLine = L"x.exe TASK_ID=T-17 RI_ID=r1 MASTER_SERVICE_ID=m1 QZRI_START_CNT=3";
    EXPECT_EQ(GetKeyValue(wstrLine, Keys::TASK_ID), L"T-17");
    EXPECT_EQ(GetKeyValue(wstrLine, Keys::RI_ID), L"r1");
    EXPECT_EQ(GetKeyValue(wstrLine, Keys::MASTER_SERVICE_ID), L"m1");
    EXPECT_EQ(GetKeyValue(wstrLine, Keys::START_COUNTER), L"3");
    EXPECT_EQ(GetKeyValue(L"x.exe TASK_ID= next", Keys::TASK_ID), L"");
}

TEST(CmdLineKeysTest, QuotedWordsGiveTheirUnquotedValue)
{
    EXPECT_EQ(GetKeyValue(L"x.exe \"TASK_ID=a b\" RI_ID=1", Keys::TASK_ID), L"a b");
    EXPECT_EQ(GetKeyValue(L"x.exe TASK_ID=\"a b\" RI_ID=1", Keys::TASK_ID), L"a b");
    EXPECT_EQ(GetKeyValue(L"\"C:\\Program Files\\p\\x.exe\" TASK_ID=\"\"", Keys::TASK_ID), L"");
}

TEST(CmdLineKeysTest, AbsentOrFlagOnlyKeyHasNoValue)
{
    EXPECT_EQ(GetKeyValue(L"x.exe RI_ID=1", Keys::TASK_ID), L"");
    EXPECT_EQ(GetKeyValue(L"x.exe QZRI$ID", Keys::SERVICE_RESTART), L"");
    EXPECT_EQ(GetKeyValue(L"", Keys::TASK_ID), L"");
}

TEST(CmdLineKeysTest, SilentSwitchIsOnlyTheFourExactWords)
{
    for (const wchar_t* sz : {L"-s", L"-S", L"/s", L"/S", L"\"-s\"", L"\"/S"})
        EXPECT_TRUE(IsSilentSwitch(sz)) << sz;
    for (const wchar_t* sz : {L"", L"s", L"-silent", L"/s=1", L"--s", L"-s ", L"/S/", L"-s\"\"", L"/q"})
        EXPECT_FALSE(IsSilentSwitch(sz)) << sz;
}

TEST(CmdLineKeysTest, SilentSwitchIsLookedForAfterTheProgramName)
{
    EXPECT_TRUE(HasSilentSwitch({L"x.exe", L"", L"TASK_ID=1", L"/S"}));
    EXPECT_FALSE(HasSilentSwitch({L"/s", L"TASK_ID=1"}));
    EXPECT_FALSE(HasSilentSwitch({L"x.exe", L"TASK_ID=/s"}));
    EXPECT_FALSE(HasSilentSwitch({}));
}

TEST(CmdLineKeysTest, DecimalConversionIsThePlainRuntimeOne)
{
    EXPECT_EQ(ParseDecimal(L"12"), 12);
    EXPECT_EQ(ParseDecimal(L" 7x"), 7);
    EXPECT_EQ(ParseDecimal(L"-3"), -3);
    EXPECT_EQ(ParseDecimal(L"abc"), 0);
    EXPECT_EQ(ParseDecimal(L""), 0);
    EXPECT_EQ(ParseDecimal(L"0x10"), 0);
    EXPECT_EQ(ParseDecimal(L"99999999999"), INT_MAX);
    EXPECT_EQ(ParseDecimal(L"-99999999999"), INT_MIN);
}

}  // namespace
