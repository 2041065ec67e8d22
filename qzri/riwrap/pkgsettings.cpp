// Choosing the package description and reading start-up's settings from it.
#include "qzri/riwrap/pkgsettings.h"

#include <algorithm>
#include <string_view>

namespace QZRI {
namespace {

constexpr std::wstring_view QPD_EXTENSION = L".qpd";

wchar_t LowerAscii(wchar_t c)
{
    return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

std::wstring LowerAscii(const std::wstring& wstr)
{
    std::wstring wstrLower(wstr);
    std::transform(wstrLower.begin(), wstrLower.end(), wstrLower.begin(),
                   [](wchar_t c) { return LowerAscii(c); });
    return wstrLower;
}

bool HasQpdExtension(const std::wstring& wstrName)
{
    return wstrName.size() > QPD_EXTENSION.size() && LowerAscii(wstrName).ends_with(QPD_EXTENSION);
}

bool ComesFirst(const std::wstring& wstrA, const std::wstring& wstrB)
{
    const std::wstring wstrLowerA = LowerAscii(wstrA);
    const std::wstring wstrLowerB = LowerAscii(wstrB);
    return wstrLowerA != wstrLowerB ? wstrLowerA < wstrLowerB : wstrA < wstrB;
}

}  // namespace

QpdChoice ChooseQpdFile(const std::vector<std::wstring>& vecFileNames)
{
    QpdChoice choice;
    for (const std::wstring& wstrName : vecFileNames) {
        if (!HasQpdExtension(wstrName))
            continue;
        ++choice.m_nCandidates;
        if (choice.m_wstrFileName.empty() || ComesFirst(wstrName, choice.m_wstrFileName))
            choice.m_wstrFileName = wstrName;
    }
    return choice;
}

const wchar_t* MgdByOtherSrvPolicyName(int nPolicy)
{
    return nPolicy == MGD_BY_OTHER_SERVER_NEVER ? L"RI_MGD_BY_OTHER_SERVER_NEVER"
                                                : L"RI_MGD_BY_OTHER_SERVER_ALWAYS";
}

bool IsManagedByAnotherServer(const std::wstring& wstrParentServerId, const std::wstring& wstrCurrentServerId)
{
    return !wstrParentServerId.empty() && !wstrCurrentServerId.empty() &&
           wstrParentServerId != wstrCurrentServerId;
}

}  // namespace QZRI
