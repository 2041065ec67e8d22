// Params operations: names, order, errors, copies, comparison, freezing.
#include "std/par/params.h"

#include <functional>
#include <map>
#include <random>
#include <vector>

#include "std/par/errors.h"
#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;
using testing::ElementsAre;

const char* const STD = QZSTD::Err::MODULE;
const char* const PAR = Err::MODULE;

std::vector<std::wstring> NamesOf(Params* p)
{
    std::vector<std::wstring> vec{L"stale"};
    p->GetNames(vec);
    return vec;
}

CAutoPtr<Value> Get(Params* p, const wchar_t* szName)
{
    CAutoPtr<Value> pValue;
    p->GetValue(szName, &pValue);
    return pValue;
}

// ---- single entries ----

// Every refused call raises its code naming the argument, and leaves the entries as they were.
TEST(ParamsEntries, RefusedCallsNameTheArgumentAndChangeNothing)
{
    CAutoPtr<Params> p = CreateParams();
    p->AddValue(L"keep", CreateInt(1));
    CAutoPtr<Value> pFull = CreateInt(2);
    Value* pRawFull = pFull;
    CAutoPtr<Value> pValue;
    struct Row
    {
        std::function<void()> fn;
        const char* szModule;
        int nCode;
        const wchar_t* szArg;
    };
    const int BAD = QZSTD::Err::BAD_PARAM;
    const Row rows[] = {
        {[&] { p->AddValue(L"keep", CreateInt(2)); }, PAR, Err::ALREADY_EXISTS, L"keep"},
        {[&] { p->DeleteValue(L"y", true); }, PAR, Err::DOES_NOT_EXIST, L"y"},
        {[&] { p->SetValue(L"a", CreateInt(1)); }, PAR, Err::DOES_NOT_EXIST, L"a"},
        {[&] { p->GetValue(L"none", &pValue); }, PAR, Err::DOES_NOT_EXIST, L"none"},
        {[&] { p->AddValue(nullptr, CreateInt(1)); }, STD, BAD, L"name"},
        {[&] { p->AddValue(L"", CreateInt(1)); }, STD, BAD, L"name"},
        {[&] { p->ReplaceValue(L"keep", nullptr); }, STD, BAD, L"value"},
        {[&] { p->SetValue(L"keep", nullptr); }, STD, BAD, L"value"},
        {[&] { p->DeleteValue(L"", true); }, STD, BAD, L"name"},
        {[&] { p->GetValue(L"keep", nullptr); }, STD, BAD, L"ppValue"},
        {[&] { p->GetValueNoThrow(L"keep", &pRawFull); }, STD, BAD, L"ppValue"},
        {[&] { p->Compare(nullptr); }, STD, BAD, L"pParams"},
        {[&] { p->CopyFrom(nullptr); }, STD, BAD, L"pSrc"},
        {[&] { p->CopyFromShared(nullptr); }, STD, BAD, L"pSrc"},
        {[&] { p->Clone(nullptr); }, STD, BAD, L"ppParams"},
        {[&] { QZSTD::QueryInterface<EnumValues>(p)->Enumerate(nullptr); }, STD, BAD, L"pCallback"},
        {[&] { QZSTD::QueryInterface<EnumValues>(p)->CreateEnumerator(nullptr); }, STD, BAD, L"pEnum"},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE("row " + std::to_string(i) + " (" + QZSTD::WideToUtf8(rows[i].szArg) + ")");
        EXPECT_QZ_ERROR(rows[i].fn(), rows[i].szModule, rows[i].nCode, rows[i].szArg);
        EXPECT_THAT(NamesOf(p), ElementsAre(L"keep"));
        EXPECT_EQ(GetIntValue(p, L"keep"), 1);
    }
    EXPECT_FALSE(pValue);
}

