// The convenience layer over the value tree that the rest of the agent uses: create-and-set for
// every type, typed getters and insert-or-overwrite setters by name.
//
// Getters by name raise QZPAR error 1044 for a missing name and 1042 when the entry has another
// type; the forms with a default return the default for a missing name (a wrong type is still
// 1042). A null Params argument is QZSTD error 1187 "pParams". The getters on a single Value (for
// array elements) assert the type instead; a null value gives the type's empty value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "std/par/params.h"

namespace QZPAR {

// ---- creation: new objects from the pools ----

QZSTD::CAutoPtr<Params> CreateParams();
QZSTD::CAutoPtr<StringValue> CreateString(const wchar_t* szValue);
QZSTD::CAutoPtr<StringValue> CreateString(std::wstring_view wsvValue);
QZSTD::CAutoPtr<BoolValue> CreateBool(bool bValue);
QZSTD::CAutoPtr<IntValue> CreateInt(int32_t nValue);
QZSTD::CAutoPtr<LongValue> CreateLong(int64_t nValue);
QZSTD::CAutoPtr<DateTimeValue> CreateDateTime(int32_t nValue);
QZSTD::CAutoPtr<DateValue> CreateDate(const char* szValue);
QZSTD::CAutoPtr<BinaryValue> CreateBinary(const void* pData, size_t nBytes);
QZSTD::CAutoPtr<FloatValue> CreateFloat(float fValue);
QZSTD::CAutoPtr<DoubleValue> CreateDouble(double dValue);
QZSTD::CAutoPtr<ParamsValue> CreateParamsValue(Params* pParams);
// nSize null elements.
QZSTD::CAutoPtr<ArrayValue> CreateArray(size_t nSize = 0);

// ---- getters on one value ----

std::wstring GetStringValue(Value* pX);
bool GetBoolValue(Value* pX);
int32_t GetIntValue(Value* pX);
int64_t GetLongValue(Value* pX);
int32_t GetDateTimeValue(Value* pX);
std::string GetDateValue(Value* pX);
std::vector<uint8_t> GetBinaryValue(Value* pX);
float GetFloatValue(Value* pX);
double GetDoubleValue(Value* pX);
// The value must be a ParamsValue; the nested Params may be null.
QZSTD::CAutoPtr<Params> GetParamsValue(Value* pParamsValue);
QZSTD::CAutoPtr<ArrayValue> GetArrayValue(Value* pX);

// ---- getters by name ----

// Null when the name is missing.
QZSTD::CAutoPtr<Value> FindValue(Params* pParams, const wchar_t* szName);

std::wstring GetStringValue(Params* pParams, const wchar_t* szName);
std::wstring GetStringValue(Params* pParams, const wchar_t* szName, std::wstring_view wsvDefault);
bool GetBoolValue(Params* pParams, const wchar_t* szName);
bool GetBoolValue(Params* pParams, const wchar_t* szName, bool bDefault);
int32_t GetIntValue(Params* pParams, const wchar_t* szName);
int32_t GetIntValue(Params* pParams, const wchar_t* szName, int32_t nDefault);
int64_t GetLongValue(Params* pParams, const wchar_t* szName);
int64_t GetLongValue(Params* pParams, const wchar_t* szName, int64_t nDefault);
int32_t GetDateTimeValue(Params* pParams, const wchar_t* szName);
std::string GetDateValue(Params* pParams, const wchar_t* szName);
std::vector<uint8_t> GetBinaryValue(Params* pParams, const wchar_t* szName);
float GetFloatValue(Params* pParams, const wchar_t* szName);
double GetDoubleValue(Params* pParams, const wchar_t* szName);
// The nested Params (may be null when the entry holds a null Params).
QZSTD::CAutoPtr<Params> GetParamsValue(Params* pParams, const wchar_t* szName);
QZSTD::CAutoPtr<ArrayValue> GetArrayValue(Params* pParams, const wchar_t* szName);

// ---- setters by name: insert or overwrite ----

void SetStringValue(Params* pParams, const wchar_t* szName, const wchar_t* szValue);
void SetStringValue(Params* pParams, const wchar_t* szName, std::wstring_view wsvValue);
void SetBoolValue(Params* pParams, const wchar_t* szName, bool bValue);
void SetIntValue(Params* pParams, const wchar_t* szName, int32_t nValue);
void SetLongValue(Params* pParams, const wchar_t* szName, int64_t nValue);
void SetDateTimeValue(Params* pParams, const wchar_t* szName, int32_t nValue);
void SetDateValue(Params* pParams, const wchar_t* szName, const char* szValue);
void SetBinaryValue(Params* pParams, const wchar_t* szName, const void* pData, size_t nBytes);
void SetFloatValue(Params* pParams, const wchar_t* szName, float fValue);
void SetDoubleValue(Params* pParams, const wchar_t* szName, double dValue);
// Stores a reference to pValue (not a copy); null stores an entry holding a null Params.
void SetParamsValue(Params* pParams, const wchar_t* szName, Params* pValue);
void SetArrayValue(Params* pParams, const wchar_t* szName, ArrayValue* pValue);

// ---- state ----

bool IsReadOnly(Params* pParams);

}  // namespace QZPAR
