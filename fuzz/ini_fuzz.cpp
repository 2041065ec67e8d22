// The agent's ini reader on arbitrary bytes, read as ANSI or as UTF-8 (the first byte chooses). Parsing
// must not fail, every section and key of the resulting tree must be found again through the lookups,
// under its own name and under its name in upper case, and a short text must give the same tree as the
// grammar's regular expressions.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "common/ansicp.h"
#include "common/inifileparser.h"
#include "fuzz/initree.h"
#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "tests/common/inifileparser_reference.h"

namespace {

using QZFUZZ::Check;

std::wstring Upper(const std::wstring& wstr)
{
    std::wstring wstrResult = wstr;
    for (wchar_t& wch : wstrResult) {
        if (wch >= L'a' && wch <= L'z')
            wch = static_cast<wchar_t>(wch - 0x20);
    }
    return wstrResult;
}

// The regular expressions recurse once per character, so only short texts go to them. The reader turns
// [Setup] "Executable" into a platform path, which the expressions know nothing of.
void CheckAgainstTheExpressions(QZRI::IniFileParser* pParser, std::string_view svText, bool bUtf8)
{
    std::wstring_view wsvExecutable;
    if (svText.size() > 512 || pParser->FindValue(L"Setup", L"Executable", wsvExecutable))
        return;
    if (bUtf8 && svText.starts_with("\xEF\xBB\xBF"))
        svText.remove_prefix(3);
    static const QZTEST::RegexIniReference s_reference;
    QZSTD::CAutoPtr<QZPAR::Params> pExpected =
        s_reference.Parse(bUtf8 ? QZSTD::Utf8ToWide(svText) : QZRI::AnsiToWide(svText));
    Check(pParser->GetParams()->Compare(pExpected.Get()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    if (nSize == 0)
        return 0;
    const bool bUtf8 = (pData[0] & 1) != 0;
    const std::string_view svText(reinterpret_cast<const char*>(pData + 1), nSize - 1);
    QZSTD::CAutoPtr<QZRI::IniFileParser> pParser = QZRI::IniFileParser::Create();
    pParser->ParseBytes(svText, nullptr, bUtf8);
    CheckAgainstTheExpressions(pParser.Get(), svText, bUtf8);

    QZFUZZ::ForEachIniValue(pParser.Get(), [&](const std::wstring& wstrSection, const std::wstring& wstrKey,
                                               const std::wstring& wstrValue) {
        Check(pParser->GetString(wstrSection, wstrKey, nullptr) == wstrValue);
        Check(pParser->GetString(Upper(wstrSection), Upper(wstrKey), nullptr) == wstrValue);
        // Names never keep the blanks around them.
        Check(wstrKey.front() != L' ' && wstrKey.back() != L' ' && wstrKey.front() != L'\t');
    });
    // The same text restricted to its first section keeps exactly that section.
    std::vector<std::wstring> vecSections;
    pParser->GetParams()->GetNames(vecSections);
    if (!vecSections.empty()) {
        const std::vector<std::wstring> vecOnly = {vecSections.front()};
        QZSTD::CAutoPtr<QZRI::IniFileParser> pOnly = QZRI::IniFileParser::Create();
        pOnly->ParseBytes(svText, &vecOnly, bUtf8);
        Check(pOnly->GetParams()->GetSize() == 1);
    }
    return 0;
}
