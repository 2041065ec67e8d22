// The typed value tree in which all structured data of the agent travels: run parameters, settings
// sections, reports and remote-call arguments. A Params is a set of named values kept in name
// order; a value is one of eleven typed objects, two of which (a nested Params and an array) make
// the structure a tree. Everything is reference counted; a tree can be frozen as a whole
// (MakeReadOnly) and is then read from any number of threads without locking.
//
// Out-parameters (T** pp) receive a new reference and must be empty on entry. Bad arguments raise
// QZSTD error 1187 with the argument's name; missing or duplicate names raise the QZPAR errors of
// std/par/errors.h. Changing a frozen Params ends the process (see std/failfast.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "std/par/sharedstr.h"
#include "std/qzbase.h"

namespace QZPAR {

struct Params;

struct Value : QZSTD::QZBase
{
    // Part of the binary stream format and of the logs: never renumber. No value uses 0.
    enum Type : int
    {
        STRING_T = 1,
        BOOL_T = 2,
        INT_T = 3,
        LONG_T = 4,
        DATE_TIME_T = 5,
        DATE_T = 6,
        BINARY_T = 7,
        FLOAT_T = 8,
        DOUBLE_T = 9,
        PARAMS_T = 10,
        ARRAY_T = 11,
    };

    virtual int GetType() const = 0;
    // Deep copy: nested Params and arrays are copied too; immutable buffers (strings, binary
    // chunks) are shared.
    virtual void Clone(Value** ppValue) const = 0;
    // Different types: the difference of the type ids. Same type: -1, 0 or 1 by payload.
    virtual int Compare(Value* pValue) const = 0;
};

// Null and empty are the same string: the empty string holds no buffer.
struct StringValue : Value
{
    static constexpr int TYPE_ID = STRING_T;
    virtual void SetValue(const wchar_t* szValue) = 0;
    // The text may contain NUL characters; it is kept whole.
    virtual void SetValue(const wchar_t* pChars, size_t nLength) = 0;
    // Shares the buffer instead of copying the text.
    virtual void SetShared(const SharedString& shValue) = 0;
    // Never null. Valid while the value lives and is not set again.
    virtual const wchar_t* GetValue() const = 0;
    virtual size_t GetLength() const = 0;
    virtual SharedString GetShared() const = 0;
};

struct BoolValue : Value
{
    static constexpr int TYPE_ID = BOOL_T;
    virtual void SetValue(bool bValue) = 0;
    virtual bool GetValue() const = 0;
};

struct IntValue : Value
{
    static constexpr int TYPE_ID = INT_T;
    virtual void SetValue(int32_t nValue) = 0;
    virtual int32_t GetValue() const = 0;
};

struct LongValue : Value
{
    static constexpr int TYPE_ID = LONG_T;
    virtual void SetValue(int64_t nValue) = 0;
    virtual int64_t GetValue() const = 0;
};

// Seconds since 1970-01-01 00:00 UTC; -1 means "no time" and is what a new value holds.
struct DateTimeValue : Value
{
    static constexpr int TYPE_ID = DATE_TIME_T;
    static constexpr int32_t NO_TIME = -1;
    // Any value below -1 means the caller computed garbage from corrupted data: the process ends.
    virtual void SetValue(int32_t nValue) = 0;
    virtual int32_t GetValue() const = 0;
};

// A date as 8-bit text (an owned copy); the unset date is the empty string.
struct DateValue : Value
{
    static constexpr int TYPE_ID = DATE_T;
    // Null resets to the empty string.
    virtual void SetValue(const char* szValue) = 0;
    // Never null.
    virtual const char* GetValue() const = 0;
};

// Called once when the last owner of an adopted buffer lets go of it.
using FreeBufferCallback = void (*)(void* pBuffer, void* pContext);

// A byte block in a reference-counted, immutable memory chunk; clones share the chunk.
struct BinaryValue : Value
{
    static constexpr int TYPE_ID = BINARY_T;
    // Copies the bytes. Needs (value && bytes > 0) || (bytes == 0).
    virtual void SetValue(const void* pData, size_t nBytes) = 0;
    // Adopts pBuffer (freed later through pfnFree(pBuffer, pContext)). A missing callback is error
    // 1048, a null buffer with bytes is error 1046; on an error the caller keeps the buffer.
    virtual void AttachBuffer(void* pBuffer, size_t nBytes, FreeBufferCallback pfnFree, void* pContext) = 0;
    // Null when empty.
    virtual const void* GetData() const = 0;
    virtual size_t GetSize() const = 0;
};

struct FloatValue : Value
{
    static constexpr int TYPE_ID = FLOAT_T;
    virtual void SetValue(float fValue) = 0;
    virtual float GetValue() const = 0;
};

struct DoubleValue : Value
{
    static constexpr int TYPE_ID = DOUBLE_T;
    virtual void SetValue(double dValue) = 0;
    virtual double GetValue() const = 0;
};

// A nested Params, which may be null.
struct ParamsValue : Value
{
    static constexpr int TYPE_ID = PARAMS_T;
    virtual void SetValue(Params* pParams) = 0;
    virtual void GetValue(Params** ppParams) const = 0;
};

// An ordered vector of values; elements may be null.
struct ArrayValue : Value
{
    static constexpr int TYPE_ID = ARRAY_T;
    static constexpr size_t MAX_SIZE = 0x7FFFFFFE;
    // New slots are null. A size above MAX_SIZE is error 1187 "size".
    virtual void SetSize(size_t size) = 0;
    virtual size_t GetSize() const = 0;
    // An index at or past the size is QZSTD error 1188.
    virtual void SetAt(size_t nIndex, Value* pValue) = 0;
    virtual void GetAt(size_t nIndex, Value** ppValue) const = 0;
};

struct Params : QZSTD::QZBaseQI
{
    static constexpr const char* QZ_IID = "QZPAR::Params";

