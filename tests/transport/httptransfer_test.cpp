// The transfer against a real HTTP server (a small Python peer on a free port): the bytes and their
// hash, and the ways a server fails, each ending with its error; a cut transfer keeps what arrived.
#include "transport/httptransfer.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <tuple>

#include "std/strconv.h"
#include "std/trace.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/httppeer.h"

namespace {

// A socket on 127.0.0.1: with port 0, bound, and the free port it got is returned; with another port,
// connected, and 1 is returned when the port accepts.
int LoopbackSocket(int nPort)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(nPort));
    socklen_t nLen = sizeof(addr);
    int nResult = 0;
    if (nPort != 0)
        nResult = connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
    else if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
             getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &nLen) == 0)
        nResult = ntohs(addr.sin_port);
    close(fd);
    return nResult;
}

// squid as a forward proxy that wants Basic authentication (user "agent"), in a folder of its own.
class AuthenticatingProxy
{
public:
    AuthenticatingProxy(const QZTEST::TempFolder& folder, const std::string& strPassword)
    {
        const std::string strDir = QZSTD::WideToUtf8(folder.MakeSubFolder(L"squid"));
        // squid drops to its own user, which must reach its folder.
        chmod(QZSTD::WideToUtf8(folder.Path()).c_str(), 0755);
        chmod(strDir.c_str(), 0777);
        FILE* pHash = popen(("openssl passwd -apr1 '" + strPassword + "'").c_str(), "r");
        char szHash[256] = {};
        if (!pHash || !fgets(szHash, sizeof(szHash), pHash))
            throw std::runtime_error("openssl passwd");
        pclose(pHash);
        QZTEST::WriteFileBytes(QZSTD::Utf8ToWide(strDir + "passwd"), std::string("agent:") + szHash);
        m_nPort = LoopbackSocket(0);
        QZTEST::WriteFileBytes(QZSTD::Utf8ToWide(strDir + "squid.conf"),
                               "http_port 127.0.0.1:" + std::to_string(m_nPort) + "\npid_filename " + strDir +
                                   "squid.pid\ncache_log " + strDir + "cache.log\naccess_log " + strDir +
                                   "access.log\ncoredump_dir " + strDir +
                                   "\ncache deny all\npinger_enable off\nshutdown_lifetime 0 seconds\n"
                                   "auth_param basic program /usr/lib/squid/basic_ncsa_auth " +
                                   strDir +
                                   "passwd\nauth_param basic realm qz\nacl authed proxy_auth REQUIRED\n"
                                   "http_access allow authed\nhttp_access deny all\n");
        m_pid = fork();
        if (m_pid == 0) {
            execlp("squid", "squid", "-N", "-f", (strDir + "squid.conf").c_str(), nullptr);
            _exit(127);
        }
        for (int n = 0; n < 300 && !LoopbackSocket(m_nPort); ++n)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ~AuthenticatingProxy()
    {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    std::wstring Location() const { return L"127.0.0.1:" + std::to_wstring(m_nPort); }

private:
    pid_t m_pid = -1;
    int m_nPort = 0;
};

// Through an authenticating proxy: the right password passes, a wrong one ends with the proxy's 407,
// and the password appears in no trace line.
TEST(HttpTransfer, ThroughAnAuthenticatingProxyWithoutTracingThePassword)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrServed = folder.MakeSubFolder(L"served");
    QZTEST::WriteFileBytes(wstrServed + L"setup.exe", "MZ through the proxy");
    QZTEST::HttpPeer peer(wstrServed);
    AuthenticatingProxy squid(folder, "Canary-px7");
    ASSERT_TRUE(QZSTD::TraceOpen(folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
    QZTRANSPORT::ProxySettings proxy{true, squid.Location(), true, L"agent", L"Canary-px7"};
    const std::wstring wstrOut = folder.Join(L"out.exe");
    EXPECT_EQ(QZTRANSPORT::DownloadFile(peer.Url("/setup.exe"), wstrOut, proxy, {}).m_nBytes, 20u);
    EXPECT_EQ(QZTEST::ReadFileBytes(wstrOut), "MZ through the proxy");
    QZTEST::RemoveAll(wstrOut);
    proxy.m_wstrPassword = L"wrong";
    EXPECT_EQ(QZTEST::ErrorOf([&] { QZTRANSPORT::DownloadFile(peer.Url("/setup.exe"), wstrOut, proxy, {}); })
                  .value_or(QZSTD::QZError("", 0, "", 0, {}))
                  .GetMessage(),
              L"The server answered with HTTP status 407");
    QZSTD::TraceClose();
    const std::string strTrace = QZTEST::ReadFileBytes(folder.Join(L"trace.txt"));
    EXPECT_EQ(strTrace.find("Canary-px7"), std::string::npos);
    EXPECT_NE(strTrace.find("password of 10 characters"), std::string::npos) << strTrace;
}

TEST(HttpTransfer, DownloadsWithTheHashOrFailsWithItsError)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrServed = folder.MakeSubFolder(L"served");
    std::string strData(3 * 1024 * 1024 + 7, '\0');
    for (size_t n = 0; n < strData.size(); ++n)
        strData[n] = static_cast<char>(n * 31 % 251);
    QZTEST::WriteFileBytes(wstrServed + L"pkg.zip", strData);
    QZTEST::HttpPeer peer(wstrServed);
    const std::wstring wstrOut = folder.Join(L"$qzriwrp_downloaded~.tmp");

    uint64_t nLastProgress = 0;
    QZTRANSPORT::TransferOptions options;
    options.m_fnProgress = [&](uint64_t nNow, uint64_t) { nLastProgress = nNow; };
    const QZTRANSPORT::Downloaded done =
        QZTRANSPORT::DownloadFile(peer.Url("/pkg.zip"), wstrOut, {}, options);
    EXPECT_EQ(done.m_nBytes, strData.size());
    EXPECT_EQ(done.m_strSha256, QZTRANSPORT::Sha256OfFile(wstrServed + L"pkg.zip"));
    EXPECT_EQ(QZTEST::ReadFileBytes(wstrOut), strData);
    EXPECT_EQ(nLastProgress, strData.size());

    // What is tried, the url, the error and whether what arrived stays for the next attempt.
    const std::tuple<const char*, std::string, int, bool> rows[] = {
        {"not found", peer.Url("/absent.zip"), QZTRANSPORT::HTTP_STATUS, false},
        {"cut off half-way", peer.Url("/cut/100000"), QZTRANSPORT::TRANSFER_FAILED, true},
        {"stalled", peer.Url("/stall"), QZTRANSPORT::TRANSFER_FAILED, true},
        {"nobody listening", "http://127.0.0.1:1/pkg.zip", QZTRANSPORT::TRANSFER_FAILED, false},
        {"no http", "file:///etc/passwd", QZTRANSPORT::TRANSFER_FAILED, false},
    };
    options.m_lLowSpeedTimeSec = 1;
    QZTEST::RemoveAll(wstrOut);
    for (const auto& [szWhat, strUrl, nCode, bKept] : rows) {
        SCOPED_TRACE(szWhat);
        // Copied into the lambda: clang 14 captures no structured binding.
        EXPECT_EQ(QZTEST::ErrorCodeOf(
                      [&, strUrl = strUrl] { QZTRANSPORT::DownloadFile(strUrl, wstrOut, {}, options); },
                      QZTRANSPORT::MODULE),
                  nCode);
        EXPECT_EQ(QZTEST::PathExists(wstrOut), bKept);
        QZTEST::RemoveAll(wstrOut);
    }
}

// A transfer cut half-way keeps what arrived; the next one goes on from there with a range request, or
// starts afresh where the server ignores ranges; either way the hash is the whole file's.
TEST(HttpTransfer, ACutTransferResumesWhereItStopped)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrServed = folder.MakeSubFolder(L"served");
    std::string strData(1024 * 1024 + 3, '\0');
    for (size_t n = 0; n < strData.size(); ++n)
        strData[n] = static_cast<char>(n * 7 % 253);
    QZTEST::WriteFileBytes(wstrServed + L"pkg.zip", strData);
    const std::string strHash = QZTRANSPORT::Sha256OfFile(wstrServed + L"pkg.zip");
    QZTEST::HttpPeer peer(wstrServed);
    const std::wstring wstrOut = folder.Join(L"out.tmp");
    for (const char* szSecond : {"/pkg.zip", "/norange/pkg.zip"}) {
        SCOPED_TRACE(szSecond);
        EXPECT_EQ(QZTEST::ErrorCodeOf(
                      [&] { QZTRANSPORT::DownloadFile(peer.Url("/cutfile/pkg.zip"), wstrOut, {}, {}); },
                      QZTRANSPORT::MODULE),
                  QZTRANSPORT::TRANSFER_FAILED);
        EXPECT_EQ(QZTEST::ReadFileBytes(wstrOut), strData.substr(0, strData.size() / 2));
        const QZTRANSPORT::Downloaded done = QZTRANSPORT::DownloadFile(peer.Url(szSecond), wstrOut, {}, {});
        EXPECT_EQ(done.m_nResumedFrom, szSecond == std::string("/pkg.zip") ? strData.size() / 2 : 0u);
        EXPECT_EQ(done.m_strSha256, strHash);
        EXPECT_EQ(QZTEST::ReadFileBytes(wstrOut), strData);
        QZTEST::RemoveAll(wstrOut);
    }
}

// HTTPS: a server whose certificate chains to the trusted anchor passes, one under another CA is refused.
TEST(HttpTransfer, AnUntrustedServerIsRefused)
{
    QZTEST::TempFolder folder;
    const std::string strCa = QZSTD::WideToUtf8(folder.Join(L"ca"));
    ASSERT_EQ(std::system(("bash " QZ_MAKE_TEST_CA " '" + strCa + "'").c_str()), 0);
    const std::wstring wstrServed = folder.MakeSubFolder(L"served");
    QZTEST::WriteFileBytes(wstrServed + L"pkg.zip", "over TLS");
    QZTEST::HttpPeer peer(wstrServed, strCa + "/server.pem", strCa + "/server.key");
    QZTRANSPORT::TransferOptions options;
    options.m_wstrCaFile = QZSTD::Utf8ToWide(strCa + "/ca.pem");
    const std::wstring wstrOut = folder.Join(L"out.zip");
    EXPECT_EQ(QZTRANSPORT::DownloadFile(peer.Url("/pkg.zip"), wstrOut, {}, options).m_nBytes, 8u);
    QZTEST::RemoveAll(wstrOut);
    options.m_wstrCaFile = QZSTD::Utf8ToWide(strCa + "/other-ca.pem");
    EXPECT_EQ(
        QZTEST::ErrorCodeOf([&] { QZTRANSPORT::DownloadFile(peer.Url("/pkg.zip"), wstrOut, {}, options); },
                            QZTRANSPORT::MODULE),
        QZTRANSPORT::TRANSFER_FAILED);
    EXPECT_FALSE(QZTEST::PathExists(wstrOut));
}

}  // namespace
