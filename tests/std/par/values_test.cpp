// The value types: payload rules, comparison, copies, argument checks, the factory and the shared
// string buffer; the typed access by name of the convenience layer, with the error texts it reports;
// and the trace text of a Params.
#include <cmath>
#include <cstring>
#include <limits>

#include "std/par/dump.h"
#include "std/par/errors.h"
#include "std/par/paramshelpers.h"
#include "std/par/paramsimpl.h"
#include "std/par/sharedstr.h"
#include "std/par/valuesimpl.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;
using testing::HasSubstr;

const char* const STD = QZSTD::Err::MODULE;
const char* const PAR = Err::MODULE;

CAutoPtr<Value> CloneOf(Value* p)
{
    CAutoPtr<Value> pCopy;
    p->Clone(&pCopy);
    return pCopy;
}

TEST(StringValues, NullEqualsEmptyAndNulIsKept)
{
    CAutoPtr<StringValue> pNull = CreateString(static_cast<const wchar_t*>(nullptr));
    CAutoPtr<StringValue> pEmpty = CreateString(L"");
    EXPECT_STREQ(pNull->GetValue(), L"");
    EXPECT_STREQ(pEmpty->GetValue(), L"");
    EXPECT_EQ(pNull->Compare(pEmpty), 0);
    EXPECT_TRUE(pEmpty->GetShared().empty());  // no buffer held
    const wchar_t wsz[] = L"a\0b";
    CAutoPtr<StringValue> p = CreateString(std::wstring_view(wsz, 3));
    EXPECT_EQ(p->GetLength(), 3u);
    EXPECT_EQ(GetStringValue(p.Get()), std::wstring(wsz, 3));
    EXPECT_EQ(p->Compare(CreateString(L"a")), 1);
}

TEST(ValueCompare, OtherTypesByTheIdsSameTypesByPayload)
{
    EXPECT_EQ(CreateInt(5)->Compare(CreateLong(5)), Value::INT_T - Value::LONG_T);
    EXPECT_EQ(CreateArray()->Compare(CreateString(L"")), Value::ARRAY_T - Value::STRING_T);
    EXPECT_QZ_ERROR(CreateInt(5)->Compare(nullptr), STD, QZSTD::Err::BAD_PARAM, L"pValue");
    // (smaller, larger) pairs of each type.
    const uint8_t ab[] = {1, 2, 3};
    CAutoPtr<Params> pSmall = CreateParams();
    CAutoPtr<Params> pLarge = CreateParams();
    SetIntValue(pLarge, L"a", 1);
    CAutoPtr<ArrayValue> pArrNull = CreateArray(1);
    CAutoPtr<ArrayValue> pArrOne = CreateArray(1);
    pArrOne->SetAt(0, CreateInt(0));
    const double dNan = std::numeric_limits<double>::quiet_NaN();
    const double dInf = std::numeric_limits<double>::infinity();
    const std::vector<std::pair<CAutoPtr<Value>, CAutoPtr<Value>>> pairs = {
        {CreateString(L"A"), CreateString(L"a")},
        {CreateString(L"ab"), CreateString(L"abc")},
        {CreateBool(false), CreateBool(true)},
        {CreateInt(-1), CreateInt(1)},
        {CreateLong(INT64_MIN), CreateLong(INT64_MAX)},
        {CreateDateTime(-1), CreateDateTime(0)},
        {CreateDate("2020-12-31"), CreateDate("2021-01-01")},
        {CreateBinary(ab, 2), CreateBinary(ab, 3)},
        {CreateBinary(ab + 1, 2), CreateBinary(ab + 2, 1)},
        {CreateFloat(-0.5f), CreateFloat(0.25f)},
        {CreateDouble(dInf), CreateDouble(dNan)},
        {CreateParamsValue(nullptr), CreateParamsValue(pSmall)},
        {CreateParamsValue(pSmall), CreateParamsValue(pLarge)},
        {CreateArray(0), CreateArray(1)},
        {pArrNull, pArrOne},
    };
    for (const auto& [pSmaller, pLarger] : pairs) {
        SCOPED_TRACE(pSmaller->GetType());
        EXPECT_EQ(pSmaller->Compare(pLarger), -1);
        EXPECT_EQ(pLarger->Compare(pSmaller), 1);
        EXPECT_EQ(pSmaller->Compare(CloneOf(pSmaller)), 0);
    }
    EXPECT_EQ(CreateDouble(dNan)->Compare(CreateDouble(dNan)), 0);
    EXPECT_EQ(CreateDouble(-0.0)->Compare(CreateDouble(0.0)), 0);
}

