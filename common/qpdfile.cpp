// The package description with its UTF-8 companion (see qpdfile.h). Portable.
#include "common/qpdfile.h"

#include <filesystem>

#include "common/ansicp.h"

#include "std/error.h"
#include "std/trace.h"

namespace QZRI {

namespace fs = std::filesystem;

namespace {

// Package descriptions are written on Windows and may name paths with either separator.
fs::path PlatformPath(std::wstring wstrPath)
{
    constexpr wchar_t c_wchPreferred = fs::path::preferred_separator;
    for (wchar_t& wch : wstrPath) {
        if (wch == L'/' || wch == L'\\')
            wch = c_wchPreferred;
    }
    return PathFromWide(wstrPath);
}

}  // namespace

const wchar_t* QpdValueOriginName(QpdValueOrigin eOrigin) noexcept
{
    switch (eOrigin) {
        case QpdValueOrigin::COMPANION:
            return L"companion";
        case QpdValueOrigin::QPD:
            return L"qpd";
        case QpdValueOrigin::ABSENT:
            return L"absent";
    }
    return L"?";
}

int32_t GetIntCompanionFirst(const std::function<int32_t()>& fnCompanion,
                             const std::function<int32_t()>& fnQpd)
{
    try {
        return fnCompanion();
    } catch (const QZSTD::QZError& e) {
        if (!e.Is(QZSTD::Err::MODULE, QZSTD::Err::NOT_FOUND))
            throw;
    }
    return fnQpd();
}

QZSTD::CAutoPtr<QpdFile> QpdFile::Create(const std::wstring& wstrPath, FilesProvider* pFilesProvider)
{
    auto pQpd = QZSTD::CAutoPtr<QpdFile>::Adopt(new QZSTD::RcClassImpl<QpdFile>());
    pQpd->m_pAnsiParser = IniFileParser::Create();
    pQpd->m_pUtf8Parser = IniFileParser::Create({}, nullptr, true);
    pQpd->SetFilesProvider(pFilesProvider);
    if (!wstrPath.empty())
        pQpd->Read(wstrPath);
    return pQpd;
}

void QpdFile::SetFilesProvider(FilesProvider* pFilesProvider)
{
    m_pFilesProvider = QZSTD::CAutoPtr<FilesProvider>(pFilesProvider);
    m_pAnsiParser->SetFilesProvider(pFilesProvider);
    m_pUtf8Parser->SetFilesProvider(pFilesProvider);
}

bool QpdFile::IsQudFile(const std::wstring& wstrPath)
{
    return IniNamesEqual(WideFromPath(PathFromWide(wstrPath).extension()), L".qud");
}

void QpdFile::Read(const std::wstring& wstrPath)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::QpdFile::Read");
    QZ_TRACE_I(L"Qpd file: %ls:\n", wstrPath);
    m_wstrPath = wstrPath;
    m_wstrExecutablePath.clear();
    m_wstrCompanionPath.clear();
    // A new read starts from nothing: values of a previous package must not show through.
    m_pAnsiParser = IniFileParser::Create({}, nullptr, false, m_pFilesProvider.Get());
    m_pUtf8Parser = IniFileParser::Create({}, nullptr, true, m_pFilesProvider.Get());

    if (IsQudFile(wstrPath)) {
        QZ_TRACE_I(L"Reading utf8 file from %ls...\n", wstrPath);
        m_pUtf8Parser->ReadIniFile(wstrPath, nullptr, true);
        return;
    }
    QZ_TRACE_I(L"Reading qpd file (ansi by default) from %ls...\n", wstrPath);
    m_pAnsiParser->ReadIniFile(wstrPath, nullptr, false);

    const fs::path pathQpd = PlatformPath(wstrPath);
    const fs::path pathFolder = pathQpd.parent_path();
    const std::wstring wstrRelPath = m_pAnsiParser->GetString(L"Setup", L"ExecutableRelPath", L"");
    if (!wstrRelPath.empty()) {
        std::error_code ec;
        fs::path pathExe = fs::absolute(pathFolder / PlatformPath(wstrRelPath), ec);
        if (ec)
            pathExe = pathFolder / PlatformPath(wstrRelPath);
        m_wstrExecutablePath = WideFromPath(pathExe.lexically_normal());
    }

    const std::wstring wstrCompanionName = m_pAnsiParser->GetString(L"Setup", L"utf8qpd", L"");
    fs::path pathCompanion = pathQpd;
    if (wstrCompanionName.empty())
        pathCompanion.replace_extension(L".qud");
    else
        pathCompanion = pathFolder / PlatformPath(wstrCompanionName);
    m_wstrCompanionPath = WideFromPath(pathCompanion);

    QZ_TRACE_I(L"Trying to read utf8 file from %ls...\n", m_wstrCompanionPath);
    try {
        m_pUtf8Parser->ReadIniFile(m_wstrCompanionPath, nullptr, true);
    } catch (const std::exception& e) {
        // A package description without companion is valid: it only lacks non-ANSI texts.
        QZ_TRACE_EXCEPTION_AT(QZSTD::TL_WARNING, e);
    }
}

std::wstring QpdFile::GetString(std::wstring_view wsvSection, std::wstring_view wsvKey,
                                const wchar_t* szDefault, QpdValueOrigin* pOrigin) const
{
    const std::wstring wstrSentinel = c_szAbsentSentinel;
    std::wstring wstrValue = m_pUtf8Parser->GetString(wsvSection, wsvKey, c_szAbsentSentinel);
    QpdValueOrigin eOrigin = QpdValueOrigin::COMPANION;
    if (wstrValue == wstrSentinel) {
        wstrValue = m_pAnsiParser->GetString(wsvSection, wsvKey, c_szAbsentSentinel);
        eOrigin = QpdValueOrigin::QPD;
    }
    if (wstrValue == wstrSentinel) {
        if (!szDefault)
            QZ_THROW_STD(QZSTD::Err::NOT_FOUND, std::wstring(wsvSection) + L"/" + std::wstring(wsvKey));
        wstrValue = szDefault;
        eOrigin = QpdValueOrigin::ABSENT;
    }
    if (pOrigin)
        *pOrigin = eOrigin;
    return wstrValue;
}

int32_t QpdFile::GetInt(std::wstring_view wsvSection, std::wstring_view wsvKey, int32_t nDefault) const
{
    return GetIntCompanionFirst([&] { return m_pUtf8Parser->GetInt(wsvSection, wsvKey, nDefault, false); },
                                [&] { return m_pAnsiParser->GetInt(wsvSection, wsvKey, nDefault, true); });
}

}  // namespace QZRI
