// The file transfer: curl writes each block to the file and hands a copy to the hashing thread through
// a bounded queue, so that hashing never slows the transfer down and memory stays small whatever the
// file's size.
#include "transport/httptransfer.h"

#include "transport/curlsession.h"

#include <curl/curl.h>
#include <openssl/evp.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "std/error.h"
#include "std/fspath.h"
#include "std/strconv.h"
#include "std/trace.h"

namespace QZTRANSPORT {
namespace {

constexpr const char* TRACE_MODULE = "QZTRANSPORT";
// At most this many blocks of BLOCK_SIZE wait for the hashing thread.
constexpr size_t BLOCK_SIZE = 1024 * 1024;
constexpr size_t MAX_QUEUED_BLOCKS = 8;
constexpr long BUFFER_SIZE = 512 * 1024;

std::string Hex(const unsigned char* pBytes, unsigned int nLen)
{
    static const char DIGITS[] = "0123456789abcdef";
    std::string str;
    for (unsigned int n = 0; n < nLen; ++n) {
        str += DIGITS[pBytes[n] >> 4];
        str += DIGITS[pBytes[n] & 0xF];
    }
    return str;
}

class Sha256
{
public:
    Sha256() : m_pCtx(EVP_MD_CTX_new(), &EVP_MD_CTX_free)
    {
        if (!m_pCtx || EVP_DigestInit_ex(m_pCtx.get(), EVP_sha256(), nullptr) != 1)
            QZ_ASSERTION_FAILED("EVP_DigestInit_ex");
    }
    void Update(const void* pData, size_t nLen) { EVP_DigestUpdate(m_pCtx.get(), pData, nLen); }
    std::string Final()
    {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int nLen = 0;
        EVP_DigestFinal_ex(m_pCtx.get(), digest, &nLen);
        return Hex(digest, nLen);
    }

private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_pCtx;
};

// Hashes what it is given on a thread of its own. Bytes are gathered into blocks of BLOCK_SIZE, and the
// blocks go round between the two threads (no allocation per block); Push waits only while
// MAX_QUEUED_BLOCKS blocks wait to be hashed, which bounds the memory whatever the file's size.
class HashingThread
{
public:
    HashingThread() : m_thread([this] { Run(); }) {}
    ~HashingThread()
    {
        if (m_thread.joinable())
            Finish();
    }
    HashingThread(const HashingThread&) = delete;
    HashingThread& operator=(const HashingThread&) = delete;

    void Push(const char* pData, size_t nLen)
    {
        while (nLen > 0) {
            if (m_current.capacity() == 0)
                m_current = TakeFreeBlock();
            const size_t nTake = std::min(nLen, BLOCK_SIZE - m_current.size());
            m_current.insert(m_current.end(), pData, pData + nTake);
            pData += nTake;
            nLen -= nTake;
            if (m_current.size() == BLOCK_SIZE)
                Queue();
        }
    }

    std::string Finish()
    {
        if (!m_current.empty())
            Queue();
        {
            std::lock_guard lock(m_mutex);
            m_bDone = true;
        }
        m_cvData.notify_one();
        m_thread.join();
        return m_sha.Final();
    }

private:
    std::vector<char> TakeFreeBlock()
    {
        std::lock_guard lock(m_mutex);
        std::vector<char> block;
        if (!m_free.empty()) {
            block = std::move(m_free.back());
            m_free.pop_back();
        }
        block.clear();
        block.reserve(BLOCK_SIZE);
        return block;
    }

    void Queue()
    {
        std::unique_lock lock(m_mutex);
        m_cvSpace.wait(lock, [this] { return m_queue.size() < MAX_QUEUED_BLOCKS; });
        m_queue.push_back(std::move(m_current));
        m_current = std::vector<char>();
        m_cvData.notify_one();
    }

    void Run()
    {
        std::vector<char> block;
        for (;;) {
            {
                std::unique_lock lock(m_mutex);
                if (block.capacity() != 0)
                    m_free.push_back(std::move(block));
                m_cvData.wait(lock, [this] { return m_bDone || !m_queue.empty(); });
                if (m_queue.empty())
                    return;
                block = std::move(m_queue.front());
                m_queue.pop_front();
            }
            m_cvSpace.notify_one();
            m_sha.Update(block.data(), block.size());
        }
    }

