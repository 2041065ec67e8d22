#include "qzri/riwrap/uninstallqpd.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <map>
#include <string>

#include "std/error.h"

namespace {

// Files as the provider sees them; a missing one is 1205 like the real provider.
struct MapFiles : QZRI::FilesProvider
{
    std::map<std::wstring, std::string> m_files;
    long AddRef() override { return 1; }
    long Release() override { return 1; }
    std::string ReadFileContent(const std::wstring& wstrPath) override
    {
        auto it = m_files.find(wstrPath);
        if (it == m_files.end())
            QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrPath);
        return it->second;
    }
    void CopyFileTo(const std::wstring&, const std::wstring&) override {}
};

TEST(CUninstallQpd, ResultQpdReplacesThePackagesOwnWhenItCanBeFound)
{
    struct Row
    {
        const wchar_t* szResult;
        const wchar_t* szWantQpd;
        const wchar_t* szWantDir;
    };
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
    MapFiles files;
    files.m_files[L"D:\\Installed\\Prod\\r.qpd"] = "[Setup]\r\n";
    files.m_files[L"/opt/prod/r.qpd"] = "[Setup]\n";
    files.m_files[L"C:\\pkg\\sub\\r.qpd"] = "[Setup]\r\n";
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.szResult, row.szResult + wcslen(row.szResult)));
        QZRI::CUninstallQpd uninstall(L"C:\\pkg\\p.qpd", row.szResult, &files);
        EXPECT_NO_THROW(uninstall.BeforeUninstall());
        EXPECT_EQ(uninstall.GetQpdPath(), row.szWantQpd);
        EXPECT_EQ(uninstall.GetExecDirPath(), row.szWantDir);
    }
}

TEST(CUninstallQpd, WithoutFilesProviderTheResultFileIsNotUsed)
{
    // The provider is required for a substitution; its absence is reported and the run goes on.
    QZRI::CUninstallQpd uninstall(L"C:\\pkg\\p.qpd", L"D:\\Installed\\r.qpd", nullptr);
    EXPECT_NO_THROW(uninstall.BeforeUninstall());
    EXPECT_EQ(uninstall.GetQpdPath(), L"C:\\pkg\\p.qpd");
}

}  // namespace
