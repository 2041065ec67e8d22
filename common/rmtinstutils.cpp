// Remote-installation helpers on the package folder (see rmtinstutils.h). Portable: std::filesystem
// lists and deletes on both platforms; the copy itself is the platform's (rmtinstutils_platform.h).
#include "common/rmtinstutils.h"

#include <filesystem>
#include <system_error>
#include <vector>

#include "common/ansicp.h"
#include "common/rmtinstutils_platform.h"
#include "std/error.h"
#include "std/trace.h"

namespace QZRI {

namespace fs = std::filesystem;

void Copy(const std::wstring& wstrRemotePath, const std::wstring& wstrLocalPath,
          FilesProvider* pFilesProvider)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::Copy");
    QZ_TRACE_I(L"szwRemoteFilePath = '%ls', szwLocalFilePath = '%ls'", wstrRemotePath, wstrLocalPath);
    if (pFilesProvider) {
        pFilesProvider->CopyFileTo(wstrRemotePath, wstrLocalPath);
        return;
    }
    CopyLocalFile(wstrRemotePath, wstrLocalPath);
}

void CheckDeleteExtraKeys(const std::wstring& wstrPackageFolder)
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::CheckDeleteExtraKeys");
    const fs::path pathFolder = PathFromWide(wstrPackageFolder);
    const fs::path pathInfo = pathFolder / L"$qzpkginf.ini";
    std::error_code ec;
    if (!fs::is_regular_file(pathInfo, ec))
        return;
    const std::vector<std::wstring> vecSections = {L"Properties"};
    const std::wstring wstrKeep =
        IniFileParser::Create(WideFromPath(pathInfo), &vecSections)->GetString(L"Properties", L"Key", L"*");
    if (wstrKeep == L"*")
        return;
    std::vector<fs::path> vecDelete;
    for (fs::directory_iterator it(pathFolder, ec), itEnd; !ec && it != itEnd; it.increment(ec)) {
        const fs::path pathName = it->path().filename();
        // "*.key" as the Windows file search matches it: the extension in any case.
        if (!IniNamesEqual(WideFromPath(pathName.extension()), L".key") || WideFromPath(pathName) == wstrKeep)
            continue;
        std::error_code ecType;
        if (it->is_regular_file(ecType))
            vecDelete.push_back(it->path());
    }
    for (const fs::path& path : vecDelete) {
        std::error_code ecRemove;
        if (!fs::remove(path, ecRemove) || ecRemove)
            QZ_TRACE_W(L"%hs: can't delete '%ls' (%d)\n", QZ_SCOPE_NAME, WideFromPath(path),
                       ecRemove.value());
        else
            QZ_TRACE_I(L"%hs: deleted '%ls'\n", QZ_SCOPE_NAME, WideFromPath(path));
    }
}

}  // namespace QZRI
