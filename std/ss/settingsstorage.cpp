// The settings storage: every call reads the file under its lock, and every change writes it back
// whole through a temporary file (see settingsstorage.h and docs/settings-storage.md).
#include "std/ss/settingsstorage.h"

#include <type_traits>
#include <utility>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/atomicfile.h"
#include "std/ss/filelock.h"
#include "std/ss/sserrors.h"
#include "std/ss/ssxml.h"

namespace QZSTD {
namespace {

using SsXml::StorageContent;

// The lock is a separate file: the storage itself is replaced on every write, and a lock on a
// file that has been replaced would protect nothing.
std::wstring LockPathOf(const std::wstring& wstrPath)
{
    return wstrPath + L".lock";
}

// Reads and checks the whole file; the caller holds the lock.
StorageContent LoadContent(const std::wstring& wstrPath)
{
    std::string strXml;
    if (!ReadWholeFile(wstrPath, strXml, SsXml::MAX_FILE_BYTES))
        QZ_THROW_STD(Err::FILE_NOT_FOUND, wstrPath);
    return SsXml::ParseStorage(strXml, wstrPath);
}

// The caller holds the exclusive lock.
void SaveContent(const std::wstring& wstrPath, const StorageContent& content)
{
    ReplaceFileContent(wstrPath, SsXml::WriteStorage(content, wstrPath));
}

void CheckProductVersion(const std::wstring& wstrProduct, const std::wstring& wstrVersion)
{
    QZ_CHECK_ARG(!wstrProduct.empty(), "wstrProduct");
    QZ_CHECK_ARG(!wstrVersion.empty(), "wstrVersion");
}

void CheckNames(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                const std::wstring& wstrSection)
{
    CheckProductVersion(wstrProduct, wstrVersion);
    QZ_CHECK_ARG(!wstrSection.empty(), "wstrSection");
}

SsXml::VersionMap& FindVersions(StorageContent& content, const std::wstring& wstrProduct)
{
    auto it = content.m_mapProducts.find(wstrProduct);
    if (it == content.m_mapProducts.end())
        QZ_THROW_STD(Err::PRODUCT_MISSING, wstrProduct);
    return it->second;
}

SsXml::SectionMap& FindSections(StorageContent& content, const std::wstring& wstrProduct,
                                const std::wstring& wstrVersion)
{
    SsXml::VersionMap& mapVersions = FindVersions(content, wstrProduct);
    auto it = mapVersions.find(wstrVersion);
    if (it == mapVersions.end())
        QZ_THROW_STD(Err::PRODUCT_MISSING, wstrProduct, wstrVersion);
    return it->second;
}

QZPAR::Params* FindSection(StorageContent& content, const std::wstring& wstrProduct,
                           const std::wstring& wstrVersion, const std::wstring& wstrSection)
{
    SsXml::SectionMap& mapSections = FindSections(content, wstrProduct, wstrVersion);
    auto it = mapSections.find(wstrSection);
    if (it == mapSections.end())
        QZ_THROW_STD(Err::NOT_FOUND, wstrSection);
    return it->second;
}

template <class Map>
std::vector<std::wstring> KeysOf(const Map& map)
{
    std::vector<std::wstring> vecKeys;
    vecKeys.reserve(map.size());
    for (const auto& entry : map)
        vecKeys.push_back(entry.first);
    return vecKeys;
}

// The nested Params a value holds; null for other types and for a null nested Params.
CAutoPtr<QZPAR::Params> NestedParamsOf(QZPAR::Value* pValue)
{
    CAutoPtr<QZPAR::Params> pNested;
    if (pValue && pValue->GetType() == QZPAR::Value::PARAMS_T)
        static_cast<QZPAR::ParamsValue*>(pValue)->GetValue(&pNested);
    return pNested;
}

void StoreEntries(QZPAR::Params* pTarget, QZPAR::Params* pEntries, bool bMerge);

// True when the new value was merged into a stored nested Params of the same name. The recursion
// ends with the stored tree, whose depth the reader has already limited.
bool MergeNested(QZPAR::Params* pTarget, const std::wstring& wstrName, QZPAR::Value* pNew)
{
    CAutoPtr<QZPAR::Params> pNewNested = NestedParamsOf(pNew);
    if (!pNewNested)
        return false;
    CAutoPtr<QZPAR::Value> pOld;
    if (!pTarget->GetValueNoThrow(wstrName.c_str(), &pOld))
        return false;
    CAutoPtr<QZPAR::Params> pOldNested = NestedParamsOf(pOld);
    if (!pOldNested)
        return false;
    StoreEntries(pOldNested, pNewNested, true);
    return true;
}

// pTarget was read from the file for this change only, so the caller's values are stored by
// reference, never copied, and the caller's Params is never changed.
void StoreEntries(QZPAR::Params* pTarget, QZPAR::Params* pEntries, bool bMerge)
{
    std::vector<std::wstring> vecNames;
    pEntries->GetNames(vecNames);
    for (const std::wstring& wstrName : vecNames) {
        CAutoPtr<QZPAR::Value> pNew;
        if (!pEntries->GetValueNoThrow(wstrName.c_str(), &pNew))
            continue;
        if (bMerge && MergeNested(pTarget, wstrName, pNew))
            continue;
        pTarget->ReplaceValue(wstrName.c_str(), pNew);
    }
}

class SettingsStorageImpl : public SettingsStorage
{
public:
    SettingsStorageImpl(std::wstring wstrPath, bool bReadOnly)
        : m_wstrPath(std::move(wstrPath)), m_bReadOnly(bReadOnly)
    {
    }

