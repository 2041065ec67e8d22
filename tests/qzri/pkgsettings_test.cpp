#include "qzri/riwrap/pkgsettings.h"

#include <gtest/gtest.h>

namespace {

using namespace QZRI;

TEST(QpdChoiceTest, TheFirstDescriptionByNameWithoutRegardToCase)
{
    struct Row
    {
        std::vector<std::wstring> vecNames;
        const wchar_t* szChosen;
        size_t nCandidates;
    };
    const Row rows[] = {
        {{L"setup.exe", L"package.qpd", L"package.qud"}, L"package.qpd", 1},
        {{L"b.qpd", L"C.QPD", L"a.Qpd", L"a.qpdx"}, L"a.Qpd", 3},
        {{L"b.qpd", L"B.qpd"}, L"B.qpd", 2},
        {{}, L"", 0},
        {{L"setup.exe", L"x.qpd.bak", L"qpd"}, L"", 0},
        {{L".qpd"}, L"", 0},
    };
    for (const Row& row : rows) {
        const QpdChoice choice = ChooseQpdFile(row.vecNames);
        EXPECT_EQ(choice.m_wstrFileName, row.szChosen);
        EXPECT_EQ(choice.m_nCandidates, row.nCandidates);
    }
}

}  // namespace
