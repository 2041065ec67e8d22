// The current server id read through the real settings storage.
#include "qzri/riwrap/serverid.h"

#include <gtest/gtest.h>

#include "std/ss/settingsstorage.h"
#include "tests/qzri/qzritestutil.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZRI;

class ServerIdTest : public testing::Test
{
protected:
    std::wstring StoragePath() const { return m_folder.Path() + L"local_ss.xml"; }
    std::wstring Read() { return LocalStorageServerId(StoragePath()).GetCurrentServerId(); }

    QZTEST::TempFolder m_folder;
};

// A host without a management agent simply has no current server: every failure is an empty id.
TEST_F(ServerIdTest, IdIsTheManagementAgentsGlobalValueAndEmptyWhenItCannotBeRead)
{
    EXPECT_EQ(Read(), L"") << "no storage";
    QZSTD::SettingsStorage::OpenOrCreate(StoragePath())->CreateSection(L"1093", L"1.0.0.0", L"global");
    EXPECT_EQ(Read(), L"") << "no product";
    QZRITEST::StoreAgentGlobal(StoragePath(), L"OTHER", L"x");
    EXPECT_EQ(Read(), L"") << "no value";
    QZRITEST::StoreAgentGlobal(StoragePath(), L"QZNAG_SRVID", L"srv-B");
    EXPECT_EQ(Read(), L"srv-B");
    QZTEST::WriteFileBytes(StoragePath(), "this is not a settings storage");
    EXPECT_EQ(Read(), L"");
}

}  // namespace
