// Message table of module "QZSS".
#include "std/ss/sserrors.h"

#include "std/error.h"

namespace QZSTD {
namespace {

const ErrorEntry g_ssErrors[] = {
    {SsErr::NOT_XML, L"Settings storage \"%ls\" is not well-formed XML at line %ls: %ls"},
    {SsErr::BAD_CONTENT, L"Settings storage \"%ls\" is malformed at line %ls: %ls"},
    {SsErr::TOO_LARGE, L"Settings storage \"%ls\" is too large (%ls bytes, at most %ls)"},
    {SsErr::READ_ONLY, L"Settings storage \"%ls\" is open read-only"},
    {SsErr::VALUE_NOT_STORABLE, L"Value \"%ls\" cannot be stored in settings storage \"%ls\": %ls"},
    {SsErr::LOCK_TIMEOUT, L"Lock file \"%ls\" is still held by another process after %ls ms"},
    {SsErr::LOCK_FAILED, L"Cannot lock \"%ls\": %ls"},
    {SsErr::READ_FAILED, L"Cannot read \"%ls\": %ls"},
    {SsErr::WRITE_FAILED, L"Cannot write \"%ls\": %ls"},
    {SsErr::REPLACE_FAILED, L"Cannot replace \"%ls\" with \"%ls\": %ls"},
    {SsErr::CREATE_FOLDER_FAILED, L"Cannot create folder \"%ls\": %ls"},
    {0, nullptr},
};

// Registers at start-up as well, for errors formatted before the first call into the storage.
const bool g_bRegistered = (RegisterSettingsStorageErrors(), true);

}  // namespace

void RegisterSettingsStorageErrors()
{
    static const bool bDone = (RegisterErrorTable(SsErr::MODULE, g_ssErrors), true);
    (void)bDone;
}

}  // namespace QZSTD
