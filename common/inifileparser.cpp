// The agent's ini reader (see inifileparser.h). Portable: the platforms differ only in the ANSI code
// page (ansicp_*.cpp) and in the path separator, which std::filesystem gives.
#include "common/inifileparser.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "common/ansicp.h"
#include "common/ristrutils.h"
#include "std/error.h"
#include "std/par/dump.h"
#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {

namespace {

// The white space of the line patterns: what "\s" and "\t" match in them.
bool IsBlank(wchar_t wch) noexcept
{
    return wch == L' ' || (wch >= L'\t' && wch <= L'\r');  // tab, "\n", "\v", "\f", "\r"
}

// Characters that end a line for the patterns' "." and so cannot be part of a name, key or value.
bool IsLineTerminator(wchar_t wch) noexcept
{
    return wch == L'\n' || wch == L'\r' || wch == 0x2028 || wch == 0x2029;
}

// The line terminators that do not end a line in the file ("\r", U+2028, U+2029).
bool IsInnerBreak(wchar_t wch) noexcept
{
    return wch == L'\r' || (wch | 1) == 0x2029;
}

// What one pass over a line finds: where it ends and where its first "=" and its inner breaks lie.
// Only a line with an inner break between its blanks needs the general rules.
struct LineMarks
{
    static constexpr size_t c_nNone = std::wstring_view::npos;
    size_t nLength = 0;  // up to the "\n" or the end of the text
    size_t nFirstEq = c_nNone;
    size_t nFirstBreak = c_nNone;
    size_t nLastBreak = c_nNone;
};

// Marks one character; false at the "\n" that ends the line.
inline bool MarkChar(wchar_t wch, size_t nPos, LineMarks& marks) noexcept
{
    if (wch == L'\n')
        return false;
    if (wch == L'=') {
        if (marks.nFirstEq == LineMarks::c_nNone)
            marks.nFirstEq = nPos;
    } else if (IsInnerBreak(wch)) {
        if (marks.nFirstBreak == LineMarks::c_nNone)
            marks.nFirstBreak = nPos;
        marks.nLastBreak = nPos;
    }
    return true;
}

#if defined(__SSE2__)
inline __m128i SplatChar(wchar_t wch) noexcept
{
    if constexpr (sizeof(wchar_t) == 2)
        return _mm_set1_epi16(static_cast<short>(wch));
    else
        return _mm_set1_epi32(static_cast<int>(wch));
}

inline __m128i EqualChars(__m128i a, __m128i b) noexcept
{
    if constexpr (sizeof(wchar_t) == 2)
        return _mm_cmpeq_epi16(a, b);
    else
        return _mm_cmpeq_epi32(a, b);
}
#endif

// Scans the text from its start to the first "\n". Most characters of a file are none of the ones
// that matter, so blocks of them are passed over at once where the processor allows.
LineMarks ScanLine(std::wstring_view wsvText) noexcept
{
    LineMarks marks;
    const wchar_t* const pChars = wsvText.data();
    const size_t nSize = wsvText.size();
    size_t i = 0;
#if defined(__SSE2__)
    constexpr size_t c_nLanes = 16 / sizeof(wchar_t);
    const __m128i vNewline = SplatChar(L'\n');
    const __m128i vEq = SplatChar(L'=');
    const __m128i vCr = SplatChar(L'\r');
    const __m128i vSeparator = SplatChar(static_cast<wchar_t>(0x2028));
    const __m128i vNoLowBit = SplatChar(static_cast<wchar_t>(~1));  // U+2028 and U+2029 in one compare
    for (; i + c_nLanes <= nSize; i += c_nLanes) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pChars + i));
        const __m128i vHits = _mm_or_si128(
            _mm_or_si128(EqualChars(v, vNewline), EqualChars(v, vEq)),
            _mm_or_si128(EqualChars(v, vCr), EqualChars(_mm_and_si128(v, vNoLowBit), vSeparator)));
        if (_mm_movemask_epi8(vHits) == 0)
            continue;
        for (size_t j = i; j < i + c_nLanes; ++j) {
            if (!MarkChar(pChars[j], j, marks)) {
                marks.nLength = j;
                return marks;
            }
        }
    }
