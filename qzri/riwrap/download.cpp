// The package's download step, in the order the agent performs it: is there anything to fetch, the
// hash it must have, the transfer through the proxy, the hash check, unpacking, copying the named
// files into the package folder, and recording that it is done.
#include "qzri/riwrap/download.h"

#include <filesystem>

#include "common/ansicp.h"
#include "common/inifileparser.h"
#include "common/ristrutils.h"
#include "common/rmtinstutils.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/driverservices.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/archive.h"
#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/process/launch.h"
#include "std/profile.h"
#include "std/pwdstore.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
constexpr const char* SCOPE = "CheckAndDownloadExecutableIfNeeded";
// Paths in rel_paths are separated by this character.
constexpr wchar_t REL_PATHS_SEPARATOR = L';';
// How long an extraction command may run.
constexpr long EXTRACT_TIMEOUT_MS = 30 * 60 * 1000;

struct PackageSource
{
    std::wstring m_wstrUrl;
    std::wstring m_wstrSha256;
    std::wstring m_wstrExtractCmd;
    std::wstring m_wstrExtractRoot;
    std::wstring m_wstrRelPaths;
};

std::wstring Native(std::wstring wstrPath)
{
    for (wchar_t& c : wstrPath)
        if (c == L'/' || c == L'\\')
            c = PATH_SEPARATOR;
    return wstrPath;
}

std::wstring InPackage(const RiWrpData& data, const std::wstring& wstrPath)
{
    return IsAbsolutePath(wstrPath) ? Native(wstrPath) : data.m_wstrDirPath + Native(wstrPath);
}

// 0 when the package says there is nothing (more) to download, or there is no configuration.
bool ShouldDownload(const std::wstring& wstrConfig, const AgentServices& services)
{
    if (!services.m_pOs->FileExists(wstrConfig))
        return false;
    return IniFileParser::Create(wstrConfig)->GetInt(L"qzpkgsrc", L"should_download", 1, true) != 0;
}

PackageSource ReadSource(const std::wstring& wstrSourceIni, const AgentServices& services)
{
    PackageSource src;
    if (!services.m_pOs->FileExists(wstrSourceIni))
        return src;
    const auto pIni = IniFileParser::Create(wstrSourceIni);
    src.m_wstrUrl = Trimmed(pIni->GetString(L"source", L"url", L""));
    src.m_wstrSha256 = Trimmed(pIni->GetString(L"source", L"sha256", L""));
    src.m_wstrExtractCmd = pIni->GetString(L"source", L"extract_cmd", L"");
    src.m_wstrExtractRoot = Trimmed(pIni->GetString(L"source", L"extract_root", L""));
    src.m_wstrRelPaths = pIni->GetString(L"source", L"rel_paths", L"");
    return src;
}

EResult Fail(DownloadFailure* pFailure, const RiMessage& msg, int32_t nCode)
{
    pFailure->m_msg = msg;
    pFailure->m_nCode = nCode;
    return EResult::FAILURE;
}

// The hash in either letter case, as a package author may have copied it.
bool SameHash(const std::wstring& wstrExpected, const std::string& strActual)
{
    if (wstrExpected.size() != strActual.size())
        return false;
    for (size_t n = 0; n < strActual.size(); ++n)
        if (static_cast<wchar_t>(towlower(wstrExpected[n])) != static_cast<wchar_t>(strActual[n]))
            return false;
    return true;
}

