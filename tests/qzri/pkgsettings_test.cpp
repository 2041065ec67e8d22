#include "qzri/riwrap/pkgsettings.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using namespace QZRI;

TEST(QpdChoiceTest, TheFirstDescriptionByNameWithoutRegardToCase)
{
    // The folder's names, the description chosen and the candidates.
    using Row = std::tuple<std::vector<std::wstring>, const wchar_t*, size_t>;
    const Row rows[] = {
        {{L"setup.exe", L"package.qpd", L"package.qud"}, L"package.qpd", 1},
        {{L"b.qpd", L"C.QPD", L"a.Qpd", L"a.qpdx"}, L"a.Qpd", 3},
        {{L"b.qpd", L"B.qpd"}, L"B.qpd", 2},
        {{}, L"", 0},
        {{L"setup.exe", L"x.qpd.bak", L"qpd"}, L"", 0},
        {{L".qpd"}, L"", 0},
    };
    for (const auto& [vecNames, szChosen, nCandidates] : rows) {
        const QpdChoice choice = ChooseQpdFile(vecNames);
        EXPECT_EQ(std::tuple(choice.m_wstrFileName, choice.m_nCandidates), std::tuple(szChosen, nCandidates));
    }
}

}  // namespace
