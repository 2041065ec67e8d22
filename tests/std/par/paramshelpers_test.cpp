// The convenience layer: typed access by name and by value, and the error texts it reports.
#include "std/par/paramshelpers.h"

#include "std/par/errors.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;

const char* const STD = QZSTD::Err::MODULE;
const char* const PAR = Err::MODULE;

TEST(ParamsHelpers, EveryTypeRoundTripsByName)
{
    const uint8_t ab[] = {0, 255};
    CAutoPtr<Params> pNested = CreateParams();
    CAutoPtr<Params> p = CreateParams();
    SetStringValue(p, L"s", L"text");
    SetStringValue(p, L"sv", std::wstring(L"view"));
    SetBoolValue(p, L"b", true);
    SetIntValue(p, L"i", -7);
    SetLongValue(p, L"l", INT64_C(1) << 40);
    SetDateTimeValue(p, L"t", 1700000000);
    SetDateValue(p, L"d", "2024-01-31");
    SetBinaryValue(p, L"bin", ab, sizeof ab);
    SetFloatValue(p, L"f", 1.5f);
    SetDoubleValue(p, L"dbl", -2.25);
    SetParamsValue(p, L"p", pNested);
    SetArrayValue(p, L"a", CreateArray(3));
    EXPECT_EQ(GetStringValue(p, L"s"), L"text");
    EXPECT_EQ(GetStringValue(p, L"sv"), L"view");
    EXPECT_TRUE(GetBoolValue(p, L"b"));
    EXPECT_EQ(GetIntValue(p, L"i"), -7);
    EXPECT_EQ(GetLongValue(p, L"l"), INT64_C(1) << 40);
    EXPECT_EQ(GetDateTimeValue(p, L"t"), 1700000000);
    EXPECT_EQ(GetDateValue(p, L"d"), "2024-01-31");
    EXPECT_EQ(GetBinaryValue(p, L"bin"), (std::vector<uint8_t>{0, 255}));
    EXPECT_EQ(GetFloatValue(p, L"f"), 1.5f);
    EXPECT_EQ(GetDoubleValue(p, L"dbl"), -2.25);
    EXPECT_EQ(GetParamsValue(p, L"p").Get(), pNested.Get());
    EXPECT_EQ(GetArrayValue(p, L"a")->GetSize(), 3u);
}

TEST(ParamsHelpers, SettersOverwriteWhateverWasThere)
{
    CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, L"x", 1);
    SetStringValue(p, L"x", L"now a string");
    EXPECT_EQ(p->GetSize(), 1);
    EXPECT_EQ(GetStringValue(p, L"x"), L"now a string");
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
    EXPECT_EQ(GetIntValue(p, L"none", 3), 3);
    EXPECT_EQ(GetLongValue(p, L"long", 3), 5);
    EXPECT_TRUE(GetBoolValue(p, L"none", true));
    EXPECT_FALSE(FindValue(p, L"none"));
}

TEST(ParamsHelpers, ValueGettersAssertTheType)
{
    CAutoPtr<Value> pLong = CreateLong(1);
    CAutoPtr<Value> pInt = CreateInt(1);
    EXPECT_QZ_ERROR(GetIntValue(pLong.Get()), STD, QZSTD::Err::ASSERTION,
                    L"!pX || pX->GetType() == QZPAR::Value::INT_T");
    EXPECT_QZ_ERROR(GetLongValue(pInt.Get()), STD, QZSTD::Err::ASSERTION,
                    L"!pX || pX->GetType() == QZPAR::Value::LONG_T");
    EXPECT_QZ_ERROR(GetParamsValue(static_cast<Value*>(nullptr)), STD, QZSTD::Err::ASSERTION,
                    L"pParamsValue && pParamsValue->GetType() == QZPAR::Value::PARAMS_T");
    EXPECT_QZ_ERROR(GetParamsValue(pInt.Get()), STD, QZSTD::Err::ASSERTION,
                    L"pParamsValue && pParamsValue->GetType() == QZPAR::Value::PARAMS_T");
    EXPECT_EQ(GetIntValue(static_cast<Value*>(nullptr)), 0);  // a null array element reads as empty
    EXPECT_EQ(GetStringValue(static_cast<Value*>(nullptr)), L"");
}

TEST(ParamsErrorTable, MessagesAreRegistered)
{
    RegisterErrorTables();
    const std::vector<std::pair<int, const wchar_t*>> rows = {
        {1041, L"Wrong name of parameter \"%ls\""},
        {1042, L"Wrong type of parameter \"%ls\" value"},
        {1043, L"Parameter with name \"%ls\" already exists"},
        {1044, L"Parameter with name \"%ls\" does not exist"},
        {1045, L"Wrong value"},
        {1046, L"Wrong buffer for BinaryValue"},
        {1047, L"Wrong date value \"%ls\""},
        {1048, L"Wrong callback to free buffer"},
        {1049, L"Wrong params value"},
        {1050, L"Wrong array value"},
    };
    for (const auto& [nCode, wszFormat] : rows) {
        const wchar_t* szFound = QZSTD::FindErrorFormat("QZPAR", nCode);
        ASSERT_NE(szFound, nullptr) << nCode;
        EXPECT_STREQ(szFound, wszFormat);
    }
    CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, L"dup", 1);
    const QZSTD::QZError e = Testing::CatchError([&] { p->AddValue(L"dup", CreateInt(2)); });
    EXPECT_EQ(e.GetMessage(), L"Parameter with name \"dup\" already exists");
}

}  // namespace
}  // namespace QZPAR