#endif
    for (; i < nSize; ++i) {
        if (!MarkChar(pChars[i], i, marks)) {
            marks.nLength = i;
            return marks;
        }
    }
    marks.nLength = nSize;
    return marks;
}

std::wstring_view TrimBlanks(std::wstring_view wsv) noexcept
{
    size_t nBegin = 0;
    size_t nEnd = wsv.size();
    while (nBegin < nEnd && IsBlank(wsv[nBegin]))
        ++nBegin;
    while (nEnd > nBegin && IsBlank(wsv[nEnd - 1]))
        --nEnd;
    return wsv.substr(nBegin, nEnd - nBegin);
}

bool HasLineTerminator(std::wstring_view wsv) noexcept
{
    for (wchar_t wch : wsv) {
        if (IsLineTerminator(wch))
            return true;
    }
    return false;
}

bool IsStorableName(std::wstring_view wsvName) noexcept
{
    return !wsvName.empty() && wsvName.find(L'\0') == std::wstring_view::npos;
}

bool IsListed(const std::vector<std::wstring>* pSections, std::wstring_view wsvName) noexcept
{
    if (!pSections)
        return true;
    for (const std::wstring& wstr : *pSections) {
        if (IniNamesEqual(wstr, wsvName))
            return true;
    }
    return false;
}

// A line terminator among the characters: a section line needs a name without one, and the key is the
// shortest text before an "=" that leaves a well-formed value after it.
bool ParseLineByGeneralRules(std::wstring_view wsvLine, bool& bSection, std::wstring_view& wsvName,
                             std::wstring_view& wsvValue) noexcept
{
    const std::wstring_view wsvTrimmed = TrimBlanks(wsvLine);
    if (wsvTrimmed.size() >= 2 && wsvTrimmed.front() == L'[' && wsvTrimmed.back() == L']') {
        const std::wstring_view wsvInner = TrimBlanks(wsvTrimmed.substr(1, wsvTrimmed.size() - 2));
        if (!HasLineTerminator(wsvInner)) {
            bSection = true;
            wsvName = wsvInner;
            wsvValue = {};
            return true;
        }
    }
    // The key is the shortest text before an "=" that leaves a well-formed value after it: the first
    // "=" unless a line terminator inside the value forces a later one.
    for (size_t nEq = wsvLine.find(L'='); nEq != std::wstring_view::npos; nEq = wsvLine.find(L'=', nEq + 1)) {
        const std::wstring_view wsvKey = TrimBlanks(wsvLine.substr(0, nEq));
        if (HasLineTerminator(wsvKey))
            return false;  // every later "=" keeps it inside the key
        std::wstring_view wsvVal = TrimBlanks(wsvLine.substr(nEq + 1));
        if (HasLineTerminator(wsvVal))
            continue;
        if (wsvVal.size() >= 2 && wsvVal.front() == L'"' && wsvVal.back() == L'"')
            wsvVal = wsvVal.substr(1, wsvVal.size() - 2);
        bSection = false;
        wsvName = wsvKey;
        wsvValue = wsvVal;
        return true;
    }
    return false;
}

// The usual line has no line terminator between its blanks: then its first "=" (found by the scan)
// splits it and the rules reduce to plain trimming.
bool ParseMarkedLine(std::wstring_view wsvLine, const LineMarks& marks, bool& bSection,
                     std::wstring_view& wsvName, std::wstring_view& wsvValue) noexcept
{
    const std::wstring_view wsvTrimmed = TrimBlanks(wsvLine);
    const size_t nBegin = static_cast<size_t>(wsvTrimmed.data() - wsvLine.data());
    const size_t nEnd = nBegin + wsvTrimmed.size();
    if (marks.nFirstBreak < nEnd && marks.nLastBreak >= nBegin)
        return ParseLineByGeneralRules(wsvLine, bSection, wsvName, wsvValue);
    if (wsvTrimmed.size() >= 2 && wsvTrimmed.front() == L'[' && wsvTrimmed.back() == L']') {
        bSection = true;
        wsvName = TrimBlanks(wsvTrimmed.substr(1, wsvTrimmed.size() - 2));
        wsvValue = {};
        return true;
    }
    if (marks.nFirstEq == LineMarks::c_nNone)
        return false;
    std::wstring_view wsvVal = TrimBlanks(wsvLine.substr(marks.nFirstEq + 1));
    if (wsvVal.size() >= 2 && wsvVal.front() == L'"' && wsvVal.back() == L'"')
        wsvVal = wsvVal.substr(1, wsvVal.size() - 2);
    bSection = false;
    wsvName = TrimBlanks(wsvLine.substr(0, marks.nFirstEq));
    wsvValue = wsvVal;
    return true;
}

