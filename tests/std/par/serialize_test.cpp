// The binary stream: round trips, the exact byte layout, and refusal of damaged or hostile input.
#include "std/par/serialize.h"

#include <algorithm>
#include <cmath>

#include "std/par/errors.h"
#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "tests/std/par/testutil.h"
#include "tests/testutil/fsutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;
using Bytes = std::vector<uint8_t>;

const char* const BIN = BinErr::MODULE;

Bytes Serialize(Params* p)
{
    Bytes vec{0xEE};  // replaced, not appended to
    SerializeParams(p, vec);
    return vec;
}

CAutoPtr<Params> Deserialize(const Bytes& vec)
{
    return DeserializeParams(vec.data(), vec.size());
}

// A stream with the given body (the header is computed).
Bytes Stream(const Bytes& vecBody)
{
    Bytes vec = {'Q', 'Z', 'P', 'B', 1, 0, 0, 0};
    const uint32_t n = static_cast<uint32_t>(vecBody.size());
    for (int i = 0; i < 4; ++i)
        vec.push_back(static_cast<uint8_t>(n >> (8 * i)));
    vec.insert(vec.end(), vecBody.begin(), vecBody.end());
    return vec;
}

// The shared every-type tree without its lone surrogates: the stream carries UTF-16, and where wchar_t
// has 32 bits (Linux) a lone surrogate reads back as U+FFFD; the settings storage keeps them.
CAutoPtr<Params> EveryType()
{
    CAutoPtr<Params> p = Testing::EveryTypeTree();
    p->DeleteValue(L"str_lone_surrogates", true);
    p->DeleteValue(std::wstring{0xE9, 0xD800}.c_str(), true);
    return p;
}

TEST(ParamsStream, EveryTypeRoundTrips)
{
    CAutoPtr<Params> p = EveryType();
    const Bytes vec = Serialize(p);
    CAutoPtr<Params> pRead = Deserialize(vec);
    // Compare tells a null Params from an empty one (ValueCompare in params_test.cpp) but takes -0 for 0;
    // a float NaN has no row there.
    EXPECT_EQ(p->Compare(pRead), 0);
    EXPECT_EQ(GetStringValue(pRead, L"str_nul"), std::wstring(L"a\0b\0", 4));
    EXPECT_TRUE(std::signbit(GetDoubleValue(pRead, L"double_minus_zero")));
    EXPECT_TRUE(std::isnan(GetFloatValue(pRead, L"float_nan")));
    EXPECT_EQ(Serialize(pRead), vec);
}

// The layout is fixed: UTF-16LE names with unit counts, little-endian numbers. The same bytes come
// out on Windows and Linux.
TEST(ParamsStream, ExactBytes)
{
    CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, L"\U0001F600", -2);
    CAutoPtr<ArrayValue> pArray = CreateArray(1);
    SetArrayValue(p, L"a", pArray);
    const Bytes vecBody = {
        2,  0,    0,    0,                             // entries
        1,  0,    0,    0,    'a',  0,                 // "a"
        11, 1,    0,    0,    0,    0,                 // ARRAY_T, one null element
        2,  0,    0,    0,    0x3D, 0xD8, 0x00, 0xDE,  // U+1F600 as a surrogate pair
        3,  0xFE, 0xFF, 0xFF, 0xFF,                    // INT_T -2
    };
    EXPECT_EQ(Serialize(p), Stream(vecBody));
}

// Any damage to a byte must give a parsed tree or a QZError; the sanitizer builds catch reads outside
// the input. Every strict prefix and an extra byte are refused.
TEST(ParamsStream, DamagedTruncatedOrExtendedBytesAreSafelyRefused)
{
    Bytes vec = Serialize(EveryType());
    for (size_t i = 0; i < vec.size(); ++i) {
        for (uint8_t b : {uint8_t{0x00}, uint8_t{0x01}, uint8_t{0x7F}, uint8_t{0xFF}}) {
            Bytes vecDamaged = vec;
            vecDamaged[i] = b;
            try {
                Deserialize(vecDamaged);
            } catch (const QZSTD::QZError&) {
            }
        }
    }
    for (size_t n = 0; n < vec.size(); ++n) {
        const QZSTD::QZError e = Testing::CatchError([&] { DeserializeParams(vec.data(), n); });
        EXPECT_EQ(e.GetModule(), BIN) << n;
    }
    vec.push_back(0);
    EXPECT_QZ_ERROR(Deserialize(vec), BIN, BinErr::TRAILING_DATA, L"1");
}