TEST(ParamsEntries, ReplaceAddsSetMayChangeTheTypeDeleteAndGetWithoutThrowSayWhetherItWasThere)
{
    CAutoPtr<Params> p = CreateParams();
    p->ReplaceValue(L"n", CreateInt(3));
    p->SetValue(L"n", CreateLong(2));
    EXPECT_EQ(GetLongValue(p, L"n"), 2);
    CAutoPtr<Value> pValue;
    EXPECT_FALSE(p->GetValueNoThrow(L"none", &pValue));
    EXPECT_FALSE(pValue);
    EXPECT_FALSE(p->DeleteValue(L"y", false));
    EXPECT_TRUE(p->DeleteValue(L"n", true));
    EXPECT_EQ(p->GetSize(), 0);
}

// ---- order ----

// Lookups skip the prefixes the names are known to share; a random workload over names with long
// common prefixes, both cases, characters on both sides of the surrogate range and prefixes of each
// other must behave exactly like a plain map ordered by UTF-16 code units (ordinal and case sensitive,
// the same order on Linux as on Windows, where characters above U+FFFF are surrogates D800-DFFF and
// sort below U+E000-U+FFFF).
TEST(ParamsOrder, RandomWorkloadMatchesAPlainMap)
{
    const std::vector<std::wstring> vecParts = {L"setup_result_", L"a", L"ab", L"\uFFFD",
                                                L"\U0001F600",    L"Z", L""};
    std::mt19937 rng(12345);
    auto RandomName = [&] {
        std::wstring wstr;
        while (wstr.empty() || (wstr.size() < 40 && rng() % 3 != 0))
            wstr += vecParts[rng() % vecParts.size()];
        return wstr;
    };
    std::vector<std::wstring> vecNames;
    for (int i = 0; i < 60; ++i)
        vecNames.push_back(RandomName());
    auto Utf16Less = [](const std::wstring& a, const std::wstring& b) {
        return QZSTD::WideToUtf16(a) < QZSTD::WideToUtf16(b);
    };
    std::map<std::wstring, int, decltype(Utf16Less)> mapExpected(Utf16Less);
    CAutoPtr<Params> p = CreateParams();
    for (int nStep = 0; nStep < 4000; ++nStep) {
        const std::wstring& wstrName = vecNames[rng() % vecNames.size()];
        switch (rng() % 8) {
            case 0:
                EXPECT_EQ(p->DeleteValue(wstrName.c_str(), false), mapExpected.erase(wstrName) == 1);
                break;
            case 1:
                if (rng() % 20 == 0) {
                    p->Clear();
                    mapExpected.clear();
                }
                break;
            case 2:
            case 3:
                SetIntValue(p, wstrName.c_str(), nStep);
                mapExpected[wstrName] = nStep;
                break;
            default: {
                auto it = mapExpected.find(wstrName);
                EXPECT_EQ(GetIntValue(p, wstrName.c_str(), -1), it == mapExpected.end() ? -1 : it->second);
            }
        }
    }
    std::vector<std::wstring> vecExpected;
    for (const auto& entry : mapExpected)
        vecExpected.push_back(entry.first);
    EXPECT_EQ(NamesOf(p), vecExpected);
}

TEST(ParamsOrder, EnumerationAndEnumeratorWalkASnapshotInNameOrder)
{
    CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, L"b", 2);
    SetIntValue(p, L"a", 1);
    struct Collect : EnumValuesCallback
    {
        Params* pParams = nullptr;
        std::vector<std::wstring> vecSeen;
        void OnValue(const wchar_t* szName, Value* pValue) override
        {
            vecSeen.push_back(szName + std::to_wstring(GetIntValue(pValue)));
            pParams->DeleteValue(szName, true);  // changing the enumerated Params is allowed
        }
    } collect;
    collect.pParams = p;
    QZSTD::QueryInterface<EnumValues>(p)->Enumerate(&collect);
    EXPECT_THAT(collect.vecSeen, ElementsAre(L"a1", L"b2"));
    EXPECT_EQ(p->GetSize(), 0);
    SetIntValue(p, L"y", 2);
    SetIntValue(p, L"x", 1);
    CAutoPtr<ValuesEnumerator> pEnum;
    QZSTD::QueryInterface<EnumValues>(p)->CreateEnumerator(&pEnum);
    p->Clear();
    ASSERT_EQ(pEnum->GetCount(), 2u);
    std::wstring wstrSeen;
    for (int nPass = 0; nPass < 2; ++nPass) {
        const wchar_t* szName = nullptr;
        CAutoPtr<Value> pValue;
        while (pEnum->Next(&szName, &pValue)) {
            wstrSeen += szName + std::to_wstring(GetIntValue(pValue));
            pValue.Reset();
        }
        pEnum->Reset();
    }
    EXPECT_EQ(wstrSeen, L"x1y2x1y2");
}

