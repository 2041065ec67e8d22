// Error codes of the value tree (module "QZPAR") and of its binary stream format (module "QZPARBIN").
#pragma once

namespace QZPAR {

namespace Err {
inline constexpr const char* MODULE = "QZPAR";
enum : int
{
    WRONG_NAME = 1041,
    WRONG_TYPE = 1042,
    ALREADY_EXISTS = 1043,
    DOES_NOT_EXIST = 1044,
    WRONG_VALUE = 1045,
    WRONG_BUFFER = 1046,
    WRONG_DATE = 1047,
    WRONG_FREE_CALLBACK = 1048,
    WRONG_PARAMS = 1049,
    WRONG_ARRAY = 1050,
};
}  // namespace Err

// Faults found while reading or writing the binary stream. Every reader message names the byte
// offset of the field that was wrong, so a bad file can be inspected with a hex viewer.
namespace BinErr {
inline constexpr const char* MODULE = "QZPARBIN";
enum : int
{
    BAD_MAGIC = 1,
    BAD_VERSION = 2,
    BAD_FLAGS = 3,
    TRUNCATED = 4,
    LENGTH_TOO_LARGE = 5,
    TRAILING_DATA = 6,
    UNKNOWN_TYPE = 7,
    EMPTY_NAME = 8,
    DUPLICATE_NAME = 9,
    BAD_CHARACTER = 10,
    BAD_DATE_TIME = 11,
    BAD_BOOL = 12,
    BAD_COUNT = 13,
    TOO_DEEP = 14,
    TOO_LARGE_TO_WRITE = 15,
    CANNOT_WRITE_FILE = 16,
    CANNOT_READ_FILE = 17,
};
}  // namespace BinErr

// Registers the message tables of both modules. Idempotent. It also runs during static
// initialisation of the library and when the values factory is first used, so any error the tree
// raises already has its message; callers that format errors before touching the tree may call it.
void RegisterErrorTables();

}  // namespace QZPAR
