// Remote-installation helpers on the package folder: copying package files (locally or through the
// package's files provider) and removing surplus key files.
#pragma once

#include <string>

#include "common/inifileparser.h"

namespace QZRI {

// Copies through the provider's copy operation when a provider is given, else as a plain file copy
// that overwrites the local file. Errors: the provider's, or a system error of the copy.
void Copy(const std::wstring& wstrRemotePath, const std::wstring& wstrLocalPath,
          FilesProvider* pFilesProvider);

// Keeps only the key file the package names: when the folder's "$qzpkginf.ini" has [Properties] "Key"
// naming a file, every other "*.key" file in the folder is deleted (names compared exactly, whole
// name). Nothing is deleted when the ini is missing or "Key" is "*" or absent. Files that cannot be
// deleted are traced and left.
void CheckDeleteExtraKeys(const std::wstring& wstrPackageFolder);

}  // namespace QZRI
