// The products the management agent controls, read from its local settings storage.
#include "qzri/riwrap/driverservices.h"

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/settingsstorage.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRI";

// The first non-empty "DisplayName" string among the version's sections; empty when none has one.
std::wstring DisplayNameOf(QZSTD::SettingsStorage& storage, const std::wstring& wstrProduct,
                           const std::wstring& wstrVersion)
{
    for (const std::wstring& wstrSection : storage.EnumSections(wstrProduct, wstrVersion)) {
        QZSTD::CAutoPtr<QZPAR::Params> pSection = storage.ReadSection(wstrProduct, wstrVersion, wstrSection);
        QZSTD::CAutoPtr<QZPAR::Value> pValue = QZPAR::FindValue(pSection.Get(), DISPLAY_NAME_VALUE);
        if (pValue && pValue->GetType() == QZPAR::Value::STRING_T) {
            std::wstring wstrName = QZPAR::GetStringValue(pValue.Get());
            if (!wstrName.empty())
                return wstrName;
        }
    }
    return std::wstring();
}

}  // namespace

std::vector<ControlledProduct> LocalStorageProducts::List()
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::LocalStorageProducts::List");
    std::vector<ControlledProduct> vecProducts;
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage;
    try {
        pStorage = QZSTD::SettingsStorage::OpenReadOnly(m_wstrStoragePath);
    } catch (const QZSTD::QZError& e) {
        if (!e.Is(QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND))
            throw;
        QZ_TRACE_I(L"%hs: No local settings storage '%ls': no products.\n", QZ_SCOPE_NAME, m_wstrStoragePath);
        return vecProducts;
    }
    for (const std::wstring& wstrProduct : pStorage->EnumProducts()) {
        for (const std::wstring& wstrVersion : pStorage->EnumVersions(wstrProduct)) {
            std::wstring wstrName = DisplayNameOf(*pStorage, wstrProduct, wstrVersion);
            if (!wstrName.empty())
                vecProducts.push_back({wstrProduct, wstrVersion, std::move(wstrName)});
        }
    }
    return vecProducts;
}

std::optional<bool> LocalStorageProducts::ConnInstalled()
{
    QZ_TRACE_SCOPE(MODULE, "QZRI::LocalStorageProducts::ConnInstalled");
    try {
        QZSTD::CAutoPtr<QZPAR::Params> pSection =
            QZSTD::SettingsStorage::OpenReadOnly(m_wstrStoragePath)
                ->ReadSection(MANAGEMENT_AGENT_PRODUCT, MANAGEMENT_AGENT_VERSION, CONN_INSTALLED_SECTION);
        QZSTD::CAutoPtr<QZPAR::Value> pValue = QZPAR::FindValue(pSection.Get(), CONN_INSTALLED_VALUE);
        if (pValue && pValue->GetType() == QZPAR::Value::BOOL_T)
            return QZPAR::GetBoolValue(pValue.Get());
        QZ_TRACE_I(L"%hs: No boolean %ls in '%ls'.\n", QZ_SCOPE_NAME, CONN_INSTALLED_VALUE,
                   m_wstrStoragePath);
    } catch (const QZSTD::QZError& e) {
        QZ_TRACE_EXCEPTION_AT(QZSTD::TL_INFO, e);
    }
    return std::nullopt;
}

}  // namespace QZRI
