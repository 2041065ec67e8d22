// Concurrent use: frozen trees read without locks, one tree shared by a writer and readers, and
// comparisons in opposite directions.
#include <atomic>
#include <thread>
#include <vector>

#include "std/par/paramshelpers.h"
#include "tests/std/par/testutil.h"

namespace QZPAR {
namespace {

using QZSTD::CAutoPtr;

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

TEST(ParamsThreads, FrozenTreeIsReadWhileAnotherTreeChanges)
{
    CAutoPtr<Params> pFrozen = MakeFilled();
    pFrozen->MakeReadOnly();
    CAutoPtr<Params> pBusy = CreateParams();
    std::atomic<int> nBad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int n = 0; n < 2000; ++n) {
                const int i = n % ENTRIES;
                if (GetIntValue(GetParamsValue(pFrozen, Key(i).c_str()), L"v") != i)
                    ++nBad;
            }
        });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            for (int n = 0; n < 2000; ++n) {
                const std::wstring wstrKey = Key(t * 10000 + n % 50);
                SetIntValue(pBusy, wstrKey.c_str(), n);
                pBusy->DeleteValue(Key(t * 10000 + (n + 25) % 50).c_str(), false);
            }
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(nBad.load(), 0);
    EXPECT_EQ(pFrozen->GetSize(), ENTRIES);
}

TEST(ParamsThreads, WriterAndReadersShareOneTree)
{
    CAutoPtr<Params> p = CreateParams();
    std::atomic<bool> bDone{false};
    std::atomic<int> nBad{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&] {
            while (!bDone) {
                std::vector<std::wstring> vecNames;
                p->GetNames(vecNames);
                for (const std::wstring& wstr : vecNames) {
                    // Every entry "k<i>" holds i; a missing one was deleted meanwhile.
                    const int32_t n = GetIntValue(p, wstr.c_str(), std::stoi(wstr.substr(1)));
                    if (L"k" + std::to_wstring(n) != wstr)
                        ++nBad;
                }
            }
        });
    }
    for (int n = 0; n < 3000; ++n) {
        SetIntValue(p, Key(n % 100).c_str(), n % 100);
        if (n % 3 == 0)
            p->DeleteValue(Key((n * 7) % 100).c_str(), false);
    }
    bDone = true;
    for (std::thread& th : readers)
        th.join();
    EXPECT_EQ(nBad.load(), 0);
    std::vector<std::wstring> vecNames;
    p->GetNames(vecNames);
    EXPECT_EQ(static_cast<size_t>(p->GetSize()), vecNames.size());
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

}  // namespace
}  // namespace QZPAR