TEST(ParamsStream, MalformedInputIsRefusedWithTheFault)
{
    const Bytes vecName = {1, 0, 0, 0, 'x', 0};
    auto OneEntry = [&](const Bytes& vecValue) {
        Bytes vec = {1, 0, 0, 0};
        vec.insert(vec.end(), vecName.begin(), vecName.end());
        vec.insert(vec.end(), vecValue.begin(), vecValue.end());
        vec.resize(std::max<size_t>(vec.size(), 12));  // room for one entry, so the count passes
        return Stream(vec);
    };
    auto Nested = [](int nLevels) {
        Bytes vec;
        for (int i = 1; i < nLevels; ++i)
            vec.insert(vec.end(), {1, 0, 0, 0, 1, 0, 0, 0, 'x', 0, 10, 1});
        vec.insert(vec.end(), {0, 0, 0, 0});
        return Stream(vec);
    };
    auto Patched = [](size_t nAt, uint8_t b) {  // an empty tree with one header byte changed
        Bytes vec = Stream({0, 0, 0, 0});
        vec[nAt] = b;
        return vec;
    };
    Bytes vecDuplicate = {2, 0, 0, 0};
    for (int i = 0; i < 2; ++i)
        vecDuplicate.insert(vecDuplicate.end(), {1, 0, 0, 0, 'x', 0, 2, 1});
    const Bytes vecBadTime = OneEntry({5, 0xFE, 0xFF, 0xFF, 0xFF});
    const std::vector<std::pair<Bytes, int>> cases = {
        {Patched(0, 'X'), BinErr::BAD_MAGIC},
        {Patched(4, 2), BinErr::BAD_VERSION},
        {Patched(6, 1), BinErr::BAD_FLAGS},
        {OneEntry({12}), BinErr::UNKNOWN_TYPE},
        {OneEntry({0}), BinErr::UNKNOWN_TYPE},
        {OneEntry({2, 2}), BinErr::BAD_BOOL},
        {vecBadTime, BinErr::BAD_DATE_TIME},
        {OneEntry({6, 1, 0, 0, 0, 0}), BinErr::BAD_CHARACTER},
        {OneEntry({1, 0xFF, 0xFF, 0xFF, 0x7F}), BinErr::LENGTH_TOO_LARGE},
        {OneEntry({11, 0xFF, 0xFF, 0xFF, 0xFF}), BinErr::BAD_COUNT},
        {Stream({1, 0, 0, 0, 0, 0, 0, 0, 2, 1, 0, 0}), BinErr::EMPTY_NAME},
        {Stream({1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 2, 1}), BinErr::BAD_CHARACTER},
        {Stream(vecDuplicate), BinErr::DUPLICATE_NAME},
        {Stream({0, 0, 0, 0, 0}), BinErr::TRAILING_DATA},
        {Nested(PARAMS_STREAM_MAX_DEPTH + 1), BinErr::TOO_DEEP},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const QZSTD::QZError e = Testing::CatchError([&] { Deserialize(cases[i].first); });
        EXPECT_TRUE(e.Is(BIN, cases[i].second)) << "case " << i << ": " << e.what();
    }
    EXPECT_EQ(GetParamsValue(Deserialize(Nested(PARAMS_STREAM_MAX_DEPTH)), L"x")->GetSize(), 1);
    EXPECT_EQ(Testing::CatchError([&] { Deserialize(vecBadTime); }).GetMessage(),
              L"Invalid DateTime value -2 at offset 23");  // errors name the offset
}

TEST(ParamsStream, WriterRefusesTreesItCouldNotReadBack)
{
    Bytes vec;
    EXPECT_QZ_ERROR(SerializeParams(Testing::NestedLevels(PARAMS_STREAM_MAX_DEPTH + 1), vec), BIN,
                    BinErr::TOO_DEEP, L"64");
    CAutoPtr<Params> pSelf = CreateParams();
    SetParamsValue(pSelf, L"self", pSelf);
    EXPECT_QZ_ERROR(SerializeParams(pSelf, vec), BIN, BinErr::TOO_DEEP, L"64");
    pSelf->Clear();
    EXPECT_QZ_ERROR(SerializeParams(nullptr, vec), QZSTD::Err::MODULE, QZSTD::Err::BAD_PARAM, L"pParams");
}

TEST(ParamsStream, FilesRoundTripAndAMissingFileIs1205)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrPath = folder.Join(L"qz_par_test_\u00E9.bin");
    CAutoPtr<Params> p = EveryType();
    WriteParamsFile(wstrPath, p);
    EXPECT_EQ(ReadParamsFile(wstrPath)->Compare(p), 0);
    EXPECT_QZ_ERROR(ReadParamsFile(folder.Join(L"none.bin")), QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND,
                    folder.Join(L"none.bin"));
}

}  // namespace
}  // namespace QZPAR
