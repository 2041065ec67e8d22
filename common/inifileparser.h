// The agent's reader of ini files: the package description, the setup ini files and the small files
// the agent and the wrapped command line write (process results, "$qzpkginf.ini").
//
// Grammar, one line at a time (lines end at "\n"; a "\r" before it is a blank and falls away):
//   section line   [ name ]          blanks around the brackets and around the name are ignored
//   key line       key = value       the key ends at the first "=", both sides lose their blanks;
//                                    a value of two or more characters that begins and ends with '"'
//                                    loses those two quotes (inner quotes and blanks stay)
// Blanks are the ASCII white-space characters (space, tab, "\v", "\f", "\r"). A "\r", U+2028 or
// U+2029 is accepted only among the blanks at the ends of a name, key or value: elsewhere the line
// does not parse. A section line is tried first, so "[a=b]" opens section "a=b". Every other line
// that holds more than blanks (comments included: there is no comment syntax) is traced as
// "Error. Unexpected line '...' !!!" and skipped. Key lines before the first section line are
// skipped too (no section to hold them), and so are names the tree cannot hold: a section line with an
// empty name keeps its keys out, a key line with an empty key is dropped.
//
// Section and key names are matched without regard to case (see FoldIniChar): a section that
// appears twice is one section, and a key that appears twice keeps its first spelling and its last
// value. Values are kept as they stand.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "std/par/params.h"
#include "std/qzbase.h"

namespace QZRI {

// The sentinel default with which an absent value is told from an empty one. Never written to a file.
inline constexpr const wchar_t* c_szAbsentSentinel = L"D3F45DA0-29F6-46dc-ACC7-0E5898F9724D";

// Where file contents come from when the package does not lie in the local file system (a remote
// share, an archive).
struct FilesProvider : QZSTD::QZBase
{
    // The whole content of the file as bytes; QZError 1205 (QZSTD) when it does not exist.
    virtual std::string ReadFileContent(const std::wstring& wstrPath) = 0;
    // Copies the file to a local path, overwriting it.
    virtual void CopyFileTo(const std::wstring& wstrRemotePath, const std::wstring& wstrLocalPath) = 0;
};

// The case fold under which names are compared: ASCII, Latin-1, Greek and Cyrillic capitals become
// their small letters; every other character stands for itself. The same on every platform, so that a
// package reads the same everywhere.
wchar_t FoldIniChar(wchar_t wch) noexcept;
// Same length and the same characters after FoldIniChar.
bool IniNamesEqual(std::wstring_view wsvA, std::wstring_view wsvB) noexcept;

class IniFileParser : public QZSTD::QZBase
{
public:
    static constexpr const char* c_szTypeName = "IniFileParser";

    // Reads the file at once when the path is not empty (errors as ReadIniFile). pSections, when not
    // null, restricts the content to those sections. The provider, when given, is kept with a reference.
    static QZSTD::CAutoPtr<IniFileParser> Create(const std::wstring& wstrPath = {},
                                                 const std::vector<std::wstring>* pSections = nullptr,
                                                 bool bUtf8 = false, FilesProvider* pFilesProvider = nullptr);

    // Reads and parses the whole file (through the files provider when one is set), replacing the
    // previous content. UTF-8 (bUtf8, a leading byte-order mark dropped) or the ANSI code page.
    // QZError 1205 (QZSTD) when the file does not exist; the content is then empty.
    void ReadIniFile(const std::wstring& wstrPath, const std::vector<std::wstring>* pSections, bool bUtf8);
    // The same on bytes already in memory; wstrOrigin only names them in the trace.
    void ParseBytes(std::string_view svBytes, const std::vector<std::wstring>* pSections, bool bUtf8,
                    const std::wstring& wstrOrigin = {});
    // The same on decoded text.
    void ParseText(std::wstring_view wsvText, const std::vector<std::wstring>* pSections,
                   const std::wstring& wstrOrigin = {});

