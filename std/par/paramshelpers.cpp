// The convenience layer: thin wrappers over the factory and the Params operations.
#include "std/par/paramshelpers.h"

#include "std/par/errors.h"
#include "std/par/paramsimpl.h"
#include "std/par/pool.h"
#include "std/par/valuesimpl.h"

namespace QZPAR {
namespace {

// A new value set to args. The same pools as the factory's, without its virtual call: creating
// small values is frequent enough for that to count.
template <class Impl, class I, class... A>
QZSTD::CAutoPtr<I> Make(const A&... args)
{
    auto* p = QZSTD_POOL2::CreatePooled<Impl>();
    QZSTD::CAutoPtr<I> pOwner = QZSTD::CAutoPtr<I>::Adopt(p);
    p->SetValue(args...);
    return pOwner;
}

// The entry of that name as interface I. A missing name gives null unless bRequired.
template <class I>
QZSTD::CAutoPtr<I> GetTyped(Params* pParams, const wchar_t* szName, bool bRequired)
{
    QZ_CHECK_ARG(pParams, "pParams");
    QZSTD::CAutoPtr<Value> pValue;
    if (!pParams->GetValueNoThrow(szName, &pValue)) {
        if (bRequired)
            QZ_THROW(Err::MODULE, Err::DOES_NOT_EXIST, szName);
        return {};
    }
    if (pValue->GetType() != I::TYPE_ID)
        QZ_THROW(Err::MODULE, Err::WRONG_TYPE, szName);
    return QZSTD::CAutoPtr<I>(static_cast<I*>(pValue.Get()));
}

void Store(Params* pParams, const wchar_t* szName, Value* pValue)
{
    QZ_CHECK_ARG(pParams, "pParams");
    pParams->ReplaceValue(szName, pValue);
}

}  // namespace

// ---- creation ----

QZSTD::CAutoPtr<Params> CreateParams()
{
    return QZSTD::CAutoPtr<Params>::Adopt(QZSTD_POOL2::CreatePooled<CParamsImpl>());
}

QZSTD::CAutoPtr<StringValue> CreateString(const wchar_t* szValue)
{
    return Make<CStringValue, StringValue>(szValue);
}

QZSTD::CAutoPtr<StringValue> CreateString(std::wstring_view wsvValue)
{
    return Make<CStringValue, StringValue>(wsvValue.data(), wsvValue.size());
}

QZSTD::CAutoPtr<BoolValue> CreateBool(bool bValue)
{
    return Make<CBoolValue, BoolValue>(bValue);
}

QZSTD::CAutoPtr<IntValue> CreateInt(int32_t nValue)
{
    return Make<CIntValue, IntValue>(nValue);
}

QZSTD::CAutoPtr<LongValue> CreateLong(int64_t nValue)
{
    return Make<CLongValue, LongValue>(nValue);
}

QZSTD::CAutoPtr<DateTimeValue> CreateDateTime(int32_t nValue)
{
    return Make<CDateTimeValue, DateTimeValue>(nValue);
}

QZSTD::CAutoPtr<DateValue> CreateDate(const char* szValue)
{
    return Make<CDateValue, DateValue>(szValue);
}

QZSTD::CAutoPtr<BinaryValue> CreateBinary(const void* pData, size_t nBytes)
{
    return Make<CBinaryValue, BinaryValue>(pData, nBytes);
}

QZSTD::CAutoPtr<FloatValue> CreateFloat(float fValue)
{
    return Make<CFloatValue, FloatValue>(fValue);
}

QZSTD::CAutoPtr<DoubleValue> CreateDouble(double dValue)
{
    return Make<CDoubleValue, DoubleValue>(dValue);
}

QZSTD::CAutoPtr<ParamsValue> CreateParamsValue(Params* pParams)
{
    return Make<CParamsValue, ParamsValue>(pParams);
}

QZSTD::CAutoPtr<ArrayValue> CreateArray(size_t nSize)
{
    auto* p = QZSTD_POOL2::CreatePooled<CArrayValue>();
    QZSTD::CAutoPtr<ArrayValue> pOwner = QZSTD::CAutoPtr<ArrayValue>::Adopt(p);
    p->SetSize(nSize);
    return pOwner;
}

// ---- getters on one value ----

std::wstring GetStringValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::STRING_T);
    if (!pX)
        return {};
    const StringValue* p = static_cast<StringValue*>(pX);
    return std::wstring(p->GetValue(), p->GetLength());
}