TEST(ParamsInterfaces, QueryInterfaceByQualifiedName)
{
    CAutoPtr<Params> p = CreateParams();
    CAutoPtr<EnumValues> pEnum = QZSTD::QueryInterface<EnumValues>(p);
    EXPECT_EQ(QZSTD::QueryInterface<Params>(QZSTD::QueryInterface<ParamsInternal>(pEnum)).Get(), p.Get());
    void* pv = &pv;
    EXPECT_FALSE(p->QueryInterface("QZPAR::Value", &pv));
    EXPECT_EQ(pv, nullptr);
}

// ---- comparison ----

TEST(ParamsCompare, CountThenFirstDifferenceInNameOrderDecides)
{
    auto Make = [](const wchar_t* szFirst, Value* pFirst) {
        CAutoPtr<Params> p = CreateParams();
        p->AddValue(szFirst, pFirst);
        SetIntValue(p, L"z", 9);
        return p;
    };
    CAutoPtr<Params> pA1 = Make(L"a", CreateInt(1));
    EXPECT_EQ(pA1->Compare(Make(L"a", CreateInt(1))), 0);
    EXPECT_EQ(pA1->Compare(pA1), 0);
    EXPECT_EQ(pA1->Compare(Make(L"b", CreateInt(0))), -1);  // name before value
    EXPECT_EQ(pA1->Compare(Make(L"a", CreateInt(2))), -1);
    EXPECT_EQ(pA1->Compare(Make(L"a", CreateInt(0))), 1);
    EXPECT_NE(pA1->Compare(Make(L"a", CreateLong(1))), 0);  // same number, other type
    CAutoPtr<Params> pOne = CreateParams();
    SetIntValue(pOne, L"zz", 1);
    EXPECT_EQ(pOne->Compare(pA1), -1);  // counts decide before names
    EXPECT_EQ(pA1->Compare(pOne), 1);
}

// ---- copies ----

CAutoPtr<Params> MakeTree()
{
    CAutoPtr<Params> pNested = CreateParams();
    SetStringValue(pNested, L"inner", L"text");
    CAutoPtr<Params> p = CreateParams();
    SetParamsValue(p, L"nested", pNested);
    SetStringValue(p, L"s", L"shared text");
    return p;
}

TEST(ParamsCopy, CloneIsDeepAndIndependentButSharesStringBuffers)
{
    CAutoPtr<Params> p = MakeTree();
    p->MakeReadOnly();
    CAutoPtr<Params> pCopy;
    p->Clone(&pCopy);
    EXPECT_EQ(p->Compare(pCopy), 0);
    EXPECT_FALSE(IsReadOnly(pCopy));
    CAutoPtr<Params> pNestedCopy = GetParamsValue(pCopy, L"nested");
    EXPECT_NE(pNestedCopy.Get(), GetParamsValue(p, L"nested").Get());
    SetIntValue(pNestedCopy, L"added", 1);
    EXPECT_NE(p->Compare(pCopy), 0);
    EXPECT_FALSE(GetParamsValue(p, L"nested")->DoesExist(L"added"));
    auto Buffer = [](Params* pParams) {  // immutable string buffers are shared
        return static_cast<StringValue*>(Get(pParams, L"s").Get())->GetShared().GetHeader();
    };
    EXPECT_EQ(Buffer(p), Buffer(pCopy));
}

