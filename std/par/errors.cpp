// Message tables of the value tree and of its binary stream format.
#include "std/par/errors.h"

#include "std/error.h"

namespace QZPAR {
namespace {

const QZSTD::ErrorEntry g_parErrors[] = {
    {Err::WRONG_NAME, L"Wrong name of parameter \"%ls\""},
    {Err::WRONG_TYPE, L"Wrong type of parameter \"%ls\" value"},
    {Err::ALREADY_EXISTS, L"Parameter with name \"%ls\" already exists"},
    {Err::DOES_NOT_EXIST, L"Parameter with name \"%ls\" does not exist"},
    {Err::WRONG_VALUE, L"Wrong value"},
    {Err::WRONG_BUFFER, L"Wrong buffer for BinaryValue"},
    {Err::WRONG_DATE, L"Wrong date value \"%ls\""},
    {Err::WRONG_FREE_CALLBACK, L"Wrong callback to free buffer"},
    {Err::WRONG_PARAMS, L"Wrong params value"},
    {Err::WRONG_ARRAY, L"Wrong array value"},
    {0, nullptr},
};

const QZSTD::ErrorEntry g_binErrors[] = {
    {BinErr::BAD_MAGIC, L"Not a Params stream: bad signature at offset %ls"},
    {BinErr::BAD_VERSION, L"Unsupported Params stream version %ls at offset %ls"},
    {BinErr::BAD_FLAGS, L"Unsupported Params stream flags %ls at offset %ls"},
    {BinErr::TRUNCATED, L"Params stream truncated: %ls needs %ls bytes at offset %ls, %ls left"},
    {BinErr::LENGTH_TOO_LARGE, L"Declared length %ls at offset %ls exceeds the %ls bytes left"},
    {BinErr::TRAILING_DATA, L"Params stream has %ls bytes of trailing data at offset %ls"},
    {BinErr::UNKNOWN_TYPE, L"Unknown value type %ls at offset %ls"},
    {BinErr::EMPTY_NAME, L"Empty parameter name at offset %ls"},
    {BinErr::DUPLICATE_NAME, L"Duplicate parameter name \"%ls\" at offset %ls"},
    {BinErr::BAD_CHARACTER, L"NUL character inside %ls at offset %ls"},
    {BinErr::BAD_DATE_TIME, L"Invalid DateTime value %ls at offset %ls"},
    {BinErr::BAD_BOOL, L"Invalid %ls byte %ls at offset %ls"},
    {BinErr::BAD_COUNT, L"Count %ls at offset %ls cannot fit in the %ls bytes left"},
    {BinErr::TOO_DEEP, L"Params nested deeper than %ls levels at offset %ls"},
    {BinErr::TOO_LARGE_TO_WRITE, L"Params stream of %ls bytes is too large for the format"},
    {BinErr::CANNOT_WRITE_FILE, L"Cannot write Params file \"%ls\""},
    {BinErr::CANNOT_READ_FILE, L"Cannot read Params file \"%ls\""},
    {0, nullptr},
};

// Errors can be raised by code that runs during static initialisation of other files, so the
// tables are registered as early as this library is linked in.
const bool g_bRegistered = (RegisterErrorTables(), true);

}  // namespace

void RegisterErrorTables()
{
    QZSTD::RegisterErrorTable(Err::MODULE, g_parErrors);
    QZSTD::RegisterErrorTable(BinErr::MODULE, g_binErrors);
}

}  // namespace QZPAR
