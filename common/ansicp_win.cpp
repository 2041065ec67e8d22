// The ANSI code page of the running Windows system.
#include "common/ansicp.h"

#include <windows.h>

#include <climits>

#include "std/error.h"

namespace QZRI {

void AnsiToWide(std::string_view svBytes, std::wstring& wstrOut)
{
    wstrOut.clear();
    if (svBytes.empty())
        return;
    QZ_CHECK_ARG(svBytes.size() <= static_cast<size_t>(INT_MAX), "svBytes");
    const int nBytes = static_cast<int>(svBytes.size());
    const int nChars = MultiByteToWideChar(CP_ACP, 0, svBytes.data(), nBytes, nullptr, 0);
    if (nChars <= 0)
        QZ_THROW_SYSTEM();
    wstrOut.resize(static_cast<size_t>(nChars));
    if (MultiByteToWideChar(CP_ACP, 0, svBytes.data(), nBytes, wstrOut.data(), nChars) != nChars)
        QZ_THROW_SYSTEM();
}

std::wstring AnsiToWide(std::string_view svBytes)
{
    std::wstring wstrResult;
    AnsiToWide(svBytes, wstrResult);
    return wstrResult;
}

std::string WideToAnsi(std::wstring_view wsvText)
{
    if (wsvText.empty())
        return std::string();
    const int nChars = static_cast<int>(wsvText.size());
    const int nBytes = WideCharToMultiByte(CP_ACP, 0, wsvText.data(), nChars, nullptr, 0, "?", nullptr);
    std::string strOut(static_cast<size_t>(nBytes), '\0');
    WideCharToMultiByte(CP_ACP, 0, wsvText.data(), nChars, strOut.data(), nBytes, "?", nullptr);
    return strOut;
}

std::filesystem::path PathFromWide(const std::wstring& wstrPath)
{
    return std::filesystem::path(wstrPath);
}

std::wstring WideFromPath(const std::filesystem::path& path)
{
    return path.native();
}

}  // namespace QZRI
