// The trace text of a Params.
#include "std/par/dump.h"

#include "std/par/paramshelpers.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;
using testing::HasSubstr;

TEST(DumpParamsTest, EveryTypeOneLineEachNestedIndented)
{
    const uint8_t ab[] = {1, 2, 3};
    CAutoPtr<Params> pNested = CreateParams();
    SetBoolValue(pNested, L"flag", true);
    CAutoPtr<ArrayValue> pList = CreateArray(3);
    pList->SetAt(0, CreateLong(7));
    pList->SetAt(2, CreateParamsValue(pNested));
    CAutoPtr<Params> p = CreateParams();
    SetStringValue(p, L"title", L"Setup \"done\"");
    SetBoolValue(p, L"b", false);
    SetIntValue(p, L"count", -5);
    SetLongValue(p, L"big", INT64_C(10000000000));
    SetDateTimeValue(p, L"when", 1700000000);
    SetDateTimeValue(p, L"never", -1);
    SetDateValue(p, L"day", "2024-02-29");
    SetBinaryValue(p, L"blob", ab, sizeof ab);
    SetFloatValue(p, L"f", 0.1f);
    SetDoubleValue(p, L"d", 2.5);
    SetParamsValue(p, L"nested", pNested);
    SetParamsValue(p, L"nothing", nullptr);
    SetArrayValue(p, L"list", pList);
    EXPECT_EQ(DumpParams(p),
              L"b = (BOOL_T)false\n"
              L"big = (LONG_T)10000000000\n"
              L"blob = BINARY_T (size =3)\n"
              L"count = (INT_T)-5\n"
              L"d = (DOUBLE_T)2.5\n"
              L"day = (DATE_T)2024-02-29\n"
              L"f = (FLOAT_T)0.1\n"
              L"list (ARRAY_T)\n"
              L"    [0] = (LONG_T)7\n"
              L"    [1] = <null>\n"
              L"    [2] (PARAMS_T)\n"
              L"        flag = (BOOL_T)true\n"
              L"nested (PARAMS_T)\n"
              L"    flag = (BOOL_T)true\n"
              L"never = (DATE_TIME_T)-1\n"
              L"nothing (PARAMS_T) <null> \n"
              L"title = (STRING_T)\"Setup \"done\"\"\n"
              L"when = (DATE_TIME_T)1700000000 (2023-11-14 22:13:20 UTC)\n");
}

// Null, indent, control characters that must not break the line, and a Params that contains itself
// (stops at the depth limit).
TEST(DumpParamsTest, NullIndentControlsAndSelfReference)
{
    EXPECT_EQ(DumpParams(nullptr), L"<null>\n");
    CAutoPtr<Params> p = CreateParams();
    SetStringValue(p, L"a\nb", L"one\ntwo\x01");
    EXPECT_EQ(DumpParams(p, 1), L"    a\\nb = (STRING_T)\"one\\ntwo\\x01\"\n");
    SetParamsValue(p, L"self", p);
    EXPECT_THAT(DumpParams(p), HasSubstr(L"self (PARAMS_T) <nested too deep>\n"));
    p->Clear();  // breaks the cycle so that the tree can be released
}

}  // namespace
}  // namespace QZPAR
