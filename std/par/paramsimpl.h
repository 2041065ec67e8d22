// The one implementation of Params.
//
// Locking: every object has its own reader/writer lock. Readers share it, mutators take it
// exclusively. Once an object is frozen nothing can change it any more, so readers skip the lock
// (the flag is set under the exclusive lock and read with acquire ordering, which makes every
// earlier change visible). A mutator still takes the lock and then ends the process on the flag.
//
// No operation holds two Params locks at once: operations that read another Params or walk nested
// ones (Compare, the copies, Clone, MakeReadOnly, enumeration) take a snapshot of the entries under
// the lock and work on it after releasing it. So threads that compare or copy trees in opposite
// directions cannot deadlock, and an enumeration callback may use the Params it enumerates.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <shared_mutex>
#include <vector>

#include "std/par/params.h"
#include "std/par/sharedstr.h"

namespace QZPAR {

class ParamsImplBase : public Params, public EnumValues, public ParamsInternal
{
public:
    // Knows "QZPAR::Params", "QZPAR::EnumValues" and "QZPAR::ParamsInternal".
    bool QueryInterface(const char* szIid, void** ppv) override;
};

class CParamsImpl : public ParamsImplBase
{
public:
    // Params
    void Clone(Params** ppParams) override;
    int Compare(Params* pParams) override;
    void AddValue(const wchar_t* szName, Value* pValue) override;
    void ReplaceValue(const wchar_t* szName, Value* pValue) override;
    bool DeleteValue(const wchar_t* szName, bool bThrow) override;
    void SetValue(const wchar_t* szName, Value* pValue) override;
    void GetValue(const wchar_t* szName, Value** ppValue) override;
    bool GetValueNoThrow(const wchar_t* szName, Value** ppValue) override;
    void GetNames(std::vector<std::wstring>& vecNames) override;
    void Clear() override;
    bool DoesExist(const wchar_t* szName) override;
    void CopyFrom(Params* pSrc) override;
    void CopyFromShared(Params* pSrc) override;
    int32_t GetSize() override;
    void MakeReadOnly() override;

    // EnumValues
    void Enumerate(EnumValuesCallback* pCallback) override;
    void CreateEnumerator(ValuesEnumerator** pEnum) override;

    // ParamsInternal
    bool IsReadOnly() override { return m_nReadOnly.load(std::memory_order_acquire) != 0; }
    void GetEntries(std::vector<ParamsEntry>& vecEntries) override;
    void ReplaceEntries(std::vector<ParamsEntry> vecEntries) override;

private:
    using Map = std::map<SharedString, QZSTD::CAutoPtr<Value>, NameLess>;
    class ReadGuard;
    class WriteGuard;

    // The map's lower bound for the key, with the key's known prefix set up for the descent.
    Map::iterator LowerBound(const NameKey& key);
    // Adds an entry (the caller checked that the name is new) and keeps count and common prefix.
    void Insert(Map::iterator itHint, SharedString shName, QZSTD::CAutoPtr<Value> pValue);
    // Whether the lower bound it is the entry of that name.
    bool IsMatch(Map::iterator it, const NameKey& key) const;
    bool IsMatch(Map::iterator it, const SharedString& shName) const;
    // The entry of that name, or end(). The caller holds the lock.
    Map::iterator Find(const NameKey& key);
    // Inserts or overwrites under the lock; the old value is moved to pOld so that it is released
    // after the lock.
    void Store(const NameKey& key, Value* pValue, QZSTD::CAutoPtr<Value>& pOld);

    mutable std::shared_mutex m_lock;
    Map m_mapValues;
    int32_t m_nCount = 0;
    std::atomic<uint32_t> m_nReadOnly{0};
    // Characters that every name starts with alike (at least that many: it is not raised when
    // names go, and it is set afresh by the first name of an empty map). Lookups skip them.
    size_t m_nCommonPrefix = 0;
};

}  // namespace QZPAR
