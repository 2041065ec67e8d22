// Params operations: names, order, errors, copies, comparison, freezing; the value types (payload
// rules, comparison, copies, argument checks, the factory, the shared string buffer), the typed access
// by name with its error texts and the trace text of a Params; pooling (recycled memory,
// clean state after recycling, cross-thread release, no allocations); and concurrent use (frozen trees
// read without locks, one tree shared by a writer and readers, comparisons in opposite directions).
#include "std/par/params.h"

#include <atomic>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "std/par/dump.h"
#include "std/par/errors.h"
#include "std/par/paramshelpers.h"
#include "std/par/paramsimpl.h"
#include "std/par/pool.h"
#include "std/par/sharedstr.h"
#include "std/par/valuesimpl.h"
#include "std/strconv.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;
using testing::ElementsAre;
using testing::HasSubstr;

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
    const int BAD = QZSTD::Err::BAD_PARAM;
    // The call, the module and code it raises, and the argument the error names.
    const std::tuple<std::function<void()>, const char*, int, const wchar_t*> rows[] = {
        {[&] { p->AddValue(L"keep", CreateInt(2)); }, PAR, Err::ALREADY_EXISTS, L"keep"},
        {[&] { p->DeleteValue(L"y", true); }, PAR, Err::DOES_NOT_EXIST, L"y"},
        {[&] { p->SetValue(L"a", CreateInt(1)); }, PAR, Err::DOES_NOT_EXIST, L"a"},
        {[&] { p->GetValue(L"none", &pValue); }, PAR, Err::DOES_NOT_EXIST, L"none"},
        {[&] { p->AddValue(nullptr, CreateInt(1)); }, STD, BAD, L"name"},
        {[&] { p->ReplaceValue(L"keep", nullptr); }, STD, BAD, L"value"},
        {[&] { p->SetValue(L"keep", nullptr); }, STD, BAD, L"value"},
        {[&] { p->GetValue(L"keep", nullptr); }, STD, BAD, L"ppValue"},
        {[&] { p->GetValueNoThrow(L"keep", &pRawFull); }, STD, BAD, L"ppValue"},
        {[&] { p->Compare(nullptr); }, STD, BAD, L"pParams"},
        {[&] { p->CopyFrom(nullptr); }, STD, BAD, L"pSrc"},
        {[&] { p->CopyFromShared(nullptr); }, STD, BAD, L"pSrc"},
        {[&] { p->Clone(nullptr); }, STD, BAD, L"ppParams"},
        {[&] { QZSTD::QueryInterface<EnumValues>(p)->Enumerate(nullptr); }, STD, BAD, L"pCallback"},
        {[&] { QZSTD::QueryInterface<EnumValues>(p)->CreateEnumerator(nullptr); }, STD, BAD, L"pEnum"},
    };
    for (const auto& [fn, szModule, nCode, szArg] : rows) {
        EXPECT_QZ_ERROR(fn(), szModule, nCode, szArg);
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
    void* pv = &pv;  // an interface the Params does not have
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

// ---- pooling ----

TEST(ValuesPoolTest, AReleasedObjectIsReusedInACleanStateAndLetsGoOfWhatItHeld)
{
    CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, L"x", 1);
    p->MakeReadOnly();
    const void* pvOld = p.Get();
    p.Reset();
    CAutoPtr<Params> pAgain = CreateParams();
    EXPECT_EQ(static_cast<const void*>(pAgain.Get()), pvOld);
    EXPECT_EQ(pAgain->GetSize(), 0);
    EXPECT_FALSE(IsReadOnly(pAgain));

    CAutoPtr<StringValue> pString = CreateString(L"old");
    const void* pvString = pString.Get();
    pString.Reset();
    CAutoPtr<StringValue> pNewString;
    GetValuesFactory()->CreateStringValue(&pNewString);
    EXPECT_EQ(static_cast<const void*>(pNewString.Get()), pvString);
    EXPECT_STREQ(pNewString->GetValue(), L"");

    // A recycled value lets go of what it held.
    CAutoPtr<Params> pNested = CreateParams();
    CAutoPtr<ParamsValue> pHolder = CreateParamsValue(pNested);
    EXPECT_EQ(pNested->AddRef(), 3);
    pNested->Release();
    pHolder.Reset();
    EXPECT_EQ(pNested->AddRef(), 2);  // only ours again
    pNested->Release();
}

