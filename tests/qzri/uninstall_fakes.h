// The uninstaller's stand-ins: the registry in memory (both views, change counting for the watch),
// Windows Installer's related products from a map, and a launcher whose process runs a script.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "common/msisetup/msisetup.h"
#include "common/registry.h"
#include "qzri/riwrap/uninstall.h"
#include "std/qzbase.h"

namespace QZRITEST {

class MemoryRegistry : public QZRI::Registry
{
public:
    using View = QZRI::RegistryView;
    void Set(View eView, const std::wstring& wstrKey, const std::wstring& wstrName, QZRI::RegistryValue value)
    {
        m_mapKeys[{eView, wstrKey}][wstrName] = std::move(value);
        ++m_nChanges;
    }
    void SetString(View eView, const std::wstring& wstrKey, const std::wstring& wstrName,
                   const std::wstring& wstrValue)
    {
        Set(eView, wstrKey, wstrName, QZRI::MakeRegistryString(wstrValue));
    }
    void DeleteKey(View eView, const std::wstring& wstrKey)
    {
        m_mapKeys.erase({eView, wstrKey});
        ++m_nChanges;
    }
    bool ReadLocalMachineString(const std::wstring& wstrKey, const std::wstring& wstrName,
                                std::wstring& wstrValue, View eView) override
    {
        QZRI::RegistryValue value;
        const bool bString = ReadLocalMachineValue(wstrKey, wstrName, value, eView) &&
                             QZRI::RegistryValueText(value).has_value();
        if (bString)
            wstrValue = *QZRI::RegistryValueText(value);
        return bString;
    }
    bool LocalMachineKeyExists(const std::wstring& wstrKey, View eView) override
    {
        return m_mapKeys.count({eView, wstrKey}) != 0;
    }
    bool ReadLocalMachineValue(const std::wstring& wstrKey, const std::wstring& wstrName,
                               QZRI::RegistryValue& value, View eView) override
    {
        const auto it = m_mapKeys.find({eView, wstrKey});
        if (it == m_mapKeys.end() || !it->second.count(wstrName))
            return false;
        value = it->second.at(wstrName);
        return true;
    }
    std::vector<std::wstring> LocalMachineSubKeys(const std::wstring& wstrKey, View eView) override
    {
        std::vector<std::wstring> vecNames;
        const std::wstring wstrPrefix = wstrKey + L"\\";
        for (const auto& entry : m_mapKeys)
            if (entry.first.first == eView && entry.first.second.rfind(wstrPrefix, 0) == 0)
                vecNames.push_back(entry.first.second.substr(wstrPrefix.size()));
        return vecNames;
    }
    bool HasSixtyFourBitView() override { return true; }
    // Sees any change of the registry since it was armed.
    std::unique_ptr<QZRI::RegistryWatch> WatchLocalMachineKey(const std::wstring&,
                                                              const std::vector<View>&) override
    {
        struct Watch : QZRI::RegistryWatch
        {
            explicit Watch(const int& nChanges) : m_nChanges(nChanges), m_nArmed(nChanges) {}
            void Rearm() override { m_nArmed = m_nChanges; }
            bool WaitForChange(uint32_t) override { return m_nChanges != m_nArmed; }
            const int& m_nChanges;
            int m_nArmed;
        };
        return std::make_unique<Watch>(m_nChanges);
    }

    int m_nChanges = 0;
    std::map<std::pair<View, std::wstring>, std::map<std::wstring, QZRI::RegistryValue>> m_mapKeys;
};

// Related products by upgrade code (a missing code: none), or one error for every question; removals
// by product code recorded with their command lines and answered with m_nRemoveResult.
class FakeMsiProducts : public QZRI::MsiProducts
{
public:
    uint32_t EnumRelatedProducts(const std::wstring& wstrUpgradeCode, uint32_t nIndex,
                                 std::wstring& wstrProductCode) override
    {
        if (m_nEnumError)
            return m_nEnumError;
        const auto it = m_mapRelated.find(wstrUpgradeCode);
        if (it == m_mapRelated.end() || nIndex > 0)
            return QZRI::MSI_ERROR_NO_MORE_ITEMS;
        wstrProductCode = it->second;
        return 0;
    }
    uint32_t RemoveProduct(const std::wstring& wstrProductCode, const std::wstring& wstrCmdLine) override
    {
        m_vecRemoved.push_back(wstrProductCode + L"|" + wstrCmdLine);
        return m_nRemoveResult;
    }
    std::map<std::wstring, std::wstring> m_mapRelated;
    uint32_t m_nEnumError = 0;
    uint32_t m_nRemoveResult = 0;
    std::vector<std::wstring> m_vecRemoved;
};

// A started uninstaller: each look at it runs the next step of the script (which may change the
// registry); it has ended once a step returns true, with m_nExitCode.
class ScriptedLauncher
{
public:
    std::function<void(const QZRI::LaunchOptions&, QZSTD::LaunchWaiter**)> Launch()
    {
        return [this](const QZRI::LaunchOptions& options, QZSTD::LaunchWaiter** ppWaiter) {
            m_vecStarted.push_back(options.m_wstrCommandLine);
            *ppWaiter = new QZSTD::RcClassImpl<Waiter>(*this);
        };
    }
    std::vector<std::function<bool()>> m_vecSteps;
    uint32_t m_nExitCode = 0;
    std::vector<std::wstring> m_vecStarted;

private:
    class Waiter : public QZSTD::LaunchWaiter
    {
    public:
        explicit Waiter(ScriptedLauncher& launcher) : m_launcher(launcher) {}
        bool QueryInterface(const char*, void**) override { return false; }
        bool Wait(long) override
        {
            if (m_bEnded || m_nNext >= m_launcher.m_vecSteps.size())
                return m_bEnded = true;
            return m_bEnded = m_launcher.m_vecSteps[m_nNext++]();
        }
        uint32_t ExitCode() override { return m_launcher.m_nExitCode; }

    private:
        ScriptedLauncher& m_launcher;
        size_t m_nNext = 0;
        bool m_bEnded = false;
    };
};

}  // namespace QZRITEST

namespace QZRITEST {

// The installer service around a removal by product code: handlers and log accepted, the log in
// m_wstrLogFolder; installing or patching anything else is a fault of the test.
class QuietInstaller : public QZRI::WindowsInstaller
{
public:
    uint32_t MsiDllVersion() override { return 0x00050000; }
    std::wstring LogFolder() override { return m_wstrLogFolder; }
    std::wstring LocalTimeStamp() override { return L"2026-11-25-10-00-00"; }
    uint32_t EnableLog(uint32_t, const std::wstring&) override { return 0; }
    uint32_t SetRecordHandler(QZRI::MsiMessageSink*, uint32_t) override { return 0; }
    void SetStringHandlerAndNoUi(QZRI::MsiMessageSink*, uint32_t) override {}
    void RestoreHandlers(bool) override {}
    uint32_t InstallProduct(const std::wstring&, const std::wstring&) override { return 1627; }
    uint32_t ApplyPatch(const std::wstring&, const std::wstring&) override { return 1627; }
    std::wstring m_wstrLogFolder;
};

}  // namespace QZRITEST