    const std::wstring& GetPath() const override { return m_wstrPath; }
    bool IsReadOnly() const override { return m_bReadOnly; }

    // Reads and checks the file once, so that opening reports a malformed storage.
    void Check()
    {
        Read([](StorageContent&) { return 0; });
    }

    std::vector<std::wstring> EnumProducts() override
    {
        return Read([](StorageContent& content) { return KeysOf(content.m_mapProducts); });
    }

    std::vector<std::wstring> EnumVersions(const std::wstring& wstrProduct) override
    {
        return Read([&](StorageContent& content) { return KeysOf(FindVersions(content, wstrProduct)); });
    }

    std::vector<std::wstring> EnumSections(const std::wstring& wstrProduct,
                                           const std::wstring& wstrVersion) override
    {
        return Read(
            [&](StorageContent& content) { return KeysOf(FindSections(content, wstrProduct, wstrVersion)); });
    }

    bool SectionExists(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                       const std::wstring& wstrSection) override
    {
        return Read([&](StorageContent& content) {
            auto itProduct = content.m_mapProducts.find(wstrProduct);
            if (itProduct == content.m_mapProducts.end())
                return false;
            auto itVersion = itProduct->second.find(wstrVersion);
            return itVersion != itProduct->second.end() && itVersion->second.count(wstrSection) != 0;
        });
    }

    void CreateSection(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                       const std::wstring& wstrSection) override
    {
        CheckNames(wstrProduct, wstrVersion, wstrSection);
        Change([&](StorageContent& content) {
            CAutoPtr<QZPAR::Params>& pSection = content.m_mapProducts[wstrProduct][wstrVersion][wstrSection];
            if (pSection)
                return false;
            pSection = QZPAR::CreateParams();
            return true;
        });
    }

    CAutoPtr<QZPAR::Params> ReadSection(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                                        const std::wstring& wstrSection) override
    {
        return Read([&](StorageContent& content) {
            return CAutoPtr<QZPAR::Params>(FindSection(content, wstrProduct, wstrVersion, wstrSection));
        });
    }

    void ReplaceEntries(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                        const std::wstring& wstrSection, QZPAR::Params* pEntries) override
    {
        StoreIntoSection(wstrProduct, wstrVersion, wstrSection, pEntries, false);
    }

    void MergeEntries(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                      const std::wstring& wstrSection, QZPAR::Params* pEntries) override
    {
        StoreIntoSection(wstrProduct, wstrVersion, wstrSection, pEntries, true);
    }

    void DeleteEntries(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                       const std::wstring& wstrSection, const std::vector<std::wstring>& vecNames) override
    {
        Change([&](StorageContent& content) {
            QZPAR::Params* pSection = FindSection(content, wstrProduct, wstrVersion, wstrSection);
            bool bChanged = false;
            for (const std::wstring& wstrName : vecNames)
                bChanged |= !wstrName.empty() && pSection->DeleteValue(wstrName.c_str(), false);
            return bChanged;
        });
    }