    // The value, or szDefault when the section or key is absent; with a null szDefault an absent
    // value raises QZError 1186 (QZSTD).
    std::wstring GetString(std::wstring_view wsvSection, std::wstring_view wsvKey,
                           const wchar_t* szDefault) const;
    // The value read as a signed decimal number as the C runtime reads it (leading blanks, a sign,
    // digits up to the first other character; no digits gives 0), limited to the 32-bit range. Absent:
    // nDefault when bMayBeAbsent, else QZError 1186 (QZSTD).
    int32_t GetInt(std::wstring_view wsvSection, std::wstring_view wsvKey, int32_t nDefault,
                   bool bMayBeAbsent) const;
    // False when absent; the view stays valid until the next read.
    bool FindValue(std::wstring_view wsvSection, std::wstring_view wsvKey, std::wstring_view& wsvValue) const;

    void SetFilesProvider(FilesProvider* pFilesProvider);
    FilesProvider* GetFilesProvider() const { return m_pFilesProvider.Get(); }
    bool IsUtf8() const { return m_bUtf8; }

    // The content as a tree: one Params per section (by its first spelling), one string per key. Built on
    // the first call after a read (lookups do not need it), so a parser is not for concurrent use.
    QZSTD::CAutoPtr<QZPAR::Params> GetParams() const;

    // Parses one line. Returns false when it is neither a section nor a key line. On a section line
    // bSection is set and wsvName is the section name; on a key line wsvName is the key and wsvValue
    // the value with the quote rule applied. The views point into wsvLine.
    static bool ParseLine(std::wstring_view wsvLine, bool& bSection, std::wstring_view& wsvName,
                          std::wstring_view& wsvValue) noexcept;

protected:
    IniFileParser() = default;
    ~IniFileParser() override = default;

private:
    struct Entry
    {
        std::wstring_view m_wsvName;
        std::wstring_view m_wsvValue;
    };
    struct Section
    {
        std::wstring_view m_wsvName;
        std::vector<Entry> m_vecKeys;
    };
    // A key of one section, for the index; hashed and compared under FoldIniChar.
    struct KeyRef
    {
        size_t m_nSection;
        std::wstring_view m_wsvName;
    };
    struct FoldHash
    {
        size_t operator()(std::wstring_view wsv) const noexcept;
        size_t operator()(const KeyRef& key) const noexcept;
    };
    struct FoldEqual
    {
        bool operator()(std::wstring_view wsvA, std::wstring_view wsvB) const noexcept;
        bool operator()(const KeyRef& a, const KeyRef& b) const noexcept;
    };

    void Clear();
    // Parses m_wstrText, which the caller has filled.
    void ParseOwnText(const std::vector<std::wstring>* pSections, const std::wstring& wstrOrigin);
    const Entry* FindEntry(std::wstring_view wsvSection, std::wstring_view wsvKey) const;
    void ConvertExecutablePath();
    // The parsed content as a tree; with bMaskPasswords, as it may be traced (passwords masked).
    QZSTD::CAutoPtr<QZPAR::Params> BuildParams(bool bMaskPasswords) const;

    // The parsed content as a tree, built on demand from the index (null until then).
    mutable QZSTD::CAutoPtr<QZPAR::Params> m_pParams;
    QZSTD::CAutoPtr<FilesProvider> m_pFilesProvider;
    bool m_bUtf8 = false;
    // The decoded text; every name and value of the index is a view into it.
    std::wstring m_wstrText;
    std::vector<Section> m_vecSections;
    std::unordered_map<std::wstring_view, size_t, FoldHash, FoldEqual> m_mapSectionIndex;
    // Sections with fewer keys are searched by a scan; from this many on, through m_mapKeyIndex.
    static constexpr size_t c_nLinearKeys = 16;
    // (section, key) -> position of the key in its section, for sections of c_nLinearKeys or more keys.
    std::unordered_map<KeyRef, size_t, FoldHash, FoldEqual> m_mapKeyIndex;
};

}  // namespace QZRI