TEST(ParamsCopy, CopyFromSharedKeepsValueObjectsCopyFromDoesNot)
{
    CAutoPtr<Params> pSrc = MakeTree();
    CAutoPtr<Params> pShared = CreateParams();
    CAutoPtr<Params> pDeep = CreateParams();
    for (Params* pDest : {pShared.Get(), pDeep.Get()}) {
        SetIntValue(pDest, L"s", 1);    // replaced
        SetIntValue(pDest, L"own", 2);  // kept
    }
    pShared->CopyFromShared(pSrc);
    pDeep->CopyFrom(pSrc);
    for (Params* pDest : {pShared.Get(), pDeep.Get()}) {
        EXPECT_THAT(NamesOf(pDest), ElementsAre(L"nested", L"own", L"s"));
        EXPECT_EQ(GetStringValue(pDest, L"s"), L"shared text");
    }
    EXPECT_EQ(Get(pShared, L"nested").Get(), Get(pSrc, L"nested").Get());
    EXPECT_NE(Get(pDeep, L"nested").Get(), Get(pSrc, L"nested").Get());
    EXPECT_NE(GetParamsValue(pDeep, L"nested").Get(), GetParamsValue(pSrc, L"nested").Get());
    EXPECT_EQ(GetParamsValue(pDeep, L"nested")->Compare(GetParamsValue(pSrc, L"nested")), 0);
    CAutoPtr<Params> pBefore;  // a copy from itself keeps the entries
    pSrc->Clone(&pBefore);
    pSrc->CopyFrom(pSrc);
    pSrc->CopyFromShared(pSrc);
    EXPECT_EQ(pSrc->Compare(pBefore), 0);
}

// ---- freezing ----

TEST(ParamsFreeze, MakeReadOnlyReachesParamsInsideArrays)
{
    CAutoPtr<Params> pDirect = CreateParams();
    CAutoPtr<Params> pInArray = CreateParams();
    CAutoPtr<Params> pInInnerArray = CreateParams();
    CAutoPtr<ArrayValue> pInner = CreateArray(2);
    pInner->SetAt(1, CreateParamsValue(pInInnerArray));
    CAutoPtr<ArrayValue> pOuter = CreateArray(4);
    pOuter->SetAt(0, CreateParamsValue(pInArray));
    pOuter->SetAt(1, pInner);
    pOuter->SetAt(2, CreateParamsValue(nullptr));
    CAutoPtr<Params> pRoot = CreateParams();
    SetParamsValue(pRoot, L"direct", pDirect);
    SetParamsValue(pRoot, L"again", pDirect);
    SetArrayValue(pRoot, L"list", pOuter);
    pRoot->MakeReadOnly();
    for (Params* p : {pRoot.Get(), pDirect.Get(), pInArray.Get(), pInInnerArray.Get()})
        EXPECT_TRUE(IsReadOnly(p));
    EXPECT_EQ(GetIntValue(pRoot, L"missing", 7), 7);  // reads still work
}

TEST(ParamsFreezeDeathTest, EveryMutationOfAFrozenParamsEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CAutoPtr<Params> p = MakeTree();
    CAutoPtr<Params> pOther = MakeTree();
    p->MakeReadOnly();
    const std::vector<std::function<void()>> mutations = {
        [&] { p->AddValue(L"new", CreateInt(1)); },
        [&] { p->ReplaceValue(L"s", CreateInt(1)); },
        [&] { p->SetValue(L"s", CreateInt(1)); },
        [&] { p->DeleteValue(L"s", false); },
        [&] { p->Clear(); },
        [&] { p->CopyFrom(pOther); },
        [&] { p->CopyFromShared(pOther); },
        [&] { GetParamsValue(p, L"nested")->Clear(); },
    };
    for (const auto& fn : mutations)
        EXPECT_EXIT(fn(), testing::ExitedWithCode(1), "change to a read-only Params");
}

}  // namespace
}  // namespace QZPAR