TEST(BinaryValues, CopyNeedsBytesAdoptedBufferFreedOnceByLastOwner)
{
    CAutoPtr<BinaryValue> p = CreateBinary(nullptr, 0);
    EXPECT_EQ(p->GetData(), nullptr);
    EXPECT_QZ_ERROR(p->SetValue(nullptr, 3), STD, QZSTD::Err::ASSERTION,
                    L"(value && bytes > 0) || (bytes == 0)");
    static int s_nFreed = 0;
    s_nFreed = 0;
    auto Free = [](void* pBuffer, void* pContext) {
        ++s_nFreed;
        EXPECT_EQ(pContext, &s_nFreed);
        delete[] static_cast<uint8_t*>(pBuffer);
    };
    uint8_t abKept[1] = {};  // stays the caller's on an error
    EXPECT_QZ_ERROR(p->AttachBuffer(abKept, 1, nullptr, nullptr), PAR, Err::WRONG_FREE_CALLBACK, L"");
    EXPECT_QZ_ERROR(p->AttachBuffer(nullptr, 1, Free, nullptr), PAR, Err::WRONG_BUFFER, L"");
    p->AttachBuffer(new uint8_t[2]{7, 8}, 2, Free, &s_nFreed);
    CAutoPtr<Value> pCopy = CloneOf(p);
    p.Reset();
    EXPECT_EQ(s_nFreed, 0);
    EXPECT_EQ(GetBinaryValue(pCopy), (std::vector<uint8_t>{7, 8}));
    pCopy.Reset();
    EXPECT_EQ(s_nFreed, 1);
}

TEST(ArrayValues, SizeLimitIndexesAndDeepClone)
{
    CAutoPtr<ArrayValue> p = CreateArray(2);
    EXPECT_QZ_ERROR(p->SetSize(2147483647), STD, QZSTD::Err::BAD_PARAM, L"size");
    EXPECT_EQ(p->GetSize(), 2u);
    CAutoPtr<Value> pElement;
    p->GetAt(1, &pElement);
    EXPECT_FALSE(pElement);
    EXPECT_QZ_ERROR(p->SetAt(2, CreateInt(1)), STD, QZSTD::Err::OUT_OF_RANGE, L"");
    EXPECT_QZ_ERROR(p->GetAt(2, &pElement), STD, QZSTD::Err::OUT_OF_RANGE, L"");
    p->SetSize(0);
    EXPECT_EQ(p->GetSize(), 0u);
    CAutoPtr<Params> pNested = CreateParams();
    p->SetSize(2);
    p->SetAt(0, CreateParamsValue(pNested));
    CAutoPtr<ArrayValue> pCopy = GetArrayValue(CloneOf(p));
    EXPECT_EQ(pCopy->Compare(p), 0);
    CAutoPtr<Value> pFirst, pSecond;
    pCopy->GetAt(0, &pFirst);
    pCopy->GetAt(1, &pSecond);
    EXPECT_NE(GetParamsValue(pFirst).Get(), pNested.Get());
    EXPECT_FALSE(pSecond);
}

