// Pooling: recycled memory, clean state after recycling, cross-thread release, no allocations.
#include "std/par/pool.h"

#include <thread>

#include "std/par/paramshelpers.h"
#include "std/par/paramsimpl.h"
#include "std/par/valuesimpl.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;

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
    SetIntValue(pAgain, L"y", 2);  // writable again

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

TEST(ValuesPoolTest, CreateAndReleaseFromThePoolDoNotAllocate)
{
    CreateInt(0);  // warms this thread's pool
    const size_t nBefore = Testing::AllocationCount();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(CreateInt(i)->GetValue(), i);
    EXPECT_EQ(Testing::AllocationCount(), nBefore);
}

TEST(ValuesPoolTest, ObjectsReleasedOnAnotherThreadJoinThatThreadsPool)
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
}

TEST(ValuesPoolTest, FreeListIsBounded)
{
    std::vector<CAutoPtr<LongValue>> vecValues;
    for (uint32_t i = 0; i < QZSTD_POOL2::POOL_MAX_FREE_PER_THREAD + 50; ++i)
        vecValues.push_back(CreateLong(i));
    vecValues.clear();
    EXPECT_EQ(QZSTD_POOL2::GetPooledFreeCount<CLongValue>(), QZSTD_POOL2::POOL_MAX_FREE_PER_THREAD);
}

TEST(ParamsLookup, LookupsAndOverwritesDoNotAllocate)
{
    CAutoPtr<Params> p = CreateParams();
    for (int i = 0; i < 1000; ++i)
        SetIntValue(p, (L"key" + std::to_wstring(i)).c_str(), i);
    CAutoPtr<IntValue> pNew = CreateInt(-1);
    const size_t nBefore = Testing::AllocationCount();
    int64_t nSum = 0;
    for (int i = 0; i < 1000; i += 7) {
        CAutoPtr<Value> pValue;
        p->GetValue(L"key500", &pValue);
        nSum += GetIntValue(pValue.Get());
        nSum += p->DoesExist(L"key999") ? 1 : 0;
    }
    p->ReplaceValue(L"key1", pNew);  // existing name: no new shared name
    EXPECT_EQ(Testing::AllocationCount(), nBefore);
    EXPECT_EQ(nSum, 143 * 501);
}

}  // namespace
}  // namespace QZPAR
