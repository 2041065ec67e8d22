// Portable part of the signature check: the signer-name decision, the choice of files and the folder
// walk. No operating-system signature code lives here.
#include "common/check_signature.h"

#include <filesystem>
#include <system_error>

#include "common/ansicp.h"
#include "std/trace.h"

namespace fs = std::filesystem;

namespace QZSIGNATURES {

bool IsQZSignerName(const std::wstring& wstrSignerName)
{
    return wstrSignerName == QZ_SIGNER_NAME;
}

bool IsCheckedFileName(const std::wstring& wstrFileName)
{
    if (wstrFileName == QZ_UNCHECKED_FILE_NAME)
        return false;
    return wstrFileName.find(L".exe") != std::wstring::npos ||
           wstrFileName.find(L".EXE") != std::wstring::npos;
}

bool CheckQZSignaturesInFolder(const std::wstring& wstrFolder, const FileCheck& fnCheck)
{
    QZ_TRACE_SCOPE("QZRI", "QZSIGNATURES::CheckQZSignaturesInFolder");
    QZ_TRACE_I(L"%hs: Checking the executables in '%ls'.\n", QZ_SCOPE_NAME, wstrFolder);
    std::error_code ec;
    fs::recursive_directory_iterator it(QZRI::PathFromWide(wstrFolder), ec);
    if (ec) {
        // A folder we cannot read may hold programs we would run unchecked.
        QZ_TRACE_E(L"%hs: The folder '%ls' cannot be read: %hs (%d).\n", QZ_SCOPE_NAME, wstrFolder,
                   ec.message(), ec.value());
        return false;
    }
    bool bAllPassed = true;
    int nChecked = 0;
    for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec)
            break;
        const std::wstring wstrName = QZRI::WideFromPath(it->path().filename());
        if (!it->is_regular_file(ec) || !IsCheckedFileName(wstrName))
            continue;
        const std::wstring wstrPath = QZRI::WideFromPath(it->path());
        ++nChecked;
        if (!fnCheck(wstrPath)) {
            QZ_TRACE_E(L"%hs: '%ls' failed the signature check.\n", QZ_SCOPE_NAME, wstrPath);
            bAllPassed = false;
        }
    }
    if (ec) {
        QZ_TRACE_E(L"%hs: The walk through '%ls' stopped: %hs (%d).\n", QZ_SCOPE_NAME, wstrFolder,
                   ec.message(), ec.value());
        bAllPassed = false;
    }
    QZ_TRACE_I(L"%hs: %d file(s) checked, result %hs.\n", QZ_SCOPE_NAME, nChecked,
               bAllPassed ? "true" : "false");
    return bAllPassed;
}

bool CheckQZSignaturesInFolder(const std::wstring& wstrFolder)
{
    return CheckQZSignaturesInFolder(
        wstrFolder, [](const std::wstring& wstrPath) { return CheckQZSignatures(wstrPath); });
}

}  // namespace QZSIGNATURES
