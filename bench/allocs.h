// Counts heap allocations made through operator new, so that a benchmark can report how many
// allocations one operation costs (counter "allocs_per_op").
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>

namespace qzbench {

uint64_t AllocationCount();

// Measures the allocations made between construction and Report().
class AllocScope
{
public:
    AllocScope() : m_nStart(AllocationCount()) {}
    void Report(benchmark::State& state) const
    {
        const double nOps = static_cast<double>(state.iterations());
        state.counters["allocs_per_op"] =
            nOps > 0 ? static_cast<double>(AllocationCount() - m_nStart) / nOps : 0.0;
    }

private:
    uint64_t m_nStart;
};

}  // namespace qzbench