TEST(ValuesFactoryTest, EveryTypeByIdOthersRefusedUnpooledAlike)
{
    for (int nType = Value::STRING_T; nType <= Value::ARRAY_T; ++nType) {
        CAutoPtr<Value> p;
        GetValuesFactory()->CreateValue(nType, &p);
        EXPECT_EQ(p->GetType(), nType);
    }
    CAutoPtr<DateTimeValue> pTime;
    GetValuesFactory()->CreateDateTimeValue(&pTime);
    EXPECT_EQ(pTime->GetValue(), DateTimeValue::NO_TIME);  // a new time is "no time", not 1970
    for (int nType : {0, 12, -1}) {
        CAutoPtr<Value> p;
        EXPECT_QZ_ERROR(GetValuesFactory()->CreateValue(nType, &p), PAR, Err::WRONG_VALUE, L"");
    }
    CAutoPtr<IntValue> p = CAutoPtr<IntValue>::Adopt(new QZSTD::RcClassImpl<CIntValue>());
    p->SetValue(5);
    EXPECT_EQ(p->Compare(CreateInt(5)), 0);
    CAutoPtr<Params> pParams = CAutoPtr<Params>::Adopt(new QZSTD::RcClassImpl<CParamsImpl>());
    pParams->AddValue(L"x", p);
    EXPECT_EQ(GetIntValue(pParams, L"x"), 5);
}

TEST(ParamsHelpers, MissingAndMistypedEntriesNameTheEntry)
{
    CAutoPtr<Params> p = CreateParams();
    SetLongValue(p, L"long", 5);
    EXPECT_QZ_ERROR(GetIntValue(p, L"long"), PAR, Err::WRONG_TYPE, L"long");
    EXPECT_QZ_ERROR(GetIntValue(p, L"long", 0), PAR, Err::WRONG_TYPE, L"long");
    EXPECT_QZ_ERROR(GetStringValue(p, L"none"), PAR, Err::DOES_NOT_EXIST, L"none");
    EXPECT_QZ_ERROR(GetParamsValue(p, L"none"), PAR, Err::DOES_NOT_EXIST, L"none");
    EXPECT_QZ_ERROR(GetIntValue(nullptr, L"x"), STD, QZSTD::Err::BAD_PARAM, L"pParams");
    EXPECT_QZ_ERROR(SetIntValue(nullptr, L"x", 1), STD, QZSTD::Err::BAD_PARAM, L"pParams");
    EXPECT_EQ(GetStringValue(p, L"none", L"dflt"), L"dflt");
    EXPECT_EQ(GetLongValue(p, L"long", 3), 5);
    EXPECT_FALSE(FindValue(p, L"none"));
    const QZSTD::QZError e = Testing::CatchError([&] { p->AddValue(L"long", CreateInt(2)); });
    EXPECT_EQ(e.GetMessage(), L"Parameter with name \"long\" already exists");
}

TEST(ParamsHelpers, ValueGettersAssertTheTypeButReadANullArrayElementAsEmpty)
{
    EXPECT_QZ_ERROR(GetIntValue(CreateLong(1).Get()), STD, QZSTD::Err::ASSERTION,
                    L"!pX || pX->GetType() == QZPAR::Value::INT_T");
    EXPECT_QZ_ERROR(GetParamsValue(CreateInt(1).Get()), STD, QZSTD::Err::ASSERTION,
                    L"pParamsValue && pParamsValue->GetType() == QZPAR::Value::PARAMS_T");
    EXPECT_EQ(GetIntValue(static_cast<Value*>(nullptr)), 0);
    EXPECT_EQ(GetStringValue(static_cast<Value*>(nullptr)), L"");
}

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

TEST(ValuesDeathTest, BadTimeOrCorruptedSharedStringEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CAutoPtr<DateTimeValue> p = CreateDateTime(0);
    EXPECT_EXIT(p->SetValue(-2), testing::ExitedWithCode(1), "DateTimeValue below -1");
    EXPECT_EXIT(
        {
            SharedString sh(L"x");
            sh.GetHeader()->nRef.store(0);
        },
        testing::ExitedWithCode(1), "released more often than it was referenced");
    EXPECT_EXIT(
        {
            SharedString sh(L"x");
            sh.GetHeader()->nTag = 0;
        },
        testing::ExitedWithCode(1), "corrupted shared string");
}

}  // namespace
}  // namespace QZPAR
