// Error codes of the settings storage and of the file services under it (module "QZSS"). Every
// message names the file involved, so a trace line alone tells which storage was at fault.
#pragma once

namespace QZSTD {

namespace SsErr {
inline constexpr const char* MODULE = "QZSS";
enum : int
{
    NOT_XML = 1,             // the file is not well-formed XML
    BAD_CONTENT = 2,         // well-formed XML that is not a settings storage of this format
    TOO_LARGE = 3,           // the file is larger than a storage may be
    READ_ONLY = 4,           // a change through a storage opened read-only
    VALUE_NOT_STORABLE = 5,  // a value that the file format cannot carry (too deep, bad character)
    LOCK_TIMEOUT = 6,        // another process held the lock for the whole wait
    LOCK_FAILED = 7,         // the lock file could not be opened or locked
    READ_FAILED = 8,
    WRITE_FAILED = 9,
    REPLACE_FAILED = 10,  // the new content could not be moved over the old file
    CREATE_FOLDER_FAILED = 11,
};
}  // namespace SsErr

// Registers the "QZSS" message table. Idempotent; every entry point of the storage calls it, so an
// error it raises always has its message.
void RegisterSettingsStorageErrors();

}  // namespace QZSTD