// The C runtime's reading of a decimal number, limited to the 32-bit range on every platform.
int32_t ParseDecimal(std::wstring_view wsv) noexcept
{
    size_t i = 0;
    while (i < wsv.size() && IsBlank(wsv[i]))
        ++i;
    bool bNegative = false;
    if (i < wsv.size() && (wsv[i] == L'+' || wsv[i] == L'-')) {
        bNegative = wsv[i] == L'-';
        ++i;
    }
    int64_t nValue = 0;
    constexpr int64_t c_nLimit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
    for (; i < wsv.size() && wsv[i] >= L'0' && wsv[i] <= L'9'; ++i) {
        nValue = nValue * 10 + (wsv[i] - L'0');
        if (nValue > c_nLimit)
            nValue = c_nLimit;
    }
    if (bNegative)
        return static_cast<int32_t>(-nValue);
    return static_cast<int32_t>(
        nValue > std::numeric_limits<int32_t>::max() ? int64_t{std::numeric_limits<int32_t>::max()} : nValue);
}

// Stores entries whose names are distinct (the index folds duplicates) into an empty Params.
void FillInNameOrder(QZPAR::Params* pParams, std::vector<QZPAR::ParamsEntry>& vecEntries)
{
    std::sort(vecEntries.begin(), vecEntries.end(),
              [](const QZPAR::ParamsEntry& a, const QZPAR::ParamsEntry& b) {
                  return QZPAR::CompareOrdinal(a.m_shName, b.m_shName) < 0;
              });
    QZSTD::QueryInterface<QZPAR::ParamsInternal>(pParams)->ReplaceEntries(std::move(vecEntries));
}

std::wstring ToPlatformPath(std::wstring wstrPath)
{
    constexpr wchar_t c_wchPreferred = std::filesystem::path::preferred_separator;
    const wchar_t wchOther = c_wchPreferred == L'\\' ? L'/' : L'\\';
    for (wchar_t& wch : wstrPath) {
        if (wch == wchOther)
            wch = c_wchPreferred;
    }
    return wstrPath;
}

}  // namespace

wchar_t FoldIniChar(wchar_t wch) noexcept
{
    if (wch < 0x80)
        return (wch >= L'A' && wch <= L'Z') ? static_cast<wchar_t>(wch + 0x20) : wch;
    if (wch >= 0xC0 && wch <= 0xDE && wch != 0xD7)  // Latin-1 capitals, not the multiplication sign
        return static_cast<wchar_t>(wch + 0x20);
    if (wch >= 0x391 && wch <= 0x3AB && wch != 0x3A2)  // Greek capitals
        return static_cast<wchar_t>(wch + 0x20);
    if (wch >= 0x410 && wch <= 0x42F)  // Cyrillic А..Я
        return static_cast<wchar_t>(wch + 0x20);
    if (wch >= 0x400 && wch <= 0x40F)  // Cyrillic Ѐ..Џ
        return static_cast<wchar_t>(wch + 0x50);
    return wch;
}

bool IniNamesEqual(std::wstring_view wsvA, std::wstring_view wsvB) noexcept
{
    if (wsvA.size() != wsvB.size())
        return false;
    for (size_t i = 0; i < wsvA.size(); ++i) {
        if (FoldIniChar(wsvA[i]) != FoldIniChar(wsvB[i]))
            return false;
    }
    return true;
}

QZSTD::CAutoPtr<IniFileParser> IniFileParser::Create(const std::wstring& wstrPath,
                                                     const std::vector<std::wstring>* pSections, bool bUtf8,
                                                     FilesProvider* pFilesProvider)
{
    auto pParser = QZSTD::CAutoPtr<IniFileParser>::Adopt(new QZSTD::RcClassImpl<IniFileParser>());
    pParser->m_bUtf8 = bUtf8;
    pParser->SetFilesProvider(pFilesProvider);
    if (!wstrPath.empty())
        pParser->ReadIniFile(wstrPath, pSections, bUtf8);
    return pParser;
}

