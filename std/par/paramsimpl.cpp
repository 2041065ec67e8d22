// Params: the name-ordered map of values with its lock and read-only flag.
#include "std/par/paramsimpl.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "std/failfast.h"
#include "std/par/errors.h"
#include "std/par/pool.h"
#include "std/par/valuesimpl.h"

namespace QZPAR {
namespace {

// The temporary key over the caller's characters.
NameKey CheckName(const wchar_t* szName)
{
    QZ_CHECK_ARG(szName && *szName, "name");
    return NameKey(std::wstring_view(szName));
}

SharedString MakeName(const NameKey& key)
{
    return SharedString(std::wstring_view(key.pChars, key.nLength));
}

[[noreturn]] void ThrowMissing(const wchar_t* szName)
{
    QZ_THROW(Err::MODULE, Err::DOES_NOT_EXIST, szName);
}

// A snapshot of any Params of this implementation; other implementations are not supported.
void SnapshotOf(Params* pParams, std::vector<ParamsEntry>& vecEntries)
{
    QZSTD::CAutoPtr<ParamsInternal> pInternal = QZSTD::QueryInterface<ParamsInternal>(pParams);
    if (!pInternal)
        QZ_THROW(Err::MODULE, Err::WRONG_PARAMS);
    pInternal->GetEntries(vecEntries);
}

void CloneValues(std::vector<ParamsEntry>& vecEntries)
{
    for (ParamsEntry& e : vecEntries) {
        QZSTD::CAutoPtr<Value> pCopy;
        e.m_pValue->Clone(&pCopy);
        e.m_pValue = std::move(pCopy);
    }
}

// Freezes the Params held by a value, directly or inside (nested) arrays.
void FreezeNested(Value* pValue)
{
    if (!pValue)
        return;
    if (pValue->GetType() == Value::PARAMS_T) {
        QZSTD::CAutoPtr<Params> pParams;
        static_cast<ParamsValue*>(pValue)->GetValue(&pParams);
        if (pParams)
            pParams->MakeReadOnly();
    } else if (pValue->GetType() == Value::ARRAY_T) {
        ArrayValue* pArray = static_cast<ArrayValue*>(pValue);
        for (size_t i = 0; i < pArray->GetSize(); ++i) {
            QZSTD::CAutoPtr<Value> pElement;
            pArray->GetAt(i, &pElement);
            FreezeNested(pElement);
        }
    }
}

class CValuesEnumeratorImpl : public ValuesEnumerator
{
public:
    explicit CValuesEnumeratorImpl(std::vector<ParamsEntry> vecEntries) : m_vecEntries(std::move(vecEntries))
    {
    }

