// The value tree against JsonCpp's Json::Value doing the same work in the same process: lookups by
// name (hits and misses), building a tree, deep copies, and creating and releasing single values
// (pooled against the same classes on plain new/delete).
#include <benchmark/benchmark.h>
#include <json/json.h>

#include <cstdio>
#include <string>
#include <vector>

#include "allocs.h"
#include "std/par/paramshelpers.h"
#include "std/par/pool.h"
#include "std/par/valuesimpl.h"

namespace {

using QZSTD::CAutoPtr;

std::string Name(int64_t n)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "setting_%08lld", static_cast<long long>(n));
    return buf;
}

std::wstring WName(int64_t n)
{
    const std::string str = Name(n);
    return std::wstring(str.begin(), str.end());
}

// Names to look up: hits are the tree's own names, misses sort between them.
template <class S>
std::vector<S> LookupNames(int64_t nSize, bool bHit)
{
    std::vector<S> vec;
    for (int64_t i = 0; i < 1024; ++i) {
        const int64_t n = (i * 7919) % nSize;
        S s;
        for (char c : Name(n))
            s += static_cast<typename S::value_type>(c);
        if (!bHit)
            s += static_cast<typename S::value_type>('x');
        vec.push_back(s);
    }
    return vec;
}

CAutoPtr<QZPAR::Params> BuildParams(int64_t nSize)
{
    CAutoPtr<QZPAR::Params> p = QZPAR::CreateParams();
    for (int64_t i = 0; i < nSize; ++i) {
        if (i % 2)
            p->ReplaceValue(WName(i).c_str(), QZPAR::CreateInt(static_cast<int32_t>(i)));
        else
            p->ReplaceValue(WName(i).c_str(), QZPAR::CreateString(L"a typical setting value"));
    }
    return p;
}

Json::Value BuildJson(int64_t nSize)
{
    Json::Value v(Json::objectValue);
    for (int64_t i = 0; i < nSize; ++i) {
        if (i % 2)
            v[Name(i)] = Json::Value(static_cast<int>(i));
        else
            v[Name(i)] = Json::Value("a typical setting value");
    }
    return v;
}

void ParamsLookup(benchmark::State& state, bool bHit)
{
    CAutoPtr<QZPAR::Params> p = BuildParams(state.range(0));
    const std::vector<std::wstring> vecNames = LookupNames<std::wstring>(state.range(0), bHit);
    size_t i = 0;
    int64_t nFound = 0;
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        CAutoPtr<QZPAR::Value> pValue;
        nFound += p->GetValueNoThrow(vecNames[i++ & 1023].c_str(), &pValue);
        benchmark::DoNotOptimize(pValue.Get());
    }
    allocs.Report(state);
    if (nFound != (bHit ? static_cast<int64_t>(state.iterations()) : 0))
        state.SkipWithError("lookup result wrong");
}

void JsonLookup(benchmark::State& state, bool bHit)
{
    const Json::Value v = BuildJson(state.range(0));
    const std::vector<std::string> vecNames = LookupNames<std::string>(state.range(0), bHit);
    size_t i = 0;
    int64_t nFound = 0;
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        const std::string& str = vecNames[i++ & 1023];
        const Json::Value* pValue = v.find(str.data(), str.data() + str.size());
        nFound += pValue != nullptr;
        benchmark::DoNotOptimize(pValue);
    }
    allocs.Report(state);
    if (nFound != (bHit ? static_cast<int64_t>(state.iterations()) : 0))
        state.SkipWithError("lookup result wrong");
}

void BM_ParamsLookupHit(benchmark::State& state) { ParamsLookup(state, true); }
void BM_JsonLookupHit(benchmark::State& state) { JsonLookup(state, true); }
void BM_ParamsLookupMiss(benchmark::State& state) { ParamsLookup(state, false); }
void BM_JsonLookupMiss(benchmark::State& state) { JsonLookup(state, false); }

void BM_ParamsBuild(benchmark::State& state)
{
    qzbench::AllocScope allocs;
    for (auto _ : state)
        benchmark::DoNotOptimize(BuildParams(state.range(0)).Get());
    allocs.Report(state);
}

void BM_JsonBuild(benchmark::State& state)
{
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        Json::Value v = BuildJson(state.range(0));
        benchmark::DoNotOptimize(&v);
    }
    allocs.Report(state);
}