// Unpacks the download; false (traced) when it could not be.
bool Extract(const RiWrpData& data, const PackageSource& src, const std::wstring& wstrDownloaded,
             const std::wstring& wstrName)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    QZ_TRACE_I(L"%hs: Extract archive...\n", QZ_SCOPE_NAME);
    if (!src.m_wstrExtractCmd.empty()) {
        QZ_TRACE_I(L"Launch extract command '%ls'...\n", src.m_wstrExtractCmd);
        const std::wstring wstrOut = data.m_wstrDirPath + L"$qzriwrp_extract.txt";
        uint32_t nExitCode = 0;
        if (!QZSTD_LaunchSync(src.m_wstrExtractCmd.c_str(), data.m_wstrDirPath.c_str(), wstrOut.c_str(),
                              nullptr, EXTRACT_TIMEOUT_MS, &nExitCode) ||
            nExitCode != 0) {
            QZ_TRACE_E(L"%hs: the extract command failed (exit code %u) or did not end in time.\n",
                       QZ_SCOPE_NAME, nExitCode);
            return false;
        }
    } else if (EndsWithNoCase(wstrName, L".zip") || EndsWithNoCase(wstrName, L".cab")) {
        const std::wstring wstrRoot = InPackage(data, src.m_wstrExtractRoot);
        QZ_TRACE_I(L"%hs: Extract archive '%ls', '%ls'. ", QZ_SCOPE_NAME, wstrDownloaded, wstrRoot);
        const size_t nFiles = QZSTD::ExtractArchive(wstrDownloaded, wstrRoot);
        QZ_TRACE_I(L"%hs: %u file(s) unpacked.\n", QZ_SCOPE_NAME, static_cast<unsigned>(nFiles));
    } else {
        QZ_TRACE_E(
            L"%hs: '%ls' is neither a .zip nor a .cab archive and the package names no extract command.\n",
            QZ_SCOPE_NAME, wstrName);
        QZ_ASSERTION_FAILED("wstrExtractCmd");
    }
    QZ_TRACE_I(L"Extract archive OK\n");
    return true;
}

// Copies each file of rel_paths from extract_root to the same relative path in the package folder.
void CopyFiles(const RiWrpData& data, const PackageSource& src)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    QZ_TRACE_I(L"Files copy...\n");
    const std::wstring wstrRootDir = WithTrailingSeparator(InPackage(data, src.m_wstrExtractRoot));
    size_t nStart = 0;
    while (nStart <= src.m_wstrRelPaths.size()) {
        size_t nEnd = src.m_wstrRelPaths.find(REL_PATHS_SEPARATOR, nStart);
        if (nEnd == std::wstring::npos)
            nEnd = src.m_wstrRelPaths.size();
        const std::wstring wstrRel = Native(Trimmed(src.m_wstrRelPaths.substr(nStart, nEnd - nStart)));
        nStart = nEnd + 1;
        if (wstrRel.empty())
            continue;
        QZ_TRACE_I(L"Files '%ls' copy...\n", wstrRel);
        const std::wstring wstrFrom = wstrRootDir + wstrRel;
        std::error_code ec;
        if (!std::filesystem::is_regular_file(PathFromWide(wstrFrom), ec)) {
            QZ_TRACE_E(L"File '%ls' not found\n", wstrFrom);
            QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrFrom);
        }
        const std::wstring wstrTo = data.m_wstrDirPath + wstrRel;
        std::filesystem::create_directories(PathFromWide(wstrTo).parent_path());
        Copy(wstrFrom, wstrTo, nullptr);
        QZ_TRACE_I(L"File '%ls' copied\n", wstrRel);
    }
    QZ_TRACE_I(L"Files copy OK\n");
}

class CurlTransfer : public Transfer
{
public:
    QZTRANSPORT::Downloaded Download(const std::string& strUrl, const std::wstring& wstrFile,
                                     const QZTRANSPORT::ProxySettings& proxy) override
    {
        QZ_TRACE_SCOPE(MODULE, SCOPE);
        QZTRANSPORT::TransferOptions options;
        unsigned nLastPercent = 0;
        options.m_fnProgress = [&](uint64_t nNow, uint64_t nTotal) {
            const unsigned nPercent = nTotal ? static_cast<unsigned>(nNow * 100 / nTotal) : 0;
            if (nPercent >= nLastPercent + 10) {
                nLastPercent = nPercent;
                QZ_TRACE_D(L"%hs: %u%% of %llu bytes.\n", QZ_SCOPE_NAME, nPercent,
                           static_cast<unsigned long long>(nTotal));
            }
        };
        return QZTRANSPORT::DownloadFile(strUrl, wstrFile, proxy, options);
    }
};

