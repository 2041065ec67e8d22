// Removing incompatible software: the portable part (the engine's calls, the work folder, the result).
#include "qzri/riwrap/competitor.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/ansicp.h"
#include "common/cleanapi.h"
#include "common/inifileparser.h"
#include "common/qpdfile.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/error.h"
#include "std/fspath.h"
#include "std/profile.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRIWRP {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr uint32_t ERROR_CHARS = 1024;
constexpr uint32_t FIRST_LIST_CHARS = 4096;
// No engine list is allowed to grow beyond this (characters): an engine that keeps asking for more is
// broken, not busy.
constexpr uint32_t MAX_LIST_CHARS = 1u << 22;

// The loaded library; freed with the object.
class CleanapiLibrary : public CleanEngine
{
public:
    CleanapiLibrary(void* pModule, PFN_EnumCompetitorSoftwareW pfnEnum,
                    PFN_RemoveCompetitorSoftwareW pfnRemove)
        : m_pModule(pModule), m_pfnEnum(pfnEnum), m_pfnRemove(pfnRemove)
    {
    }
    ~CleanapiLibrary() override { FreeEngineLibrary(m_pModule); }

    bool Enumerate(const std::wstring& wstrIniFolder, std::vector<CompetitorProduct>& vecProducts,
                   std::wstring& wstrError) override
    {
        QZ_TRACE_SCOPE(MODULE, "CleanapiLibrary::Enumerate");
        std::vector<wchar_t> vecList(FIRST_LIST_CHARS);
        wchar_t szError[ERROR_CHARS] = {};
        for (;;) {
            uint32_t nChars = static_cast<uint32_t>(vecList.size());
            uint32_t nEngineVersion = 0;
            const int32_t nResult = m_pfnEnum(QZCLEAN_INTERFACE_VERSION, wstrIniFolder.c_str(),
                                              vecList.data(), &nChars, &nEngineVersion, szError, ERROR_CHARS);
            szError[ERROR_CHARS - 1] = L'\0';
            QZ_TRACE_I(L"%hs: engine version %u, result %d.\n", QZ_SCOPE_NAME, nEngineVersion, nResult);
            if (nResult == QZCLEAN_E_MORE_DATA && nChars > vecList.size() && nChars <= MAX_LIST_CHARS) {
                vecList.resize(nChars);
                continue;
            }
            if (nResult != QZCLEAN_OK) {
                wstrError = szError[0] ? szError : L"the engine answered " + std::to_wstring(nResult);
                return false;
            }
            if (nChars > vecList.size()) {
                wstrError = L"the engine wrote past its list";
                return false;
            }
            try {
                vecProducts = ParseEngineList(vecList.data(), nChars);
            } catch (const QZSTD::QZError&) {
                wstrError = L"the engine's list is malformed";
                return false;
            }
            return true;
        }
    }

    Outcome Remove(const std::wstring& wstrIniFile, const std::wstring& wstrWorkFolder,
                   std::wstring& wstrError) override
    {
        wchar_t szError[ERROR_CHARS] = {};
        const int32_t nResult = m_pfnRemove(QZCLEAN_INTERFACE_VERSION, wstrIniFile.c_str(),
                                            wstrWorkFolder.c_str(), szError, ERROR_CHARS);
        szError[ERROR_CHARS - 1] = L'\0';
        wstrError = szError;
        if (nResult == QZCLEAN_REMOVED)
            return Outcome::REMOVED;
        if (nResult == QZCLEAN_RESTART_NEEDED)
            return Outcome::RESTART_NEEDED;
        if (wstrError.empty())
            wstrError = L"the engine answered " + std::to_wstring(nResult);
        return Outcome::FAILED;
    }

private:
    void* m_pModule;
    PFN_EnumCompetitorSoftwareW m_pfnEnum;
    PFN_RemoveCompetitorSoftwareW m_pfnRemove;
};

std::wstring FileNameOf(const std::wstring& wstrPath)
{
    const size_t nSep = wstrPath.find_last_of(L"\\/");
    return nSep == std::wstring::npos ? wstrPath : wstrPath.substr(nSep + 1);
}