TEST(ValuesPoolTest, ObjectsReleasedOnAnotherThreadJoinThatThreadsPoolWhichIsBounded)
{
    std::vector<CAutoPtr<IntValue>> vecValues;
    for (int i = 0; i < 10; ++i)
        vecValues.push_back(CreateInt(i));
    uint32_t nFreeThere = 0;
    std::thread([&] {
        const uint32_t nBefore = QZSTD_POOL2::GetPooledFreeCount<CIntValue>();
        vecValues.clear();
        nFreeThere = QZSTD_POOL2::GetPooledFreeCount<CIntValue>() - nBefore;
        EXPECT_EQ(CreateInt(42)->GetValue(), 42);  // served from the blocks just returned
    }).join();
    EXPECT_EQ(nFreeThere, 10u);
    // A thread keeps no more than the bound of released objects.
    std::vector<CAutoPtr<LongValue>> vecLongs;
    for (uint32_t i = 0; i < QZSTD_POOL2::POOL_MAX_FREE_PER_THREAD + 50; ++i)
        vecLongs.push_back(CreateLong(i));
    vecLongs.clear();
    EXPECT_EQ(QZSTD_POOL2::GetPooledFreeCount<CLongValue>(), QZSTD_POOL2::POOL_MAX_FREE_PER_THREAD);
}

TEST(ValuesPoolTest, PooledCreationLookupsAndOverwritesDoNotAllocate)
{
    CAutoPtr<Params> p = CreateParams();
    for (int i = 0; i < 1000; ++i)
        SetIntValue(p, (L"key" + std::to_wstring(i)).c_str(), i);
    CAutoPtr<IntValue> pNew = CreateInt(-1);
    CreateInt(0);  // warms this thread's pool
    const size_t nBefore = Testing::AllocationCount();
    int64_t nSum = 0;
    for (int i = 0; i < 1000; i += 7) {
        CAutoPtr<Value> pValue;
        p->GetValue(L"key500", &pValue);
        nSum += GetIntValue(pValue.Get()) + CreateInt(0)->GetValue();
        nSum += p->DoesExist(L"key999") ? 1 : 0;
    }
    p->ReplaceValue(L"key1", pNew);  // existing name: no new shared name
    EXPECT_EQ(Testing::AllocationCount(), nBefore);
    EXPECT_EQ(nSum, 143 * 501);
}

// ---- threads ----

constexpr int ENTRIES = 200;

std::wstring Key(int i)
{
    return L"k" + std::to_wstring(i);
}

CAutoPtr<Params> MakeFilled()
{
    CAutoPtr<Params> p = CreateParams();
    for (int i = 0; i < ENTRIES; ++i) {
        CAutoPtr<Params> pNested = CreateParams();
        SetIntValue(pNested, L"v", i);
        SetParamsValue(p, Key(i).c_str(), pNested);
    }
    return p;
}