    bool Next(const wchar_t** pszName, Value** ppValue) override
    {
        QZ_CHECK_ARG(pszName, "pszName");
        CheckOutPointer(ppValue, "ppValue");
        if (m_nNext >= m_vecEntries.size())
            return false;
        const ParamsEntry& e = m_vecEntries[m_nNext++];
        *pszName = e.m_shName.c_str();
        e.m_pValue.CopyTo(ppValue);
        return true;
    }
    void Reset() override { m_nNext = 0; }
    size_t GetCount() const override { return m_vecEntries.size(); }

private:
    std::vector<ParamsEntry> m_vecEntries;
    size_t m_nNext = 0;
};

}  // namespace

// ---- locking ----

// A lock that cannot be taken means a corrupted object or a thread that already holds it: going on
// would read or write the map unprotected.
class CParamsImpl::ReadGuard
{
public:
    explicit ReadGuard(const CParamsImpl& params)
        : m_pLock(params.m_nReadOnly.load(std::memory_order_acquire) ? nullptr : &params.m_lock)
    {
        if (!m_pLock)
            return;
        try {
            m_pLock->lock_shared();
        } catch (...) {
            QZSTD::FailFast("QZPAR: cannot take the Params lock for reading");
        }
    }
    ~ReadGuard()
    {
        if (m_pLock)
            m_pLock->unlock_shared();
    }
    ReadGuard(const ReadGuard&) = delete;
    ReadGuard& operator=(const ReadGuard&) = delete;

private:
    std::shared_mutex* m_pLock;
};

// Also enforces the frozen state: every change to a Params goes through here.
class CParamsImpl::WriteGuard
{
public:
    explicit WriteGuard(CParamsImpl& params, bool bAllowFrozen = false) : m_lock(params.m_lock)
    {
        try {
            m_lock.lock();
        } catch (...) {
            QZSTD::FailFast("QZPAR: cannot take the Params lock for writing");
        }
        if (!bAllowFrozen && params.m_nReadOnly.load(std::memory_order_relaxed))
            QZSTD::FailFast("QZPAR: change to a read-only Params");
    }
    ~WriteGuard() { m_lock.unlock(); }
    WriteGuard(const WriteGuard&) = delete;
    WriteGuard& operator=(const WriteGuard&) = delete;

private:
    std::shared_mutex& m_lock;
};

// ---- ParamsImplBase ----

bool ParamsImplBase::QueryInterface(const char* szIid, void** ppv)
{
    QZ_CHECK_ARG(ppv, "ppv");
    *ppv = nullptr;
    if (!szIid)
        return false;
    if (std::strcmp(szIid, Params::QZ_IID) == 0)
        *ppv = static_cast<Params*>(this);
    else if (std::strcmp(szIid, EnumValues::QZ_IID) == 0)
        *ppv = static_cast<EnumValues*>(this);
    else if (std::strcmp(szIid, ParamsInternal::QZ_IID) == 0)
        *ppv = static_cast<ParamsInternal*>(this);
    else
        return false;
    static_cast<Params*>(this)->AddRef();
    return true;
}

// ---- CParamsImpl: lookups ----

bool CParamsImpl::IsMatch(Map::iterator it, const NameKey& key) const
{
    // it is the lower bound: the only candidate, and the last name the descent found not to order
    // before the key, so the key's prefix length above is its common prefix with that name.
    return it != m_mapValues.end() && it->first.size() == key.nLength && key.nPrefixAbove == key.nLength;
}

bool CParamsImpl::IsMatch(Map::iterator it, const SharedString& shName) const
{
    return it != m_mapValues.end() && !NameLess()(shName, it->first);
}

CParamsImpl::Map::iterator CParamsImpl::LowerBound(const NameKey& key)
{
    // Every name shares the common prefix of all names with the first one, so it shares with the
    // key at least what the key shares with the first name, up to that length.
    size_t nKnown = 0;
    if (!m_mapValues.empty()) {
        const SharedString& shFirst = m_mapValues.begin()->first;
        nKnown =
            CommonPrefixLength(shFirst.view(), std::wstring_view(key.pChars, key.nLength), m_nCommonPrefix);
    }
    key.nPrefixBelow = nKnown;
    key.nPrefixAbove = nKnown;
    return m_mapValues.lower_bound(key);
}

void CParamsImpl::Insert(Map::iterator itHint, SharedString shName, QZSTD::CAutoPtr<Value> pValue)
{
    const size_t nCommon = m_mapValues.empty() ? shName.size()
                                               : CommonPrefixLength(m_mapValues.begin()->first.view(),
                                                                    shName.view(), m_nCommonPrefix);
    m_mapValues.emplace_hint(itHint, std::move(shName), std::move(pValue));
    m_nCommonPrefix = nCommon;
    ++m_nCount;
}

CParamsImpl::Map::iterator CParamsImpl::Find(const NameKey& key)
{
    auto it = LowerBound(key);
    return IsMatch(it, key) ? it : m_mapValues.end();
}

void CParamsImpl::GetValue(const wchar_t* szName, Value** ppValue)
{
    if (!GetValueNoThrow(szName, ppValue))
        ThrowMissing(szName);
}

bool CParamsImpl::GetValueNoThrow(const wchar_t* szName, Value** ppValue)
{
    const NameKey key = CheckName(szName);
    CheckOutPointer(ppValue, "ppValue");
    ReadGuard guard(*this);
    auto it = Find(key);
    if (it == m_mapValues.end())
        return false;
    it->second.CopyTo(ppValue);
    return true;
}

bool CParamsImpl::DoesExist(const wchar_t* szName)
{
    const NameKey key = CheckName(szName);
    ReadGuard guard(*this);
    return Find(key) != m_mapValues.end();
}

int32_t CParamsImpl::GetSize()
{
    ReadGuard guard(*this);
    return m_nCount;
}

void CParamsImpl::GetNames(std::vector<std::wstring>& vecNames)
{
    ReadGuard guard(*this);
    vecNames.clear();
    try {
        vecNames.reserve(static_cast<size_t>(m_nCount));
    } catch (const std::exception&) {
        QZ_THROW_STD(QZSTD::Err::OUT_OF_RANGE);
    }
    for (const auto& entry : m_mapValues)
        vecNames.emplace_back(entry.first.view());
}

void CParamsImpl::GetEntries(std::vector<ParamsEntry>& vecEntries)
{
    ReadGuard guard(*this);
    vecEntries.clear();
    vecEntries.reserve(m_mapValues.size());
    for (const auto& entry : m_mapValues)
        vecEntries.push_back(ParamsEntry{entry.first, entry.second});
}

// ---- CParamsImpl: changes ----

void CParamsImpl::Store(const NameKey& key, Value* pValue, QZSTD::CAutoPtr<Value>& pOld)
{
    auto it = LowerBound(key);
    if (IsMatch(it, key)) {
        pOld = std::exchange(it->second, QZSTD::CAutoPtr<Value>(pValue));
        return;
    }
    // The shared name is built only here, when an entry is really added.
    Insert(it, MakeName(key), QZSTD::CAutoPtr<Value>(pValue));
}

void CParamsImpl::AddValue(const wchar_t* szName, Value* pValue)
{
    const NameKey key = CheckName(szName);
    QZ_CHECK_ARG(pValue, "value");
    WriteGuard guard(*this);
    auto it = LowerBound(key);
    if (IsMatch(it, key))
        QZ_THROW(Err::MODULE, Err::ALREADY_EXISTS, szName);
    Insert(it, MakeName(key), QZSTD::CAutoPtr<Value>(pValue));
}

void CParamsImpl::ReplaceValue(const wchar_t* szName, Value* pValue)
{
    const NameKey key = CheckName(szName);
    QZ_CHECK_ARG(pValue, "value");
    QZSTD::CAutoPtr<Value> pOld;
    WriteGuard guard(*this);
    Store(key, pValue, pOld);
}

void CParamsImpl::SetValue(const wchar_t* szName, Value* pValue)
{
    const NameKey key = CheckName(szName);
    QZ_CHECK_ARG(pValue, "value");
    QZSTD::CAutoPtr<Value> pOld;
    WriteGuard guard(*this);
    auto it = Find(key);
    if (it == m_mapValues.end())
        ThrowMissing(szName);
    pOld = std::exchange(it->second, QZSTD::CAutoPtr<Value>(pValue));
}

bool CParamsImpl::DeleteValue(const wchar_t* szName, bool bThrow)
{
    const NameKey key = CheckName(szName);
    QZSTD::CAutoPtr<Value> pOld;
    WriteGuard guard(*this);
    auto it = Find(key);
    if (it == m_mapValues.end()) {
        if (bThrow)
            ThrowMissing(szName);
        return false;
    }
    pOld = std::move(it->second);
    m_mapValues.erase(it);
    --m_nCount;
    return true;
}

void CParamsImpl::Clear()
{
    Map mapOld;  // released after the lock
    WriteGuard guard(*this);
    m_mapValues.swap(mapOld);
    m_nCount = 0;
}

void CParamsImpl::ReplaceEntries(std::vector<ParamsEntry> vecEntries)
{
    for (const ParamsEntry& e : vecEntries) {
        if (!e.m_pValue)
            QZ_ASSERTION_FAILED("value != NULL");
        QZ_CHECK_ARG(!e.m_shName.empty(), "name");
    }
    WriteGuard guard(*this);
    for (ParamsEntry& e : vecEntries) {
        // Entries usually come in name order (snapshots, the binary stream, sorted builders): one
        // comparison with the last name then finds the place.
        if (m_mapValues.empty() || NameLess()(std::prev(m_mapValues.end())->first, e.m_shName)) {
            Insert(m_mapValues.end(), std::move(e.m_shName), std::move(e.m_pValue));
            continue;
        }
        auto it = m_mapValues.lower_bound(e.m_shName);
        if (IsMatch(it, e.m_shName)) {
            // The old value goes back into the vector, to be released after the lock.
            std::swap(it->second, e.m_pValue);
            continue;
        }
        Insert(it, std::move(e.m_shName), std::move(e.m_pValue));
    }
}

void CParamsImpl::CopyFrom(Params* pSrc)
{
    QZ_CHECK_ARG(pSrc, "pSrc");
    std::vector<ParamsEntry> vecEntries;
    SnapshotOf(pSrc, vecEntries);
    CloneValues(vecEntries);
    ReplaceEntries(std::move(vecEntries));
}

void CParamsImpl::CopyFromShared(Params* pSrc)
{
    QZ_CHECK_ARG(pSrc, "pSrc");
    std::vector<ParamsEntry> vecEntries;
    SnapshotOf(pSrc, vecEntries);
    ReplaceEntries(std::move(vecEntries));
}

void CParamsImpl::MakeReadOnly()
{
    {
        WriteGuard guard(*this, true);
        m_nReadOnly.store(1, std::memory_order_release);
    }
    // Frozen now, so the entries can be walked without the lock (and no lock is held while the
    // nested trees take theirs). A tree holding the same nested Params twice freezes it twice.
    for (const auto& entry : m_mapValues)
        FreezeNested(entry.second);
}

// ---- CParamsImpl: whole-tree operations ----

void CParamsImpl::Clone(Params** ppParams)
{
    CheckOutPointer(ppParams, "ppParams");
    std::vector<ParamsEntry> vecEntries;
    GetEntries(vecEntries);
    CloneValues(vecEntries);
    CParamsImpl* pCopy = QZSTD_POOL2::CreatePooled<CParamsImpl>();
    QZSTD::CAutoPtr<Params> pOwner = QZSTD::CAutoPtr<Params>::Adopt(pCopy);
    // Nobody else knows the new object yet, and the snapshot is in name order: every entry goes
    // to the end of the map without the lock.
    for (ParamsEntry& e : vecEntries)
        pCopy->Insert(pCopy->m_mapValues.end(), std::move(e.m_shName), std::move(e.m_pValue));
    *ppParams = pOwner.Detach();
}

int CParamsImpl::Compare(Params* pParams)
{
    QZ_CHECK_ARG(pParams, "pParams");
    if (pParams == static_cast<Params*>(this))
        return 0;
    if (const int n = CompareNatural(GetSize(), pParams->GetSize()))
        return n;
    std::vector<ParamsEntry> vecMine, vecOther;
    GetEntries(vecMine);
    SnapshotOf(pParams, vecOther);
    const size_t nCommon = std::min(vecMine.size(), vecOther.size());
    for (size_t i = 0; i < nCommon; ++i) {
        if (const int n = CompareOrdinal(vecMine[i].m_shName, vecOther[i].m_shName))
            return n;
        if (const int n = CompareNullable(vecMine[i].m_pValue, vecOther[i].m_pValue))
            return n;
    }
    // Only differs when one side changed between the counts and the snapshots.
    return CompareNatural(vecMine.size(), vecOther.size());
}

// ---- CParamsImpl: enumeration ----

void CParamsImpl::Enumerate(EnumValuesCallback* pCallback)
{
    QZ_CHECK_ARG(pCallback, "pCallback");
    std::vector<ParamsEntry> vecEntries;
    GetEntries(vecEntries);
    for (const ParamsEntry& e : vecEntries)
        pCallback->OnValue(e.m_shName.c_str(), e.m_pValue);
}

void CParamsImpl::CreateEnumerator(ValuesEnumerator** pEnum)
{
    CheckOutPointer(pEnum, "pEnum");
    std::vector<ParamsEntry> vecEntries;
    GetEntries(vecEntries);
    *pEnum = new QZSTD::RcClassImpl<CValuesEnumeratorImpl>(std::move(vecEntries));
}

}  // namespace QZPAR
