#include "tests/qzri/qzritestutil.h"

#include <algorithm>
#include <sstream>

#include "qzri/riwrap/riwrpdata.h"
#include "std/error.h"
#include "tests/testutil/fsutil.h"

namespace QZRITEST {

std::vector<std::string> TraceRecords(const std::wstring& wstrTraceFile)
{
    std::vector<std::string> vecRecords;
    std::istringstream ss(QZTEST::ReadFileBytes(wstrTraceFile));
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

testing::AssertionResult HasInOrder(const std::vector<std::string>& vecRecords,
                                    const std::vector<std::string>& vecExpected)
{
    if (ContainsInOrder(vecRecords, vecExpected))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "not in this order among the records:\n"
                                       << Joined(vecExpected) << "records:\n"
                                       << Joined(vecRecords);
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

int32_t ScriptedUninstaller::Uninstall(QZRI::RiWrpData& data, bool* pbNeedRestart)
{
    m_vecProducts.push_back(data.m_pQpd->GetString(L"Uninstall", L"Product", L""));
    const auto it = m_mapCodes.find(m_vecProducts.back());
    if (it != m_mapCodes.end() && it->second == -1)
        QZ_THROW_STD(QZSTD::Err::NOT_IMPLEMENTED);
    *pbNeedRestart = false;
    return it == m_mapCodes.end() ? 0 : it->second;
}

}  // namespace QZRITEST
