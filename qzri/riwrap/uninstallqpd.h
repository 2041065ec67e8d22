// The qpd-driven uninstaller's preparation. An installed product keeps the qpd file of the setup that
// installed it (the "result" qpd); uninstalling with that file rather than with the package's copy runs
// the uninstaller with what is really on the machine, from the folder it was installed from.
#pragma once

#include <string>

#include "common/inifileparser.h"
#include "std/qzbase.h"

namespace QZRI {

class CUninstallQpd
{
public:
    // wstrQpdPath: the package's own qpd file. wstrResultQpdPath: the installed product's qpd file as the
    // uninstall data names it (empty: none; a relative path is taken against the package's folder).
    CUninstallQpd(std::wstring wstrQpdPath, std::wstring wstrResultQpdPath, FilesProvider* pFilesProvider);

    // Substitutes the result qpd file for the package's when it can be found; otherwise the package's
    // own qpd file stays in use. Never throws for a missing or unreadable result file.
    void BeforeUninstall();

    // The qpd file the uninstaller reads, and its working folder (the folder of that file).
    const std::wstring& GetQpdPath() const { return m_wstrQpdPath; }
    const std::wstring& GetExecDirPath() const { return m_wstrExecDirPath; }

private:
    std::wstring ResultQpdFilePath() const;
    // Makes the result file the one in use; QZError when it cannot.
    void SubstituteResultQpd(std::wstring wstrPath);

    std::wstring m_wstrQpdPath;
    std::wstring m_wstrResultQpdPath;
    std::wstring m_wstrExecDirPath;
    QZSTD::CAutoPtr<FilesProvider> m_pFilesProvider;
};

}  // namespace QZRI
