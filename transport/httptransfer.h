// Downloading one file over HTTP(S), directly or through a proxy, with its SHA-256 computed while the
// bytes arrive (on a thread of its own beside the transfer, so the file is never read a second time).
// libcurl underneath: Schannel in the Windows build (the machine's certificate store), OpenSSL
// natively.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "transport/errors.h"

namespace QZTRANSPORT {

struct ProxySettings
{
    bool m_bUse = false;
    // "host:port"
    std::wstring m_wstrLocation;
    bool m_bAuthenticate = false;
    std::wstring m_wstrUser;
    // In clear text only in memory; traced only as its length.
    std::wstring m_wstrPassword;
};

struct TransferOptions
{
    long m_lConnectTimeoutSec = 60;
    // A transfer slower than this many bytes per second for m_lLowSpeedTimeSec ends: a stalled server
    // or connection never holds the agent for ever.
    long m_lLowSpeedBytesPerSec = 1;
    long m_lLowSpeedTimeSec = 120;
    // A CA file to trust instead of the system's (tests); empty: the system's.
    std::wstring m_wstrCaFile;
    // Bytes so far and expected in all (0 when unknown); never cancels the transfer.
    std::function<void(uint64_t nNow, uint64_t nTotal)> m_fnProgress;
};

struct Downloaded
{
    uint64_t m_nBytes = 0;
    // Bytes that an earlier, cut transfer had left in the file and that this one went on from.
    uint64_t m_nResumedFrom = 0;
    // Lower-case hexadecimal SHA-256 of the whole file.
    std::string m_strSha256;
};

// Downloads strUrl into wstrFile. A file that is already there is what an earlier transfer left when it
// was cut: it is hashed once and the transfer goes on from its end with a range request (a server that
// ignores the range sends the whole file, which then replaces it). Raises QZError of module
// "QZTRANSPORT" when the transfer fails, the server answers with an error status or the file cannot be
// written. A transfer cut after some bytes arrived keeps them in the file; every other failure removes
// it.
Downloaded DownloadFile(const std::string& strUrl, const std::wstring& wstrFile, const ProxySettings& proxy,
                        const TransferOptions& options);

// The SHA-256 of a whole file, lower-case hexadecimal; raises 1205 (QZSTD) when it cannot be read.
std::string Sha256OfFile(const std::wstring& wstrFile);

}  // namespace QZTRANSPORT
