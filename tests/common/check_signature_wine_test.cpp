// The signature check under Wine on programs signed at build time (signature/make_signed_fixtures.sh),
// with the test CA trusted as a machine root and the second CA not: only "Orvane Lab" under the trusted
// CA passes, although Wine's WinVerifyTrust alone accepts the untrusted one.
#include <windows.h>

#include <wincrypt.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "common/check_signature.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZSIGNATURES;

std::wstring Fixture(const std::wstring& wstrName)
{
    std::wstring wstrPath = L"Z:" + QZSTD::Utf8ToWide(QZ_TEST_SIGNED_DIR) + L"/" + wstrName;
    std::replace(wstrPath.begin(), wstrPath.end(), L'/', L'\\');
    return wstrPath;
}

class CheckSignatureWineTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        const std::string strCa = QZTEST::ReadFileBytes(Fixture(L"testca.cer"));
        HCERTSTORE hRoot =
            ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
        ASSERT_NE(nullptr, hRoot) << ::GetLastError();
        EXPECT_TRUE(::CertAddEncodedCertificateToStore(
            hRoot, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(strCa.data()),
            static_cast<DWORD>(strCa.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr))
            << ::GetLastError();
        ::CertCloseStore(hRoot, 0);
    }
    void TearDown() override { QZSTD::TraceClose(); }

    QZTEST::TempFolder m_folder;
};

TEST_F(CheckSignatureWineTest, OnlyTheTrustedPublisherPasses)
{
    QZTEST::WriteFileBytes(m_folder.Join(L"text.exe"), "no program");
    // (file, passes, text the trace must hold)
    const std::tuple<std::wstring, bool, const char*> rows[] = {
        {Fixture(L"orvane.exe"), true, "bRes = true."},
        {Fixture(L"other.exe"), false, "The signer 'Other Publisher' is not 'Orvane Lab'."},
        {Fixture(L"untrusted.exe"), false, "0x800B0109 (CERT_E_UNTRUSTEDROOT)"},
        {Fixture(L"unsigned.exe"), false, "0x800B0100 (TRUST_E_NOSIGNATURE)"},
        {Fixture(L"tampered.exe"), false, "0x80096010 (TRUST_E_BAD_DIGEST)"},
        {Fixture(L"missing.exe"), false, "is no file"},
        {m_folder.Join(L"text.exe"), false, "Signature chack failed."},
    };
    for (const auto& [wstrPath, bPass, szTrace] : rows) {
        ASSERT_TRUE(QZSTD::TraceOpen(m_folder.Join(L"trace.txt"), QZSTD::TL_DEBUG, false));
        EXPECT_EQ(bPass, CheckQZSignatures(wstrPath)) << wstrPath;
        const std::string strTrace = QZTEST::ReadFileBytes(m_folder.Join(L"trace.txt"));
        EXPECT_NE(std::string::npos, strTrace.find(szTrace)) << strTrace;
    }
}

// Which files the walk checks (and leaves unchecked) is CheckSignatureWalk's; here the real check runs
// on a signed program and then also on an untrusted one in a subfolder.
TEST_F(CheckSignatureWineTest, FolderPassesOnlyWhenEveryCheckedProgramIsSigned)
{
    const std::wstring wstrPkg = m_folder.MakeSubFolder(L"pkg\\sub");
    ASSERT_TRUE(::CopyFileW(Fixture(L"orvane.exe").c_str(), m_folder.Join(L"pkg\\setup.exe").c_str(), FALSE));
    EXPECT_TRUE(CheckQZSignaturesInFolder(m_folder.Join(L"pkg")));
    ASSERT_TRUE(::CopyFileW(Fixture(L"untrusted.exe").c_str(), (wstrPkg + L"c.exe").c_str(), FALSE));
    EXPECT_FALSE(CheckQZSignaturesInFolder(m_folder.Join(L"pkg")));
}

}  // namespace
