// Portable part of the localisation lookup (see localization.h); the lower-casing is the platform's
// (localization_win.cpp, localization_posix.cpp).
#include "common/localization.h"

#include <filesystem>

#include "common/ansicp.h"
#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/trace.h"

namespace QZRI {

namespace fs = std::filesystem;

QZSTD::CAutoPtr<QZPAR::Params> GetLocalizationData(const std::wstring& wstrAgentFolder)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::GetLocalizationData");
    const std::wstring wstrPath = WideFromPath(PathFromWide(wstrAgentFolder) / c_szLocalizationDataFile);
    QZ_TRACE_I(L"%hs: Localization data : %ls", QZ_SCOPE_NAME, wstrPath);
    return QZPAR::ReadParamsFile(wstrPath);
}

std::wstring GetLanguageTagFromLocalizationData(const std::wstring& wstrAgentFolder)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::GetLanguageTagFromLocalizationData");
    std::wstring wstrLanguageTag;
    try {
        QZSTD::CAutoPtr<QZPAR::Params> pData = GetLocalizationData(wstrAgentFolder);
        wstrLanguageTag = QZPAR::GetStringValue(pData.Get(), c_szServerLanguageTag, std::wstring_view());
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION_AT(::QZSTD::TL_WARNING, e);
    }
    QZ_TRACE_I(L"%hs: wstrLanguageTag %ls", QZ_SCOPE_NAME, wstrLanguageTag);
    return wstrLanguageTag;
}

std::wstring GetQpdLocIniFile(const std::wstring& wstrQpdPath, const std::wstring& wstrAgentFolder)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::GetQpdLocIniFile");
    const fs::path pathSource = PathFromWide(wstrQpdPath).parent_path();
    const std::wstring wstrLanguageTag = GetLanguageTagFromLocalizationData(wstrAgentFolder);
    const fs::path pathLocFolder = pathSource / c_szQpdLocFolder;
    const fs::path pathLocIni = pathLocFolder / PathFromWide(SystemLowerCase(wstrLanguageTag) + L".ini");
    const std::wstring wstrLocIniFile = WideFromPath(pathLocIni);
    QZ_TRACE_I(L"%hs: wstrLanguageTag %ls  wstrSourcePath %ls wstrQpdLocFolder %ls wstrLocIniFile %ls",
               QZ_SCOPE_NAME, wstrLanguageTag, WideFromPath(pathSource), WideFromPath(pathLocFolder),
               wstrLocIniFile);
    return wstrLocIniFile;
}

}  // namespace QZRI