void IniFileParser::SetFilesProvider(FilesProvider* pFilesProvider)
{
    m_pFilesProvider = QZSTD::CAutoPtr<FilesProvider>(pFilesProvider);
}

size_t IniFileParser::FoldHash::operator()(std::wstring_view wsv) const noexcept
{
    // FNV-1a over the folded characters.
    size_t nHash = static_cast<size_t>(14695981039346656037ull);
    for (wchar_t wch : wsv) {
        nHash ^= static_cast<size_t>(FoldIniChar(wch));
        nHash *= static_cast<size_t>(1099511628211ull);
    }
    return nHash;
}

size_t IniFileParser::FoldHash::operator()(const KeyRef& key) const noexcept
{
    return (*this)(key.m_wsvName) ^ (key.m_nSection * static_cast<size_t>(0x9E3779B97F4A7C15ull));
}

bool IniFileParser::FoldEqual::operator()(std::wstring_view wsvA, std::wstring_view wsvB) const noexcept
{
    return IniNamesEqual(wsvA, wsvB);
}

bool IniFileParser::FoldEqual::operator()(const KeyRef& a, const KeyRef& b) const noexcept
{
    return a.m_nSection == b.m_nSection && IniNamesEqual(a.m_wsvName, b.m_wsvName);
}

bool IniFileParser::ParseLine(std::wstring_view wsvLine, bool& bSection, std::wstring_view& wsvName,
                              std::wstring_view& wsvValue) noexcept
{
    const LineMarks marks = ScanLine(wsvLine);
    if (marks.nLength < wsvLine.size())  // a "\n" inside: only the general rules place it
        return ParseLineByGeneralRules(wsvLine, bSection, wsvName, wsvValue);
    return ParseMarkedLine(wsvLine, marks, bSection, wsvName, wsvValue);
}

void IniFileParser::Clear()
{
    m_mapKeyIndex.clear();
    m_mapSectionIndex.clear();
    m_vecSections.clear();
    m_wstrText.clear();
    m_pParams.Reset();
}

void IniFileParser::ReadIniFile(const std::wstring& wstrPath, const std::vector<std::wstring>* pSections,
                                bool bUtf8)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::IniFileParser::ReadIniFile");
    m_bUtf8 = bUtf8;
    Clear();
    std::string strBytes;
    if (m_pFilesProvider) {
        strBytes = m_pFilesProvider->ReadFileContent(wstrPath);
    } else {
        std::ifstream file(PathFromWide(wstrPath), std::ios::binary);
        if (!file)
            QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrPath);
        strBytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    ParseBytes(strBytes, pSections, bUtf8, wstrPath);
}

void IniFileParser::ParseBytes(std::string_view svBytes, const std::vector<std::wstring>* pSections,
                               bool bUtf8, const std::wstring& wstrOrigin)
{
    m_bUtf8 = bUtf8;
    Clear();
    if (bUtf8) {
        if (svBytes.starts_with("\xEF\xBB\xBF"))
            svBytes.remove_prefix(3);
        m_wstrText = QZSTD::Utf8ToWide(svBytes);
    } else {
        AnsiToWide(svBytes, m_wstrText);
    }
    ParseOwnText(pSections, wstrOrigin);
}

void IniFileParser::ParseText(std::wstring_view wsvText, const std::vector<std::wstring>* pSections,
                              const std::wstring& wstrOrigin)
{
    std::wstring wstrText(wsvText);
    Clear();
    m_wstrText = std::move(wstrText);
    ParseOwnText(pSections, wstrOrigin);
}

