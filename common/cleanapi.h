// The interface of the removal engine "cleanapi.dll" (a shared library "libcleanapi.so" elsewhere): the
// library that finds and removes incompatible software for the agent. The agent loads it at run time and
// looks the two entry points up by name; this header is the whole contract between them, and plain C so
// that an engine may be written in any language. docs/removal-engine.md explains it with examples.
//
// Calling convention: __stdcall on 32-bit Windows (WINAPI), the platform's C convention elsewhere. The
// names are exported undecorated ("EnumCompetitorSoftwareW", not "_EnumCompetitorSoftwareW@32"); a MinGW
// engine links with -Wl,--kill-at, an MSVC one with a .def file.
//
// Strings are wchar_t: UTF-16 on Windows, UTF-32 on Linux, null-terminated.
//
// Memory: the caller owns every buffer. Nothing allocated by the engine crosses the boundary, so the two
// sides may use different C runtimes, and nothing has to be freed by the other side.
//
// Versions: the caller passes the interface version it speaks (QZCLEAN_INTERFACE_VERSION of its header).
// An engine serves every version up to its own and answers QZCLEAN_E_VERSION to a newer one; the
// enumeration also returns the engine's own version, so that a newer engine can be told apart (and traced)
// by an older agent. A later version may add entry points or list fields; it never changes these.
//
// Errors: each call takes a caller buffer for the engine's error text (nErrorChars characters with the
// terminating null; the engine cuts a longer text). The engine writes an empty text on success. The text
// is for people; the return value is what the caller decides on.
//
// Threads: the agent calls from one thread, one call at a time. The engine runs in the agent's process: an
// engine that crashes takes the agent with it, which is why the agent records a removal as under way in
// its work folder before it calls RemoveCompetitorSoftwareW.
#ifndef QZ_COMMON_CLEANAPI_H
#define QZ_COMMON_CLEANAPI_H

#include <stdint.h>
#include <wchar.h>

#if defined(_WIN32) && !defined(_WIN64)
#define QZCLEAN_CALL __stdcall
#else
#define QZCLEAN_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define QZCLEAN_INTERFACE_VERSION 1u

// Results of EnumCompetitorSoftwareW.
#define QZCLEAN_OK 0
// The list did not fit: *pnListChars holds the size needed; call again with a larger buffer.
#define QZCLEAN_E_MORE_DATA 234
// The engine cannot enumerate (text in the error buffer).
#define QZCLEAN_E_FAILED 1
// The caller's interface version is newer than the engine's.
#define QZCLEAN_E_VERSION 2
// A bad argument (a null pointer where a buffer is required).
#define QZCLEAN_E_ARGUMENT 87

// Outcomes of RemoveCompetitorSoftwareW (QZCLEAN_E_VERSION and QZCLEAN_E_ARGUMENT as above). Any other
// value is taken as a failed removal.
#define QZCLEAN_REMOVED 0
#define QZCLEAN_REMOVE_FAILED 1
// Removed, but the removal is finished only by a restart of the computer.
#define QZCLEAN_RESTART_NEEDED 3

// Lists the incompatible products installed on this computer that the ini files of szIniFolder describe.
//   nCallerVersion   QZCLEAN_INTERFACE_VERSION
//   szIniFolder      the folder of the product ini files (full path, with or without a final separator)
//   pList            receives, per product found, its display name and the full path of its ini file,
//                    each null-terminated, and one more null at the end ("a\0C:\i\a.ini\0\0"); an empty
//                    list is a single null. May be null when *pnListChars is 0 (asks for the size).
//   pnListChars      in: the characters of pList; out: the characters written, or needed
//   pnEngineVersion  out: the engine's own interface version (written whatever the result)
//   szError          receives the error text (nErrorChars characters, at least 1)
int32_t QZCLEAN_CALL EnumCompetitorSoftwareW(uint32_t nCallerVersion, const wchar_t* szIniFolder,
                                             wchar_t* pList, uint32_t* pnListChars, uint32_t* pnEngineVersion,
                                             wchar_t* szError, uint32_t nErrorChars);
typedef int32_t(QZCLEAN_CALL* PFN_EnumCompetitorSoftwareW)(uint32_t, const wchar_t*, wchar_t*, uint32_t*,
                                                           uint32_t*, wchar_t*, uint32_t);

// Removes the product that the ini file describes, quietly, and waits for the removal to end.
//   szIniFile        full path of the product's ini file (as the enumeration listed it)
//   szWorkFolder     a folder the engine may write per-product files into, named after the ini file's
//                    name without extension ("<name>.log", "<name>.*"); the agent deletes them once the
//                    product's outcome is recorded
//   szError          receives the error text (nErrorChars characters, at least 1)
int32_t QZCLEAN_CALL RemoveCompetitorSoftwareW(uint32_t nCallerVersion, const wchar_t* szIniFile,
                                               const wchar_t* szWorkFolder, wchar_t* szError,
                                               uint32_t nErrorChars);
typedef int32_t(QZCLEAN_CALL* PFN_RemoveCompetitorSoftwareW)(uint32_t, const wchar_t*, const wchar_t*,
                                                             wchar_t*, uint32_t);

#ifdef __cplusplus
}
#endif

#endif
