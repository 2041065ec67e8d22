// Several processes and threads changing one storage at once: none may lose another's update.
// The test binary plays the other processes itself: it starts itself again with a filter that
// runs only the disabled child test, and tells the child what to write through the environment.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

#include "std/par/paramshelpers.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "tests/testutil/fsutil.h"

namespace {

using QZPAR::Params;
using QZSTD::CAutoPtr;
using QZSTD::SettingsStorage;

const std::wstring PRODUCT = L".core";
const std::wstring VERSION = L".independent";
const std::wstring SECTION = L"SubscriptionData";

// "<prefix>|<storage path>": what a child writes (UPDATES_PER_WRITER entries).
constexpr const char* CHILD_ENV = "QZ_SS_TEST_CHILD";
constexpr const char* CHILD_FILTER = "--gtest_filter=SettingsStorageChild.DISABLED_WritesItsEntriesOneByOne";
// The shared test main reports the number of tests run into this file for the Wine runner; a
// child must not overwrite the parent's report.
constexpr const char* RAN_FILE_ENV = "QZ_TEST_RAN_FILE";
constexpr int CHILD_TIMEOUT_SECONDS = 120;
constexpr int UPDATES_PER_WRITER = 50;

// Entry <prefix><i> = i at the top of the section, and <prefix><i> = false inside the nested
// "TASK_ID", which only survives if the merge keeps the other writers' nested entries.
void WriteEntries(SettingsStorage* pStorage, const std::wstring& wstrPrefix, int nCount)
{
    for (int i = 0; i < nCount; ++i) {
        const std::wstring wstrName = wstrPrefix + std::to_wstring(i);
        CAutoPtr<Params> pEntry = QZPAR::CreateParams();
        QZPAR::SetIntValue(pEntry, wstrName.c_str(), i);
        pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pEntry);

        CAutoPtr<Params> pTask = QZPAR::CreateParams();
        QZPAR::SetBoolValue(pTask, wstrName.c_str(), false);
        CAutoPtr<Params> pOuter = QZPAR::CreateParams();
        QZPAR::SetParamsValue(pOuter, L"TASK_ID", pTask);
        pStorage->MergeEntries(PRODUCT, VERSION, SECTION, pOuter);
    }
}

void ExpectEntries(const std::wstring& wstrPath, const std::vector<std::wstring>& vecPrefixes, int nCount)
{
    CAutoPtr<Params> pSection =
        SettingsStorage::OpenReadOnly(wstrPath)->ReadSection(PRODUCT, VERSION, SECTION);
    CAutoPtr<Params> pTasks = QZPAR::GetParamsValue(pSection, L"TASK_ID");
    const int nExpected = static_cast<int>(vecPrefixes.size()) * nCount;
    EXPECT_EQ(pSection->GetSize(), nExpected + 1);
    EXPECT_EQ(pTasks->GetSize(), nExpected);
    for (const std::wstring& wstrPrefix : vecPrefixes) {
        for (int i = 0; i < nCount; ++i) {
            const std::wstring wstrName = wstrPrefix + std::to_wstring(i);
            EXPECT_EQ(QZPAR::GetIntValue(pSection, wstrName.c_str(), -1), i) << QZSTD::WideToUtf8(wstrName);
            EXPECT_TRUE(pTasks->DoesExist(wstrName.c_str())) << QZSTD::WideToUtf8(wstrName);
        }
    }
}

// Whether a variable of the environment ("NAME=value") is one the child must not inherit.
bool NotInherited(std::wstring_view wsv)
{
    for (const char* szName : {RAN_FILE_ENV, CHILD_ENV}) {
        if (wsv.substr(0, std::strlen(szName)) == QZSTD::Utf8ToWide(szName))
            return true;
    }
    return false;
}

// ---- starting this test binary again ----

#ifdef _WIN32

using ChildHandle = HANDLE;

std::wstring SelfPath()
{
    std::wstring wstr(32768, L'\0');
    wstr.resize(GetModuleFileNameW(nullptr, wstr.data(), static_cast<DWORD>(wstr.size())));
    return wstr;
}

// This process's environment without the test runner's report file, plus the child's order.
std::wstring ChildEnvironmentBlock(const std::wstring& wstrOrder)
{
    std::wstring wstrBlock;
    wchar_t* pStrings = GetEnvironmentStringsW();
    for (const wchar_t* p = pStrings; *p; p += wcslen(p) + 1) {
        const std::wstring_view wsv(p);
        if (!NotInherited(wsv))
            wstrBlock.append(wsv).push_back(L'\0');
    }
    FreeEnvironmentStringsW(pStrings);
    wstrBlock.append(QZSTD::Utf8ToWide(CHILD_ENV)).append(L"=").append(wstrOrder).push_back(L'\0');
    wstrBlock.push_back(L'\0');
    return wstrBlock;
}

