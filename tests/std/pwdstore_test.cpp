// The password store: what is stored never holds the password, comes back whole, and a changed or
// foreign blob is refused.
#include "std/pwdstore.h"

#include <gtest/gtest.h>

#include "std/strconv.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

class PasswordStoreTest : public testing::Test
{
protected:
    void SetUp() override { QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", m_folder.Join(L"keys/machine.key")); }
    void TearDown() override { QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", L""); }
    QZTEST::TempFolder m_folder;
};

TEST_F(PasswordStoreTest, ProtectedPasswordsComeBackWholeAndChangedOnesAreRefused)
{
    for (const std::wstring wstrPassword : {L"Canary-p4ss", L"", L"p\u00e4ss \u20ac\"'"}) {
        const std::wstring wstrStored = QZSTD::ProtectPassword(wstrPassword);
        EXPECT_EQ(wstrStored.find(L"Canary"), std::wstring::npos);
        EXPECT_EQ(QZSTD::UnprotectPassword(wstrStored), wstrPassword);
        EXPECT_NE(QZSTD::ProtectPassword(wstrPassword), wstrStored) << "a fresh nonce or salt every time";
        std::wstring wstrChanged = wstrStored;
        // A byte of the seal at the end: Wine's data protection checks the seal but not every byte it covers.
        wstrChanged[wstrChanged.size() - 3] = wstrChanged[wstrChanged.size() - 3] == L'0' ? L'1' : L'0';
        EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZSTD::UnprotectPassword(wstrChanged); }), QZSTD::Err::BAD_PARAM);
    }
    for (const wchar_t* szNotProtected : {L"", L"ABC", L"5150", L"zz"})
        EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZSTD::UnprotectPassword(szNotProtected); }),
                  QZSTD::Err::BAD_PARAM)
            << QZSTD::WideToUtf8(szNotProtected);
}

#ifndef _WIN32
// The key is the machine's secret: made readable by its owner alone, and refused once others may read it.
TEST_F(PasswordStoreTest, TheMachineKeyIsTheOwnersAlone)
{
    const std::wstring wstrStored = QZSTD::ProtectPassword(L"x");
    const std::string strKey = QZSTD::WideToUtf8(m_folder.Join(L"keys/machine.key"));
    struct stat st = {};
    ASSERT_EQ(stat(strKey.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    chmod(strKey.c_str(), 0644);
    EXPECT_TRUE(QZTEST::ErrorOf([&] { QZSTD::UnprotectPassword(wstrStored); }).has_value());
    chmod(strKey.c_str(), 0600);
    QZTEST::SetEnv("QZ_MACHINE_KEY_PATH", m_folder.Join(L"other.key"));
    EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZSTD::UnprotectPassword(wstrStored); }), QZSTD::Err::BAD_PARAM)
        << "another machine's key";
}
#endif

}  // namespace
