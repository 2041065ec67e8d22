// Writes zip archives for the tests, hostile ones included (names that climb out, links). Header-only:
// a test that includes it links qz::archive.
#pragma once

#include <archive.h>
#include <archive_entry.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "std/strconv.h"

namespace QZTEST {

struct ZipEntry
{
    std::string m_strName;
    std::string m_strData;
    // A symbolic link to this target when not empty.
    std::string m_strLinkTarget;
    int m_nPerm = 0644;
};

inline void WriteZip(const std::wstring& wstrPath, const std::vector<ZipEntry>& vecEntries)
{
    archive* pZip = archive_write_new();
    archive_write_set_format_zip(pZip);
    if (archive_write_open_filename(pZip, QZSTD::WideToUtf8(wstrPath).c_str()) != ARCHIVE_OK)
        throw std::runtime_error("cannot write the zip");
    for (const ZipEntry& e : vecEntries) {
        archive_entry* pEntry = archive_entry_new();
        archive_entry_set_pathname(pEntry, e.m_strName.c_str());
        archive_entry_set_perm(pEntry, static_cast<__LA_MODE_T>(e.m_nPerm));
        if (e.m_strLinkTarget.empty()) {
            archive_entry_set_filetype(pEntry, AE_IFREG);
            archive_entry_set_size(pEntry, static_cast<la_int64_t>(e.m_strData.size()));
        } else {
            archive_entry_set_filetype(pEntry, AE_IFLNK);
            archive_entry_set_symlink(pEntry, e.m_strLinkTarget.c_str());
        }
        archive_write_header(pZip, pEntry);
        if (!e.m_strData.empty())
            archive_write_data(pZip, e.m_strData.data(), e.m_strData.size());
        archive_entry_free(pEntry);
    }
    archive_write_close(pZip);
    archive_write_free(pZip);
}

}  // namespace QZTEST
