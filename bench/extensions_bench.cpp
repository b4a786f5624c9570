// The extension workloads of bench/shared/extension_operations.cpp (the typed extension
// classes against OpenSSL on the same value bytes) under Google Benchmark: each side of each
// operation is a benchmark of its own, "<operation>/Velmor" and "<operation>/OpenSSL", making
// one call per iteration with heap allocations counted, and the comparison table pairs them.
// The alternating shared-library program (bench/shared/message_bench.cpp) runs the same
// workloads.
#include "bench_support.h"
#include "shared/extension_operations.h"

#include <benchmark/benchmark.h>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace {

void RegisterSide(const std::string& name, const std::function<void(std::size_t)>& run) {
    benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) {
        velmor_bench::MeasureWithAllocations(state, [&run] { run(1); });
    });
}

} // namespace

int main(int argc, char** argv) {
    std::vector<velmor_bench::Operation> operations;
    velmor_bench::AddExtensionOperations(operations);
    for (const velmor_bench::Operation& operation : operations) {
        RegisterSide(operation.name + "/Velmor", operation.ours);
        RegisterSide(operation.name + "/OpenSSL", operation.openssl);
    }
    return velmor_bench::RunAndCompare(argc, argv);
}
