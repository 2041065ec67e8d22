#include "common/msisetup/msisetupparameter.h"

#include <gtest/gtest.h>

namespace {

using QZRI::MsiSetupParameter;
using Params = std::vector<MsiSetupParameter>;

// The restart options are tested for absence: a line that says nothing gets "ReallySuppress".
TEST(MsiRebootTest, ChosenByTheAbsenceOfTheRestartOptions)
{
    const std::pair<const wchar_t*, const wchar_t*> rows[] = {
        {L"", L"ReallySuppress"},
        {L"/qn INSTALLDIR=C:\\x", L"ReallySuppress"},
        {L"/forcerestart /promptrestart", L"ReallySuppress"},
        {L"/NORESTART", L"ReallySuppress"},  // case-sensitive
        {L"/norestart", L"Suppress"},
        {L"/norestart /forcerestart", L"Suppress"},
        {L"/norestart /promptrestart", L"Force"},
        {L"/promptrestart /norestart /forcerestart", L""},
    };
    for (const auto& [szLine, szReboot] : rows) {
        Params vec{{L"KEEP", L"1", 0}};
        QZRI::AppendMsiParametersWithReboot(szLine, vec);
        Params expected{{L"KEEP", L"1", 0}};
        for (MsiSetupParameter& param : QZRI::ParseMsiProperties(szLine))
            expected.push_back(param);
        if (*szReboot)
            expected.push_back({L"REBOOT", szReboot, 1});
        EXPECT_EQ(vec, expected) << szLine;
    }
}

TEST(MsiPropertiesTest, NameValueWordsInOrderQuotedValuesWhole)
{
    EXPECT_EQ(QZRI::ParseMsiProperties(L"/qn INSTALLDIR=\"C:\\Program Files\\X\" ADDLOCAL=ALL "
                                       L"NOTE=\"say \"\"hi\"\"\" EMPTY= /l*v \"C:\\a b.log\" 1X=2 A.B_2=v"),
              (Params{{L"INSTALLDIR", L"C:\\Program Files\\X", 0},
                      {L"ADDLOCAL", L"ALL", 0},
                      {L"NOTE", L"say \"hi\"", 0},
                      {L"EMPTY", L"", 0},
                      {L"A.B_2", L"v", 0}}));
    EXPECT_EQ(QZRI::ParseMsiProperties(L"\"X=1 Y=2\" =3 Z"), Params{});
}

}  // namespace
