#include "qzri/riwrap/uninstallqpd.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <tuple>

#include "tests/testutil/memoryfiles.h"

namespace {

TEST(CUninstallQpd, ResultQpdReplacesThePackagesOwnWhenTheProviderFindsIt)
{
    // The result qpd file named, and the qpd file and folder taken.
    using Row = std::tuple<const wchar_t*, const wchar_t*, const wchar_t*>;
    const Row rows[] = {
        // no result file named: the package's own qpd and folder
        {L"", L"C:\\pkg\\p.qpd", L"C:\\pkg\\"},
        // absolute and found: its folder becomes the working folder
        {L"D:\\Installed\\Prod\\r.qpd", L"D:\\Installed\\Prod\\r.qpd", L"D:\\Installed\\Prod\\"},
        {L"/opt/prod/r.qpd", L"/opt/prod/r.qpd", L"/opt/prod/"},
        // relative: taken against the package's folder
        {L"sub\\r.qpd", L"C:\\pkg\\sub\\r.qpd", L"C:\\pkg\\sub\\"},
        // named but missing: the package's own stays
        {L"D:\\Gone\\r.qpd", L"C:\\pkg\\p.qpd", L"C:\\pkg\\"},
    };
    auto pFiles = QZTEST::MemoryFiles::Create();
    pFiles->m_mapFiles[L"D:\\Installed\\Prod\\r.qpd"] = "[Setup]\r\n";
    pFiles->m_mapFiles[L"/opt/prod/r.qpd"] = "[Setup]\n";
    pFiles->m_mapFiles[L"C:\\pkg\\sub\\r.qpd"] = "[Setup]\r\n";
    for (const auto& [szResult, szWantQpd, szWantDir] : rows) {
        SCOPED_TRACE(std::string(szResult, szResult + wcslen(szResult)));
        QZRI::CUninstallQpd uninstall(L"C:\\pkg\\p.qpd", szResult, pFiles.Get());
        EXPECT_NO_THROW(uninstall.BeforeUninstall());
        EXPECT_EQ(uninstall.GetQpdPath(), szWantQpd);
        EXPECT_EQ(uninstall.GetExecDirPath(), szWantDir);
    }
    // Without a files provider no substitution is made; its absence is reported and the run goes on.
    QZRI::CUninstallQpd uninstall(L"C:\\pkg\\p.qpd", L"D:\\Installed\\r.qpd", nullptr);
    EXPECT_NO_THROW(uninstall.BeforeUninstall());
    EXPECT_EQ(uninstall.GetQpdPath(), L"C:\\pkg\\p.qpd");
}

}  // namespace