std::wstring StemOf(const std::wstring& wstrPath)
{
    std::wstring wstrName = FileNameOf(wstrPath);
    const size_t nDot = wstrName.rfind(L'.');
    return nDot == std::wstring::npos ? wstrName : wstrName.substr(0, nDot);
}

bool Contains(const std::vector<std::wstring>& vec, const std::wstring& wstr)
{
    return std::find(vec.begin(), vec.end(), wstr) != vec.end();
}

// A product name must be usable as a key of the stat file.
bool IsUsableName(const std::wstring& wstrName)
{
    return !wstrName.empty() && wstrName.find_first_of(L"=\r\n") == std::wstring::npos &&
           wstrName[0] != L'[' && wstrName[0] != L';';
}

// "text a, b." as the result messages are built.
std::wstring ListMessage(const wchar_t* szText, const std::vector<std::wstring>& vecNames)
{
    std::wstring wstr = szText;
    for (const std::wstring& wstrName : vecNames)
        wstr += wstrName + L", ";
    wstr.replace(wstr.size() - 2, 2, L".");
    return wstr;
}

std::wstring WithSeparator(std::wstring wstr)
{
    if (!wstr.empty() && wstr.back() != L'\\' && wstr.back() != L'/')
        wstr += static_cast<wchar_t>(std::filesystem::path::preferred_separator);
    return wstr;
}

}  // namespace

std::vector<CompetitorProduct> ParseEngineList(const wchar_t* pList, size_t nChars)
{
    std::vector<CompetitorProduct> vec;
    size_t n = 0;
    for (;;) {
        QZ_CHECK_ARG(n < nChars, "list");
        if (pList[n] == L'\0')
            return vec;
        const std::wstring wstrName(pList + n, std::find(pList + n, pList + nChars, L'\0'));
        n += wstrName.size() + 1;
        QZ_CHECK_ARG(n < nChars && pList[n] != L'\0', "list");
        const std::wstring wstrIni(pList + n, std::find(pList + n, pList + nChars, L'\0'));
        n += wstrIni.size() + 1;
        QZ_CHECK_ARG(n <= nChars, "list");
        vec.push_back({wstrName, wstrIni});
    }
}

std::vector<std::wstring> ReadSectionKeys(const std::wstring& wstrFile, const wchar_t* szSection)
{
    std::ifstream in(QZSTD::FsPath(wstrFile), std::ios::binary);
    const std::string strBytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
#ifdef _WIN32
    const std::wstring wstrText = QZRI::AnsiToWide(strBytes);
#else
    const std::wstring wstrText = QZSTD::Utf8ToWide(strBytes);
#endif
    std::vector<std::wstring> vecKeys;
    bool bInSection = false;
    size_t nPos = 0;
    while (nPos < wstrText.size()) {
        size_t nEnd = wstrText.find(L'\n', nPos);
        if (nEnd == std::wstring::npos)
            nEnd = wstrText.size();
        std::wstring_view wsvLine(wstrText.data() + nPos, nEnd - nPos);
        nPos = nEnd + 1;
        bool bSection = false;
        std::wstring_view wsvName, wsvValue;
        if (!QZRI::IniFileParser::ParseLine(wsvLine, bSection, wsvName, wsvValue))
            continue;
        if (bSection)
            bInSection = QZRI::IniNamesEqual(wsvName, szSection);
        else if (bInSection && !Contains(vecKeys, std::wstring(wsvName)))
            vecKeys.emplace_back(wsvName);
    }
    return vecKeys;
}

