// Shared parts of the benchmark programs: fixture loading, and a main that runs every
// benchmark and then prints, for each measured operation, our time against OpenSSL's.
//
// Benchmarks are named "<Operation>/Velmor" and "<Operation>/OpenSSL"; each pair becomes one
// line of the comparison table. A benchmark may set the counter "allocs" (heap allocations
// per iteration), which the table shows too.
#ifndef VELMOR_BENCH_BENCH_SUPPORT_H
#define VELMOR_BENCH_BENCH_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

namespace velmor_bench {

// The bytes of a file below tests/data; exits the program when it cannot be read.
std::vector<std::uint8_t> ReadData(const std::string& relative);

// Runs the registered benchmarks and prints the comparison table; returns main's status.
int RunAndCompare(int argc, char** argv);

} // namespace velmor_bench

#endif