ChildHandle StartChild(const std::wstring& wstrOrder)
{
    const std::wstring wstrExe = SelfPath();
    std::wstring wstrCmdLine =
        L"\"" + wstrExe + L"\" " + QZSTD::Utf8ToWide(CHILD_FILTER) + L" --gtest_also_run_disabled_tests";
    std::wstring wstrEnv = ChildEnvironmentBlock(wstrOrder);
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi = {};
    if (!CreateProcessW(wstrExe.c_str(), wstrCmdLine.data(), nullptr, nullptr, FALSE,
                        CREATE_UNICODE_ENVIRONMENT, wstrEnv.data(), nullptr, &si, &pi))
        return nullptr;
    CloseHandle(pi.hThread);
    return pi.hProcess;
}

// The exit code; -1 when the child had to be killed.
int WaitChild(ChildHandle h)
{
    DWORD dwCode = static_cast<DWORD>(-1);
    if (WaitForSingleObject(h, CHILD_TIMEOUT_SECONDS * 1000) != WAIT_OBJECT_0)
        TerminateProcess(h, static_cast<UINT>(-1));
    else
        GetExitCodeProcess(h, &dwCode);
    CloseHandle(h);
    return static_cast<int>(dwCode);
}

#else

using ChildHandle = pid_t;

std::string SelfPath()
{
    std::string str(4096, '\0');
    const ssize_t n = readlink("/proc/self/exe", str.data(), str.size() - 1);
    str.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return str;
}

ChildHandle StartChild(const std::wstring& wstrOrder)
{
    const std::string strExe = SelfPath();
    std::string strFilter = CHILD_FILTER, strAlso = "--gtest_also_run_disabled_tests";
    std::vector<char*> vecArgv = {const_cast<char*>(strExe.c_str()), strFilter.data(), strAlso.data(),
                                  nullptr};
    std::vector<std::string> vecEnv;
    for (char** p = environ; *p; ++p) {
        if (!NotInherited(QZSTD::Utf8ToWide(*p)))
            vecEnv.emplace_back(*p);
    }
    vecEnv.push_back(std::string(CHILD_ENV) + "=" + QZSTD::WideToUtf8(wstrOrder));
    std::vector<char*> vecEnvp;
    for (std::string& str : vecEnv)
        vecEnvp.push_back(str.data());
    vecEnvp.push_back(nullptr);
    pid_t pid = 0;
    if (posix_spawn(&pid, strExe.c_str(), nullptr, nullptr, vecArgv.data(), vecEnvp.data()) != 0)
        return -1;
    return pid;
}

// The exit code; -1 when the child had to be killed or died of a signal.
int WaitChild(ChildHandle pid)
{
    const auto tDeadline = std::chrono::steady_clock::now() + std::chrono::seconds(CHILD_TIMEOUT_SECONDS);
    int nStatus = 0;
    if (pid <= 0)
        return -1;  // not started
    while (waitpid(pid, &nStatus, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > tDeadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &nStatus, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

#endif

// ---- the tests ----

class SettingsStorageConcurrency : public testing::Test
{
protected:
    void SetUp() override
    {
        SettingsStorage::OpenOrCreate(m_wstrPath)->CreateSection(PRODUCT, VERSION, SECTION);
    }

    QZTEST::TempFolder m_folder;
    const std::wstring m_wstrPath = m_folder.Join(L"e2s_subscription.xml");
};

TEST_F(SettingsStorageConcurrency, TwoProcessesReplacingDifferentEntriesLoseNothing)
{
    const std::vector<std::wstring> vecPrefixes = {L"first_", L"second_"};
    std::vector<ChildHandle> vecChildren;
    for (const std::wstring& wstrPrefix : vecPrefixes)
        vecChildren.push_back(StartChild(wstrPrefix + L"|" + m_wstrPath));
    for (ChildHandle h : vecChildren)
        EXPECT_EQ(WaitChild(h), 0);
    ExpectEntries(m_wstrPath, vecPrefixes, UPDATES_PER_WRITER);
}

// Each thread with its own storage object: every call must also see what the other objects wrote.
TEST_F(SettingsStorageConcurrency, ThreadsWithTheirOwnStorageObjectsLoseNothing)
{
    const std::vector<std::wstring> vecPrefixes = {L"t0_", L"t1_", L"t2_"};
    constexpr int UPDATES_PER_THREAD = 20;
    std::vector<std::thread> vecThreads;
    for (const std::wstring& wstrPrefix : vecPrefixes) {
        vecThreads.emplace_back([this, wstrPrefix] {
            WriteEntries(SettingsStorage::OpenOrCreate(m_wstrPath), wstrPrefix, UPDATES_PER_THREAD);
        });
    }
    for (std::thread& t : vecThreads)
        t.join();
    ExpectEntries(m_wstrPath, vecPrefixes, UPDATES_PER_THREAD);
}

// Runs only in a child started by the test above.
TEST(SettingsStorageChild, DISABLED_WritesItsEntriesOneByOne)
{
    const std::wstring wstrOrder = QZTEST::GetEnv(CHILD_ENV);
    if (wstrOrder.empty())
        GTEST_SKIP() << "started by SettingsStorageConcurrency only";
    const size_t nBar = wstrOrder.find(L'|');
    ASSERT_NE(nBar, std::wstring::npos);
    WriteEntries(SettingsStorage::OpenOrCreate(wstrOrder.substr(nBar + 1)), wstrOrder.substr(0, nBar),
                 UPDATES_PER_WRITER);
}

}  // namespace