std::unique_ptr<CleanEngine> CheckCleanapiOS(const std::wstring& wstrEnginePath, const OsVersion& os)
{
    QZ_TRACE_SCOPE(MODULE, "QZRIWRP::CheckCleanapiOS");
    if (os.m_nMajor == 5 && os.m_nMinor >= 1 && os.m_nServicePack <= 1) {
        QZ_TRACE_E(L"%hs m_bIsSupportCompetitorSearch is not supported\n", QZ_SCOPE_NAME);
        QZ_THROW_STD(QZSTD::Err::UNSUPPORTED);
    }
    void* pModule = LoadEngineLibrary(wstrEnginePath, true);
    if (!pModule) {
        QZ_TRACE_W(L"Try to load dll by name without path\n");
        pModule = LoadEngineLibrary(FileNameOf(wstrEnginePath), false);
        if (!pModule)
            QZ_THROW_SYSTEM();
    }
    auto pfnEnum =
        reinterpret_cast<PFN_EnumCompetitorSoftwareW>(FindEngineEntry(pModule, "EnumCompetitorSoftwareW"));
    auto pfnRemove = reinterpret_cast<PFN_RemoveCompetitorSoftwareW>(
        FindEngineEntry(pModule, "RemoveCompetitorSoftwareW"));
    if (!pfnEnum || !pfnRemove) {
        const int nError = QZSTD::LastSystemError();
        FreeEngineLibrary(pModule);
        QZ_THROW_SYSTEM_CODE(nError);
    }
    return std::make_unique<CleanapiLibrary>(pModule, pfnEnum, pfnRemove);
}

// ---------------------------------------------------------------------------------------------------------
CRemoveHandler::CRemoveHandler(CleanEngine& engine, std::wstring wstrWorkPath, std::wstring wstrIniFolder)
    : m_engine(engine),
      m_wstrWorkPath(WithSeparator(std::move(wstrWorkPath))),
      m_wstrIniFolder(WithSeparator(std::move(wstrIniFolder)))
{
}

void CRemoveHandler::init()
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::init");
    std::error_code ec;
    std::filesystem::create_directories(QZSTD::FsPath(m_wstrWorkPath), ec);
    if (!std::filesystem::is_directory(QZSTD::FsPath(m_wstrWorkPath))) {
        QZ_TRACE_E(L"%hs: work folder '%ls' cannot be created.\n", QZ_SCOPE_NAME, m_wstrWorkPath);
        QZ_THROW_STD(ERR_WORK_FOLDER, m_wstrWorkPath);
    }
    m_vecShutdown = ReadSectionKeys(StatFile(), SECTION_SHUTDOWN);
}

void CRemoveHandler::CollectIniFilesInfo()
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::CollectIniFilesInfo");
    std::error_code ec;
    std::vector<std::wstring> vecFiles;
    for (std::filesystem::directory_iterator it(QZSTD::FsPath(m_wstrIniFolder), ec), end; !ec && it != end;
         it.increment(ec)) {
        const std::wstring wstrName = it->path().filename().wstring();
        if (wstrName.size() > 4 &&
            QZRI::IniNamesEqual(std::wstring_view(wstrName).substr(wstrName.size() - 4), L".ini"))
            vecFiles.push_back(m_wstrIniFolder + wstrName);
    }
    if (ec)
        QZ_TRACE_E(L"CRemoveHandler::getPrivateProfileKeys - unsuspected return value\n");
    std::sort(vecFiles.begin(), vecFiles.end());
    for (const std::wstring& wstrFile : vecFiles) {
        const std::wstring wstrName = QZSTD::GetProfileString(wstrFile, L"main", L"fullname", L"");
        if (!IsUsableName(wstrName)) {
            QZ_TRACE_W(L"%hs: '%ls' has no usable [main] fullname ('%ls'); ignored.\n", QZ_SCOPE_NAME,
                       wstrFile, wstrName);
            continue;
        }
        m_iniFiles.emplace(wstrName, wstrFile);
    }
}

void CRemoveHandler::Write(const wchar_t* szSection, const std::wstring& wstrName, const wchar_t* szValue)
{
    if (!QZSTD::WriteProfileString(StatFile(), szSection, wstrName.c_str(), szValue))
        QZ_THROW_STD(ERR_WORK_FOLDER, StatFile());
    QZSTD::FlushProfile(StatFile());
}

void CRemoveHandler::DeleteEngineFiles(const std::wstring& wstrIniFile)
{
    const std::wstring wstrPrefix = StemOf(wstrIniFile) + L".";
    std::error_code ec;
    for (std::filesystem::directory_iterator it(QZSTD::FsPath(m_wstrWorkPath), ec), end; !ec && it != end;
         it.increment(ec)) {
        const std::wstring wstrName = it->path().filename().wstring();
        if (wstrName.rfind(wstrPrefix, 0) == 0 && wstrName != STAT_FILE && wstrName != RBTAGT_CMDLINE_FILE) {
            std::error_code ecRemove;
            std::filesystem::remove(it->path(), ecRemove);
        }
    }
}

