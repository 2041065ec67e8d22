// The Windows build's transfer (libcurl with Schannel) under Wine, against a TLS server that
// transfer_wine.sh starts on this machine: Wine's Schannel checks no server certificate itself, so the
// trust anchor is given explicitly; the right one passes, another is refused; a cut transfer resumes;
// an authenticating proxy is passed with the right password only.
#include <gtest/gtest.h>

#include "std/par/paramshelpers.h"
#include "std/strconv.h"
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
    // The counts and the hash the transfer reports are HttpTransfer.ACutTransferResumesWhereItStopped's;
    // here the range request goes over Schannel and the file on disk is whole.
    EXPECT_EQ(QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, {}, options).m_nResumedFrom,
              1500000u);
    EXPECT_EQ(QZTRANSPORT::Sha256OfFile(wstrOut), Env("QZ_TEST_SHA256"));
}

// Through squid (a CONNECT tunnel): the right password passes, a wrong one is refused. That the password
// is traced only as its length is HttpTransfer.ThroughAnAuthenticatingProxyWithoutTracingThePassword's.
TEST(HttpTransferUnderWine, ThroughAnAuthenticatingProxy)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrOut = folder.Join(L"out.zip");
    QZTRANSPORT::TransferOptions options;
    options.m_wstrCaFile = QZTEST::GetEnv("QZ_TEST_CA");
    QZTRANSPORT::ProxySettings proxy{true, QZTEST::GetEnv("QZ_TEST_PROXY"), true, L"agent",
                                     QZTEST::GetEnv("QZ_TEST_PROXY_PASSWORD")};
    EXPECT_EQ(QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, proxy, options).m_strSha256,
              Env("QZ_TEST_SHA256"));
    QZTEST::RemoveAll(wstrOut);
    proxy.m_wstrPassword = L"wrong";
    EXPECT_EQ(
        QZTEST::ErrorCodeOf(
            [&] { QZTRANSPORT::DownloadFile(Env("QZ_TEST_URL") + "/pkg.zip", wstrOut, proxy, options); },
            QZTRANSPORT::MODULE),
        QZTRANSPORT::TRANSFER_FAILED);
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