    Sha256 m_sha;
    std::vector<char> m_current;
    std::mutex m_mutex;
    std::condition_variable m_cvData;
    std::condition_variable m_cvSpace;
    std::deque<std::vector<char>> m_queue;
    std::vector<std::vector<char>> m_free;
    bool m_bDone = false;
    std::thread m_thread;
};

struct Sink
{
    std::ofstream m_file;
    std::unique_ptr<HashingThread> m_pHasher = std::make_unique<HashingThread>();
    uint64_t m_nBytes = 0;
    // Bytes of an earlier, cut transfer that this one goes on from.
    uint64_t m_nResumedFrom = 0;
    bool m_bChecked = false;
    bool m_bWriteFailed = false;
    CURL* m_pCurl = nullptr;
    std::wstring m_wstrFile;
    const TransferOptions* m_pOptions = nullptr;
};

// At the first bytes: a server that ignored the range request sends the whole file again, so what was
// kept is thrown away and hashing starts afresh.
void CheckResumed(Sink& sink)
{
    sink.m_bChecked = true;
    long lStatus = 0;
    curl_easy_getinfo(sink.m_pCurl, CURLINFO_RESPONSE_CODE, &lStatus);
    if (sink.m_nResumedFrom == 0 || lStatus == 206)
        return;
    QZ_TRACE_SCOPE(TRACE_MODULE, "QZTRANSPORT::DownloadFile");
    QZ_TRACE_W(L"%hs: the server sends the whole file again (HTTP status %ld): starting afresh.\n",
               QZ_SCOPE_NAME, lStatus);
    sink.m_file.close();
    sink.m_file.open(QZSTD::FsPath(sink.m_wstrFile), std::ios::binary | std::ios::trunc);
    sink.m_pHasher->Finish();
    sink.m_pHasher = std::make_unique<HashingThread>();
    sink.m_nBytes = 0;
    sink.m_nResumedFrom = 0;
}

size_t OnData(char* pData, size_t nSize, size_t nCount, void* pvSink)
{
    Sink& sink = *static_cast<Sink*>(pvSink);
    const size_t nLen = nSize * nCount;
    if (!sink.m_bChecked)
        CheckResumed(sink);
    sink.m_file.write(pData, static_cast<std::streamsize>(nLen));
    if (!sink.m_file) {
        sink.m_bWriteFailed = true;
        return 0;
    }
    sink.m_pHasher->Push(pData, nLen);
    sink.m_nBytes += nLen;
    return nLen;
}

// What an earlier transfer left in the file: hashed once, so the transfer goes on from its end.
uint64_t TakeOverPartialFile(Sink& sink)
{
    std::ifstream in(QZSTD::FsPath(sink.m_wstrFile), std::ios::binary);
    std::vector<char> buffer(BUFFER_SIZE);
    uint64_t nBytes = 0;
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const size_t nRead = static_cast<size_t>(in.gcount());
        if (nRead == 0)
            break;
        sink.m_pHasher->Push(buffer.data(), nRead);
        nBytes += nRead;
    }
    return nBytes;
}

int OnProgress(void* pvSink, curl_off_t nTotal, curl_off_t nNow, curl_off_t, curl_off_t)
{
    const Sink& sink = *static_cast<const Sink*>(pvSink);
    if (sink.m_pOptions->m_fnProgress)
        sink.m_pOptions->m_fnProgress(static_cast<uint64_t>(nNow), static_cast<uint64_t>(nTotal));
    return 0;
}

void Configure(CURL* pCurl, const std::string& strUrl, const TransferOptions& options, Sink& sink,
               char* szError)
{
    curl_easy_setopt(pCurl, CURLOPT_URL, strUrl.c_str());
    curl_easy_setopt(pCurl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(pCurl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(pCurl, CURLOPT_BUFFERSIZE, BUFFER_SIZE);
    curl_easy_setopt(pCurl, CURLOPT_CONNECTTIMEOUT, options.m_lConnectTimeoutSec);
    curl_easy_setopt(pCurl, CURLOPT_LOW_SPEED_LIMIT, options.m_lLowSpeedBytesPerSec);
    curl_easy_setopt(pCurl, CURLOPT_LOW_SPEED_TIME, options.m_lLowSpeedTimeSec);
    curl_easy_setopt(pCurl, CURLOPT_WRITEFUNCTION, &OnData);
    curl_easy_setopt(pCurl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(pCurl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(pCurl, CURLOPT_XFERINFOFUNCTION, &OnProgress);
    curl_easy_setopt(pCurl, CURLOPT_XFERINFODATA, &sink);
    SetTransportBasics(pCurl, options.m_wstrCaFile, szError);
}

void RemoveQuietly(const std::wstring& wstrFile)
{
    std::error_code ec;
    std::filesystem::remove(QZSTD::FsPath(wstrFile), ec);
}

}  // namespace

Downloaded DownloadFile(const std::string& strUrl, const std::wstring& wstrFile, const ProxySettings& proxy,
                        const TransferOptions& options)
{
    QZ_TRACE_SCOPE(TRACE_MODULE, "QZTRANSPORT::DownloadFile");
    CurlPtr pCurl = NewCurl();
    QZ_TRACE_I(L"%hs: '%hs' into '%ls'.\n", QZ_SCOPE_NAME, strUrl, wstrFile);

    Sink sink;
    sink.m_pOptions = &options;
    sink.m_pCurl = pCurl.get();
    sink.m_wstrFile = wstrFile;
    sink.m_nResumedFrom = TakeOverPartialFile(sink);
    sink.m_nBytes = sink.m_nResumedFrom;
    sink.m_file.open(QZSTD::FsPath(wstrFile), std::ios::binary | std::ios::app);
    if (!sink.m_file)
        QZ_THROW(MODULE, WRITE_FAILED, wstrFile);
    char szError[CURL_ERROR_SIZE] = {};
    Configure(pCurl.get(), strUrl, options, sink, szError);
    const std::string strRange = std::to_string(sink.m_nResumedFrom) + "-";
    if (sink.m_nResumedFrom > 0) {
        QZ_TRACE_I(L"%hs: going on from byte %llu of an earlier transfer.\n", QZ_SCOPE_NAME,
                   static_cast<unsigned long long>(sink.m_nResumedFrom));
        // A plain range request: a server that ignores it is handled at the first bytes (CheckResumed).
        curl_easy_setopt(pCurl.get(), CURLOPT_RANGE, strRange.c_str());
    }
    SetProxy(pCurl.get(), proxy);
    const CURLcode eResult = curl_easy_perform(pCurl.get());
    long lStatus = 0;
    curl_easy_getinfo(pCurl.get(), CURLINFO_RESPONSE_CODE, &lStatus);
    sink.m_file.close();
    Downloaded done;
    done.m_strSha256 = sink.m_pHasher->Finish();
    done.m_nBytes = sink.m_nBytes;
    done.m_nResumedFrom = sink.m_nResumedFrom;
    QZ_TRACE_I(L"%hs: curl %d, HTTP status %ld, %llu bytes.\n", QZ_SCOPE_NAME, static_cast<int>(eResult),
               lStatus, static_cast<unsigned long long>(done.m_nBytes));

    if (sink.m_bWriteFailed || (eResult == CURLE_OK && !sink.m_file)) {
        RemoveQuietly(wstrFile);
        QZ_THROW(MODULE, WRITE_FAILED, wstrFile);
    }
    // A cut transfer keeps what arrived, for the next attempt to go on from.
    if (eResult != CURLE_OK) {
        if (sink.m_nBytes == 0)
            RemoveQuietly(wstrFile);
        const std::string strText = szError[0] ? szError : curl_easy_strerror(eResult);
        QZ_THROW(MODULE, TRANSFER_FAILED, strText, static_cast<int>(eResult));
    }
    // A proxy's 407 for plain http, a 404 or a 500 arrive as ordinary answers.
    if (lStatus >= 300 || lStatus == 0) {
        RemoveQuietly(wstrFile);
        QZ_THROW(MODULE, HTTP_STATUS, lStatus);
    }
    return done;
}

std::string Sha256OfFile(const std::wstring& wstrFile)
{
    std::ifstream in(QZSTD::FsPath(wstrFile), std::ios::binary);
    if (!in)
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrFile);
    Sha256 sha;
    std::vector<char> buffer(BUFFER_SIZE);
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        sha.Update(buffer.data(), static_cast<size_t>(in.gcount()));
    }
    return sha.Final();
}

}  // namespace QZTRANSPORT