// Deep copy of a two-level tree: nSize entries, every tenth one a nested tree of ten entries.
CAutoPtr<QZPAR::Params> BuildNestedParams(int64_t nSize)
{
    CAutoPtr<QZPAR::Params> p = BuildParams(nSize);
    for (int64_t i = 0; i < nSize; i += 10)
        p->ReplaceValue((WName(i) + L"_sub").c_str(), QZPAR::CreateParamsValue(BuildParams(10)));
    return p;
}

Json::Value BuildNestedJson(int64_t nSize)
{
    Json::Value v = BuildJson(nSize);
    for (int64_t i = 0; i < nSize; i += 10)
        v[Name(i) + "_sub"] = BuildJson(10);
    return v;
}

void BM_ParamsClone(benchmark::State& state)
{
    CAutoPtr<QZPAR::Params> p = BuildNestedParams(state.range(0));
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        CAutoPtr<QZPAR::Params> pCopy;
        p->Clone(&pCopy);
        benchmark::DoNotOptimize(pCopy.Get());
    }
    allocs.Report(state);
}

void BM_JsonClone(benchmark::State& state)
{
    const Json::Value v = BuildNestedJson(state.range(0));
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        Json::Value copy(v);
        benchmark::DoNotOptimize(&copy);
    }
    allocs.Report(state);
}

// The same value classes on the heap: only the memory source differs from the pooled objects.
struct HeapPool
{
    static void* Allocate(size_t n) { return ::operator new(n); }
    static void Free(void* p, size_t) noexcept { ::operator delete(p); }
};

template <class Impl, class Pool>
void CreateReleaseBatch(benchmark::State& state)
{
    // A batch of live objects, as a message or a settings section holds them.
    constexpr size_t BATCH = 64;
    QZPAR::Value* apValues[BATCH];
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        for (auto& pValue : apValues)
            pValue = QZSTD_POOL2::PooledQZBaseImpl<Impl, Pool>::Create();
        benchmark::DoNotOptimize(apValues);
        for (auto& pValue : apValues)
            pValue->Release();
    }
    allocs.Report(state);
    state.SetItemsProcessed(state.iterations() * BATCH);
}

void BM_ValueCreateReleasePooled(benchmark::State& state)
{
    CreateReleaseBatch<QZPAR::CIntValue, QZSTD_POOL2::ValuesPool<QZPAR::CIntValue>>(state);
}
void BM_ValueCreateReleaseNewDelete(benchmark::State& state)
{
    CreateReleaseBatch<QZPAR::CIntValue, HeapPool>(state);
}
void BM_StringValueCreateReleasePooled(benchmark::State& state)
{
    CreateReleaseBatch<QZPAR::CStringValue, QZSTD_POOL2::ValuesPool<QZPAR::CStringValue>>(state);
}
void BM_StringValueCreateReleaseNewDelete(benchmark::State& state)
{
    CreateReleaseBatch<QZPAR::CStringValue, HeapPool>(state);
}

void BM_JsonValueCreateRelease(benchmark::State& state)
{
    constexpr size_t BATCH = 64;
    qzbench::AllocScope allocs;
    for (auto _ : state) {
        // Json::Value holds an int inline; a heap object is what a shared value costs there.
        Json::Value* apValues[BATCH];
        for (auto& pValue : apValues)
            pValue = new Json::Value(5);
        benchmark::DoNotOptimize(apValues);
        for (auto& pValue : apValues)
            delete pValue;
    }
    allocs.Report(state);
    state.SetItemsProcessed(state.iterations() * BATCH);
}

void Sizes(benchmark::internal::Benchmark* b)
{
    b->Arg(10)->Arg(1000)->Arg(100000);
}

}  // namespace

BENCHMARK(BM_ParamsLookupHit)->Apply(Sizes);
BENCHMARK(BM_JsonLookupHit)->Apply(Sizes);
BENCHMARK(BM_ParamsLookupMiss)->Apply(Sizes);
BENCHMARK(BM_JsonLookupMiss)->Apply(Sizes);
BENCHMARK(BM_ParamsBuild)->Apply(Sizes);
BENCHMARK(BM_JsonBuild)->Apply(Sizes);
BENCHMARK(BM_ParamsClone)->Arg(10)->Arg(1000);
BENCHMARK(BM_JsonClone)->Arg(10)->Arg(1000);
BENCHMARK(BM_ValueCreateReleasePooled);
BENCHMARK(BM_ValueCreateReleaseNewDelete);
BENCHMARK(BM_StringValueCreateReleasePooled);
BENCHMARK(BM_StringValueCreateReleaseNewDelete);
BENCHMARK(BM_JsonValueCreateRelease);