// Readers walk a frozen tree (read without locks) and a tree that two writers change at the same time.
TEST(ParamsThreads, FrozenTreeAndATreeBeingChangedAreReadWhole)
{
    CAutoPtr<Params> pFrozen = MakeFilled();
    pFrozen->MakeReadOnly();
    CAutoPtr<Params> pBusy = CreateParams();
    std::atomic<int> nWriting{2};
    std::atomic<int> nBad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int n = 0; n < 2000 || nWriting > 0; ++n) {
                if (GetIntValue(GetParamsValue(pFrozen, Key(n % ENTRIES).c_str()), L"v") != n % ENTRIES)
                    ++nBad;
                std::vector<std::wstring> vecNames;
                pBusy->GetNames(vecNames);
                for (const std::wstring& wstr : vecNames) {
                    // Every entry "k<i>" holds i; a missing one was deleted meanwhile.
                    if (Key(GetIntValue(pBusy, wstr.c_str(), std::stoi(wstr.substr(1)))) != wstr)
                        ++nBad;
                }
            }
        });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < 3000; ++n) {
                SetIntValue(pBusy, Key(t * 10000 + n % 50).c_str(), t * 10000 + n % 50);
                pBusy->DeleteValue(Key(t * 10000 + (n + 25) % 50).c_str(), false);
            }
            --nWriting;
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(nBad.load(), 0);
    EXPECT_EQ(pFrozen->GetSize(), ENTRIES);
    EXPECT_EQ(static_cast<size_t>(pBusy->GetSize()), NamesOf(pBusy).size());
}

TEST(ParamsThreads, OppositeComparisonsAndCopiesDoNotDeadlock)
{
    CAutoPtr<Params> pA = MakeFilled();
    CAutoPtr<Params> pB = MakeFilled();
    auto Work = [](Params* pOne, Params* pTwo) {
        for (int n = 0; n < 200; ++n) {
            pOne->Compare(pTwo);
            pOne->CopyFromShared(pTwo);
        }
    };
    std::thread th1(Work, pA.Get(), pB.Get());
    std::thread th2(Work, pB.Get(), pA.Get());
    th1.join();
    th2.join();
    EXPECT_EQ(pA->Compare(pB), 0);
}

// ---- the value types, the typed access by name and the trace text ----

CAutoPtr<Value> CloneOf(Value* p)
{
    CAutoPtr<Value> pCopy;
    p->Clone(&pCopy);
    return pCopy;
}

TEST(ValueCompare, OtherTypesByTheIdsSameTypesByPayload)
{
    EXPECT_EQ(CreateInt(5)->Compare(CreateLong(5)), Value::INT_T - Value::LONG_T);
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
    // A null string is the empty one, and holds no buffer. A NUL inside a string is kept: proven by the
    // stream round trip in serialize_test.cpp.
    CAutoPtr<StringValue> pNull = CreateString(static_cast<const wchar_t*>(nullptr));
    EXPECT_STREQ(pNull->GetValue(), L"");
    EXPECT_EQ(pNull->Compare(CreateString(L"")), 0);
    EXPECT_TRUE(CreateString(L"")->GetShared().empty());
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
    CAutoPtr<Params> pParams = CAutoPtr<Params>::Adopt(new QZSTD::RcClassImpl<CParamsImpl>());
    pParams->AddValue(L"x", p);
    EXPECT_EQ(GetIntValue(pParams, L"x"), 5);
}

TEST(ParamsHelpers, MissingAndMistypedEntriesNameTheEntryValueGettersAssertTheType)
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
    // The getters of a value assert its type but read a null array element as empty.
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

TEST(ValuesDeathTest, FrozenParamsChangeBadTimeOrCorruptedSharedStringEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Every change to a Params passes the one frozen check: one change through a nested Params proves it.
    CAutoPtr<Params> pFrozen = MakeTree();
    pFrozen->MakeReadOnly();
    EXPECT_EXIT(GetParamsValue(pFrozen, L"nested")->Clear(), testing::ExitedWithCode(1),
                "change to a read-only Params");
    CAutoPtr<DateTimeValue> p = CreateDateTime(0);
    EXPECT_EXIT(p->SetValue(-2), testing::ExitedWithCode(1), "DateTimeValue below -1");
    // The temporary string's release at the end of the statement finds the damage.
    EXPECT_EXIT(SharedString(L"x").GetHeader()->nRef.store(0), testing::ExitedWithCode(1),
                "released more often than it was referenced");
    EXPECT_EXIT(SharedString(L"x").GetHeader()->nTag = 0, testing::ExitedWithCode(1),
                "corrupted shared string");
}

}  // namespace
}  // namespace QZPAR
