// Whole-file reads and crash-safe whole-file replacement, with wide paths on every platform
// (UTF-16 on Windows, converted to UTF-8 on POSIX). Failures raise QZSS errors naming the path and
// carrying the system's own text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace QZSTD {

// The file the new content is written to before it replaces wstrPath: wstrPath + ".tmp". The name
// is fixed, so only a caller holding the file's exclusive lock may replace it.
std::wstring TemporaryPathOf(const std::wstring& wstrPath);

// True when wstrPath names an existing file (not a folder).
bool FileExists(const std::wstring& wstrPath);

// Reads the whole file into strData. False (strData empty) when the file does not exist. A file
// larger than nMaxBytes raises TOO_LARGE without being read; other failures raise READ_FAILED.
bool ReadWholeFile(const std::wstring& wstrPath, std::string& strData, size_t nMaxBytes);

// Replaces the file's content so that a crash at any moment leaves either the old or the new
// content: writes the temporary file, flushes it to the disk, moves it over wstrPath (the move
// itself written through) and, on POSIX, flushes the folder so that the move survives a power
// loss. On failure the temporary file is removed and wstrPath is left as it was (WRITE_FAILED or
// REPLACE_FAILED). The caller must hold the file's exclusive lock.
void ReplaceFileContent(const std::wstring& wstrPath, std::string_view svData);

// The folder part of a path ("" when there is none). Both separators count on Windows.
std::wstring ParentFolderOf(const std::wstring& wstrPath);

// Creates the folder and every missing folder above it; existing folders are fine.
// CREATE_FOLDER_FAILED names the folder that could not be created.
void CreateFolderChain(const std::wstring& wstrFolder);

}  // namespace QZSTD
