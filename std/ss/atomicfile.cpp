// Portable half of the whole-file services.
#include "std/ss/atomicfile.h"

namespace QZSTD {

std::wstring TemporaryPathOf(const std::wstring& wstrPath)
{
    return wstrPath + L".tmp";
}

}  // namespace QZSTD
