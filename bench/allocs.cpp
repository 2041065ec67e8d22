// Replaces the global operator new/delete of the benchmark program with counting versions.
#include "allocs.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<uint64_t> g_nAllocs{0};

void* CountedAlloc(size_t n)
{
    g_nAllocs.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1))
        return p;
    throw std::bad_alloc();
}
}  // namespace

uint64_t qzbench::AllocationCount()
{
    return g_nAllocs.load(std::memory_order_relaxed);
}

void* operator new(size_t n)
{
    return CountedAlloc(n);
}
void* operator new[](size_t n)
{
    return CountedAlloc(n);
}
void operator delete(void* p) noexcept
{
    std::free(p);
}
void operator delete[](void* p) noexcept
{
    std::free(p);
}
void operator delete(void* p, size_t) noexcept
{
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept
{
    std::free(p);
}
