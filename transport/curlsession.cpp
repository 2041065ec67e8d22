// The curl set-up shared by the file transfer and the remote calls.
#include "transport/curlsession.h"

#include "std/error.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZTRANSPORT {

CurlPtr NewCurl()
{
    RegisterTransportErrors();
    static const CURLcode s_eInit = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (s_eInit != CURLE_OK)
        QZ_THROW(MODULE, TRANSFER_FAILED, curl_easy_strerror(s_eInit), static_cast<int>(s_eInit));
    CurlPtr pCurl(curl_easy_init(), &curl_easy_cleanup);
    QZ_ASSERT(pCurl);
    return pCurl;
}

void SetProxy(CURL* pCurl, const ProxySettings& proxy)
{
    QZ_TRACE_SCOPE("QZTRANSPORT", "QZTRANSPORT::SetProxy");
    if (!proxy.m_bUse || proxy.m_wstrLocation.empty()) {
        curl_easy_setopt(pCurl, CURLOPT_PROXY, "");
        QZ_TRACE_I(L"%hs: no proxy.\n", QZ_SCOPE_NAME);
        return;
    }
    curl_easy_setopt(pCurl, CURLOPT_PROXY, QZSTD::WideToUtf8(proxy.m_wstrLocation).c_str());
    QZ_TRACE_I(L"%hs: proxy '%ls', authentication %ls, user '%ls', password of %d characters.\n",
               QZ_SCOPE_NAME, proxy.m_wstrLocation, proxy.m_bAuthenticate ? L"on" : L"off", proxy.m_wstrUser,
               static_cast<int>(proxy.m_wstrPassword.size()));
    if (proxy.m_bAuthenticate) {
        curl_easy_setopt(pCurl, CURLOPT_PROXYAUTH, CURLAUTH_ANY);
        curl_easy_setopt(pCurl, CURLOPT_PROXYUSERNAME, QZSTD::WideToUtf8(proxy.m_wstrUser).c_str());
        curl_easy_setopt(pCurl, CURLOPT_PROXYPASSWORD, QZSTD::WideToUtf8(proxy.m_wstrPassword).c_str());
    }
}

void SetTransportBasics(CURL* pCurl, const std::wstring& wstrCaFile, char* szErrorBuffer)
{
    curl_easy_setopt(pCurl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(pCurl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(pCurl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(pCurl, CURLOPT_ERRORBUFFER, szErrorBuffer);
    // Schannel: a revocation list that cannot be reached (an offline agent, a CA without one) does not
    // stop a transfer; a revoked certificate does.
    curl_easy_setopt(pCurl, CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_REVOKE_BEST_EFFORT));
    if (!wstrCaFile.empty())
        curl_easy_setopt(pCurl, CURLOPT_CAINFO, QZSTD::WideToUtf8(wstrCaFile).c_str());
}

}  // namespace QZTRANSPORT
