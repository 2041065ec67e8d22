// printf-style formatting of wide strings with the Windows meaning of the string conversions on
// every platform: in a wide format "%s" and "%ls" take a wide string, "%hs" and "%S" a narrow one
// (read as UTF-8), "%c" a wide character and "%hc" a narrow one. glibc's wide printf knows no "%hs"
// and reads "%s" as narrow, so the trace formats could not be shared without this.
#pragma once

#include <cstdarg>
#include <string>

namespace QZSTD {

// Integer conversions take the lengths hh h l ll q j z t and the Windows I, I32 and I64; floating
// conversions take L. "%n" writes nothing. An unknown conversion is copied to the output as it stands.
std::wstring FormatW(const wchar_t* szFormat, ...);
std::wstring FormatWV(const wchar_t* szFormat, va_list args);

}  // namespace QZSTD