void CRemoveHandler::cleanWorkPath(const wchar_t* szSection)
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::cleanWorkPath");
    std::vector<std::wstring> vecSettled;
    if (std::wstring_view(szSection) == SECTION_SHUTDOWN) {
        for (const std::wstring& wstrName : ReadSectionKeys(StatFile(), SECTION_SHUTDOWN)) {
            if (Contains(ReadSectionKeys(StatFile(), SECTION_REMOVED), wstrName) ||
                Contains(ReadSectionKeys(StatFile(), SECTION_FAILED), wstrName))
                vecSettled.push_back(wstrName);
        }
    } else {
        vecSettled = ReadSectionKeys(StatFile(), szSection);
    }
    for (const std::wstring& wstrName : vecSettled) {
        const std::wstring wstrIni = QZSTD::GetProfileString(StatFile(), szSection, wstrName.c_str(), L"");
        Write(SECTION_SHUTDOWN, wstrName, nullptr);
        m_vecShutdown.erase(std::remove(m_vecShutdown.begin(), m_vecShutdown.end(), wstrName),
                            m_vecShutdown.end());
        if (!wstrIni.empty())
            DeleteEngineFiles(wstrIni);
    }
}

void CRemoveHandler::fillUnhandledIniFiles()
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::fillUnhandledIniFiles");
    for (const std::wstring& wstrName : m_vecShutdown) {
        const auto it = m_iniFiles.find(wstrName);
        if (it == m_iniFiles.end()) {
            QZ_TRACE_W(L"%hs: warning: product '%ls' found in statfile, but not in ini-folder.\n",
                       QZ_SCOPE_NAME, wstrName);
            continue;
        }
        QZ_TRACE_I(L"%hs: Save in m_unhandledIniFiles '%ls':'%ls'.\n", QZ_SCOPE_NAME, wstrName, it->second);
        m_unhandledIniFiles[wstrName] = it->second;
    }
}

void CRemoveHandler::handleNextCompetitor(const std::wstring& wstrName, const std::wstring& wstrIniFile)
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::handleNextCompetitor");
    QZ_TRACE_I(L"CRemoveHandler::handleNextCompetitor( %s )\n", wstrName);
    if (wstrIniFile.empty() || !std::filesystem::is_regular_file(QZSTD::FsPath(wstrIniFile))) {
        QZ_TRACE_E(L"CRemoveHandler::handleNextCompetitor: file %s isn't exists\n", wstrIniFile);
        return;
    }
    // Recorded before the engine runs: a shutdown or a crash inside the engine leaves it here, and the next
    // run takes it over.
    const std::wstring wstrIniName = FileNameOf(wstrIniFile);
    Write(SECTION_SHUTDOWN, wstrName, wstrIniName.c_str());
    std::wstring wstrError;
    const CleanEngine::Outcome eOutcome = m_engine.Remove(wstrIniFile, m_wstrWorkPath, wstrError);
    const bool bRemoved = eOutcome != CleanEngine::Outcome::FAILED;
    if (bRemoved) {
        QZ_TRACE_I(L"CRemoveHandler::handleNextCompetitor: removed success\n");
        if (eOutcome == CleanEngine::Outcome::RESTART_NEEDED)
            QZ_TRACE_I(L"%hs: '%ls' is finished by a restart.\n", QZ_SCOPE_NAME, wstrName);
    } else {
        QZ_TRACE_E(L"CRemoveHandler::handleNextCompetitor: removed failed\n");
        QZ_TRACE_E(L"%hs: '%ls': %ls\n", QZ_SCOPE_NAME, wstrName, wstrError);
    }
    const wchar_t* szSection = bRemoved ? SECTION_REMOVED : SECTION_FAILED;
    Write(szSection, wstrName, wstrIniName.c_str());
    cleanWorkPath(szSection);
}

