// The ini grammar written as its two regular expressions, line by line with std::wregex: the reference
// against which the hand-written parser is checked (tests) and measured (benchmark). Far too slow for
// the agent itself.
#pragma once

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/inifileparser.h"
#include "std/par/paramshelpers.h"

namespace QZTEST {

// Whether a name equals wstrName without regard to case.
inline auto IniNameEquals(std::wstring wstrName)
{
    return [wstrName](const std::wstring& wstr) { return QZRI::IniNamesEqual(wstr, wstrName); };
}

class RegexIniReference
{
public:
    RegexIniReference()
        : m_rxSection(LR"((?:[\s\t]*)\[(?:[\s\t]*)((?:.*?))(?:[\s\t]*)\](?:[\s\t]*))"),
          m_rxKey(LR"((?:[\s\t]*)((?:.*?))(?:[\s\t]*)=(?:[\s\t]*)((?:.*?))(?:[\s\t]*))")
    {
    }

    // The tree the grammar gives for the text: sections by first spelling, keys by first spelling with
    // their last value, names merged without regard to case.
    QZSTD::CAutoPtr<QZPAR::Params> Parse(const std::wstring& wstrText,
                                         const std::vector<std::wstring>* pSections = nullptr) const
    {
        std::vector<std::pair<std::wstring, std::vector<std::pair<std::wstring, std::wstring>>>> vecTree;
        long nCurrent = -1;
        std::wistringstream in(wstrText);
        std::wstring wstrLine;
        std::wsmatch m;
        while (std::getline(in, wstrLine, L'\n')) {
            if (std::regex_match(wstrLine, m, m_rxSection)) {
                nCurrent = -1;
                const std::wstring wstrName = m[1].str();
                if (!Storable(wstrName))
                    continue;
                if (pSections && std::none_of(pSections->begin(), pSections->end(), IniNameEquals(wstrName)))
                    continue;
                for (size_t i = 0; i < vecTree.size(); ++i) {
                    if (QZRI::IniNamesEqual(vecTree[i].first, wstrName))
                        nCurrent = static_cast<long>(i);
                }
                if (nCurrent < 0) {
                    nCurrent = static_cast<long>(vecTree.size());
                    vecTree.push_back({wstrName, {}});
                }
            } else if (std::regex_match(wstrLine, m, m_rxKey)) {
                if (nCurrent < 0 || !Storable(m[1].str()))
                    continue;
                std::wstring wstrValue = m[2].str();
                if (wstrValue.size() >= 2 && wstrValue.front() == L'"' && wstrValue.back() == L'"')
                    wstrValue = wstrValue.substr(1, wstrValue.size() - 2);
                auto& vecKeys = vecTree[static_cast<size_t>(nCurrent)].second;
                const auto it = std::find_if(vecKeys.begin(), vecKeys.end(), [&](const auto& key) {
                    return IniNameEquals(m[1].str())(key.first);
                });
                if (it != vecKeys.end())
                    it->second = wstrValue;
                else
                    vecKeys.emplace_back(m[1].str(), wstrValue);
            }
        }
        QZSTD::CAutoPtr<QZPAR::Params> pRoot = QZPAR::CreateParams();
        for (const auto& [wstrSection, vecKeys] : vecTree) {
            QZSTD::CAutoPtr<QZPAR::Params> pSection = QZPAR::CreateParams();
            for (const auto& [wstrKey, wstrValue] : vecKeys)
                QZPAR::SetStringValue(pSection.Get(), wstrKey.c_str(), std::wstring_view(wstrValue));
            QZPAR::SetParamsValue(pRoot.Get(), wstrSection.c_str(), pSection.Get());
        }
        return pRoot;
    }

private:
    // Params names are non-empty and end at the first U+0000: lines with other names are dropped.
    static bool Storable(const std::wstring& wstrName)
    {
        return !wstrName.empty() && wstrName.find(L'\0') == std::wstring::npos;
    }

    std::wregex m_rxSection;
    std::wregex m_rxKey;
};

}  // namespace QZTEST
