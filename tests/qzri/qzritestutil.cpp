#include "tests/qzri/qzritestutil.h"

#include <algorithm>
#include <sstream>

#include "std/par/paramshelpers.h"
#include "std/ss/settingsstorage.h"
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

void StoreAgentGlobal(const std::wstring& wstrStorage, const wchar_t* szName, const wchar_t* szValue)
{
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage = QZSTD::SettingsStorage::OpenOrCreate(wstrStorage);
    pStorage->CreateSection(L"1103", L"1.0.0.0", L"global");
    QZSTD::CAutoPtr<QZPAR::Params> pEntries = QZPAR::CreateParams();
    QZPAR::SetStringValue(pEntries, szName, szValue);
    pStorage->ReplaceEntries(L"1103", L"1.0.0.0", L"global", pEntries);
}

std::string Joined(const std::vector<std::string>& vecLines)
{
    std::string str;
    for (const std::string& strLine : vecLines)
        str += strLine + "\n";
    return str;
}

CompetitorOutcome RunCompetitorRemoval(QZRI::RiWrpData& data, QZRIWRP::CompetitorEnv& env)
{
    QZRIWRP::CCompetitorSoftwareUninstall uninstall(data, env);
    uninstall.PrepareToRemove();
    std::wstring wstrDescr;
    bool bNeedReboot = false;
    const int32_t nResult = uninstall.RemoveProducts(wstrDescr, bNeedReboot);
    return {nResult, wstrDescr, bNeedReboot};
}

}  // namespace QZRITEST
