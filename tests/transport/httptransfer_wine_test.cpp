// The Windows build's transfer (libcurl with Schannel) under Wine, against a TLS server that
// transfer_wine.sh starts on this machine: Wine's Schannel checks no server certificate itself, so the
// trust anchor is given explicitly; the right one passes, another is refused; a cut transfer resumes;
// an authenticating proxy is passed with the right password only.
#include <gtest/gtest.h>

#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "transport/httptransfer.h"
#include "transport/remotecall.h"

namespace {

std::string Env(const char* szName)
{
    return QZSTD::WideToUtf8(QZTEST::GetEnv(szName));
}

TEST(HttpTransferUnderWine, TheTrustedServerPassesAnotherIsRefusedACutTransferResumes)
{
    ASSERT_FALSE(Env("QZ_TEST_URL").empty()) << "run through tests/transport/transfer_wine.sh";
    QZTEST::TempFolder folder;
    const std::wstring wstrOut = folder.Join(L"$qzriwrp_downloaded~.tmp");
    QZTRANSPORT::TransferOptions options;
    options.m_wstrCaFile = QZTEST::GetEnv("QZ_TEST_OTHER_CA");
    EXPECT_EQ(QZTEST::ErrorCodeOf(
                  [&] { QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, {}, options); },
                  QZTRANSPORT::MODULE),
              QZTRANSPORT::TRANSFER_FAILED);
    EXPECT_FALSE(QZTEST::PathExists(wstrOut));

    options.m_wstrCaFile = QZTEST::GetEnv("QZ_TEST_CA");
    EXPECT_EQ(
        QZTEST::ErrorCodeOf(
            [&] { QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/cutfile/pkg.zip", wstrOut, {}, options); },
            QZTRANSPORT::MODULE),
        QZTRANSPORT::TRANSFER_FAILED);
    EXPECT_EQ(QZTEST::ReadFileBytes(wstrOut).size(), 1500000u);
    const QZTRANSPORT::Downloaded done =
        QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, {}, options);
    EXPECT_EQ(done.m_nResumedFrom, 1500000u);
    EXPECT_EQ(done.m_nBytes, 3000000u);
    EXPECT_EQ(done.m_strSha256, Env("QZ_TEST_SHA256"));
    EXPECT_EQ(QZTRANSPORT::Sha256OfFile(wstrOut), Env("QZ_TEST_SHA256"));
}

// Through squid (a CONNECT tunnel): the right password passes, a wrong one is refused, and the
// password is traced only as its length.
TEST(HttpTransferUnderWine, ThroughAnAuthenticatingProxy)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrOut = folder.Join(L"out.zip");
    QZTRANSPORT::TransferOptions options;
    options.m_wstrCaFile = QZTEST::GetEnv("QZ_TEST_CA");
    QZTRANSPORT::ProxySettings proxy{true, QZTEST::GetEnv("QZ_TEST_PROXY"), true, L"agent",
                                     QZTEST::GetEnv("QZ_TEST_PROXY_PASSWORD")};
    ASSERT_TRUE(QZSTD::TraceOpen(folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
    EXPECT_EQ(QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, proxy, options).m_strSha256,
              Env("QZ_TEST_SHA256"));
    QZTEST::RemoveAll(wstrOut);
    proxy.m_wstrPassword = L"wrong";
    EXPECT_EQ(
        QZTEST::ErrorCodeOf(
            [&] { QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, proxy, options); },
            QZTRANSPORT::MODULE),
        QZTRANSPORT::TRANSFER_FAILED);
    QZSTD::TraceClose();
    const std::string strTrace = QZTEST::ReadFileBytes(folder.Join(L"trace.txt"));
    EXPECT_EQ(strTrace.find(Env("QZ_TEST_PROXY_PASSWORD")), std::string::npos);
    EXPECT_NE(strTrace.find("password of 14 characters"), std::string::npos) << strTrace;
}

// A remote call over TLS: answered under the pinned anchor, refused under another.
TEST(HttpTransferUnderWine, ARemoteCallIsAnsweredOnlyByTheTrustedServer)
{
    QZTRANSPORT::RemoteEndpoint endpoint;
    endpoint.m_strBase = Env("QZ_TEST_URL");
    endpoint.m_wstrServerCert = QZTEST::GetEnv("QZ_TEST_CA");
    QZSTD::CAutoPtr<QZPAR::Params> pArgs = QZPAR::CreateParams();
    QZPAR::SetIntValue(pArgs, L"n", 7);
    QZSTD::CAutoPtr<QZPAR::Params> pResult = QZTRANSPORT::CallRemote(endpoint, "SrvRi", "Echo", pArgs);
    EXPECT_EQ(QZPAR::GetIntValue(QZPAR::GetParamsValue(pResult, L"PxgRetVal"), L"n"), 7);
    endpoint.m_wstrServerCert = QZTEST::GetEnv("QZ_TEST_OTHER_CA");
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZTRANSPORT::CallRemote(endpoint, "SrvRi", "Echo", pArgs); },
                                  QZTRANSPORT::MODULE),
              QZTRANSPORT::TRANSFER_FAILED);
}

}  // namespace
