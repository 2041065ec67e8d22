// Implementations of the eleven value types and of the factory. The classes are abstract in
// AddRef/Release: the factory wraps them in QZSTD_POOL2::PooledQZBaseImpl, and code that wants them
// without the pool (measurements, comparisons) can use QZSTD::RcClassImpl<CIntValue> and so on.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "std/failfast.h"
#include "std/par/params.h"
#include "std/par/pool.h"
#include "std/par/sharedstr.h"

namespace QZPAR {

// Sign of a comparison as -1, 0 or 1.
template <class T>
int CompareNatural(const T& a, const T& b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

// Floats in a total order, so that Compare stays consistent: NaNs equal each other and sort after
// every number; -0 equals +0.
int CompareFloating(double a, double b);

// Checks an out-parameter that must be empty.
template <class T>
void CheckOutPointer(T** pp, const char* szName)
{
    QZ_CHECK_ARG(pp && !*pp, szName);
}

// The six scalar types. Stored is the payload, Interface the typed interface, ID its type id.
template <class Stored, class Interface, int ID>
class CPrimitiveValue : public Interface
{
public:
    static_assert(Interface::TYPE_ID == ID);

    int GetType() const override { return ID; }
    void Clone(Value** ppValue) const override
    {
        CheckOutPointer(ppValue, "ppValue");
        CPrimitiveValue* p = QZSTD_POOL2::CreatePooled<CPrimitiveValue>();
        p->m_value = m_value;
        *ppValue = p;
    }
    int Compare(Value* pValue) const override
    {
        QZ_CHECK_ARG(pValue, "pValue");
        if (pValue->GetType() != ID)
            return ID - pValue->GetType();
        // Through the interface: the other object may be another implementation of the same type.
        const Stored other = static_cast<Interface*>(pValue)->GetValue();
        if constexpr (ID == Value::FLOAT_T || ID == Value::DOUBLE_T)
            return CompareFloating(m_value, other);
        else
            return CompareNatural(m_value, other);
    }
    void SetValue(Stored value) override
    {
        if constexpr (ID == Value::DATE_TIME_T)
            CheckDateTime(value);
        m_value = value;
    }
    Stored GetValue() const override { return m_value; }

private:
    static Stored InitialValue()
    {
        if constexpr (ID == Value::DATE_TIME_T)
            return DateTimeValue::NO_TIME;
        return Stored{};
    }
    // Values below "no time" only come from corrupted memory or arithmetic on garbage.
    static void CheckDateTime(Stored value)
    {
        if (value < DateTimeValue::NO_TIME)
            QZSTD::FailFast("QZPAR: DateTimeValue below -1");
    }

    Stored m_value = InitialValue();
};

using CBoolValue = CPrimitiveValue<bool, BoolValue, Value::BOOL_T>;
using CIntValue = CPrimitiveValue<int32_t, IntValue, Value::INT_T>;
using CLongValue = CPrimitiveValue<int64_t, LongValue, Value::LONG_T>;
using CDateTimeValue = CPrimitiveValue<int32_t, DateTimeValue, Value::DATE_TIME_T>;
using CFloatValue = CPrimitiveValue<float, FloatValue, Value::FLOAT_T>;
using CDoubleValue = CPrimitiveValue<double, DoubleValue, Value::DOUBLE_T>;

class CStringValue : public StringValue
{
public:
    int GetType() const override { return STRING_T; }
    void Clone(Value** ppValue) const override;
    int Compare(Value* pValue) const override;
    void SetValue(const wchar_t* szValue) override;
    void SetValue(const wchar_t* pChars, size_t nLength) override;
    void SetShared(const SharedString& shValue) override { m_shValue = shValue; }
    const wchar_t* GetValue() const override { return m_shValue.c_str(); }
    size_t GetLength() const override { return m_shValue.size(); }
    SharedString GetShared() const override { return m_shValue; }

private:
    SharedString m_shValue;
};

class CDateValue : public DateValue
{
public:
    int GetType() const override { return DATE_T; }
    void Clone(Value** ppValue) const override;
    int Compare(Value* pValue) const override;
    void SetValue(const char* szValue) override { m_strValue = szValue ? szValue : ""; }
    const char* GetValue() const override { return m_strValue.c_str(); }

private:
    std::string m_strValue;
};

// The immutable memory chunk behind BinaryValue: either the bytes follow this header in the same
// allocation, or they are an adopted buffer freed through the owner's callback.
class BinaryChunk
{
public:
    static BinaryChunk* Copy(const void* pData, size_t nBytes);
    static BinaryChunk* Adopt(void* pBuffer, size_t nBytes, FreeBufferCallback pfnFree, void* pContext);
    void AddRef() { m_nRef.fetch_add(1, std::memory_order_relaxed); }
    void Release();
    const void* GetData() const { return m_pData; }
    size_t GetSize() const { return m_nSize; }

private:
    BinaryChunk(void* pData, size_t nSize, FreeBufferCallback pfnFree, void* pContext)
        : m_pData(pData), m_nSize(nSize), m_pfnFree(pfnFree), m_pContext(pContext)
    {
    }

    std::atomic<int32_t> m_nRef{1};
    void* m_pData;
    size_t m_nSize;
    FreeBufferCallback m_pfnFree;
    void* m_pContext;
};

class CBinaryValue : public BinaryValue
{
public:
    CBinaryValue() = default;
    CBinaryValue(const CBinaryValue&) = delete;
    CBinaryValue& operator=(const CBinaryValue&) = delete;

    int GetType() const override { return BINARY_T; }
    void Clone(Value** ppValue) const override;
    int Compare(Value* pValue) const override;
    void SetValue(const void* pData, size_t nBytes) override;
    void AttachBuffer(void* pBuffer, size_t nBytes, FreeBufferCallback pfnFree, void* pContext) override;
    const void* GetData() const override { return m_pChunk ? m_pChunk->GetData() : nullptr; }
    size_t GetSize() const override { return m_pChunk ? m_pChunk->GetSize() : 0; }

protected:
    ~CBinaryValue() override { SetChunk(nullptr); }

private:
    void SetChunk(BinaryChunk* pChunk);

    BinaryChunk* m_pChunk = nullptr;
};

class CParamsValue : public ParamsValue
{
public:
    int GetType() const override { return PARAMS_T; }
    void Clone(Value** ppValue) const override;
    // A null Params sorts before any Params.
    int Compare(Value* pValue) const override;
    void SetValue(Params* pParams) override { m_pParams = QZSTD::CAutoPtr<Params>(pParams); }
    void GetValue(Params** ppParams) const override;

private:
    QZSTD::CAutoPtr<Params> m_pParams;
};

class CArrayValue : public ArrayValue
{
public:
    int GetType() const override { return ARRAY_T; }
    void Clone(Value** ppValue) const override;
    // Sizes first (like Params), then element by element; a null element sorts first.
    int Compare(Value* pValue) const override;
    void SetSize(size_t size) override;
    size_t GetSize() const override { return m_vecValues.size(); }
    void SetAt(size_t nIndex, Value* pValue) override;
    void GetAt(size_t nIndex, Value** ppValue) const override;

private:
    std::vector<QZSTD::CAutoPtr<Value>> m_vecValues;
};

// Compares two possibly null values; a null one sorts first.
int CompareNullable(Value* pA, Value* pB);

class CValuesFactory : public ValuesFactory
{
public:
    CValuesFactory();
    // The one instance lives as long as the process.
    long AddRef() override { return 2; }
    long Release() override { return 1; }

    void CreateParams(Params** ppParams) override;
    void CreateStringValue(StringValue** ppValue) override;
    void CreateBoolValue(BoolValue** ppValue) override;
    void CreateIntValue(IntValue** ppValue) override;
    void CreateLongValue(LongValue** ppValue) override;
    void CreateDateTimeValue(DateTimeValue** ppValue) override;
    void CreateDateValue(DateValue** ppValue) override;
    void CreateBinaryValue(BinaryValue** ppValue) override;
    void CreateFloatValue(FloatValue** ppValue) override;
    void CreateDoubleValue(DoubleValue** ppValue) override;
    void CreateParamsValue(ParamsValue** ppValue) override;
    void CreateArrayValue(ArrayValue** ppValue) override;
    void CreateValue(int nType, Value** ppValue) override;
};

}  // namespace QZPAR
