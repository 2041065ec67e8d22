// What the ini fuzz targets share: the failure that libFuzzer reports, and a walk over every value of a
// parsed file as its tree holds it.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "common/inifileparser.h"
#include "std/par/paramshelpers.h"

namespace QZFUZZ {

inline void Check(bool bCondition)
{
    if (!bCondition)
        abort();
}

// Calls fn(section, key, value) for every key of every section of the parser's tree.
template <class Fn>
void ForEachIniValue(QZRI::IniFileParser* pParser, Fn fn)
{
    QZSTD::CAutoPtr<QZPAR::Params> pRoot = pParser->GetParams();
    std::vector<std::wstring> vecSections;
    pRoot->GetNames(vecSections);
    for (const std::wstring& wstrSection : vecSections) {
        QZSTD::CAutoPtr<QZPAR::Params> pSection = QZPAR::GetParamsValue(pRoot.Get(), wstrSection.c_str());
        std::vector<std::wstring> vecKeys;
        pSection->GetNames(vecKeys);
        for (const std::wstring& wstrKey : vecKeys)
            fn(wstrSection, wstrKey, QZPAR::GetStringValue(pSection.Get(), wstrKey.c_str()));
    }
}

}  // namespace QZFUZZ
