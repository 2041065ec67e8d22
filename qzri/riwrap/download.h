// Fetching a package's setup files before the setup runs: the package folder's "qzriwrap.cfg" says
// whether there is something to download, "qzpkgsrc.ini" says from where, with which SHA-256, and how
// to unpack it. The transfer and the proxy settings are interfaces of AgentServices.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qzri/riwrap/reports.h"
#include "transport/httptransfer.h"

namespace QZRI {

class RiWrpData;
struct AgentServices;

inline constexpr const wchar_t* PACKAGE_SOURCE_CONFIG = L"qzriwrap.cfg";
inline constexpr const wchar_t* PACKAGE_SOURCE_INI = L"qzpkgsrc.ini";
inline constexpr const wchar_t* DOWNLOADED_FILE = L"$qzriwrp_downloaded~.tmp";

inline constexpr RiMessage MSG_FILE_VERIFYING_ERROR{L"QZRI_MSG_DATA_FILE_VERIFYING_ERROR",
                                                    L"An error occurred while verifying files authenticity"};
inline constexpr RiMessage MSG_FILE_COPY_ERROR{L"QZRI_MSG_DATA_FILE_COPY_ERROR",
                                               L"An error occurred while file copy"};

// Downloads one file (QZTRANSPORT::DownloadFile in the agent).
class Transfer
{
public:
    virtual ~Transfer() = default;
    virtual QZTRANSPORT::Downloaded Download(const std::string& strUrl, const std::wstring& wstrFile,
                                             const QZTRANSPORT::ProxySettings& proxy) = 0;
};

// The proxy the management agent is configured with.
class ProxySource
{
public:
    virtual ~ProxySource() = default;
    virtual QZTRANSPORT::ProxySettings Get() = 0;
};

std::unique_ptr<Transfer> CreateCurlTransfer();
// The management agent's settings in the local settings storage at wstrStorage: product "1103", version
// "1.0.0.0", section PROXY_SECTION, values QZNPS_PROXY_USE and QZNPS_PROXY_AUTHENTICATE (booleans),
// QZNPS_PROXY_LOCATION, QZNPS_PROXY_USER and QZNPS_PROXYPWD_ENCRYPTED (strings; the password protected by
// the password store, unprotected only in memory).
inline constexpr const wchar_t* PROXY_SECTION = L"QZNPS";
std::unique_ptr<ProxySource> CreateProxySource(const std::wstring& wstrStorage);

enum class EResult
{
    SUCCESS,
    FAILURE,
};

// Why a download step failed: the message and the run's result code.
struct DownloadFailure
{
    RiMessage m_msg{};
    int32_t m_nCode = 0;
};

// Success also when there is nothing to download. A failure fills *pFailure; transfer errors are
// raised (QZError of module "QZTRANSPORT"). "should_download" becomes 0 only after the whole step
// succeeded, so any failure is tried again from the start at the next run.
EResult CheckAndDownloadExecutableIfNeeded(RiWrpData& data, DownloadFailure* pFailure,
                                           const AgentServices& services);

// The name of what a url downloads: the last part of its path, without query or fragment ("" when the
// path ends in "/").
std::wstring DownloadNameOf(const std::string& strUrl);

}  // namespace QZRI
