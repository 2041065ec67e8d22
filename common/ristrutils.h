// Helpers of the remote-installation agent shared by its modules.
#pragma once

#include <string>
#include <string_view>

namespace QZRI {

// The "$HEX_" form in which values that may hold arbitrary text (a saved command line with quotes,
// line breaks or characters outside the ANSI code page) are stored in ini files: "$HEX_" followed by
// the upper-case hexadecimal digits of the UTF-16LE bytes of the string, high nibble first, two digits
// per byte. "a b" is stored as $HEX_610020006200. Characters above U+FFFF are written as their
// surrogate pairs on every platform. An empty string gives an empty value, without the prefix.
std::wstring EncodeHexString(const std::wstring& wstrValue);

// The reverse. A value that does not start with "$HEX_" (exactly, in upper case) is plain text and is
// returned unchanged; after the prefix, digits may be in either case. A "$HEX_" value that is not a
// whole number of UTF-16 units (digit count not a multiple of four) or holds a character that is not
// a hexadecimal digit raises QZError 1187 (QZSTD) "value" rather than yielding a string the writer
// never wrote. A lone surrogate is kept on Windows and becomes U+FFFD where wchar_t is 32 bits; a
// U+0000 unit is kept as a character of the result.
std::wstring DecodeHexString(const std::wstring& wstrValue);

// The value without the blanks and tabs at its ends (how the agent reads a value someone typed).
std::wstring Trimmed(const std::wstring& wstr);

// What the trace shows in place of a password of nLength characters: "<password of N characters>".
std::wstring MaskedPassword(size_t nLength);

// A command line as it may be traced or stored: the value of every KEY=value word whose key holds "PWD"
// or "PASSWORD" (any case) becomes "<password of N characters>"; everything else, quotes and blanks
// included, stays as it was. Passwords reach setups on their command lines, never the trace.
std::wstring MaskPasswords(const std::wstring& wstrCmdLine);

// A value of a package's ini file as it may be traced: the whole value of a key whose name holds "PWD"
// or "PASSWORD" (any case) becomes "<password of N characters>"; any other value is masked as a command
// line ("MsiProperties=... PROXYPASSWORD=secret").
std::wstring MaskPasswordValue(std::wstring_view wsvKey, const std::wstring& wstrValue);

}  // namespace QZRI
