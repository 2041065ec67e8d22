// The Authenticode check of the executables the agent is about to run: a package's programs must carry
// a valid embedded signature of the publisher "Orvane Lab" whose certificate chains to a root the
// computer trusts (docs/signatures.md).
//
// Windows: WinVerifyTrust on the file's embedded signature, then the signer's certificate read from the
// signature (crypt32), its chain built and judged explicitly (WinVerifyTrust under Wine accepts a
// signer nobody trusts), and the signer's display name compared. Other systems have no such check: the
// answer there is always false, with a trace line that says why, never a pretended pass.
#pragma once

#include <functional>
#include <string>

namespace QZSIGNATURES {

// The publisher whose signature the agent accepts, compared with the signer certificate's simple display
// name (its common name) exactly, case and blanks included.
inline constexpr const wchar_t* QZ_SIGNER_NAME = L"Orvane Lab";

// The one program of a package that is never checked (by its exact file name, in any sub-folder).
inline constexpr const wchar_t* QZ_UNCHECKED_FILE_NAME = L"qzcfginst.exe";

// True only when the file has a valid embedded signature, its signer's chain ends at a trusted root,
// and the signer is QZ_SIGNER_NAME. A missing file, a file that is no signed image or any failure of
// the system's calls gives false with a trace line; nothing is thrown.
bool CheckQZSignatures(const std::wstring& szwExecuteFilePath);

// The signer-name decision: exact, case-sensitive equality with QZ_SIGNER_NAME.
bool IsQZSignerName(const std::wstring& wstrSignerName);

// Whether the folder walk checks a file of this name (a bare name, no folder): names holding ".exe"
// or ".EXE" (only these two spellings, anywhere in the name) except QZ_UNCHECKED_FILE_NAME.
bool IsCheckedFileName(const std::wstring& wstrFileName);

using FileCheck = std::function<bool(const std::wstring& wstrFilePath)>;

// Walks the folder and all its sub-folders and checks every file IsCheckedFileName chooses with
// fnCheck (CheckQZSignatures in the one-argument form). True only when every checked file passes; a
// failure does not stop the walk, so every file is checked and traced. A folder that does not exist or
// cannot be read completely gives false. Paths handed to fnCheck use the platform's separator.
bool CheckQZSignaturesInFolder(const std::wstring& wstrFolder, const FileCheck& fnCheck);
bool CheckQZSignaturesInFolder(const std::wstring& wstrFolder);

}  // namespace QZSIGNATURES