void CRemoveHandler::Execute()
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::Execute");
    init();
    CollectIniFilesInfo();
    // This run's outcomes start afresh; products under way stay until they are settled.
    if (!QZSTD::WriteProfileString(StatFile(), SECTION_REMOVED, nullptr, nullptr) ||
        !QZSTD::WriteProfileString(StatFile(), SECTION_FAILED, nullptr, nullptr))
        QZ_THROW_STD(ERR_WORK_FOLDER, StatFile());
    cleanWorkPath(SECTION_SHUTDOWN);
    fillUnhandledIniFiles();
    std::vector<std::wstring> vecDone;
    // A copy: settling a product takes it off m_vecShutdown.
    const std::vector<std::wstring> vecTakenOver = m_vecShutdown;
    for (const std::wstring& wstrName : vecTakenOver) {
        const auto it = m_unhandledIniFiles.find(wstrName);
        if (it == m_unhandledIniFiles.end())
            continue;
        handleNextCompetitor(wstrName, it->second);
        vecDone.push_back(wstrName);
    }
    for (const std::wstring& wstrName : ReadSectionKeys(StatFile(), SECTION_INSTALLED)) {
        if (Contains(vecDone, wstrName))
            continue;
        const auto it = m_iniFiles.find(wstrName);
        handleNextCompetitor(wstrName, it == m_iniFiles.end() ? std::wstring() : it->second);
        vecDone.push_back(wstrName);
    }
}

RemoveResult CRemoveHandler::GetResult(bool bEnumFailed) const
{
    QZ_TRACE_SCOPE(MODULE, "CRemoveHandler::GetResult");
    RemoveResult result;
    if (bEnumFailed) {
        result.m_nResult = CLEANER_RSLT_FAILED;
        result.m_wstrMessageId = L"QZRI_CLEANER_MSG_DATA_API_ERROR";
        result.m_wstrDescription = L"cleanapi error: enum_competitor_software failed.";
        QZ_TRACE_E(L"%hs: GetInstalledSoftwareNames failed, description = '%ls'.\n", QZ_SCOPE_NAME,
                   result.m_wstrDescription);
        return result;
    }
    const std::vector<std::wstring> vecInstalled = ReadSectionKeys(StatFile(), SECTION_INSTALLED);
    const std::vector<std::wstring> vecRemoved = ReadSectionKeys(StatFile(), SECTION_REMOVED);
    const std::vector<std::wstring> vecFailed = ReadSectionKeys(StatFile(), SECTION_FAILED);
    const std::vector<std::wstring> vecShutdown = ReadSectionKeys(StatFile(), SECTION_SHUTDOWN);
    if (vecInstalled.empty() && vecRemoved.empty() && vecFailed.empty() && vecShutdown.empty()) {
        result.m_wstrMessageId = L"QZRI_CLEANER_MSG_DATA_NO_APPS_FOR_DELETE";
        result.m_wstrDescription = L"there are no incompatible applications for delete.";
    }
    const struct
    {
        const std::vector<std::wstring>& m_vec;
        const wchar_t* m_szId;
        const wchar_t* m_szText;
    } lists[] = {
        {vecFailed, L"QZRI_CLEANER_MSG_DATA_APPS_LIST_FAIL_DELETE", L"deletion failed for: "},
        {vecRemoved, L"QZRI_CLEANER_MSG_DATA_APPS_LIST_SUCCESS_DELETE", L"successfully deleted: "},
        {vecShutdown, L"QZRI_CLEANER_MSG_DATA_APPS_LIST_UNKNOWN_DELETE",
         L"unknown status by shutdown reason: "},
    };
    for (const auto& list : lists) {
        if (list.m_vec.empty())
            continue;
        if (result.m_wstrMessageId.empty())
            result.m_wstrMessageId = list.m_szId;
        if (!result.m_wstrDescription.empty())
            result.m_wstrDescription += L" ";
        result.m_wstrDescription += ListMessage(list.m_szText, list.m_vec);
    }
    if (!vecFailed.empty())
        result.m_nResult = CLEANER_RSLT_FAILED;
    else if (!vecShutdown.empty())
        result.m_nResult = CLEANER_RSLT_UNKNOWN;
    // Deliberately: any removal without a failure asks for a restart, since engines do not reliably say
    // when one is needed.
    result.m_bNeedReboot = vecFailed.empty() && !vecRemoved.empty();
    QZ_TRACE_I(L"%hs: bNeedReboot '%d'.\n", QZ_SCOPE_NAME, result.m_bNeedReboot ? 1 : 0);
    return result;
}

