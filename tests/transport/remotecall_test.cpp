// Remote calls against a Python peer playing the administration server: the result comes back typed,
// the caller's headers arrive, and each way a server fails ends with its own error.
#include "transport/remotecall.h"

#include <gtest/gtest.h>

#include <tuple>

#include "std/par/paramshelpers.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/httppeer.h"

namespace {

TEST(RemoteCall, TheResultComesBackTypedAndEachFailureHasItsError)
{
    QZTEST::TempFolder folder;
    QZTEST::HttpPeer peer(folder.Path());
    QZTRANSPORT::RemoteEndpoint endpoint;
    endpoint.m_strBase = peer.Url("");
    endpoint.m_vecHeaders = {{"X-QZ-Component", "QZCS_COMPONENT_QZRIWRAP"}};
    QZSTD::CAutoPtr<QZPAR::Params> pArgs = QZPAR::CreateParams();
    QZPAR::SetStringValue(pArgs, L"wstrTaskId", L"T-1");
    QZPAR::SetLongValue(pArgs, L"nBig", INT64_C(1) << 60);
    QZSTD::CAutoPtr<QZPAR::Params> pResult = QZTRANSPORT::CallRemote(endpoint, "SrvRi", "Echo", pArgs);
    QZSTD::CAutoPtr<QZPAR::Params> pEcho = QZPAR::GetParamsValue(pResult, L"PxgRetVal");
    EXPECT_EQ(QZPAR::GetStringValue(pEcho, L"wstrTaskId"), L"T-1");
    EXPECT_EQ(QZPAR::GetLongValue(pEcho, L"nBig"), INT64_C(1) << 60);
    EXPECT_EQ(QZPAR::GetStringValue(pEcho, L"component"), L"QZCS_COMPONENT_QZRIWRAP");
    EXPECT_EQ(QZTRANSPORT::CallRemote(endpoint, "SrvRi", "Nothing", nullptr)->GetSize(), 0);

    // The operation the peer fails, and the module and code of the error.
    const std::tuple<const char*, const char*, int> rows[] = {
        {"Denied", QZTRANSPORT::MODULE, QZTRANSPORT::ACCESS_DENIED},
        {"Old", "QZSTD", 1194},
        {"Broken", QZTRANSPORT::MODULE, QZTRANSPORT::BAD_JSON},
        {"Huge", QZTRANSPORT::MODULE, QZTRANSPORT::BAD_JSON},
        {"Redirect", QZTRANSPORT::MODULE, QZTRANSPORT::HTTP_STATUS},
        {"Unknown", QZTRANSPORT::MODULE, QZTRANSPORT::HTTP_STATUS},
    };
    for (const auto& [szOperation, szModule, nCode] : rows) {
        SCOPED_TRACE(szOperation);
        // Copied into the lambda: clang 14 captures no structured binding.
        EXPECT_EQ(QZTEST::ErrorCodeOf(
                      [&, szOperation = szOperation] {
                          QZTRANSPORT::CallRemote(endpoint, "SrvRi", szOperation, pArgs);
                      },
                      szModule),
                  nCode);
    }
    endpoint.m_strBase = "http://127.0.0.1:1";
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZTRANSPORT::CallRemote(endpoint, "SrvRi", "Echo", pArgs); },
                                  QZTRANSPORT::MODULE),
              QZTRANSPORT::TRANSFER_FAILED);
}

}  // namespace
