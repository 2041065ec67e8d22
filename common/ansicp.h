// The system's ANSI code page, in which the agent reads ini files that are not marked as UTF-8.
//
// On Windows this is the code page of the running system (CP_ACP). Elsewhere there is no such code
// page, so Windows-1252 is taken as a fixed table: it is the ANSI code page of the Western European
// systems on which the test data was written, and every byte maps to exactly one character, so the
// result does not depend on the host's locale. Undefined bytes of Windows-1252 (0x81, 0x8D, 0x8F,
// 0x90, 0x9D) map to the control characters of the same number, as Windows itself maps them.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace QZRI {

// Decodes bytes of the ANSI code page; never fails (every byte sequence gives some text).
std::wstring AnsiToWide(std::string_view svBytes);
// The same into a buffer the caller keeps (its capacity is reused: no allocation for repeated reads).
void AnsiToWide(std::string_view svBytes, std::wstring& wstrOut);

// Encodes text in the ANSI code page; a character the code page lacks becomes '?'.
std::string WideToAnsi(std::wstring_view wsvText);

// The agent's wide paths as file-system paths and back. Windows takes wide names as they are; on Linux
// names are UTF-8 bytes, and the standard conversion would go through the (usually "C") locale and
// fail on any character outside ASCII.
std::filesystem::path PathFromWide(const std::wstring& wstrPath);
std::wstring WideFromPath(const std::filesystem::path& path);

}  // namespace QZRI
