// Private-profile (ini) files: the persistent state of the agent in the package folder and the ini files
// of packages and helper programs.
//
// On Windows these are thin wrappers over GetPrivateProfileStringW, GetPrivateProfileIntW and
// WritePrivateProfileStringW. Elsewhere a module of its own behaves the same way:
// - sections and keys match without regard to case (ASCII letters; other characters must match exactly);
// - values are read with surrounding blanks removed and one pair of matching surrounding quotes
//   ('...' or "...") removed; the first matching section and its first matching key count;
// - a write changes only the line concerned: comments, unknown lines, other sections and the order stay;
//   a new key goes after the last non-blank line of its section, a new section at the end of the file;
//   the file is created by the first write; lines are written with CRLF, CRLF and LF are both read;
// - lines without '=' are not keys.
// Encoding: Windows reads and writes the ANSI code page (and UTF-16 files that start with a BOM). The
// module for other systems reads and writes UTF-8 (a UTF-8 BOM is skipped and kept): Linux has no ANSI
// code page, and UTF-8 round-trips every value. It does not read UTF-16 files; text that needs to
// survive any code page is stored "$HEX_"-encoded by the callers anyway.
// Writes there replace the file atomically (a temporary file beside it, then a rename), so a crash in the
// middle of a write leaves the previous content; writes within one process are serialised.
//
// Paths must be full paths: Windows looks for a bare file name in the Windows directory.
//
// Bad arguments raise QZError 1187 (QZSTD) with the argument's name on every platform: an empty path,
// a null section, a null key when reading, nBufChars outside 1..PROFILE_MAX_BUF_CHARS, a line break in
// a section, key or value (it would split the line and plant other keys), and a key containing '=' or
// starting with '['. A file that cannot be read gives the defaults; a file that cannot be written
// makes WriteProfileString return false.
#pragma once

#include <cstddef>
#include <string>

#include "std/error.h"

// <windows.h> defines these names as macros for the win.ini functions, which the agent never uses.
#ifdef GetProfileString
#undef GetProfileString
#endif
#ifdef GetProfileInt
#undef GetProfileInt
#endif
#ifdef WriteProfileString
#undef WriteProfileString
#endif

namespace QZSTD {

inline constexpr size_t PROFILE_MAX_BUF_CHARS = 1u << 20;

// The value of [szSection] szKey, or szDefault (nullptr: "") without its trailing blanks when the key,
// the section or the file is missing. Like the Win32 buffer of nBufChars characters, the result holds
// at most nBufChars - 1 characters and is cut there.
std::wstring GetProfileString(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                              const wchar_t* szDefault, size_t nBufChars = 4096);

// The value read as an integer the way Windows does it: leading blanks, an optional sign, then digits
// up to the first character that is not one; "0x" introduces hexadecimal ("0o" octal, "0b" binary);
// the result wraps modulo 2^32 and only the first 29 characters are read. A missing or empty value
// gives nDefault; a value without leading digits ("abc") gives 0.
int GetProfileInt(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey, int nDefault);

// Sets [szSection] szKey=szValue. szValue nullptr deletes the key, szKey nullptr deletes the whole
// section. Deleting what does not exist succeeds. False when the file could not be written.
bool WriteProfileString(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                        const wchar_t* szValue);

// Makes what WriteProfileString wrote reach the file before the file is moved or read by another
// process. Windows keeps a cache of recently written ini files; elsewhere every write reaches the file
// at once and this does nothing.
void FlushProfile(const std::wstring& wstrFile);

namespace ProfileArgs {

inline bool HasLineBreak(const wchar_t* sz)
{
    for (; sz && *sz; ++sz)
        if (*sz == L'\r' || *sz == L'\n')
            return true;
    return false;
}

inline bool IsSafeKey(const wchar_t* szKey)
{
    const wchar_t* p = szKey;
    while (*p == L' ' || *p == L'\t')
        ++p;
    if (*p == L'[')
        return false;
    for (; *p; ++p)
        if (*p == L'=')
            return false;
    return !HasLineBreak(szKey);
}

inline void CheckRead(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                      size_t nBufChars)
{
    QZ_CHECK_ARG(!wstrFile.empty(), "wstrFile");
    QZ_CHECK_ARG(szSection != nullptr, "szSection");
    QZ_CHECK_ARG(szKey != nullptr, "szKey");
    QZ_CHECK_ARG(nBufChars >= 1 && nBufChars <= PROFILE_MAX_BUF_CHARS, "nBufChars");
}

inline void CheckWrite(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                       const wchar_t* szValue)
{
    QZ_CHECK_ARG(!wstrFile.empty(), "wstrFile");
    QZ_CHECK_ARG(szSection != nullptr && !HasLineBreak(szSection), "szSection");
    QZ_CHECK_ARG(szKey == nullptr || IsSafeKey(szKey), "szKey");
    QZ_CHECK_ARG(!HasLineBreak(szValue), "szValue");
}

}  // namespace ProfileArgs

}  // namespace QZSTD
