// The value classes other than the scalar template, and the factory.
#include "std/par/valuesimpl.h"

#include <cmath>
#include <cstring>
#include <iterator>
#include <new>

#include "std/par/errors.h"
#include "std/par/paramsimpl.h"

namespace QZPAR {

int CompareFloating(double a, double b)
{
    const bool bNanA = std::isnan(a);
    const bool bNanB = std::isnan(b);
    if (bNanA || bNanB)
        return CompareNatural(bNanA, bNanB);
    return CompareNatural(a, b);
}

int CompareNullable(Value* pA, Value* pB)
{
    if (!pA || !pB)
        return CompareNatural(pA != nullptr, pB != nullptr);
    const int n = pA->Compare(pB);
    return CompareNatural(n, 0);
}

namespace {

// The payload comparison of a type runs only when both sides have that type.
template <class Interface>
Interface* SameType(const Value* pThis, Value* pValue, int& nTypeDiff)
{
    QZ_CHECK_ARG(pValue, "pValue");
    nTypeDiff = pThis->GetType() - pValue->GetType();
    return nTypeDiff == 0 ? static_cast<Interface*>(pValue) : nullptr;
}

// Hands a new pooled object of Impl to an out-parameter.
template <class Impl, class Interface>
Impl* CreateInto(Interface** pp, const char* szName)
{
    CheckOutPointer(pp, szName);
    Impl* p = QZSTD_POOL2::CreatePooled<Impl>();
    *pp = p;
    return p;
}

template <class Impl>
Value* NewPooledValue()
{
    return QZSTD_POOL2::CreatePooled<Impl>();
}

// Indexed by type id.
constexpr Value* (*g_creators[])() = {
    nullptr,
    &NewPooledValue<CStringValue>,
    &NewPooledValue<CBoolValue>,
    &NewPooledValue<CIntValue>,
    &NewPooledValue<CLongValue>,
    &NewPooledValue<CDateTimeValue>,
    &NewPooledValue<CDateValue>,
    &NewPooledValue<CBinaryValue>,
    &NewPooledValue<CFloatValue>,
    &NewPooledValue<CDoubleValue>,
    &NewPooledValue<CParamsValue>,
    &NewPooledValue<CArrayValue>,
};
static_assert(std::size(g_creators) == Value::ARRAY_T + 1);

int CompareBytes(const void* pA, size_t nA, const void* pB, size_t nB)
{
    const size_t n = nA < nB ? nA : nB;
    const int nCmp = n ? std::memcmp(pA, pB, n) : 0;
    return nCmp != 0 ? CompareNatural(nCmp, 0) : CompareNatural(nA, nB);
}

}  // namespace

// ---- CStringValue ----

void CStringValue::Clone(Value** ppValue) const
{
    CreateInto<CStringValue>(ppValue, "ppValue")->m_shValue = m_shValue;
}

int CStringValue::Compare(Value* pValue) const
{
    int nTypeDiff = 0;
    StringValue* pOther = SameType<StringValue>(this, pValue, nTypeDiff);
    if (!pOther)
        return nTypeDiff;
    return CompareOrdinal(m_shValue.view(), std::wstring_view(pOther->GetValue(), pOther->GetLength()));
}

void CStringValue::SetValue(const wchar_t* szValue)
{
    SetValue(szValue, szValue ? std::wcslen(szValue) : 0);
}

void CStringValue::SetValue(const wchar_t* pChars, size_t nLength)
{
    QZ_CHECK_ARG(pChars || nLength == 0, "pChars");
    m_shValue = SharedString(std::wstring_view(pChars, pChars ? nLength : 0));
}

// ---- CDateValue ----

void CDateValue::Clone(Value** ppValue) const
{
    CreateInto<CDateValue>(ppValue, "ppValue")->m_strValue = m_strValue;
}

int CDateValue::Compare(Value* pValue) const
{
    int nTypeDiff = 0;
    DateValue* pOther = SameType<DateValue>(this, pValue, nTypeDiff);
    if (!pOther)
        return nTypeDiff;
    return CompareNatural(m_strValue.compare(pOther->GetValue()), 0);
}

// ---- BinaryChunk, CBinaryValue ----

BinaryChunk* BinaryChunk::Copy(const void* pData, size_t nBytes)
{
    void* pv = ::operator new(sizeof(BinaryChunk) + nBytes);
    void* pBytes = static_cast<char*>(pv) + sizeof(BinaryChunk);
    if (nBytes)
        std::memcpy(pBytes, pData, nBytes);
    return new (pv) BinaryChunk(pBytes, nBytes, nullptr, nullptr);
}

BinaryChunk* BinaryChunk::Adopt(void* pBuffer, size_t nBytes, FreeBufferCallback pfnFree, void* pContext)
{
    return new BinaryChunk(pBuffer, nBytes, pfnFree, pContext);
}

void BinaryChunk::Release()
{
    const int32_t nBefore = m_nRef.fetch_sub(1, std::memory_order_acq_rel);
    if (nBefore <= 0)
        QZSTD::FailFast("QZPAR: binary chunk released more often than it was referenced");
    if (nBefore != 1)
        return;
    if (!m_pfnFree) {
        this->~BinaryChunk();
        ::operator delete(this);
        return;
    }
    m_pfnFree(m_pData, m_pContext);
    delete this;
}

void CBinaryValue::SetChunk(BinaryChunk* pChunk)
{
    if (m_pChunk)
        m_pChunk->Release();
    m_pChunk = pChunk;
}

void CBinaryValue::Clone(Value** ppValue) const
{
    CBinaryValue* p = CreateInto<CBinaryValue>(ppValue, "ppValue");
    if (m_pChunk)
        m_pChunk->AddRef();
    p->m_pChunk = m_pChunk;
}

int CBinaryValue::Compare(Value* pValue) const
{
    int nTypeDiff = 0;
    BinaryValue* pOther = SameType<BinaryValue>(this, pValue, nTypeDiff);
    if (!pOther)
        return nTypeDiff;
    return CompareBytes(GetData(), GetSize(), pOther->GetData(), pOther->GetSize());
}

void CBinaryValue::SetValue(const void* pData, size_t nBytes)
{
    if (!((pData && nBytes > 0) || (nBytes == 0)))
        QZ_ASSERTION_FAILED("(value && bytes > 0) || (bytes == 0)");
    SetChunk(nBytes ? BinaryChunk::Copy(pData, nBytes) : nullptr);
}

void CBinaryValue::AttachBuffer(void* pBuffer, size_t nBytes, FreeBufferCallback pfnFree, void* pContext)
{
    if (!pfnFree)
        QZ_THROW(Err::MODULE, Err::WRONG_FREE_CALLBACK);
    if (!pBuffer && nBytes > 0)
        QZ_THROW(Err::MODULE, Err::WRONG_BUFFER);
    if (!pBuffer) {
        SetChunk(nullptr);
        return;
    }
    SetChunk(BinaryChunk::Adopt(pBuffer, nBytes, pfnFree, pContext));
}

// ---- CParamsValue ----

void CParamsValue::Clone(Value** ppValue) const
{
    CheckOutPointer(ppValue, "ppValue");
    QZSTD::CAutoPtr<Params> pCopy;
    if (m_pParams)
        m_pParams->Clone(&pCopy);
    CParamsValue* p = CreateInto<CParamsValue>(ppValue, "ppValue");
    p->m_pParams = std::move(pCopy);
}

int CParamsValue::Compare(Value* pValue) const
{
    int nTypeDiff = 0;
    ParamsValue* pOther = SameType<ParamsValue>(this, pValue, nTypeDiff);
    if (!pOther)
        return nTypeDiff;
    QZSTD::CAutoPtr<Params> pOtherParams;
    pOther->GetValue(&pOtherParams);
    if (!m_pParams || !pOtherParams)
        return CompareNatural(m_pParams.Get() != nullptr, pOtherParams.Get() != nullptr);
    return m_pParams->Compare(pOtherParams);
}

void CParamsValue::GetValue(Params** ppParams) const
{
    CheckOutPointer(ppParams, "ppParams");
    m_pParams.CopyTo(ppParams);
}

// ---- CArrayValue ----

void CArrayValue::Clone(Value** ppValue) const
{
    CheckOutPointer(ppValue, "ppValue");
    std::vector<QZSTD::CAutoPtr<Value>> vecCopy(m_vecValues.size());
    for (size_t i = 0; i < m_vecValues.size(); ++i) {
        if (m_vecValues[i])
            m_vecValues[i]->Clone(&vecCopy[i]);
    }
    CArrayValue* p = CreateInto<CArrayValue>(ppValue, "ppValue");
    p->m_vecValues = std::move(vecCopy);
}

int CArrayValue::Compare(Value* pValue) const
{
    int nTypeDiff = 0;
    ArrayValue* pOther = SameType<ArrayValue>(this, pValue, nTypeDiff);
    if (!pOther)
        return nTypeDiff;
    if (const int n = CompareNatural(m_vecValues.size(), pOther->GetSize()))
        return n;
    for (size_t i = 0; i < m_vecValues.size(); ++i) {
        QZSTD::CAutoPtr<Value> pElement;
        pOther->GetAt(i, &pElement);
        if (const int n = CompareNullable(m_vecValues[i], pElement))
            return n;
    }
    return 0;
}

void CArrayValue::SetSize(size_t size)
{
    QZ_CHECK_ARG(size <= MAX_SIZE, "size");
    try {
        m_vecValues.resize(size);
    } catch (const std::length_error&) {
        QZ_THROW_STD(QZSTD::Err::BAD_PARAM, "size");
    }
}

void CArrayValue::SetAt(size_t nIndex, Value* pValue)
{
    if (nIndex >= m_vecValues.size())
        QZ_THROW_STD(QZSTD::Err::OUT_OF_RANGE);
    m_vecValues[nIndex] = QZSTD::CAutoPtr<Value>(pValue);
}

void CArrayValue::GetAt(size_t nIndex, Value** ppValue) const
{
    CheckOutPointer(ppValue, "ppValue");
    if (nIndex >= m_vecValues.size())
        QZ_THROW_STD(QZSTD::Err::OUT_OF_RANGE);
    m_vecValues[nIndex].CopyTo(ppValue);
}

// ---- CValuesFactory ----

CValuesFactory::CValuesFactory()
{
    RegisterErrorTables();
}

void CValuesFactory::CreateParams(Params** ppParams)
{
    CreateInto<CParamsImpl>(ppParams, "ppParams");
}

void CValuesFactory::CreateStringValue(StringValue** ppValue)
{
    CreateInto<CStringValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateBoolValue(BoolValue** ppValue)
{
    CreateInto<CBoolValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateIntValue(IntValue** ppValue)
{
    CreateInto<CIntValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateLongValue(LongValue** ppValue)
{
    CreateInto<CLongValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateDateTimeValue(DateTimeValue** ppValue)
{
    CreateInto<CDateTimeValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateDateValue(DateValue** ppValue)
{
    CreateInto<CDateValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateBinaryValue(BinaryValue** ppValue)
{
    CreateInto<CBinaryValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateFloatValue(FloatValue** ppValue)
{
    CreateInto<CFloatValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateDoubleValue(DoubleValue** ppValue)
{
    CreateInto<CDoubleValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateParamsValue(ParamsValue** ppValue)
{
    CreateInto<CParamsValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateArrayValue(ArrayValue** ppValue)
{
    CreateInto<CArrayValue>(ppValue, "ppValue");
}

void CValuesFactory::CreateValue(int nType, Value** ppValue)
{
    CheckOutPointer(ppValue, "ppValue");
    if (nType <= 0 || nType >= static_cast<int>(std::size(g_creators)))
        QZ_THROW(Err::MODULE, Err::WRONG_VALUE);
    *ppValue = g_creators[nType]();
}

ValuesFactory* GetValuesFactory()
{
    // Never destroyed: values may still be created and released while the process exits.
    static CValuesFactory* s_pFactory = new CValuesFactory;
    return s_pFactory;
}

}  // namespace QZPAR