bool GetBoolValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::BOOL_T);
    return pX && static_cast<BoolValue*>(pX)->GetValue();
}

int32_t GetIntValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::INT_T);
    return pX ? static_cast<IntValue*>(pX)->GetValue() : 0;
}

int64_t GetLongValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::LONG_T);
    return pX ? static_cast<LongValue*>(pX)->GetValue() : 0;
}

int32_t GetDateTimeValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::DATE_TIME_T);
    return pX ? static_cast<DateTimeValue*>(pX)->GetValue() : DateTimeValue::NO_TIME;
}

std::string GetDateValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::DATE_T);
    return pX ? static_cast<DateValue*>(pX)->GetValue() : "";
}

std::vector<uint8_t> GetBinaryValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::BINARY_T);
    if (!pX)
        return {};
    const BinaryValue* p = static_cast<BinaryValue*>(pX);
    const uint8_t* pBytes = static_cast<const uint8_t*>(p->GetData());
    return std::vector<uint8_t>(pBytes, pBytes + p->GetSize());
}

float GetFloatValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::FLOAT_T);
    return pX ? static_cast<FloatValue*>(pX)->GetValue() : 0.0f;
}

double GetDoubleValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::DOUBLE_T);
    return pX ? static_cast<DoubleValue*>(pX)->GetValue() : 0.0;
}

QZSTD::CAutoPtr<Params> GetParamsValue(Value* pParamsValue)
{
    QZ_ASSERT(pParamsValue && pParamsValue->GetType() == QZPAR::Value::PARAMS_T);
    QZSTD::CAutoPtr<Params> p;
    static_cast<ParamsValue*>(pParamsValue)->GetValue(&p);
    return p;
}

QZSTD::CAutoPtr<ArrayValue> GetArrayValue(Value* pX)
{
    QZ_ASSERT(!pX || pX->GetType() == QZPAR::Value::ARRAY_T);
    return QZSTD::CAutoPtr<ArrayValue>(static_cast<ArrayValue*>(pX));
}

// ---- getters by name ----

QZSTD::CAutoPtr<Value> FindValue(Params* pParams, const wchar_t* szName)
{
    QZ_CHECK_ARG(pParams, "pParams");
    QZSTD::CAutoPtr<Value> p;
    pParams->GetValueNoThrow(szName, &p);
    return p;
}

std::wstring GetStringValue(Params* pParams, const wchar_t* szName)
{
    return GetStringValue(GetTyped<StringValue>(pParams, szName, true).Get());
}

std::wstring GetStringValue(Params* pParams, const wchar_t* szName, std::wstring_view wsvDefault)
{
    QZSTD::CAutoPtr<StringValue> p = GetTyped<StringValue>(pParams, szName, false);
    return p ? GetStringValue(p.Get()) : std::wstring(wsvDefault);
}

bool GetBoolValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<BoolValue>(pParams, szName, true)->GetValue();
}

bool GetBoolValue(Params* pParams, const wchar_t* szName, bool bDefault)
{
    QZSTD::CAutoPtr<BoolValue> p = GetTyped<BoolValue>(pParams, szName, false);
    return p ? p->GetValue() : bDefault;
}

int32_t GetIntValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<IntValue>(pParams, szName, true)->GetValue();
}

