#include "tests/qzri/qzritestutil.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "qzri/riwrap/riwrpdata.h"
#include "std/error.h"

namespace QZRITEST {
namespace {

namespace fs = std::filesystem;

}  // namespace

TempFolder::TempFolder()
{
    const fs::path path = fs::temp_directory_path() / ("qzri_test_" + std::to_string(std::random_device{}()));
    fs::create_directories(path);
    m_wstrPath = QZRI::WithTrailingSeparator(path.wstring());
}

TempFolder::~TempFolder()
{
    std::error_code ec;
    fs::remove_all(fs::path(m_wstrPath), ec);
}

std::wstring TempFolder::MakeSubFolder(const std::wstring& wstrName) const
{
    fs::create_directories(fs::path(m_wstrPath + wstrName));
    return QZRI::WithTrailingSeparator(m_wstrPath + wstrName);
}

std::string ReadFileBytes(const std::wstring& wstrPath)
{
    std::ifstream in(fs::path(wstrPath), std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteFileBytes(const std::wstring& wstrPath, const std::string& strData)
{
    std::ofstream(fs::path(wstrPath), std::ios::binary) << strData;
}

bool PathExists(const std::wstring& wstrPath)
{
    std::error_code ec;
    return fs::exists(fs::path(wstrPath), ec);
}

std::vector<std::string> FileNamesIn(const std::wstring& wstrFolder)
{
    std::vector<std::string> vecNames;
    for (const fs::directory_entry& entry : fs::directory_iterator(fs::path(wstrFolder)))
        vecNames.push_back(entry.path().filename().string());
    std::sort(vecNames.begin(), vecNames.end());
    return vecNames;
}

std::vector<std::string> TraceRecords(const std::wstring& wstrTraceFile)
{
    std::vector<std::string> vecRecords;
    std::istringstream ss(ReadFileBytes(wstrTraceFile));
    for (std::string strLine; std::getline(ss, strLine);) {
        if (!strLine.empty() && strLine.back() == '\r')
            strLine.pop_back();
        // date time [pid:tid] MODULE LEVEL text
        size_t nPos = 0;
        for (int nField = 0; nField < 3 && nPos != std::string::npos; ++nField)
            nPos = strLine.find(' ', nPos == 0 ? 0 : nPos + 1);
        vecRecords.push_back(nPos == std::string::npos ? strLine : strLine.substr(nPos + 1));
    }
    return vecRecords;
}

bool ContainsInOrder(const std::vector<std::string>& vecRecords, const std::vector<std::string>& vecExpected)
{
    auto it = vecRecords.begin();
    for (const std::string& strExpected : vecExpected) {
        it = std::find(it, vecRecords.end(), strExpected);
        if (it == vecRecords.end())
            return false;
        ++it;
    }
    return true;
}

std::string Joined(const std::vector<std::string>& vecLines)
{
    std::string str;
    for (const std::string& strLine : vecLines)
        str += strLine + "\n";
    return str;
}

TestOs::TestOs() : m_pReal(QZRI::CreateSystemAgentOs()) {}

std::wstring TestOs::GetModuleFilePath()
{
    if (m_bModulePathFails)
        QZ_THROW_SYSTEM_CODE(5);
    return m_wstrModulePath;
}

std::optional<std::wstring> TestOs::GetEnvValue(const std::wstring& wstrName)
{
    auto it = m_mapEnv.find(wstrName);
    if (it == m_mapEnv.end())
        return std::nullopt;
    return it->second;
}

bool TestOs::RenameFile(const std::wstring& wstrFrom, const std::wstring& wstrTo)
{
    if (m_setFailingRenames.count(wstrFrom))
        return false;
    return m_pReal->RenameFile(wstrFrom, wstrTo);
}

std::vector<QZRI::UserSession> FakeSessions::GetInteractiveSessions()
{
    ++m_nCalls;
    if (m_bFails)
        QZ_THROW_SYSTEM_CODE(1722);
    return m_vecSessions;
}

QZRI::DriverResult RecordingActions::RunExecutable(QZRI::RiWrpData& data)
{
    Record(L"RunExecutable", data);
    return m_driverResult;
}

std::optional<int> RecordingActions::CleanupOtherServices(const std::wstring& wstrKeepServiceId)
{
    m_vecCalls.push_back(L"Cleanup(" + wstrKeepServiceId + L")");
    return m_nCleanupEnd;
}

int RecordingActions::Record(const wchar_t* szCall, QZRI::RiWrpData& data)
{
    m_vecCalls.push_back(szCall);
    m_bRunDataPublished = QZRI::g_pData == &data;
    if (m_bThrows)
        QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
    return m_nResult;
}

}  // namespace QZRITEST
