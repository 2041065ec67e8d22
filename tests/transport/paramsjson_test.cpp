// Params in typed JSON: every type travels and comes back, the form is the documented one, and a body
// that is not a typed-JSON Params is refused with its reason.
#include "transport/paramsjson.h"

#include <gtest/gtest.h>

#include "tests/std/par/testutil.h"
#include "tests/testutil/errorof.h"

namespace {

using namespace QZPAR;

TEST(ParamsJson, EveryTypeRoundTripsInTheDocumentedForm)
{
    // Lone surrogates cannot be UTF-8: they come back as U+FFFD, as the form says.
    QZSTD::CAutoPtr<Params> p = Testing::EveryTypeTree();
    p->DeleteValue(L"str_lone_surrogates", true);
    p->DeleteValue(std::wstring{0xE9, 0xD800}.c_str(), true);
    EXPECT_EQ(QZTRANSPORT::JsonToParams(QZTRANSPORT::ParamsToJson(p))->Compare(p), 0);

    QZSTD::CAutoPtr<Params> pSmall = CreateParams();
    SetIntValue(pSmall, L"n", 5);
    SetLongValue(pSmall, L"l", std::numeric_limits<int64_t>::min());
    SetDoubleValue(pSmall, L"d", std::numeric_limits<double>::quiet_NaN());
    const unsigned char bytes[] = {0, 1, 0x7F, 0x80, 0xFF};
    SetBinaryValue(pSmall, L"b", bytes, sizeof bytes);
    SetDateValue(pSmall, L"t", "\xE9");
    SetParamsValue(pSmall, L"p", nullptr);
    EXPECT_EQ(
        QZTRANSPORT::ParamsToJson(pSmall),
        "{\"b\":{\"bin\":\"AAF/gP8=\"},\"d\":{\"double\":\"NaN\"},\"l\":{\"long\":\"-9223372036854775808\"},"
        "\"n\":{\"int\":5},\"p\":{\"params\":null},\"t\":{\"date\":\"\xC3\xA9\"}}");
}

TEST(ParamsJson, WhatIsNoTypedParamsIsRefusedWithItsReason)
{
    std::string strDeep = "{\"a\":{\"int\":1}}";
    for (int n = 0; n < 70; ++n)
        strDeep = "{\"x\":{\"params\":" + strDeep + "}}";
    const std::string strBrackets(300, '[');
    const char* rows[] = {
        "not json",
        "[]",
        "{\"a\":1}",
        "{\"a\":null}",
        "{\"a\":{\"int\":\"5\"}}",
        "{\"a\":{\"int\":5000000000}}",
        "{\"a\":{\"int\":5,\"str\":\"x\"}}",
        "{\"a\":{\"nope\":1}}",
        "{\"a\":{\"long\":\"12x\"}}",
        "{\"a\":{\"long\":\"99999999999999999999\"}}",
        "{\"a\":{\"bin\":\"abc\"}}",
        "{\"a\":{\"bin\":\"ab=c\"}}",
        "{\"a\":{\"date\":\"\\u0100\"}}",
        "{\"a\":{\"date\":\"1\\u0000\"}}",
        "{\"a\":{\"dt\":-2}}",
        "{\"a\":{\"float\":\"x\"}}",
        "{\"a\":{\"array\":[1]}}",
        "{\"a\":{\"int\":1},\"a\":{\"int\":2}}",
        "{\"a\":{\"int\":1}} trailing",
        "{\"\":{\"int\":1}}",
        "{\"\xFF\":{\"int\":1},\"\xFE\":{\"int\":2}}",
        strDeep.c_str(),
        strBrackets.c_str(),
    };
    for (const char* sz : rows)
        EXPECT_EQ(QZTEST::ErrorCodeOf([&] { QZTRANSPORT::JsonToParams(sz); }, QZTRANSPORT::MODULE),
                  QZTRANSPORT::BAD_JSON)
            << sz;
}

}  // namespace