int32_t GetIntValue(Params* pParams, const wchar_t* szName, int32_t nDefault)
{
    QZSTD::CAutoPtr<IntValue> p = GetTyped<IntValue>(pParams, szName, false);
    return p ? p->GetValue() : nDefault;
}

int64_t GetLongValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<LongValue>(pParams, szName, true)->GetValue();
}

int64_t GetLongValue(Params* pParams, const wchar_t* szName, int64_t nDefault)
{
    QZSTD::CAutoPtr<LongValue> p = GetTyped<LongValue>(pParams, szName, false);
    return p ? p->GetValue() : nDefault;
}

int32_t GetDateTimeValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<DateTimeValue>(pParams, szName, true)->GetValue();
}

std::string GetDateValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<DateValue>(pParams, szName, true)->GetValue();
}

std::vector<uint8_t> GetBinaryValue(Params* pParams, const wchar_t* szName)
{
    return GetBinaryValue(GetTyped<BinaryValue>(pParams, szName, true).Get());
}

float GetFloatValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<FloatValue>(pParams, szName, true)->GetValue();
}

double GetDoubleValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<DoubleValue>(pParams, szName, true)->GetValue();
}

QZSTD::CAutoPtr<Params> GetParamsValue(Params* pParams, const wchar_t* szName)
{
    return GetParamsValue(GetTyped<ParamsValue>(pParams, szName, true).Get());
}

QZSTD::CAutoPtr<ArrayValue> GetArrayValue(Params* pParams, const wchar_t* szName)
{
    return GetTyped<ArrayValue>(pParams, szName, true);
}

// ---- setters by name ----

void SetStringValue(Params* pParams, const wchar_t* szName, const wchar_t* szValue)
{
    Store(pParams, szName, CreateString(szValue));
}

void SetStringValue(Params* pParams, const wchar_t* szName, std::wstring_view wsvValue)
{
    Store(pParams, szName, CreateString(wsvValue));
}

void SetBoolValue(Params* pParams, const wchar_t* szName, bool bValue)
{
    Store(pParams, szName, CreateBool(bValue));
}

void SetIntValue(Params* pParams, const wchar_t* szName, int32_t nValue)
{
    Store(pParams, szName, CreateInt(nValue));
}

void SetLongValue(Params* pParams, const wchar_t* szName, int64_t nValue)
{
    Store(pParams, szName, CreateLong(nValue));
}

void SetDateTimeValue(Params* pParams, const wchar_t* szName, int32_t nValue)
{
    Store(pParams, szName, CreateDateTime(nValue));
}

void SetDateValue(Params* pParams, const wchar_t* szName, const char* szValue)
{
    Store(pParams, szName, CreateDate(szValue));
}

void SetBinaryValue(Params* pParams, const wchar_t* szName, const void* pData, size_t nBytes)
{
    Store(pParams, szName, CreateBinary(pData, nBytes));
}

void SetFloatValue(Params* pParams, const wchar_t* szName, float fValue)
{
    Store(pParams, szName, CreateFloat(fValue));
}

void SetDoubleValue(Params* pParams, const wchar_t* szName, double dValue)
{
    Store(pParams, szName, CreateDouble(dValue));
}

void SetParamsValue(Params* pParams, const wchar_t* szName, Params* pValue)
{
    Store(pParams, szName, CreateParamsValue(pValue));
}

void SetArrayValue(Params* pParams, const wchar_t* szName, ArrayValue* pValue)
{
    QZ_CHECK_ARG(pValue, "value");
    Store(pParams, szName, pValue);
}

bool IsReadOnly(Params* pParams)
{
    QZ_CHECK_ARG(pParams, "pParams");
    QZSTD::CAutoPtr<ParamsInternal> pInternal = QZSTD::QueryInterface<ParamsInternal>(pParams);
    if (!pInternal)
        QZ_THROW(Err::MODULE, Err::WRONG_PARAMS);
    return pInternal->IsReadOnly();
}

}  // namespace QZPAR
