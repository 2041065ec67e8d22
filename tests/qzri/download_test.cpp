// The package's download step against a stand-in transfer that serves bytes: when it fetches, what it
// refuses, what lands in the package folder, and that "should_download" turns 0 only after success.
#include "qzri/riwrap/download.h"

#ifdef _WIN32
#include <windows.h>  // first, so that its macros rename the profile calls everywhere alike
#endif

#include <gtest/gtest.h>

#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "std/profile.h"
#include "std/pwdstore.h"
#include "std/strconv.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/zipwriter.h"

namespace {

using namespace QZRI;

class ServingTransfer : public Transfer
{
public:
    QZTRANSPORT::Downloaded Download(const std::string& strUrl, const std::wstring& wstrFile,
                                     const QZTRANSPORT::ProxySettings&) override
    {
        m_vecUrls.push_back(strUrl);
        QZTEST::WriteFileBytes(wstrFile, m_strBytes);
        return {m_strBytes.size(), QZTRANSPORT::Sha256OfFile(wstrFile)};
    }
    std::string m_strBytes;
    std::vector<std::string> m_vecUrls;
};

class NoProxy : public ProxySource
{
public:
    QZTRANSPORT::ProxySettings Get() override { return {}; }
};

std::string HashOf(const std::string& strBytes, const QZTEST::TempFolder& folder)
{
    QZTEST::WriteFileBytes(folder.Join(L"hashed"), strBytes);
    return QZTRANSPORT::Sha256OfFile(folder.Join(L"hashed"));
}

TEST(DownloadTest, FetchesVerifiesUnpacksAndCopiesOrRefusesAndTriesAgainNextTime)
{
    struct Row
    {
        const char* szWhat;
        std::string strConfig;  // qzriwrap.cfg; "" for none
        std::string strUrl;
        bool bRightHash;
        std::vector<QZTEST::ZipEntry> vecZip;
        std::string strRelPaths;
        const wchar_t* szFailure;  // the message id; nullptr: success
        bool bFetched;
        std::vector<std::string> vecPackage;  // the package folder afterwards
    };
    const std::string SHOULD = "[qzpkgsrc]\r\nshould_download=1\r\n";
    const std::vector<QZTEST::ZipEntry> ZIP{{"setup.exe", "MZ", ""}, {"bin/tool.ini", "[a]", ""}};
    const Row rows[] = {
        {"no configuration", "", "http://h/p.zip", true, ZIP, "setup.exe", nullptr, false, {"qzpkgsrc.ini"}},
        {"already downloaded",
         "[qzpkgsrc]\r\nshould_download=0\r\n",
         "http://h/p.zip",
         true,
         ZIP,
         "setup.exe",
         nullptr,
         false,
         {"qzpkgsrc.ini", "qzriwrap.cfg"}},
        {"no hash",
         SHOULD,
         "http://h/p.zip",
         false,
         ZIP,
         "setup.exe",
         L"QZRI_MSG_DATA_FILE_VERIFYING_ERROR",
         false,
         {"qzpkgsrc.ini", "qzriwrap.cfg"}},
        {"wrong hash",
         SHOULD,
         "http://h/p.zip",
         false,
         ZIP,
         "setup.exe",
         L"QZRI_MSG_DATA_FILE_VERIFYING_ERROR",
         true,
         {"qzpkgsrc.ini", "qzriwrap.cfg"}},
        {"unpacked and copied",
         SHOULD,
         "http://h/dl/p.ZIP?x=1",
         true,
         ZIP,
         " setup.exe ; bin/tool.ini",
         nullptr,
         true,
         {"bin", "qzpkgsrc.ini", "qzriwrap.cfg", "setup.exe", "unpacked"}},
        {"a named file is missing",
         SHOULD,
         "http://h/p.zip",
         true,
         ZIP,
         "setup.exe;absent.exe",
         L"QZRI_MSG_DATA_FILE_COPY_ERROR",
         true,
         {"qzpkgsrc.ini", "qzriwrap.cfg", "setup.exe", "unpacked"}},
        {"no way to unpack",
         SHOULD,
         "http://h/p.tar",
         true,
         ZIP,
         "setup.exe",
         L"QZRI_MSG_DATA_FILE_COPY_ERROR",
         true,
         {"qzpkgsrc.ini", "qzriwrap.cfg"}},
        {"hostile archive",
         SHOULD,
         "http://h/p.zip",
         true,
         {{"../../evil.exe", "MZ", ""}},
         "evil.exe",
         L"QZRI_MSG_DATA_FILE_COPY_ERROR",
         true,
         {"qzpkgsrc.ini", "qzriwrap.cfg", "unpacked"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szWhat);
        QZTEST::TempFolder folder;
        const std::wstring wstrPkg = folder.MakeSubFolder(L"a/pkg");
        QZTEST::WriteZip(folder.Join(L"served.zip"), row.vecZip);
        ServingTransfer transfer;
        transfer.m_strBytes = QZTEST::ReadFileBytes(folder.Join(L"served.zip"));
        const std::string strHash =
            row.bRightHash ? HashOf(transfer.m_strBytes, folder) : std::string(64, '0');
        if (!row.strConfig.empty())
            QZTEST::WriteFileBytes(wstrPkg + PACKAGE_SOURCE_CONFIG, row.strConfig);
        QZTEST::WriteFileBytes(wstrPkg + PACKAGE_SOURCE_INI,
                               "[source]\r\nurl=" + row.strUrl +
                                   "\r\nsha256=" + (row.szWhat == std::string("no hash") ? "" : strHash) +
                                   "\r\nextract_root=unpacked\r\nrel_paths=" + row.strRelPaths + "\r\n");
        NoProxy proxy;
        QZRITEST::TestServices fakes;
        AgentServices services = fakes.Get();
        services.m_pTransfer = &transfer;
        services.m_pProxy = &proxy;
        RiWrpData data;
        data.m_wstrDirPath = wstrPkg;
        DownloadFailure failure;
        const EResult eResult = CheckAndDownloadExecutableIfNeeded(data, &failure, services);
        EXPECT_EQ(eResult == EResult::SUCCESS, row.szFailure == nullptr);
        if (row.szFailure) {
            EXPECT_STREQ(failure.m_msg.m_szId, row.szFailure);
        }
        EXPECT_EQ(transfer.m_vecUrls.size(), row.bFetched ? 1u : 0u);
        EXPECT_EQ(QZTEST::FileNamesIn(wstrPkg), row.vecPackage);
        EXPECT_EQ(QZTEST::FileNamesIn(folder.Join(L"a")), std::vector<std::string>{"pkg"})
            << "nothing outside";
        const int nShould =
            QZSTD::GetProfileInt(wstrPkg + PACKAGE_SOURCE_CONFIG, L"qzpkgsrc", L"should_download", -1);
        if (!row.strConfig.empty() && row.bFetched) {
            EXPECT_EQ(nShould, row.szFailure ? 1 : 0);
        }
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
    EXPECT_TRUE(proxy.m_bUse && proxy.m_bAuthenticate);
    EXPECT_EQ(proxy.m_wstrLocation, L"proxy.lan:3128");
    EXPECT_EQ(proxy.m_wstrUser, L"agent");
    EXPECT_EQ(proxy.m_wstrPassword, L"Canary-proxy");
    QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", L"");
}

}  // namespace
