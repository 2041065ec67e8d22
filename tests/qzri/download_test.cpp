// The package's download step against a stand-in transfer that serves bytes: when it fetches, what it
// refuses, what lands in the package folder, and that "should_download" turns 0 only after success.
#include "qzri/riwrap/download.h"

#ifdef _WIN32
#include <windows.h>  // first, so that its macros rename the profile calls everywhere alike
#endif

#include <gtest/gtest.h>

#include <tuple>

#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/profile.h"
#include "std/pwdstore.h"
#include "std/strconv.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/zipwriter.h"

namespace {

using namespace QZRI;

// Serves m_strBytes; with m_strStale, the first answer goes on from those bytes as if an earlier, cut
// transfer had left them.
class ServingTransfer : public Transfer
{
public:
    QZTRANSPORT::Downloaded Download(const std::string& strUrl, const std::wstring& wstrFile,
                                     const QZTRANSPORT::ProxySettings&) override
    {
        m_vecUrls.push_back(strUrl);
        const std::string strStale = m_vecUrls.size() == 1 ? m_strStale : std::string();
        QZTEST::WriteFileBytes(wstrFile, strStale + m_strBytes);
        return {strStale.size() + m_strBytes.size(), strStale.size(), QZTRANSPORT::Sha256OfFile(wstrFile)};
    }
    std::string m_strBytes;
    std::string m_strStale;
    std::vector<std::string> m_vecUrls;
};

TEST(DownloadTest, FetchesVerifiesUnpacksAndCopiesOrRefusesAndTriesAgainNextTime)
{
    // The hashes given: the served file's (computed below), a wrong one, none.
    const std::string RIGHT = "right", WRONG(64, '0'), NONE;
    // What is tried, should_download in qzriwrap.cfg (-1: no such file), the file named by the URL, the
    // hash given, rel_paths, the failure's message id (nullptr: success), the fetches and the package
    // folder's names afterwards, beside qzpkgsrc.ini.
    using Row = std::tuple<const char*, int, const char*, std::string, const char*, const wchar_t*, size_t,
                           const char*>;
    const wchar_t* VERIFY = L"QZRI_MSG_DATA_FILE_VERIFYING_ERROR";
    const wchar_t* COPY = L"QZRI_MSG_DATA_FILE_COPY_ERROR";
    const Row rows[] = {
        {"no configuration", -1, "p.zip", RIGHT, "setup.exe", nullptr, 0, ""},
        {"already downloaded", 0, "p.zip", RIGHT, "setup.exe", nullptr, 0, " qzriwrap.cfg"},
        {"no hash", 1, "p.zip", NONE, "setup.exe", VERIFY, 0, " qzriwrap.cfg"},
        {"wrong hash", 1, "p.zip", WRONG, "setup.exe", VERIFY, 1, " qzriwrap.cfg"},
        {"unpacked and copied", 1, "dl/p.ZIP?x=1", RIGHT, " setup.exe ; bin/tool.ini", nullptr, 1,
         " bin qzriwrap.cfg setup.exe unpacked"},
        {"a named file is missing", 1, "p.zip", RIGHT, "setup.exe;absent.exe", COPY, 1,
         " qzriwrap.cfg setup.exe unpacked"},
        {"no way to unpack", 1, "p.tar", RIGHT, "setup.exe", COPY, 1, " qzriwrap.cfg"},
        {"stale bytes of an earlier transfer", 1, "p.zip", RIGHT, "setup.exe", nullptr, 2,
         " qzriwrap.cfg setup.exe unpacked"},
    };
    for (const auto& [szWhat, nShouldDownload, szUrlFile, eHash, szRelPaths, szFailure, nFetches, szPackage] :
         rows) {
        SCOPED_TRACE(szWhat);
        QZTEST::TempFolder folder;
        const std::wstring wstrPkg = folder.MakeSubFolder(L"a/pkg");
        QZTEST::WriteZip(folder.Join(L"served.zip"), {{"setup.exe", "MZ", ""}, {"bin/tool.ini", "[a]", ""}});
        ServingTransfer transfer;
        transfer.m_strBytes = QZTEST::ReadFileBytes(folder.Join(L"served.zip"));
        transfer.m_strStale = std::string(szWhat) == "stale bytes of an earlier transfer" ? "stale" : "";
        const std::string strHash =
            eHash == RIGHT ? QZTRANSPORT::Sha256OfFile(folder.Join(L"served.zip")) : eHash;
        if (nShouldDownload >= 0)
            QZTEST::WriteFileBytes(
                wstrPkg + PACKAGE_SOURCE_CONFIG,
                "[qzpkgsrc]\r\nshould_download=" + std::to_string(nShouldDownload) + "\r\n");
        QZTEST::WriteFileBytes(wstrPkg + PACKAGE_SOURCE_INI,
                               "[source]\r\nurl=http://h/" + std::string(szUrlFile) + "\r\nsha256=" +
                                   strHash + "\r\nextract_root=unpacked\r\nrel_paths=" + szRelPaths + "\r\n");
        QZRITEST::NoProxy proxy;
        QZRITEST::TestServices fakes;
        AgentServices services = fakes.Get();
        services.m_pTransfer = &transfer;
        services.m_pProxy = &proxy;
        RiWrpData data;
        data.m_wstrDirPath = wstrPkg;
        DownloadFailure failure;
        const EResult eResult = CheckAndDownloadExecutableIfNeeded(data, &failure, services);
        EXPECT_EQ(eResult == EResult::SUCCESS, szFailure == nullptr);
        EXPECT_STREQ(szFailure ? failure.m_msg.m_szId : nullptr, szFailure);
        EXPECT_EQ(transfer.m_vecUrls.size(), nFetches);
        std::string strNames = "";
        for (const std::string& strName : QZTEST::FileNamesIn(wstrPkg))
            strNames += strName == "qzpkgsrc.ini" ? "" : " " + strName;
        EXPECT_EQ(strNames, szPackage);
        EXPECT_EQ(QZTEST::FileNamesIn(folder.Join(L"a")), std::vector<std::string>{"pkg"})
            << "nothing outside";
        const int nShould =
            QZSTD::GetProfileInt(wstrPkg + PACKAGE_SOURCE_CONFIG, L"qzpkgsrc", L"should_download", -1);
        EXPECT_EQ(nShould, nFetches == 0 ? nShouldDownload : szFailure ? 1 : 0);
    }
}

TEST(DownloadTest, TheDownloadsNameComesFromTheUrlsPath)
{
    EXPECT_EQ(DownloadNameOf("https://h:8443/a/b/pkg.cab?sig=x/y#frag"), L"pkg.cab");
    EXPECT_EQ(DownloadNameOf("http://h/a/"), L"");
    EXPECT_EQ(DownloadNameOf("http://h"), L"");
}

// The proxy the management agent is configured with, its password unprotected only here; no storage or
// no section: a direct connection.
TEST(DownloadTest, TheProxyComesFromTheManagementAgentsSettings)
{
    QZTEST::TempFolder folder;
    QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", folder.Join(L"machine.key"));
    const std::wstring wstrStorage = folder.Join(L"local_ss.xml");
    EXPECT_FALSE(CreateProxySource(wstrStorage)->Get().m_bUse);
    const std::string strProtected = QZSTD::WideToUtf8(QZSTD::ProtectPassword(L"Canary-proxy"));
    QZTEST::WriteFileBytes(
        wstrStorage,
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<settings_storage format=\"1\"><product name=\"1103\">"
        "<version name=\"1.0.0.0\"><section name=\"QZNPS\">"
        "<value name=\"QZNPS_PROXY_USE\" type=\"BOOL_T\" value=\"true\"/>"
        "<value name=\"QZNPS_PROXY_LOCATION\" type=\"STRING_T\" value=\"proxy.lan:3128\"/>"
        "<value name=\"QZNPS_PROXY_AUTHENTICATE\" type=\"BOOL_T\" value=\"true\"/>"
        "<value name=\"QZNPS_PROXY_USER\" type=\"STRING_T\" value=\"agent\"/>"
        "<value name=\"QZNPS_PROXYPWD_ENCRYPTED\" type=\"STRING_T\" value=\"" +
            strProtected + "\"/></section></version></product></settings_storage>\n");
    const QZTRANSPORT::ProxySettings proxy = CreateProxySource(wstrStorage)->Get();
    EXPECT_EQ(std::tuple(proxy.m_bUse, proxy.m_bAuthenticate, proxy.m_wstrLocation, proxy.m_wstrUser,
                         proxy.m_wstrPassword),
              std::tuple(true, true, L"proxy.lan:3128", L"agent", L"Canary-proxy"));
    QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", L"");
}

}  // namespace