// ---------------------------------------------------------------------------------------------------------
std::wstring PackageIniFolder(const std::wstring& wstrPackageFolder)
{
    return WithSeparator(WithSeparator(wstrPackageFolder) + INI_FOLDER);
}

std::wstring SystemWorkPath()
{
    const std::filesystem::path storage = QZSTD::FsPath(QZSTD::GetLocalSettingsStoragePath());
    return WithSeparator(
        (storage.parent_path() / L"1103" / L"1.0.0.0" / WORK_FOLDER).make_preferred().wstring());
}

CompetitorEnv SystemCompetitorEnv(const std::wstring& wstrAgentFile)
{
    CompetitorEnv env;
    env.m_wstrAgentFolder = WithSeparator(QZSTD::FsPath(wstrAgentFile).parent_path().wstring());
    env.m_wstrEnginePath = env.m_wstrAgentFolder + ENGINE_FILE;
    env.m_wstrWorkPath = SystemWorkPath();
    env.m_loadEngine = [](const std::wstring& wstrPath) {
        return CheckCleanapiOS(wstrPath, CurrentOsVersion());
    };
    env.m_startProcess = StartDetached;
    env.m_fileExists = [](const std::wstring& wstrPath) {
        std::error_code ec;
        return std::filesystem::is_regular_file(QZSTD::FsPath(wstrPath), ec);
    };
    return env;
}

CCompetitorSoftwareUninstall::CCompetitorSoftwareUninstall(const QZRI::RiWrpData& data, CompetitorEnv env)
    : m_data(data), m_env(std::move(env))
{
}

bool CCompetitorSoftwareUninstall::IfUninstall()
{
    QZ_TRACE_SCOPE(MODULE, "CCompetitorSoftwareUninstall::IfUninstall");
    const std::wstring wstrProduct =
        m_data.m_pQpd ? m_data.m_pQpd->GetString(PACKAGE_SECTION, L"Product", L"") : std::wstring();
    if (wstrProduct.empty())
        return false;
    QZ_TRACE_I(L"%hs: Uninstall required '%ls', '%ls'.\n", QZ_SCOPE_NAME, PACKAGE_SECTION, wstrProduct);
    return true;
}

bool CCompetitorSoftwareUninstall::PrepareToRemove()
{
    QZ_TRACE_SCOPE(MODULE, "CCompetitorSoftwareUninstall::PrepareToRemove");
    m_pEngine = m_env.m_loadEngine(m_env.m_wstrEnginePath);
    CRemoveHandler handler(*m_pEngine, m_env.m_wstrWorkPath, m_env.m_wstrIniFolder);
    handler.init();
    std::vector<CompetitorProduct> vecProducts;
    std::wstring wstrError;
    m_bEnumFailed = !m_pEngine->Enumerate(m_env.m_wstrIniFolder, vecProducts, wstrError);
    if (m_bEnumFailed) {
        QZ_TRACE_E(L"CCompetitorSoftwareUninstall::PrepareToRemove failed: %ls\n", wstrError);
        return false;
    }
    const std::wstring wstrStat = m_env.m_wstrWorkPath + STAT_FILE;
    if (!QZSTD::WriteProfileString(wstrStat, SECTION_INSTALLED, nullptr, nullptr))
        QZ_THROW_STD(ERR_WORK_FOLDER, wstrStat);
    for (const CompetitorProduct& product : vecProducts) {
        if (!IsUsableName(product.m_wstrName)) {
            QZ_TRACE_W(L"%hs: the engine's name '%ls' is not usable; ignored.\n", QZ_SCOPE_NAME,
                       product.m_wstrName);
            continue;
        }
        QZ_TRACE_I(L"%hs: installed '%ls' (%ls).\n", QZ_SCOPE_NAME, product.m_wstrName,
                   product.m_wstrIniFile);
        if (!QZSTD::WriteProfileString(wstrStat, SECTION_INSTALLED, product.m_wstrName.c_str(),
                                       FileNameOf(product.m_wstrIniFile).c_str()))
            QZ_THROW_STD(ERR_WORK_FOLDER, wstrStat);
    }
    QZSTD::FlushProfile(wstrStat);
    return true;
}

