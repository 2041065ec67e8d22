// Counts the calling thread's heap allocations, so that tests can prove that lookups and pooled
// creation do not allocate. Replaces the global operator new of the test executable.
#include <cstdlib>
#include <new>

#include "tests/std/par/testutil.h"

namespace {
thread_local size_t t_nAllocations = 0;
}

size_t QZPAR::Testing::AllocationCount()
{
    return t_nAllocations;
}

void* operator new(size_t nBytes)
{
    ++t_nAllocations;
    if (void* p = std::malloc(nBytes ? nBytes : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, size_t) noexcept
{
    std::free(p);
}
