// The transfer against a real HTTP server (a small Python peer on a free port): the bytes and their
// hash, and the ways a server fails, each ending with its error and no file left behind.
#include "transport/httptransfer.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>

#include "std/strconv.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

// The peer serving a folder, stopped at the end.
class HttpPeer
{
public:
    explicit HttpPeer(const std::wstring& wstrFolder)
    {
        int fds[2];
        if (pipe(fds) != 0)
            throw std::runtime_error("pipe");
        m_pid = fork();
        if (m_pid == 0) {
            dup2(fds[1], 1);
            close(fds[0]);
            execlp("python3", "python3", QZ_HTTP_PEER, QZSTD::WideToUtf8(wstrFolder).c_str(), nullptr);
            _exit(127);
        }
        close(fds[1]);
        FILE* pOut = fdopen(fds[0], "r");
        if (!pOut || fscanf(pOut, "%d", &m_nPort) != 1)
            throw std::runtime_error("the HTTP peer did not start");
        fclose(pOut);
    }
    ~HttpPeer()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    std::string Url(const std::string& strPath) const
    {
        return "http://127.0.0.1:" + std::to_string(m_nPort) + strPath;
    }

private:
    pid_t m_pid = -1;
    int m_nPort = 0;
};

TEST(HttpTransfer, DownloadsWithTheHashOrFailsWithoutLeavingAFile)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrServed = folder.MakeSubFolder(L"served");
    std::string strData(3 * 1024 * 1024 + 7, '\0');
    for (size_t n = 0; n < strData.size(); ++n)
        strData[n] = static_cast<char>(n * 31 % 251);
    QZTEST::WriteFileBytes(wstrServed + L"pkg.zip", strData);
    HttpPeer peer(wstrServed);
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

    struct Row
    {
        const char* szWhat;
        std::string strUrl;
        int nCode;
    };
    const Row rows[] = {
        {"not found", peer.Url("/absent.zip"), QZTRANSPORT::HTTP_STATUS},
        {"cut off half-way", peer.Url("/cut/100000"), QZTRANSPORT::TRANSFER_FAILED},
        {"stalled", peer.Url("/stall"), QZTRANSPORT::TRANSFER_FAILED},
        {"nobody listening", "http://127.0.0.1:1/pkg.zip", QZTRANSPORT::TRANSFER_FAILED},
        {"no http", "file:///etc/passwd", QZTRANSPORT::TRANSFER_FAILED},
    };
    options.m_lLowSpeedTimeSec = 1;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szWhat);
        EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZTRANSPORT::DownloadFile(row.strUrl, wstrOut, {}, options); },
                                      QZTRANSPORT::MODULE),
                  row.nCode);
        EXPECT_FALSE(QZTEST::PathExists(wstrOut));
    }
}

}  // namespace