std::vector<std::wstring> CCompetitorSoftwareUninstall::GetInstalledSoftwareNames() const
{
    return ReadSectionKeys(m_env.m_wstrWorkPath + STAT_FILE, SECTION_INSTALLED);
}

int32_t CCompetitorSoftwareUninstall::RemoveProducts(std::wstring& wstrDescription, bool& bNeedReboot)
{
    QZ_TRACE_SCOPE(MODULE, "CCompetitorSoftwareUninstall::RemoveProducts");
    QZ_ASSERT(m_pEngine);
    CRemoveHandler handler(*m_pEngine, m_env.m_wstrWorkPath, m_env.m_wstrIniFolder);
    if (!m_bEnumFailed)
        handler.Execute();
    m_result = handler.GetResult(m_bEnumFailed);
    wstrDescription = m_result.m_wstrDescription;
    bNeedReboot = m_result.m_bNeedReboot;
    QZ_TRACE_I(L"CCompetitorSoftwareUninstall::RemoveProducts desc: %ls\n", wstrDescription);
    return m_result.m_nResult;
}

void CCompetitorSoftwareUninstall::SaveRebootAgentCmdLine(const std::wstring& wstrCmdLine)
{
    QZ_TRACE_SCOPE(MODULE, "CCompetitorSoftwareUninstall::SaveRebootAgentCmdLine");
    QZ_TRACE_I(L"CCompetitorSoftwareUninstall::SaveRebootAgentCmdLine command line: '%ls'\n", wstrCmdLine);
    const std::wstring wstrFile = m_env.m_wstrWorkPath + RBTAGT_CMDLINE_FILE;
    if (!QZSTD::WriteProfileString(wstrFile, L"General", L"CommandLine", wstrCmdLine.c_str()))
        QZ_THROW_STD(ERR_WORK_FOLDER, wstrFile);
    QZSTD::FlushProfile(wstrFile);
}

void CCompetitorSoftwareUninstall::StartRebootAgent()
{
    QZ_TRACE_SCOPE(MODULE, "CCompetitorSoftwareUninstall::StartRebootAgent");
    const std::wstring wstrCmdLine = QZSTD::GetProfileString(m_env.m_wstrWorkPath + RBTAGT_CMDLINE_FILE,
                                                             L"General", L"CommandLine", NO_SAVED_CMDLINE);
    if (wstrCmdLine == NO_SAVED_CMDLINE) {
        QZ_TRACE_E(L"CCompetitorSoftwareUninstall::StartRebootAgent failed. No saved cmdline\n");
        return;
    }
    if (!m_env.m_fileExists(m_env.m_wstrAgentFolder + L"qzrbtagt.exe")) {
        QZ_TRACE_E(L"CCompetitorSoftwareUninstall::StartRebootAgent failed. No rebootagent file\n");
        return;
    }
    QZ_TRACE_I(L"CCompetitorSoftwareUninstall::StartRebootAgent command line: '%ls'\n", wstrCmdLine);
    m_env.m_startProcess(wstrCmdLine);
}

WorkFolderState ReadWorkFolderState(const std::wstring& wstrWorkPath)
{
    const std::wstring wstrWork = WithSeparator(wstrWorkPath);
    const std::wstring wstrStat = wstrWork + STAT_FILE;
    WorkFolderState state;
    state.m_vecInstalled = ReadSectionKeys(wstrStat, SECTION_INSTALLED);
    state.m_vecRemoved = ReadSectionKeys(wstrStat, SECTION_REMOVED);
    state.m_vecFailed = ReadSectionKeys(wstrStat, SECTION_FAILED);
    state.m_vecShutdown = ReadSectionKeys(wstrStat, SECTION_SHUTDOWN);
    state.m_wstrRebootAgentCmdLine =
        QZSTD::GetProfileString(wstrWork + RBTAGT_CMDLINE_FILE, L"General", L"CommandLine", L"");
    return state;
}

}  // namespace QZRIWRP
