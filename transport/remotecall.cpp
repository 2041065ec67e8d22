// The remote call: one POST, the reply judged by its status and body.
#include "transport/remotecall.h"

#include <json/json.h>

#include <memory>
#include <string_view>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "std/trace.h"
#include "transport/curlsession.h"
#include "transport/paramsjson.h"

namespace QZTRANSPORT {
namespace {

struct Reply
{
    std::string m_strBody;
    bool m_bTooLong = false;
};

size_t OnReply(char* pData, size_t nSize, size_t nCount, void* pvReply)
{
    Reply& reply = *static_cast<Reply*>(pvReply);
    const size_t nLen = nSize * nCount;
    if (reply.m_strBody.size() + nLen > MAX_REPLY_BYTES) {
        reply.m_bTooLong = true;
        return 0;
    }
    reply.m_strBody.append(pData, nLen);
    return nLen;
}

using HeaderList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

HeaderList Headers(const RemoteEndpoint& endpoint)
{
    curl_slist* pList = curl_slist_append(nullptr, "Content-Type: application/json; charset=utf-8");
    for (const auto& [strName, strValue] : endpoint.m_vecHeaders)
        pList = curl_slist_append(pList, (strName + ": " + strValue).c_str());
    return HeaderList(pList, &curl_slist_free_all);
}

// {"PxgError": {"module": text, "code": n, "message": text}} as the server's own error; nothing when the
// body is not that.
void ThrowServerError(const std::string& strBody, long lStatus)
{
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
    Json::Value root;
    std::string strErrors;
    bool bParsed = false;
    try {
        bParsed = pReader->parse(strBody.data(), strBody.data() + strBody.size(), &root, &strErrors);
    } catch (const Json::Exception&) {
    }
    static constexpr std::string_view ERROR_KEY = "PxgError";
    const Json::Value* pError = bParsed && root.isObject()
                                    ? root.find(ERROR_KEY.data(), ERROR_KEY.data() + ERROR_KEY.size())
                                    : nullptr;
    if (pError && pError->isObject() && (*pError)["module"].isString() && (*pError)["code"].isInt()) {
        const std::string strModule = (*pError)["module"].asString();
        const std::string strMessage = (*pError)["message"].isString() ? (*pError)["message"].asString() : "";
        throw QZSTD::QZError(strModule.c_str(), (*pError)["code"].asInt(), __FILE__, __LINE__, {strMessage});
    }
    QZ_THROW(MODULE, HTTP_STATUS, lStatus);
}

}  // namespace

QZSTD::CAutoPtr<QZPAR::Params> CallRemote(const RemoteEndpoint& endpoint, const std::string& strInterface,
                                          const std::string& strOperation, QZPAR::Params* pArgs)
{
    QZ_TRACE_SCOPE("QZTRANSPORT", "QZTRANSPORT::CallRemote");
    CurlPtr pCurl = NewCurl();
    const std::string strUrl = endpoint.m_strBase + "/api/v1.0/" + strInterface + "." + strOperation;
    QZSTD::CAutoPtr<QZPAR::Params> pNoArgs = pArgs ? nullptr : QZPAR::CreateParams();
    const std::string strBody = ParamsToJson(pArgs ? pArgs : pNoArgs.Get());
    QZ_TRACE_I(L"%hs: '%hs', %u bytes of arguments.\n", QZ_SCOPE_NAME, strUrl,
               static_cast<unsigned>(strBody.size()));
    char szError[CURL_ERROR_SIZE] = {};
    Reply reply;
    HeaderList pHeaders = Headers(endpoint);
    SetTransportBasics(pCurl.get(), endpoint.m_wstrServerCert, szError);
    SetProxy(pCurl.get(), endpoint.m_proxy);
    curl_easy_setopt(pCurl.get(), CURLOPT_URL, strUrl.c_str());
    curl_easy_setopt(pCurl.get(), CURLOPT_POSTFIELDS, strBody.c_str());
    curl_easy_setopt(pCurl.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(strBody.size()));
    curl_easy_setopt(pCurl.get(), CURLOPT_HTTPHEADER, pHeaders.get());
    curl_easy_setopt(pCurl.get(), CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(pCurl.get(), CURLOPT_TIMEOUT, endpoint.m_lTimeoutSec);
    curl_easy_setopt(pCurl.get(), CURLOPT_WRITEFUNCTION, &OnReply);
    curl_easy_setopt(pCurl.get(), CURLOPT_WRITEDATA, &reply);
    const CURLcode eResult = curl_easy_perform(pCurl.get());
    long lStatus = 0;
    curl_easy_getinfo(pCurl.get(), CURLINFO_RESPONSE_CODE, &lStatus);
    QZ_TRACE_I(L"%hs: curl %d, HTTP status %ld, %u bytes of reply.\n", QZ_SCOPE_NAME,
               static_cast<int>(eResult), lStatus, static_cast<unsigned>(reply.m_strBody.size()));
    if (reply.m_bTooLong)
        QZ_THROW(MODULE, BAD_JSON, "a reply longer than the agent reads");
    if (eResult != CURLE_OK)
        QZ_THROW(MODULE, TRANSFER_FAILED, szError[0] ? szError : curl_easy_strerror(eResult),
                 static_cast<int>(eResult));
    if (lStatus == 401 || lStatus == 403)
        QZ_THROW(MODULE, ACCESS_DENIED, lStatus);
    if (lStatus != 200)
        ThrowServerError(reply.m_strBody, lStatus);
    return JsonToParams(reply.m_strBody);
}

}  // namespace QZTRANSPORT
