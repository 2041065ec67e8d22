// The management agent's current server id from its local settings storage.
#include "qzri/riwrap/serverid.h"

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/settingsstorage.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const wchar_t* NAGENT_PRODUCT = L"1103";
constexpr const wchar_t* NAGENT_VERSION = L"1.0.0.0";
constexpr const wchar_t* GLOBAL_SECTION = L"global";
constexpr const wchar_t* SERVER_ID_VALUE = L"QZNAG_SRVID";

// Storage, product, version or section missing: the management agent is not installed or has not
// been connected to a server yet.
bool IsMissingData(const QZSTD::QZError& e)
{
    return e.Is(QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND) ||
           e.Is(QZSTD::Err::MODULE, QZSTD::Err::PRODUCT_MISSING) ||
           e.Is(QZSTD::Err::MODULE, QZSTD::Err::NOT_FOUND);
}

}  // namespace

std::wstring LocalStorageServerId::GetCurrentServerId()
{
    QZ_TRACE_SCOPE("QZRI", "QZRI::GetCurrentServerId");
    try {
        QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage =
            QZSTD::SettingsStorage::OpenReadOnly(m_wstrStoragePath);
        QZSTD::CAutoPtr<QZPAR::Params> pGlobal =
            pStorage->ReadSection(NAGENT_PRODUCT, NAGENT_VERSION, GLOBAL_SECTION);
        const std::wstring wstrId = QZPAR::GetStringValue(pGlobal, SERVER_ID_VALUE, L"");
        if (wstrId.empty())
            QZ_TRACE_I(L"%hs: No %ls in '%ls': no current server.\n", QZ_SCOPE_NAME, SERVER_ID_VALUE,
                       m_wstrStoragePath);
        return wstrId;
    } catch (const QZSTD::QZError& e) {
        if (IsMissingData(e)) {
            QZ_TRACE_I(L"%hs: No management agent data in '%ls' (%ls): no current server.\n", QZ_SCOPE_NAME,
                       m_wstrStoragePath, e.GetMessage());
        } else {
            QZ_TRACE_EXCEPTION(e);
            QZ_TRACE_W(L"%hs: The local settings storage '%ls' cannot be read: no current server.\n",
                       QZ_SCOPE_NAME, m_wstrStoragePath);
        }
    }
    return std::wstring();
}

}  // namespace QZRI
