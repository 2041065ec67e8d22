// The agent's ini reader (see inifileparser.h). Portable: the platforms differ only in the ANSI code
// page (ansicp_*.cpp) and in the path separator, which std::filesystem gives.
#include "common/inifileparser.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>

#include "common/ansicp.h"
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
    return wch == L' ' || wch == L'\t' || wch == L'\v' || wch == L'\f' || wch == L'\r' || wch == L'\n';
}

// Characters that end a line for the patterns' "." and so cannot be part of a name, key or value.
bool IsLineTerminator(wchar_t wch) noexcept
{
    return wch == L'\n' || wch == L'\r' || wch == 0x2028 || wch == 0x2029;
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
    const std::wstring_view wsvTrimmed = TrimBlanks(wsvLine);
    // The usual line has no line terminator between its blanks: one pass finds its first "=" and the
    // general rules below reduce to plain trimming.
    size_t nFirstEq = std::wstring_view::npos;
    bool bTerminator = false;
    for (size_t i = 0; i < wsvTrimmed.size(); ++i) {
        const wchar_t wch = wsvTrimmed[i];
        if (wch == L'=') {
            if (nFirstEq == std::wstring_view::npos)
                nFirstEq = i;
        } else if (IsLineTerminator(wch)) {
            bTerminator = true;
            break;
        }
    }
    if (!bTerminator) {
        if (wsvTrimmed.size() >= 2 && wsvTrimmed.front() == L'[' && wsvTrimmed.back() == L']') {
            bSection = true;
            wsvName = TrimBlanks(wsvTrimmed.substr(1, wsvTrimmed.size() - 2));
            wsvValue = {};
            return true;
        }
        if (nFirstEq == std::wstring_view::npos)
            return false;
        std::wstring_view wsvVal = TrimBlanks(wsvTrimmed.substr(nFirstEq + 1));
        if (wsvVal.size() >= 2 && wsvVal.front() == L'"' && wsvVal.back() == L'"')
            wsvVal = wsvVal.substr(1, wsvVal.size() - 2);
        bSection = false;
        wsvName = TrimBlanks(wsvTrimmed.substr(0, nFirstEq));
        wsvValue = wsvVal;
        return true;
    }
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
        const size_t nEol = wsvRest.find(L'\n');
        const std::wstring_view wsvLine = wsvRest.substr(0, nEol);
        wsvRest.remove_prefix(nEol == std::wstring_view::npos ? wsvRest.size() : nEol + 1);

        bool bSection = false;
        std::wstring_view wsvName;
        std::wstring_view wsvValue;
        if (!ParseLine(wsvLine, bSection, wsvName, wsvValue)) {
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
        QZ_TRACE_LINES(QZSTD::TL_INFO, QZPAR::DumpParams(GetParams().Get(), 1));
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
    if (!m_pParams) {
        QZSTD::CAutoPtr<QZPAR::Params> pRoot = QZPAR::CreateParams();
        std::wstring wstrName;
        for (const Section& section : m_vecSections) {
            QZSTD::CAutoPtr<QZPAR::Params> pSection = QZPAR::CreateParams();
            for (const Entry& entry : section.m_vecKeys) {
                wstrName.assign(entry.m_wsvName);
                QZPAR::SetStringValue(pSection.Get(), wstrName.c_str(), entry.m_wsvValue);
            }
            wstrName.assign(section.m_wsvName);
            QZPAR::SetParamsValue(pRoot.Get(), wstrName.c_str(), pSection.Get());
        }
        m_pParams = pRoot;
    }
    return m_pParams;
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