void IniFileParser::ParseOwnText(const std::vector<std::wstring>* pSections, const std::wstring& wstrOrigin)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::IniFileParser::Parse");
    // Views into m_wstrText from here on: it must not change until the next parse.
    std::wstring_view wsvRest = m_wstrText;
    constexpr size_t c_nNone = static_cast<size_t>(-1);
    size_t nCurrent = c_nNone;
    bool bInSection = false;
    while (!wsvRest.empty()) {
        const LineMarks marks = ScanLine(wsvRest);
        const std::wstring_view wsvLine = wsvRest.substr(0, marks.nLength);
        wsvRest.remove_prefix(std::min(marks.nLength + 1, wsvRest.size()));

        bool bSection = false;
        std::wstring_view wsvName;
        std::wstring_view wsvValue;
        if (!ParseMarkedLine(wsvLine, marks, bSection, wsvName, wsvValue)) {
            if (!TrimBlanks(wsvLine).empty())
                QZ_TRACE_E(L"Error. Unexpected line '%ls' !!!\n", std::wstring(wsvLine));
            continue;
        }
        if (!IsStorableName(wsvName)) {
            // The tree names its entries by non-empty strings without U+0000: such a section keeps
            // its keys out, such a key is dropped.
            QZ_TRACE_W(L"%hs: %ls line with an empty name skipped: '%ls'\n", QZ_SCOPE_NAME,
                       bSection ? L"section" : L"key", std::wstring(wsvLine));
            if (bSection) {
                bInSection = true;
                nCurrent = c_nNone;
            }
            continue;
        }
        if (bSection) {
            bInSection = true;
            nCurrent = c_nNone;
            if (!IsListed(pSections, wsvName))
                continue;
            const auto [it, bNew] = m_mapSectionIndex.try_emplace(wsvName, m_vecSections.size());
            if (bNew)
                m_vecSections.push_back(Section{wsvName, {}});
            nCurrent = it->second;
            continue;
        }
        if (nCurrent == c_nNone) {
            if (!bInSection)
                QZ_TRACE_W(L"%hs: key '%ls' before any section skipped\n", QZ_SCOPE_NAME,
                           std::wstring(wsvName));
            continue;
        }
        std::vector<Entry>& vecKeys = m_vecSections[nCurrent].m_vecKeys;
        if (vecKeys.size() < c_nLinearKeys) {
            // Most sections hold a few keys: a scan beats hashing them.
            Entry* pFound = nullptr;
            for (Entry& entry : vecKeys) {
                if (IniNamesEqual(entry.m_wsvName, wsvName)) {
                    pFound = &entry;
                    break;
                }
            }
            if (pFound) {
                pFound->m_wsvValue = wsvValue;
                continue;
            }
            vecKeys.push_back(Entry{wsvName, wsvValue});
            if (vecKeys.size() == c_nLinearKeys) {
                for (size_t i = 0; i < vecKeys.size(); ++i)
                    m_mapKeyIndex.emplace(KeyRef{nCurrent, vecKeys[i].m_wsvName}, i);
            }
            continue;
        }
        const auto [it, bNew] = m_mapKeyIndex.try_emplace(KeyRef{nCurrent, wsvName}, vecKeys.size());
        if (bNew)
            vecKeys.push_back(Entry{wsvName, wsvValue});
        else
            vecKeys[it->second].m_wsvValue = wsvValue;
    }
    ConvertExecutablePath();
    if (QZSTD::TraceIsEnabled(QZSTD::TL_INFO)) {
        QZ_TRACE_I(L"Ini file: %ls (%ls by default):\n", wstrOrigin, m_bUtf8 ? L"utf8" : L"ansi");
        QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(BuildParams(true).Get(), 1));
    }
}

void IniFileParser::ConvertExecutablePath()
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::IniFileParser::ReadIniFile");
    const Entry* pEntry = FindEntry(L"Setup", L"Executable");
    if (!pEntry)
        return;
    QZ_TRACE_I(L"%hs: '%ls' section is found, the '%ls' parameter is read and equal to '%ls'.", QZ_SCOPE_NAME,
               L"Setup", L"Executable", std::wstring(pEntry->m_wsvValue));
    // The separators change in place: the value keeps its length and its place in the text.
    const std::wstring wstrConverted = ToPlatformPath(std::wstring(pEntry->m_wsvValue));
    const size_t nOffset = static_cast<size_t>(pEntry->m_wsvValue.data() - m_wstrText.data());
    m_wstrText.replace(nOffset, wstrConverted.size(), wstrConverted);
    QZ_TRACE_I(L"%hs: '%ls' value path performed to platform specific - '%ls'.", QZ_SCOPE_NAME, L"Executable",
               wstrConverted);
}

