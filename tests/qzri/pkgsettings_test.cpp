#include "qzri/riwrap/pkgsettings.h"

#include <gtest/gtest.h>

#include "std/strconv.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;

TEST(QpdChoiceTest, TheOnlyDescriptionIsTaken)
{
    const QpdChoice choice = ChooseQpdFile({L"setup.exe", L"package.qpd", L"package.qud"});
    EXPECT_EQ(choice.m_wstrFileName, L"package.qpd");
    EXPECT_EQ(choice.m_nCandidates, 1u);
}

TEST(QpdChoiceTest, SeveralGiveTheFirstByNameWithoutRegardToCase)
{
    const QpdChoice choice = ChooseQpdFile({L"b.qpd", L"C.QPD", L"a.Qpd", L"a.qpdx"});
    EXPECT_EQ(choice.m_wstrFileName, L"a.Qpd");
    EXPECT_EQ(choice.m_nCandidates, 3u);
    EXPECT_EQ(ChooseQpdFile({L"b.qpd", L"B.qpd"}).m_wstrFileName, L"B.qpd");
}

TEST(QpdChoiceTest, NoDescriptionGivesNoName)
{
    for (const std::vector<std::wstring>& vecNames :
         {std::vector<std::wstring>{}, {L"setup.exe", L"x.qpd.bak", L"qpd"}, {L".qpd"}}) {
        const QpdChoice choice = ChooseQpdFile(vecNames);
        EXPECT_EQ(choice.m_wstrFileName, L"");
        EXPECT_EQ(choice.m_nCandidates, 0u);
    }
}

TEST(PackageSettingTest, ValueOrDefault)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrQpd = folder.Path() + L"p.qpd";
    QZTEST::WriteFileBytes(wstrQpd, "[Setup]\r\nAskUser=1\r\n[ExtendedSettings]\r\nServerID=srv-A\r\n");
    EXPECT_EQ(ReadPackageSetting(wstrQpd, L"Setup", L"AskUser", L"0"), L"1");
    EXPECT_EQ(ReadPackageSetting(wstrQpd, L"ExtendedSettings", L"ServerID", L""), L"srv-A");
    EXPECT_EQ(ReadPackageSetting(wstrQpd, L"ExtendedSettings", L"MgdByOtherSrv", L"0"), L"0");
    EXPECT_EQ(ReadPackageSetting(folder.Path() + L"none.qpd", L"Setup", L"AskUser", L"d"), L"d");
    EXPECT_EQ(ReadPackageSetting(L"", L"Setup", L"AskUser", L"d"), L"d");
}

TEST(ManagedByOtherServerTest, PolicyNames)
{
    EXPECT_STREQ(MgdByOtherSrvPolicyName(1), L"RI_MGD_BY_OTHER_SERVER_NEVER");
    for (const int n : {0, 2, -1, 100})
        EXPECT_STREQ(MgdByOtherSrvPolicyName(n), L"RI_MGD_BY_OTHER_SERVER_ALWAYS") << n;
}

}  // namespace