    bool DeleteSection(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                       const std::wstring& wstrSection) override
    {
        bool bDeleted = false;
        Change([&](StorageContent& content) {
            auto itProduct = content.m_mapProducts.find(wstrProduct);
            if (itProduct == content.m_mapProducts.end())
                return false;
            auto itVersion = itProduct->second.find(wstrVersion);
            bDeleted = itVersion != itProduct->second.end() && itVersion->second.erase(wstrSection) != 0;
            return bDeleted;
        });
        return bDeleted;
    }

private:
    // Runs fn on the content read under the shared lock.
    template <class Fn>
    std::invoke_result_t<Fn&, StorageContent&> Read(Fn&& fn)
    {
        FileLock lock(LockPathOf(m_wstrPath), FileLockMode::SHARED);
        StorageContent content = LoadContent(m_wstrPath);
        return fn(content);
    }

    // Runs fn on the content read under the exclusive lock and writes the file back when fn
    // reports a change. Reading again under the lock is what keeps the changes other processes
    // made since this object was opened.
    template <class Fn>
    void Change(Fn&& fn)
    {
        if (m_bReadOnly)
            QZ_THROW(SsErr::MODULE, SsErr::READ_ONLY, m_wstrPath);
        FileLock lock(LockPathOf(m_wstrPath), FileLockMode::EXCLUSIVE);
        StorageContent content = LoadContent(m_wstrPath);
        if (fn(content))
            SaveContent(m_wstrPath, content);
    }

    void StoreIntoSection(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                          const std::wstring& wstrSection, QZPAR::Params* pEntries, bool bMerge)
    {
        QZ_CHECK_ARG(pEntries, "pEntries");
        Change([&](StorageContent& content) {
            StoreEntries(FindSection(content, wstrProduct, wstrVersion, wstrSection), pEntries, bMerge);
            return pEntries->GetSize() > 0;
        });
    }

    const std::wstring m_wstrPath;
    const bool m_bReadOnly;
};

CAutoPtr<SettingsStorageImpl> MakeStorage(const std::wstring& wstrPath, bool bReadOnly)
{
    return CAutoPtr<SettingsStorageImpl>::Adopt(new RcClassImpl<SettingsStorageImpl>(wstrPath, bReadOnly));
}

// Writes an empty storage unless the file exists; an existing file is checked, never replaced.
void CreateIfMissing(const std::wstring& wstrPath)
{
    FileLock lock(LockPathOf(wstrPath), FileLockMode::EXCLUSIVE);
    std::string strXml;
    if (ReadWholeFile(wstrPath, strXml, SsXml::MAX_FILE_BYTES))
        SsXml::ParseStorage(strXml, wstrPath);
    else
        SaveContent(wstrPath, StorageContent{});
}

}  // namespace

CAutoPtr<SettingsStorage> SettingsStorage::OpenReadOnly(const std::wstring& wstrPath)
{
    RegisterSettingsStorageErrors();
    QZ_CHECK_ARG(!wstrPath.empty(), "wstrPath");
    // Checked before the lock: a lock file is not left behind for a storage that is not there.
    if (!FileExists(wstrPath))
        QZ_THROW_STD(Err::FILE_NOT_FOUND, wstrPath);
    CAutoPtr<SettingsStorageImpl> pStorage = MakeStorage(wstrPath, true);
    pStorage->Check();
    return pStorage;
}

CAutoPtr<SettingsStorage> SettingsStorage::OpenOrCreate(const std::wstring& wstrPath)
{
    RegisterSettingsStorageErrors();
    QZ_CHECK_ARG(!wstrPath.empty(), "wstrPath");
    CreateFolderChain(ParentFolderOf(wstrPath));
    CreateIfMissing(wstrPath);
    return MakeStorage(wstrPath, false);
}

std::string SettingsStorage::ParseForTest(const char* pData, size_t nBytes)
{
    RegisterSettingsStorageErrors();
    QZ_CHECK_ARG(pData || nBytes == 0, "pData");
    static const std::wstring wstrOrigin = L"<memory>";
    if (nBytes > SsXml::MAX_FILE_BYTES)
        QZ_THROW(SsErr::MODULE, SsErr::TOO_LARGE, wstrOrigin, static_cast<long long>(nBytes),
                 static_cast<long long>(SsXml::MAX_FILE_BYTES));
    const std::string_view svXml(pData ? pData : "", nBytes);
    return SsXml::WriteStorage(SsXml::ParseStorage(svXml, wstrOrigin), wstrOrigin);
}

}  // namespace QZSTD
