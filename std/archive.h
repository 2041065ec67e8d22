// Unpacking a downloaded ".zip" or ".cab" archive into a folder, refusing anything that would write
// outside it.
#pragma once

#include <cstddef>
#include <string>

namespace QZSTD {

namespace ArchiveErr {
inline constexpr const char* MODULE = "QZARCHIVE";
enum : int
{
    // The archive could not be read: the reader's text.
    READ_FAILED = 2101,
    // An entry the archive must not hold: its name and why.
    ENTRY_REFUSED = 2102,
    // A file of the archive could not be written.
    WRITE_FAILED = 2103,
};
}  // namespace ArchiveErr

// Unpacks every entry of the archive under wstrDestination (created when missing) and returns how many
// files it wrote. Entries whose name is absolute, names a drive or climbs out with "..", and links or
// special files of any kind, are refused (2102) before anything of theirs is written; an entry whose
// data ends before its declared size ends with the reader's error (2101). Earlier entries stay where
// they were written, always inside wstrDestination.
size_t ExtractArchive(const std::wstring& wstrArchive, const std::wstring& wstrDestination);

}  // namespace QZSTD
