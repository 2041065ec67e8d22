// The package description (qpd file) and its UTF-8 companion (".qud" file).
//
// The qpd file is read in the ANSI code page; characters outside it are carried by the companion,
// which holds the same sections in UTF-8. Values are therefore looked up in the companion first and
// in the qpd file only when the companion lacks them. A qpd file without companion is valid.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "common/inifileparser.h"
#include "std/qzbase.h"

namespace QZRI {

// Where a value of a package description came from.
enum class QpdValueOrigin
{
    COMPANION,
    QPD,
    ABSENT,
};
const wchar_t* QpdValueOriginName(QpdValueOrigin eOrigin) noexcept;

// The integer lookup order: the companion's reading first; only when that raises "not found"
// (QZError 1186 of QZSTD) the qpd file's reading. Every other error is passed on.
int32_t GetIntCompanionFirst(const std::function<int32_t()>& fnCompanion,
                             const std::function<int32_t()>& fnQpd);

class QpdFile : public QZSTD::QZBase
{
public:
    static constexpr const char* c_szTypeName = "QpdFile";

    // Creates both parsers empty, gives them the provider, and reads the path when it is not empty.
    static QZSTD::CAutoPtr<QpdFile> Create(const std::wstring& wstrPath = {},
                                           FilesProvider* pFilesProvider = nullptr);

    // A ".qud" path is read as UTF-8 and nothing else. Any other path is read as the qpd file (ANSI),
    // then its companion: the file named by [Setup] "utf8qpd" in the qpd file's folder, or the qpd path
    // with the extension ".qud". A companion that cannot be read is traced and ignored; a qpd file that
    // cannot be read raises the reader's error (1205 when it does not exist).
    void Read(const std::wstring& wstrPath);

    // The companion's value, else the qpd file's, else szDefault; with a null szDefault an absent value
    // raises QZError 1186 (QZSTD). pOrigin, when given, receives where the result came from.
    std::wstring GetString(std::wstring_view wsvSection, std::wstring_view wsvKey, const wchar_t* szDefault,
                           QpdValueOrigin* pOrigin = nullptr) const;
    // The companion's integer, else the qpd file's, else nDefault (see GetIntCompanionFirst).
    int32_t GetInt(std::wstring_view wsvSection, std::wstring_view wsvKey, int32_t nDefault) const;

    // True when the extension is ".qud" (in any case, as file names on Windows).
    static bool IsQudFile(const std::wstring& wstrPath);

    void SetFilesProvider(FilesProvider* pFilesProvider);
    const std::wstring& GetPath() const { return m_wstrPath; }
    // The full path built from [Setup] "ExecutableRelPath"; empty when the file does not give one.
    const std::wstring& GetExecutablePath() const { return m_wstrExecutablePath; }
    // The companion path tried by the last Read (empty for a ".qud" path).
    const std::wstring& GetCompanionPath() const { return m_wstrCompanionPath; }
    // The package's ".qud" file, which the agent writes into: the companion, or the description itself
    // when it is a ".qud" file; empty when there is none.
    std::wstring GetQudPath() const
    {
        return !m_wstrCompanionPath.empty() || !IsQudFile(m_wstrPath) ? m_wstrCompanionPath : m_wstrPath;
    }
    IniFileParser* GetAnsiParser() const { return m_pAnsiParser.Get(); }
    IniFileParser* GetUtf8Parser() const { return m_pUtf8Parser.Get(); }

protected:
    QpdFile() = default;
    ~QpdFile() override = default;

private:
    std::wstring m_wstrPath;
    QZSTD::CAutoPtr<IniFileParser> m_pAnsiParser;
    QZSTD::CAutoPtr<IniFileParser> m_pUtf8Parser;
    QZSTD::CAutoPtr<FilesProvider> m_pFilesProvider;
    std::wstring m_wstrExecutablePath;
    std::wstring m_wstrCompanionPath;
};

}  // namespace QZRI