    // Every operation holds this object's lock for its duration (readers share it); a frozen
    // object is read without the lock, since nothing can change it any more.
    virtual void Clone(Params** ppParams) = 0;
    // Fewer entries: -1, more: 1; with equal counts the first difference in name order decides,
    // by name first (ordinal), then by Value::Compare.
    virtual int Compare(Params* pParams) = 0;
    // Error 1043 when the name exists; the old value stays.
    virtual void AddValue(const wchar_t* szName, Value* pValue) = 0;
    // Inserts or overwrites.
    virtual void ReplaceValue(const wchar_t* szName, Value* pValue) = 0;
    // True when the entry existed; a missing name is false, or error 1044 when bThrow.
    virtual bool DeleteValue(const wchar_t* szName, bool bThrow) = 0;
    // Overwrites an existing entry; error 1044 when missing.
    virtual void SetValue(const wchar_t* szName, Value* pValue) = 0;
    // Error 1044 when missing.
    virtual void GetValue(const wchar_t* szName, Value** ppValue) = 0;
    // False when missing; *ppValue stays null.
    virtual bool GetValueNoThrow(const wchar_t* szName, Value** ppValue) = 0;
    // Replaces the vector's content with all names in name order.
    virtual void GetNames(std::vector<std::wstring>& vecNames) = 0;
    virtual void Clear() = 0;
    virtual bool DoesExist(const wchar_t* szName) = 0;
    // Stores a deep copy of every entry of pSrc, overwriting entries of the same name.
    virtual void CopyFrom(Params* pSrc) = 0;
    // The same, sharing pSrc's value objects instead of copying them.
    virtual void CopyFromShared(Params* pSrc) = 0;
    virtual int32_t GetSize() = 0;
    // Freezes this object and every Params nested in it (directly or inside arrays). One-way.
    virtual void MakeReadOnly() = 0;
};

// Receives the entries of a Params in name order. The entries are a snapshot taken before the
// first call, so the callback may use (even change) the Params it enumerates.
struct EnumValuesCallback
{
    virtual void OnValue(const wchar_t* szName, Value* pValue) = 0;

protected:
    ~EnumValuesCallback() = default;
};

// Walks a snapshot of the entries in name order.
struct ValuesEnumerator : QZSTD::QZBase
{
    // False after the last entry. *pszName stays valid while the enumerator lives.
    virtual bool Next(const wchar_t** pszName, Value** ppValue) = 0;
    virtual void Reset() = 0;
    virtual size_t GetCount() const = 0;
};

struct EnumValues : QZSTD::QZBaseQI
{
    static constexpr const char* QZ_IID = "QZPAR::EnumValues";
    virtual void Enumerate(EnumValuesCallback* pCallback) = 0;
    virtual void CreateEnumerator(ValuesEnumerator** pEnum) = 0;
};

// One entry of a Params with its shared name.
struct ParamsEntry
{
    SharedString m_shName;
    QZSTD::CAutoPtr<Value> m_pValue;
};

// Access for the tree's own code (copies, dump, binary stream) that moves names by reference.
struct ParamsInternal : QZSTD::QZBaseQI
{
    static constexpr const char* QZ_IID = "QZPAR::ParamsInternal";
    virtual bool IsReadOnly() = 0;
    // Replaces the vector's content with a snapshot of the entries in name order.
    virtual void GetEntries(std::vector<ParamsEntry>& vecEntries) = 0;
    // Stores every entry under its (shared) name, overwriting entries of the same name; one lock. The
    // entries are moved in: pass a vector the caller no longer needs to spare the reference counts.
    virtual void ReplaceEntries(std::vector<ParamsEntry> vecEntries) = 0;
};

// Creates every value type and empty Params; each object comes from its class's pool with
// reference count 1.
struct ValuesFactory : QZSTD::QZBase
{
    virtual void CreateParams(Params** ppParams) = 0;
    virtual void CreateStringValue(StringValue** ppValue) = 0;
    virtual void CreateBoolValue(BoolValue** ppValue) = 0;
    virtual void CreateIntValue(IntValue** ppValue) = 0;
    virtual void CreateLongValue(LongValue** ppValue) = 0;
    virtual void CreateDateTimeValue(DateTimeValue** ppValue) = 0;
    virtual void CreateDateValue(DateValue** ppValue) = 0;
    virtual void CreateBinaryValue(BinaryValue** ppValue) = 0;
    virtual void CreateFloatValue(FloatValue** ppValue) = 0;
    virtual void CreateDoubleValue(DoubleValue** ppValue) = 0;
    virtual void CreateParamsValue(ParamsValue** ppValue) = 0;
    virtual void CreateArrayValue(ArrayValue** ppValue) = 0;
    // Any type by its id; an unknown id is error 1045.
    virtual void CreateValue(int nType, Value** ppValue) = 0;
};

// The process-wide factory. Never destroyed: values may still be created while the process exits.
ValuesFactory* GetValuesFactory();

}  // namespace QZPAR
