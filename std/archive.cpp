// The archive reader of the common services, on libarchive.
#include "std/archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "std/error.h"
#include "std/fspath.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZSTD {
namespace {

using ArchivePtr = std::unique_ptr<archive, decltype(&archive_read_free)>;

std::wstring EntryName(archive_entry* pEntry)
{
    if (const wchar_t* wsz = archive_entry_pathname_w(pEntry))
        return wsz;
    const char* sz = archive_entry_pathname(pEntry);
    return sz ? Utf8ToWide(sz) : std::wstring();
}

[[noreturn]] void Refuse(const std::wstring& wstrName, const wchar_t* szWhy)
{
    QZ_THROW(ArchiveErr::MODULE, ArchiveErr::ENTRY_REFUSED, wstrName, szWhy);
}

// The entry's path below the destination, its parts checked one by one.
std::filesystem::path SafeRelativePath(const std::wstring& wstrName)
{
    if (wstrName.empty())
        Refuse(wstrName, L"it has no name");
    if (wstrName[0] == L'/' || wstrName[0] == L'\\')
        Refuse(wstrName, L"its path is absolute");
    std::filesystem::path rel;
    size_t nStart = 0;
    while (nStart <= wstrName.size()) {
        size_t nEnd = wstrName.find_first_of(L"/\\", nStart);
        if (nEnd == std::wstring::npos)
            nEnd = wstrName.size();
        const std::wstring wstrPart = wstrName.substr(nStart, nEnd - nStart);
        if (wstrPart == L"..")
            Refuse(wstrName, L"it climbs out of the folder");
        if (wstrPart.find(L':') != std::wstring::npos)
            Refuse(wstrName, L"it names a drive or a stream");
        if (!wstrPart.empty() && wstrPart != L".")
            rel /= FsPath(wstrPart);
        nStart = nEnd + 1;
    }
    if (rel.empty())
        Refuse(wstrName, L"it has no name");
    return rel;
}

[[noreturn]] void ThrowRead(archive* pArchive)
{
    const char* sz = archive_error_string(pArchive);
    QZ_THROW(ArchiveErr::MODULE, ArchiveErr::READ_FAILED, sz ? sz : "unknown error");
}

void WriteData(archive* pArchive, const std::filesystem::path& path, const std::wstring& wstrName)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        QZ_THROW(ArchiveErr::MODULE, ArchiveErr::WRITE_FAILED, wstrName);
    for (;;) {
        const void* pBlock = nullptr;
        size_t nSize = 0;
        la_int64_t nOffset = 0;
        const int nRet = archive_read_data_block(pArchive, &pBlock, &nSize, &nOffset);
        if (nRet == ARCHIVE_EOF)
            break;
        if (nRet < ARCHIVE_WARN)
            ThrowRead(pArchive);
        out.seekp(static_cast<std::streamoff>(nOffset));
        out.write(static_cast<const char*>(pBlock), static_cast<std::streamsize>(nSize));
        if (!out)
            QZ_THROW(ArchiveErr::MODULE, ArchiveErr::WRITE_FAILED, wstrName);
    }
}

}  // namespace

size_t ExtractArchive(const std::wstring& wstrArchive, const std::wstring& wstrDestination)
{
    QZ_TRACE_SCOPE("QZSTD", "QZSTD::ExtractArchive");
    ArchivePtr pArchive(archive_read_new(), &archive_read_free);
    QZ_ASSERT(pArchive);
    archive_read_support_format_zip(pArchive.get());
    archive_read_support_format_cab(pArchive.get());
#ifdef _WIN32
    const int nOpen = archive_read_open_filename_w(pArchive.get(), wstrArchive.c_str(), 64 * 1024);
#else
    const int nOpen = archive_read_open_filename(pArchive.get(), WideToUtf8(wstrArchive).c_str(), 64 * 1024);
#endif
    if (nOpen != ARCHIVE_OK)
        ThrowRead(pArchive.get());
    const std::filesystem::path root = FsPath(wstrDestination);
    std::filesystem::create_directories(root);
    size_t nFiles = 0;
    archive_entry* pEntry = nullptr;
    for (;;) {
        const int nRet = archive_read_next_header(pArchive.get(), &pEntry);
        if (nRet == ARCHIVE_EOF)
            break;
        if (nRet < ARCHIVE_WARN)
            ThrowRead(pArchive.get());
        const std::wstring wstrName = EntryName(pEntry);
        const std::filesystem::path rel = SafeRelativePath(wstrName);
        if (archive_entry_hardlink(pEntry) || archive_entry_symlink(pEntry))
            Refuse(wstrName, L"it is a link");
        const mode_t eType = archive_entry_filetype(pEntry);
        if (eType == AE_IFDIR) {
            std::filesystem::create_directories(root / rel);
            continue;
        }
        if (eType != AE_IFREG)
            Refuse(wstrName, L"it is no plain file");
        QZ_TRACE_D(L"%hs: '%ls'.\n", QZ_SCOPE_NAME, wstrName);
        WriteData(pArchive.get(), root / rel, wstrName);
#ifndef _WIN32
        // A setup program unpacked here must stay a program; nothing more than the owner's write right.
        std::error_code ec;
        std::filesystem::permissions(root / rel,
                                     static_cast<std::filesystem::perms>(archive_entry_perm(pEntry) & 0755) |
                                         std::filesystem::perms::owner_read |
                                         std::filesystem::perms::owner_write,
                                     ec);
#endif
        ++nFiles;
    }
    return nFiles;
}

namespace {
const ErrorEntry g_archiveErrors[] = {
    {ArchiveErr::READ_FAILED, L"The archive could not be read: %hs"},
    {ArchiveErr::ENTRY_REFUSED, L"The archive's entry \"%ls\" is refused: %ls"},
    {ArchiveErr::WRITE_FAILED, L"The archive's file \"%ls\" could not be written"},
    {0, nullptr},
};
const bool g_bRegistered = (RegisterErrorTable(ArchiveErr::MODULE, g_archiveErrors), true);
}  // namespace

}  // namespace QZSTD