// The management agent's proxy settings, by name, from its section of the local settings storage; no
// storage, section or use flag: a direct connection.
class StorageProxySource : public ProxySource
{
public:
    explicit StorageProxySource(std::wstring wstrStorage) : m_wstrStorage(std::move(wstrStorage)) {}

    QZTRANSPORT::ProxySettings Get() override
    {
        QZ_TRACE_SCOPE(MODULE, SCOPE);
        QZTRANSPORT::ProxySettings proxy;
        QZSTD::CAutoPtr<QZPAR::Params> pSection;
        try {
            pSection = QZSTD::SettingsStorage::OpenReadOnly(m_wstrStorage)
                           ->ReadSection(MANAGEMENT_AGENT_PRODUCT, MANAGEMENT_AGENT_VERSION, PROXY_SECTION);
        } catch (const QZSTD::QZError& e) {
            QZ_TRACE_EXCEPTION_AT(QZSTD::TL_INFO, e);
            QZ_TRACE_I(L"%hs: no proxy settings in '%ls': a direct connection.\n", QZ_SCOPE_NAME,
                       m_wstrStorage);
            return proxy;
        }
        proxy.m_bUse = Bool(pSection.Get(), L"QZNPS_PROXY_USE");
        proxy.m_wstrLocation = String(pSection.Get(), L"QZNPS_PROXY_LOCATION");
        proxy.m_bAuthenticate = Bool(pSection.Get(), L"QZNPS_PROXY_AUTHENTICATE");
        proxy.m_wstrUser = String(pSection.Get(), L"QZNPS_PROXY_USER");
        const std::wstring wstrProtected = String(pSection.Get(), L"QZNPS_PROXYPWD_ENCRYPTED");
        if (proxy.m_bUse && proxy.m_bAuthenticate && !wstrProtected.empty())
            proxy.m_wstrPassword = QZSTD::UnprotectPassword(wstrProtected);
        return proxy;
    }

private:
    static bool Bool(QZPAR::Params* pSection, const wchar_t* szName)
    {
        QZSTD::CAutoPtr<QZPAR::Value> pValue = QZPAR::FindValue(pSection, szName);
        return pValue && pValue->GetType() == QZPAR::Value::BOOL_T && QZPAR::GetBoolValue(pValue.Get());
    }
    static std::wstring String(QZPAR::Params* pSection, const wchar_t* szName)
    {
        QZSTD::CAutoPtr<QZPAR::Value> pValue = QZPAR::FindValue(pSection, szName);
        return pValue && pValue->GetType() == QZPAR::Value::STRING_T ? QZPAR::GetStringValue(pValue.Get())
                                                                     : std::wstring();
    }

    std::wstring m_wstrStorage;
};

}  // namespace

std::unique_ptr<Transfer> CreateCurlTransfer()
{
    return std::make_unique<CurlTransfer>();
}

std::unique_ptr<ProxySource> CreateProxySource(const std::wstring& wstrStorage)
{
    return std::make_unique<StorageProxySource>(wstrStorage);
}

std::wstring DownloadNameOf(const std::string& strUrl)
{
    std::string strPath = strUrl.substr(0, strUrl.find_first_of("?#"));
    const size_t nScheme = strPath.find("://");
    if (nScheme != std::string::npos) {
        const size_t nSlash = strPath.find('/', nScheme + 3);
        strPath = nSlash == std::string::npos ? std::string() : strPath.substr(nSlash);
    }
    return QZSTD::Utf8ToWide(strPath.substr(strPath.rfind('/') + 1));
}

