// Shared parts of the benchmark programs: fixture loading, and a main that runs every
// benchmark and then prints, for each measured operation, our time against OpenSSL's.
//
// Benchmarks are named "<Operation>/Velmor" and "<Operation>/OpenSSL"; each pair becomes one
// line of the comparison table. A benchmark may set the counter "allocs" (heap allocations
// per iteration), which the table shows too.
#ifndef VELMOR_BENCH_BENCH_SUPPORT_H
#define VELMOR_BENCH_BENCH_SUPPORT_H

#include "alloc_counter.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <string>
#include <vector>

namespace velmor_bench {

// The bytes of a file below tests/data; exits the program when it cannot be read.
std::vector<std::uint8_t> ReadData(const std::string& relative);

// Runs body once per iteration and reports heap allocations per iteration as "allocs".
template <class F> void MeasureWithAllocations(benchmark::State& state, F&& body) {
    const std::uint64_t before = AllocationCount();
    std::uint64_t iterations = 0;
    for (auto _ : state) {
        body();
        ++iterations;
    }
    const auto allocations = AllocationCount() - before;
    state.counters["allocs"] = static_cast<double>(allocations) / static_cast<double>(iterations);
}

// Runs the registered benchmarks and prints the comparison table; returns main's status.
int RunAndCompare(int argc, char** argv);

} // namespace velmor_bench

#endif
