// Win32 part of the signature check: WinVerifyTrust on the embedded signature, the signer's certificate
// read back through crypt32, its chain judged by the base policy, and the signer's name.
#include <windows.h>

#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

#include <vector>

#include "common/check_signature.h"
#include "std/trace.h"

namespace QZSIGNATURES {
namespace {

constexpr const char* MODULE = "QZRI";

// Owns one crypt32 object. Freeing keeps GetLastError() as it was, so a failing call's error can still
// be traced after the holders of the earlier calls are gone.
template <class T, void (*Free)(T)>
class ScopedCrypt
{
public:
    ScopedCrypt() = default;
    explicit ScopedCrypt(T h) : m_h(h) {}
    ScopedCrypt(const ScopedCrypt&) = delete;
    ScopedCrypt& operator=(const ScopedCrypt&) = delete;
    ~ScopedCrypt() { Reset(); }

    void Reset(T h = nullptr)
    {
        if (m_h) {
            const DWORD dwErr = ::GetLastError();
            Free(m_h);
            ::SetLastError(dwErr);
        }
        m_h = h;
    }
    T Get() const { return m_h; }
    // For the calls that hand out a new object through a pointer.
    T* Put()
    {
        Reset();
        return &m_h;
    }

private:
    T m_h = nullptr;
};

void FreeStore(HCERTSTORE h)
{
    ::CertCloseStore(h, 0);
}
void FreeMsg(HCRYPTMSG h)
{
    ::CryptMsgClose(h);
}
void FreeCert(PCCERT_CONTEXT p)
{
    ::CertFreeCertificateContext(p);
}
void FreeChain(PCCERT_CHAIN_CONTEXT p)
{
    ::CertFreeCertificateChain(p);
}

using ScopedStore = ScopedCrypt<HCERTSTORE, FreeStore>;
using ScopedMsg = ScopedCrypt<HCRYPTMSG, FreeMsg>;
using ScopedCert = ScopedCrypt<PCCERT_CONTEXT, FreeCert>;
using ScopedChain = ScopedCrypt<PCCERT_CHAIN_CONTEXT, FreeChain>;

// The answers of WinVerifyTrust, crypt32 and the chain policy that a person reading the trace meets.
// clang-format off
#define QZ_NAMED_ERROR(e) {static_cast<DWORD>(e), #e}
// clang-format on
const struct
{
    DWORD dwErr;
    const char* szName;
} c_trustErrorNames[] = {
    QZ_NAMED_ERROR(ERROR_SUCCESS),
    QZ_NAMED_ERROR(TRUST_E_NOSIGNATURE),
    QZ_NAMED_ERROR(TRUST_E_BAD_DIGEST),
    QZ_NAMED_ERROR(TRUST_E_SUBJECT_FORM_UNKNOWN),
    QZ_NAMED_ERROR(TRUST_E_PROVIDER_UNKNOWN),
    QZ_NAMED_ERROR(TRUST_E_EXPLICIT_DISTRUST),
    QZ_NAMED_ERROR(TRUST_E_SUBJECT_NOT_TRUSTED),
    QZ_NAMED_ERROR(TRUST_E_BASIC_CONSTRAINTS),
    QZ_NAMED_ERROR(TRUST_E_CERT_SIGNATURE),
    QZ_NAMED_ERROR(CERT_E_UNTRUSTEDROOT),
    QZ_NAMED_ERROR(CERT_E_UNTRUSTEDTESTROOT),
    QZ_NAMED_ERROR(CERT_E_CHAINING),
    QZ_NAMED_ERROR(CERT_E_EXPIRED),
    QZ_NAMED_ERROR(CERT_E_WRONG_USAGE),
    QZ_NAMED_ERROR(CERT_E_REVOKED),
    QZ_NAMED_ERROR(CRYPT_E_REVOKED),
    QZ_NAMED_ERROR(CRYPT_E_NO_REVOCATION_CHECK),
    QZ_NAMED_ERROR(CRYPT_E_REVOCATION_OFFLINE),
    QZ_NAMED_ERROR(CRYPT_E_NO_MATCH),
    QZ_NAMED_ERROR(ERROR_FILE_NOT_FOUND),
    QZ_NAMED_ERROR(ERROR_PATH_NOT_FOUND),
};
#undef QZ_NAMED_ERROR

const char* TrustErrorName(DWORD dwErr)
{
    for (const auto& entry : c_trustErrorNames)
        if (entry.dwErr == dwErr)
            return entry.szName;
    return "unnamed error";
}

// The embedded signature itself: present, intact and made by a certificate WinVerifyTrust accepts.
// Revocation is left to the explicit chain check (CheckSignerChain), so it is judged in one place.
bool CheckFileEmbaddedSigtature(const std::wstring& wstrPath)
{
    QZ_TRACE_SCOPE(MODULE, "QZSIGNATURES::CheckFileEmbaddedSigtature");
    WINTRUST_FILE_INFO fileInfo = {};
    fileInfo.cbStruct = sizeof(fileInfo);
    fileInfo.pcwszFilePath = wstrPath.c_str();

    WINTRUST_DATA trustData = {};
    trustData.cbStruct = sizeof(trustData);
    trustData.dwUIChoice = WTD_UI_NONE;
    trustData.fdwRevocationChecks = WTD_REVOKE_NONE;
    trustData.dwUnionChoice = WTD_CHOICE_FILE;
    trustData.pFile = &fileInfo;
    trustData.dwStateAction = WTD_STATEACTION_VERIFY;
    trustData.dwProvFlags = WTD_REVOCATION_CHECK_NONE;

    GUID actionId = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    LONG lChkResult = E_FAIL;
    lChkResult = ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &actionId, &trustData);
    // The verification's state is released on every path, whatever the answer was.
    trustData.dwStateAction = WTD_STATEACTION_CLOSE;
    ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &actionId, &trustData);

