// Lower-casing as Windows does it for the user's locale.
#include <windows.h>

#include "common/localization.h"

namespace QZRI {

std::wstring SystemLowerCase(std::wstring wstrText)
{
    if (!wstrText.empty())
        CharLowerBuffW(wstrText.data(), static_cast<DWORD>(wstrText.size()));
    return wstrText;
}

}  // namespace QZRI
