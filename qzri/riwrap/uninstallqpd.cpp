#include "qzri/riwrap/uninstallqpd.h"

#include <utility>

#include "qzri/riwrap/agentos.h"
#include "std/error.h"
#include "std/trace.h"

namespace QZRI {
namespace {

// The folder of a file with its trailing separator ("" for a bare name).
std::wstring FolderOf(const std::wstring& wstrPath)
{
    const size_t nPos = wstrPath.find_last_of(L"\\/");
    return nPos == std::wstring::npos ? std::wstring() : wstrPath.substr(0, nPos + 1);
}

}  // namespace

CUninstallQpd::CUninstallQpd(std::wstring wstrQpdPath, std::wstring wstrResultQpdPath,
                             FilesProvider* pFilesProvider)
    : m_wstrQpdPath(std::move(wstrQpdPath)),
      m_wstrResultQpdPath(std::move(wstrResultQpdPath)),
      m_wstrExecDirPath(FolderOf(m_wstrQpdPath)),
      m_pFilesProvider(pFilesProvider)
{
}

std::wstring CUninstallQpd::ResultQpdFilePath() const
{
    return m_wstrResultQpdPath;
}

void CUninstallQpd::BeforeUninstall()
{
    QZ_TRACE_SCOPE("QZRI", "CUninstallQpd::BeforeUninstall");
    const std::wstring wstrPath = ResultQpdFilePath();
    QZ_TRACE_I(L"Result qpd file path: %ls\n", wstrPath.c_str());
    if (wstrPath.empty())
        return;
    try {
        SubstituteResultQpd(wstrPath);
        QZ_TRACE_I(L"Result executive directory path: %ls\n", m_wstrExecDirPath.c_str());
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION(e);
        QZ_TRACE_W(L"Can't substitute result qpd file...\n");
    }
}

void CUninstallQpd::SubstituteResultQpd(std::wstring wstrPath)
{
    QZ_TRACE_SCOPE("QZRI", "CUninstallQpd::SubstituteResultQpd");
    if (!m_pFilesProvider)
        QZ_ASSERTION_FAILED("!m_pFilesProvider");
    if (!IsAbsolutePath(wstrPath)) {
        wstrPath = FolderOf(m_wstrQpdPath) + wstrPath;
        QZ_TRACE_I(L"Rewriting qpd file path: %ls\n", wstrPath.c_str());
    }
    try {
        // Read through the provider: the file may live where only the provider can reach it.
        (void)m_pFilesProvider->ReadFileContent(wstrPath);
    } catch (const QZSTD::QZError&) {
        QZ_TRACE_W(L"Can't find result qpd file...\n");
        throw;
    }
    m_wstrQpdPath = wstrPath;
    m_wstrExecDirPath = FolderOf(wstrPath);
}

}  // namespace QZRI