    QZ_TRACE_I(L"%hs: lChkResult=%d", QZ_SCOPE_NAME, static_cast<int>(lChkResult));
    if (lChkResult != 0) {
        QZ_TRACE_E(L"%hs: WinVerifyTrust answered 0x%08X (%hs) for '%ls'.\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(lChkResult), TrustErrorName(static_cast<DWORD>(lChkResult)),
                   wstrPath);
        QZ_TRACE_E(L"Signature chack failed.\n");
        return false;
    }
    return true;
}

// The signature's certificates and the signer's own certificate among them.
struct SignerInfo
{
    ScopedStore store;
    ScopedMsg msg;
    ScopedCert cert;
};

bool GetSignerInfo(const std::wstring& wstrPath, SignerInfo& info)
{
    QZ_TRACE_SCOPE(MODULE, "QZSIGNATURES::GetSignerInfo");
    DWORD dwEncoding = 0, dwContentType = 0, dwFormatType = 0;
    if (!::CryptQueryObject(CERT_QUERY_OBJECT_FILE, wstrPath.c_str(),
                            CERT_QUERY_CONTENT_FLAG_PKCS7_SIGNED_EMBED, CERT_QUERY_FORMAT_FLAG_BINARY, 0,
                            &dwEncoding, &dwContentType, &dwFormatType, info.store.Put(), info.msg.Put(),
                            nullptr)) {
        const DWORD dwErr = ::GetLastError();
        QZ_TRACE_E(L"%hs: CryptQueryObject failed with 0x%08X (%hs).\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(dwErr), TrustErrorName(dwErr));
        return false;
    }
    // The first signer is the one whose signature WinVerifyTrust judged.
    DWORD cbSignerInfo = 0;
    if (!::CryptMsgGetParam(info.msg.Get(), CMSG_SIGNER_INFO_PARAM, 0, nullptr, &cbSignerInfo) ||
        cbSignerInfo < sizeof(CMSG_SIGNER_INFO)) {
        QZ_TRACE_E(L"%hs: The signer's size cannot be read (error %u).\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(::GetLastError()));
        return false;
    }
    // Kept in pointer-aligned storage: the buffer starts with a CMSG_SIGNER_INFO.
    std::vector<ULONG_PTR> vecSignerInfo((cbSignerInfo + sizeof(ULONG_PTR) - 1) / sizeof(ULONG_PTR));
    if (!::CryptMsgGetParam(info.msg.Get(), CMSG_SIGNER_INFO_PARAM, 0, vecSignerInfo.data(), &cbSignerInfo)) {
        QZ_TRACE_E(L"%hs: The signer cannot be read (error %u).\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(::GetLastError()));
        return false;
    }
    const auto* pSignerInfo = reinterpret_cast<const CMSG_SIGNER_INFO*>(vecSignerInfo.data());
    CERT_INFO certInfo = {};
    certInfo.Issuer = pSignerInfo->Issuer;
    certInfo.SerialNumber = pSignerInfo->SerialNumber;
    info.cert.Reset(::CertFindCertificateInStore(info.store.Get(), X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                                 CERT_FIND_SUBJECT_CERT, &certInfo, nullptr));
    if (!info.cert.Get()) {
        QZ_TRACE_E(L"%hs: The signer's certificate is not in the signature (error %u).\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(::GetLastError()));
        return false;
    }
    return true;
}

// The signer's chain must end at a root this computer trusts and allow code signing. A certificate
// known to be revoked fails; a revocation state nobody can tell (no list, list offline) is accepted,
// because a test CA has none and agents often run without a way out. Time validity is left to
// WinVerifyTrust, which honours a signature's timestamp where this check could not.
bool CheckSignerChain(const SignerInfo& info)
{
    QZ_TRACE_SCOPE(MODULE, "QZSIGNATURES::CheckSignerChain");
    static char szCodeSigning[] = szOID_PKIX_KP_CODE_SIGNING;
    LPSTR arrUsages[] = {szCodeSigning};
    CERT_CHAIN_PARA chainPara = {};
    chainPara.cbSize = sizeof(chainPara);
    chainPara.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    chainPara.RequestedUsage.Usage.cUsageIdentifier = 1;
    chainPara.RequestedUsage.Usage.rgpszUsageIdentifier = arrUsages;

    ScopedChain chain;
    if (!::CertGetCertificateChain(
            nullptr, info.cert.Get(), nullptr, info.store.Get(), &chainPara,
            CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT | CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT,
            nullptr, chain.Put())) {
        const DWORD dwErr = ::GetLastError();
        QZ_TRACE_E(L"%hs: CertGetCertificateChain failed with 0x%08X (%hs).\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(dwErr), TrustErrorName(dwErr));
        return false;
    }
    CERT_CHAIN_POLICY_PARA policyPara = {};
    policyPara.cbSize = sizeof(policyPara);
    policyPara.dwFlags =
        CERT_CHAIN_POLICY_IGNORE_ALL_REV_UNKNOWN_FLAGS | CERT_CHAIN_POLICY_IGNORE_ALL_NOT_TIME_VALID_FLAGS;
    CERT_CHAIN_POLICY_STATUS policyStatus = {};
    policyStatus.cbSize = sizeof(policyStatus);
    if (!::CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_BASE, chain.Get(), &policyPara,
                                            &policyStatus)) {
        const DWORD dwErr = ::GetLastError();
        QZ_TRACE_E(L"%hs: CertVerifyCertificateChainPolicy failed with 0x%08X (%hs).\n", QZ_SCOPE_NAME,
                   static_cast<unsigned>(dwErr), TrustErrorName(dwErr));
        return false;
    }
    if (policyStatus.dwError != 0) {
        QZ_TRACE_E(L"%hs: The signer's chain is not trusted: 0x%08X (%hs), trust status 0x%08X.\n",
                   QZ_SCOPE_NAME, static_cast<unsigned>(policyStatus.dwError),
                   TrustErrorName(policyStatus.dwError),
                   static_cast<unsigned>(chain.Get()->TrustStatus.dwErrorStatus));
        return false;
    }
    return true;
}

bool GetSignerName(const SignerInfo& info, std::wstring& wstrName)
{
    QZ_TRACE_SCOPE(MODULE, "QZSIGNATURES::GetSignerName");
    const DWORD cchName =
        ::CertGetNameStringW(info.cert.Get(), CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0);
    if (cchName <= 1) {
        QZ_TRACE_E(L"%hs: The signer's certificate has no name.\n", QZ_SCOPE_NAME);
        return false;
    }
    std::vector<wchar_t> vecName(cchName);
    ::CertGetNameStringW(info.cert.Get(), CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, vecName.data(), cchName);
    wstrName.assign(vecName.data());
    QZ_TRACE_I(L"%hs: Signer '%ls'.\n", QZ_SCOPE_NAME, wstrName);
    return true;
}

}  // namespace

bool CheckQZSignatures(const std::wstring& szwExecuteFilePath)
{
    QZ_TRACE_SCOPE(MODULE, "QZSIGNATURES::CheckQZSignatures");
    QZ_TRACE_I(L"QZSIGNATURES::CheckQZSignatures szwExecuteFilePath  - '%ls'\n", szwExecuteFilePath);
    bool bRes = false;
    const DWORD dwAttributes = ::GetFileAttributesW(szwExecuteFilePath.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES || (dwAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        QZ_TRACE_E(L"%hs: '%ls' is no file (error %u).\n", QZ_SCOPE_NAME, szwExecuteFilePath,
                   static_cast<unsigned>(dwAttributes == INVALID_FILE_ATTRIBUTES ? ::GetLastError() : 0));
    } else if (CheckFileEmbaddedSigtature(szwExecuteFilePath)) {
        SignerInfo info;
        std::wstring wstrSigner;
        if (GetSignerInfo(szwExecuteFilePath, info) && CheckSignerChain(info) &&
            GetSignerName(info, wstrSigner)) {
            bRes = IsQZSignerName(wstrSigner);
            if (!bRes)
                QZ_TRACE_E(L"%hs: The signer '%ls' is not '%ls'.\n", QZ_SCOPE_NAME, wstrSigner,
                           QZ_SIGNER_NAME);
        }
    }
    if (bRes)
        QZ_TRACE_I(L"bRes = true.\n");
    else
        QZ_TRACE_E(L"bRes = %d.\n", static_cast<int>(bRes));
    return bRes;
}

}  // namespace QZSIGNATURES