QZSTD::CAutoPtr<QZPAR::Params> IniFileParser::GetParams() const
{
    if (!m_pParams)
        m_pParams = BuildParams(false);
    return m_pParams;
}

QZSTD::CAutoPtr<QZPAR::Params> IniFileParser::BuildParams(bool bMaskPasswords) const
{
    // Each Params is filled in one step with its entries in name order: one lock per section and no
    // search for the place of each entry. Key names repeat from section to section ("Executable",
    // "CmdLine"), so each spelling is stored once and shared by all its entries.
    std::unordered_map<std::wstring_view, QZPAR::SharedString> mapNames;
    auto sharedName = [&mapNames](std::wstring_view wsvName) {
        auto [it, bNew] = mapNames.try_emplace(wsvName);
        if (bNew)
            it->second = QZPAR::SharedString(wsvName);
        return it->second;
    };
    std::vector<QZPAR::ParamsEntry> vecSections;
    vecSections.reserve(m_vecSections.size());
    std::vector<QZPAR::ParamsEntry> vecKeys;
    for (const Section& section : m_vecSections) {
        vecKeys.clear();
        for (const Entry& entry : section.m_vecKeys)
            vecKeys.push_back({sharedName(entry.m_wsvName),
                               bMaskPasswords ? QZPAR::CreateString(MaskPasswordValue(
                                                    entry.m_wsvName, std::wstring(entry.m_wsvValue)))
                                              : QZPAR::CreateString(entry.m_wsvValue)});
        QZSTD::CAutoPtr<QZPAR::Params> pSection = QZPAR::CreateParams();
        FillInNameOrder(pSection.Get(), vecKeys);
        vecSections.push_back(
            {QZPAR::SharedString(section.m_wsvName), QZPAR::CreateParamsValue(pSection.Get())});
    }
    QZSTD::CAutoPtr<QZPAR::Params> pRoot = QZPAR::CreateParams();
    FillInNameOrder(pRoot.Get(), vecSections);
    return pRoot;
}

const IniFileParser::Entry* IniFileParser::FindEntry(std::wstring_view wsvSection,
                                                     std::wstring_view wsvKey) const
{
    const auto itSection = m_mapSectionIndex.find(wsvSection);
    if (itSection == m_mapSectionIndex.end())
        return nullptr;
    const std::vector<Entry>& vecKeys = m_vecSections[itSection->second].m_vecKeys;
    if (vecKeys.size() < c_nLinearKeys) {
        for (const Entry& entry : vecKeys) {
            if (IniNamesEqual(entry.m_wsvName, wsvKey))
                return &entry;
        }
        return nullptr;
    }
    const auto itKey = m_mapKeyIndex.find(KeyRef{itSection->second, wsvKey});
    if (itKey == m_mapKeyIndex.end())
        return nullptr;
    return &vecKeys[itKey->second];
}

bool IniFileParser::FindValue(std::wstring_view wsvSection, std::wstring_view wsvKey,
                              std::wstring_view& wsvValue) const
{
    const Entry* pEntry = FindEntry(wsvSection, wsvKey);
    if (!pEntry)
        return false;
    wsvValue = pEntry->m_wsvValue;
    return true;
}

std::wstring IniFileParser::GetString(std::wstring_view wsvSection, std::wstring_view wsvKey,
                                      const wchar_t* szDefault) const
{
    if (const Entry* pEntry = FindEntry(wsvSection, wsvKey))
        return std::wstring(pEntry->m_wsvValue);
    if (!szDefault)
        QZ_THROW_STD(QZSTD::Err::NOT_FOUND, std::wstring(wsvSection) + L"/" + std::wstring(wsvKey));
    return szDefault;
}

int32_t IniFileParser::GetInt(std::wstring_view wsvSection, std::wstring_view wsvKey, int32_t nDefault,
                              bool bMayBeAbsent) const
{
    if (const Entry* pEntry = FindEntry(wsvSection, wsvKey))
        return ParseDecimal(pEntry->m_wsvValue);
    if (!bMayBeAbsent)
        QZ_THROW_STD(QZSTD::Err::NOT_FOUND, std::wstring(wsvSection) + L"/" + std::wstring(wsvKey));
    return nDefault;
}

}  // namespace QZRI