EResult CheckAndDownloadExecutableIfNeeded(RiWrpData& data, DownloadFailure* pFailure,
                                           const AgentServices& services)
{
    QZ_TRACE_SCOPE(MODULE, SCOPE);
    const std::wstring wstrSourceIni = data.m_wstrDirPath + PACKAGE_SOURCE_INI;
    const std::wstring wstrConfig = data.m_wstrDirPath + PACKAGE_SOURCE_CONFIG;
    if (!ShouldDownload(wstrConfig, services)) {
        QZ_TRACE_I(L"%hs: No need to download anything.\n", QZ_SCOPE_NAME);
        return EResult::SUCCESS;
    }
    QZ_TRACE_I(L"%hs: Need to download.\n", QZ_SCOPE_NAME);
    const PackageSource src = ReadSource(wstrSourceIni, services);
    QZ_TRACE_I(L"%hs: url '%ls', sha256 '%ls', extract_cmd '%ls', extract_root '%ls', rel_paths '%ls'.\n",
               QZ_SCOPE_NAME, src.m_wstrUrl, src.m_wstrSha256, src.m_wstrExtractCmd, src.m_wstrExtractRoot,
               src.m_wstrRelPaths);
    // A download is never accepted without a hash to check it against; nor is a source without a url.
    if (src.m_wstrUrl.empty() || src.m_wstrSha256.empty()) {
        QZ_TRACE_E(L"%hs: the package source names no %ls: nothing is downloaded.\n", QZ_SCOPE_NAME,
                   src.m_wstrUrl.empty() ? L"url" : L"sha256");
        return Fail(pFailure, MSG_FILE_VERIFYING_ERROR, QZRI_RSLT_VERIFICATION_FAILED);
    }
    QZ_ASSERT(services.m_pTransfer && services.m_pProxy);
    QZ_TRACE_I(L"Get proxy settings...\n");
    const QZTRANSPORT::ProxySettings proxy = services.m_pProxy->Get();

    const std::wstring wstrDownloaded = data.m_wstrDirPath + DOWNLOADED_FILE;
    const std::string strUrl = QZSTD::WideToUtf8(src.m_wstrUrl);
    QZTRANSPORT::Downloaded done = services.m_pTransfer->Download(strUrl, wstrDownloaded, proxy);
    if (done.m_nResumedFrom > 0 && !SameHash(src.m_wstrSha256, done.m_strSha256)) {
        // What an earlier transfer left was not (the start of) this package: once more from the start.
        QZ_TRACE_W(
            L"%hs: the file went on from an earlier transfer and is not the package's: fetched afresh.\n",
            QZ_SCOPE_NAME);
        services.m_pOs->RemoveFile(wstrDownloaded);
        done = services.m_pTransfer->Download(strUrl, wstrDownloaded, proxy);
    }
    QZ_TRACE_I(L"Download OK\n");

    QZ_TRACE_I(L"%hs: sha256 expected '%ls', downloaded '%hs'.\n", QZ_SCOPE_NAME, src.m_wstrSha256,
               done.m_strSha256);
    if (!SameHash(src.m_wstrSha256, done.m_strSha256)) {
        QZ_TRACE_E(L"%hs: the downloaded file is not the package's: it is removed.\n", QZ_SCOPE_NAME);
        services.m_pOs->RemoveFile(wstrDownloaded);
        return Fail(pFailure, MSG_FILE_VERIFYING_ERROR, QZRI_RSLT_VERIFICATION_FAILED);
    }
    try {
        const bool bExtracted = Extract(data, src, wstrDownloaded, DownloadNameOf(strUrl));
        services.m_pOs->RemoveFile(wstrDownloaded);
        if (!bExtracted)
            return Fail(pFailure, MSG_FILE_COPY_ERROR, QZRI_RSLT_COPY_FAILED);
        CopyFiles(data, src);
    } catch (const std::exception& e) {
        QZSTD::TraceException(MODULE, QZSTD::TL_ERROR, QZ_SCOPE_NAME, e);
        services.m_pOs->RemoveFile(wstrDownloaded);
        return Fail(pFailure, MSG_FILE_COPY_ERROR, QZRI_RSLT_COPY_FAILED);
    }
    const bool bWritten = QZSTD::WriteProfileString(wstrConfig, L"qzpkgsrc", L"should_download", L"0");
    QZSTD::FlushProfile(wstrConfig);
    if (!bWritten)
        QZ_TRACE_E(L"%hs: '%ls' could not be written: the next run downloads again.\n", QZ_SCOPE_NAME,
                   wstrConfig);
    return EResult::SUCCESS;
}

}  // namespace QZRI
