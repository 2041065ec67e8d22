// Where the management agent's local settings storage lives on Linux.
#include <cstdlib>

#include "std/ss/settingsstorage.h"
#include "std/strconv.h"

namespace QZSTD {
namespace {

// /var/opt is where the Filesystem Hierarchy Standard puts variable data of packages in /opt.
constexpr const char* LOCAL_SS_DEFAULT_PATH = "/var/opt/qz/settingsstorage/local_ss.xml";

}  // namespace

std::wstring GetLocalSettingsStoragePath()
{
    const char* szOverride = std::getenv(LOCAL_SS_PATH_ENV);
    return Utf8ToWide(szOverride && *szOverride ? szOverride : LOCAL_SS_DEFAULT_PATH);
}

}  // namespace QZSTD
