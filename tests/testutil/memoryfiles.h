// Files kept in memory and handed to the ini reader and the package description through their files
// provider, so that tests and fuzz targets need no file system. Records every path asked for and every
// copy made.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/inifileparser.h"
#include "std/error.h"

namespace QZTEST {

class MemoryFiles : public QZRI::FilesProvider
{
public:
    static QZSTD::CAutoPtr<MemoryFiles> Create()
    {
        return QZSTD::CAutoPtr<MemoryFiles>::Adopt(new QZSTD::RcClassImpl<MemoryFiles>());
    }

    std::string ReadFileContent(const std::wstring& wstrPath) override
    {
        m_vecAsked.push_back(wstrPath);
        const auto it = m_mapFiles.find(wstrPath);
        if (it == m_mapFiles.end())
            QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrPath);
        return it->second;
    }
    void CopyFileTo(const std::wstring& wstrRemotePath, const std::wstring& wstrLocalPath) override
    {
        m_vecCopies.push_back(wstrRemotePath + L" -> " + wstrLocalPath);
    }

    std::map<std::wstring, std::string> m_mapFiles;
    std::vector<std::wstring> m_vecAsked;
    // "remote -> local" for each copy.
    std::vector<std::wstring> m_vecCopies;
};

}  // namespace QZTEST
