// Shared matchers for the value-tree tests.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "std/error.h"
#include "std/par/paramshelpers.h"

namespace QZPAR::Testing {

// Runs f and returns the QZError it raised; fails the test when it raised none.
template <class F>
QZSTD::QZError CatchError(F f)
{
    try {
        f();
    } catch (const QZSTD::QZError& e) {
        return e;
    }
    ADD_FAILURE() << "no QZError was raised";
    return QZSTD::QZError("", 0, "", 0, {});
}

// The error's module, code and (when given) first argument.
MATCHER_P3(IsQZError, strModule, nCode, wstrArg, "")
{
    const std::wstring wstrExpected(wstrArg);
    *result_listener << "got " << arg.what();
    if (arg.GetModule() != strModule || arg.GetCode() != nCode)
        return false;
    return wstrExpected.empty() || (!arg.GetArgs().empty() && arg.GetArgs()[0] == wstrExpected);
}

#define EXPECT_QZ_ERROR(stmt, module, code, arg) \
    EXPECT_THAT(::QZPAR::Testing::CatchError([&] { stmt; }), ::QZPAR::Testing::IsQZError(module, code, arg))

// A tree with every value type, their extremes (-0, NaN, infinities, the smallest denormals, the
// minimum integers, "no time"), strings that no text form carries as they are (NUL, controls, lone
// surrogates written code unit by code unit, non-BMP characters, markup), nested and null Params, and
// an array with null, nested and empty elements; names with a control character and a lone surrogate.
inline QZSTD::CAutoPtr<Params> EveryTypeTree()
{
    QZSTD::CAutoPtr<Params> p = CreateParams();
    SetStringValue(p, L"str", L"hello world");
    SetStringValue(p, L"str_empty", L"");
    SetStringValue(p, L"str_nul", std::wstring_view(L"a\0b\0", 4));
    SetStringValue(p, L"str_controls", L"1\n2\t\r\x01\x7F\x85\x1B");
    SetStringValue(p, L"str_lone_surrogates", std::wstring{0xD800, L'x', 0xDFFF, 0xDBFF});
    SetStringValue(p, L"str_unicode", L"\u00E9\u4E2D\U0001F600\uFFFD");
    SetStringValue(p, L"str_spaces", L"  x  ");
    SetStringValue(p, L"str_markup", L"<a href=\"x\">&amp;</a> 'q' ]]>");
    SetBoolValue(p, L"bool_true", true);
    SetBoolValue(p, L"bool_false", false);
    SetIntValue(p, L"int_min", std::numeric_limits<int32_t>::min());
    SetLongValue(p, L"long_min", std::numeric_limits<int64_t>::min());
    SetLongValue(p, L"long_max", std::numeric_limits<int64_t>::max());
    SetDateTimeValue(p, L"dt_none", -1);
    SetFloatValue(p, L"float_minus_zero", -0.0f);
    SetFloatValue(p, L"float_nan", std::numeric_limits<float>::quiet_NaN());
    SetFloatValue(p, L"float_denorm_min", std::numeric_limits<float>::denorm_min());
    SetFloatValue(p, L"float_inf", std::numeric_limits<float>::infinity());
    SetDoubleValue(p, L"double_denorm_min", std::numeric_limits<double>::denorm_min());
    SetDoubleValue(p, L"double_third", 1.0 / 3.0);
    SetDoubleValue(p, L"double_minus_zero", -0.0);
    SetDoubleValue(p, L"double_nan", std::numeric_limits<double>::quiet_NaN());
    SetDateValue(p, L"date_ascii", "2024-01-31");
    SetDateValue(p, L"date_bytes", "\xE9t\xE9\x01\x7F");
    const unsigned char bytes[] = {0, 1, 0x7F, 0x80, 0xFF, '<', '&'};
    SetBinaryValue(p, L"bin", bytes, sizeof bytes);
    SetBinaryValue(p, L"bin_empty", nullptr, 0);
    SetParamsValue(p, L"params_null", nullptr);
    QZSTD::CAutoPtr<Params> pNested = CreateParams();
    SetIntValue(pNested, L"inner", 1);
    SetStringValue(pNested, L"\U0001F600 non-BMP", L"\u00E9\U0001F600");
    SetParamsValue(p, L"params_nested", pNested);
    QZSTD::CAutoPtr<ArrayValue> pArray = CreateArray(6);  // element 1 stays null
    pArray->SetAt(0, CreateString(L"s"));
    pArray->SetAt(2, CreateParamsValue(pNested));
    pArray->SetAt(3, CreateArray(0));
    pArray->SetAt(4, CreateParamsValue(nullptr));
    pArray->SetAt(5, CreateFloat(-std::numeric_limits<float>::infinity()));
    SetArrayValue(p, L"array_mixed", pArray);
    SetIntValue(p, L"\x01", 2);
    SetIntValue(p, std::wstring{0xE9, 0xD800}.c_str(), 3);
    return p;
}

// A chain of nLevels Params, each holding the next under "n"; the innermost holds leaf = nLevels.
inline QZSTD::CAutoPtr<Params> NestedLevels(int nLevels)
{
    QZSTD::CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, L"leaf", nLevels);
    for (int i = nLevels - 1; i >= 1; --i) {
        QZSTD::CAutoPtr<Params> pOuter = CreateParams();
        SetParamsValue(pOuter, L"n", p);
        p = pOuter;
    }
    return p;
}

// Heap allocations made by the calling thread so far (operator new is replaced in this executable).
size_t AllocationCount();

}  // namespace QZPAR::Testing
