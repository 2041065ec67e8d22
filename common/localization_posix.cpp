// Lower-casing without a system locale: the ini name fold, the same on every host.
#include "common/inifileparser.h"
#include "common/localization.h"

namespace QZRI {

std::wstring SystemLowerCase(std::wstring wstrText)
{
    for (wchar_t& wch : wstrText)
        wch = FoldIniChar(wch);
    return wstrText;
}

}  // namespace QZRI
