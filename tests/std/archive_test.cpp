// Unpacking archives: what a package ships lands in the folder; whatever would leave it is refused
// before any of it is written.
#include "std/archive.h"

#include <gtest/gtest.h>

#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"
#include "tests/testutil/zipwriter.h"

namespace {

using QZTEST::ZipEntry;

TEST(ExtractArchive, WritesTheFilesOfAZipIntoItsFolder)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrZip = folder.Join(L"pkg.zip");
    QZTEST::WriteZip(wstrZip, {{"setup.exe", "MZ program", ""}, {"./bin/data.ini", "[a]\nb=1\n", ""}});
    EXPECT_EQ(QZSTD::ExtractArchive(wstrZip, folder.Join(L"out")), 2u);
    EXPECT_EQ(QZTEST::ReadFileBytes(folder.Join(L"out/setup.exe")), "MZ program");
    EXPECT_EQ(QZTEST::ReadFileBytes(folder.Join(L"out/bin/data.ini")), "[a]\nb=1\n");
}

TEST(ExtractArchive, RefusesEntriesThatWouldLeaveTheFolderAndDamagedData)
{
    const std::pair<const char*, ZipEntry> rows[] = {
        {"climbs out", {"../evil.txt", "x", ""}},
        {"climbs out later", {"a/../../evil.txt", "x", ""}},
        {"backslashes climb out", {"a\\..\\..\\evil.txt", "x", ""}},
        {"absolute", {"/tmp/evil.txt", "x", ""}},
        {"drive", {"C:/evil.txt", "x", ""}},
        {"symbolic link out", {"link", "", "../../etc"}},
    };
    for (const auto& [szWhat, entry] : rows) {
        SCOPED_TRACE(szWhat);
        QZTEST::TempFolder folder;
        const std::wstring wstrZip = folder.Join(L"bad.zip");
        QZTEST::WriteZip(wstrZip, {entry});
        EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZSTD::ExtractArchive(wstrZip, folder.Join(L"x/out")); },
                                      QZSTD::ArchiveErr::MODULE),
                  QZSTD::ArchiveErr::ENTRY_REFUSED);
        EXPECT_EQ(QZTEST::FileNamesIn(folder.Path()), (std::vector<std::string>{"bad.zip", "x"}));
        EXPECT_EQ(QZTEST::FileNamesIn(folder.Join(L"x")), std::vector<std::string>{"out"});
    }
    // A big file whose data ends early (the archive cut off): the reader's error, not a hang or a crash.
    QZTEST::TempFolder folder;
    const std::wstring wstrZip = folder.Join(L"cut.zip");
    QZTEST::WriteZip(wstrZip, {{"big.bin", std::string(1 << 20, 'a') + std::string(1 << 20, 'b'), ""}});
    const std::string strZip = QZTEST::ReadFileBytes(wstrZip);
    // Not an archive at all: the same.
    for (const std::string& strBad : {strZip.substr(0, strZip.size() / 2), std::string("not an archive")}) {
        QZTEST::WriteFileBytes(wstrZip, strBad);
        EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZSTD::ExtractArchive(wstrZip, folder.Join(L"out")); },
                                      QZSTD::ArchiveErr::MODULE),
                  QZSTD::ArchiveErr::READ_FAILED);
    }
}

}  // namespace
