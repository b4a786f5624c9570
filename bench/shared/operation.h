// One compared workload: the same work done by this library and by OpenSSL, each side as a
// runner that makes n calls. The alternating round program (message_bench) times both sides
// batch by batch; the Google Benchmark programs can register each side on its own.
#ifndef VELMOR_BENCH_SHARED_OPERATION_H
#define VELMOR_BENCH_SHARED_OPERATION_H

#include <cstddef>
#include <functional>
#include <string>

namespace velmor_bench {

// Keeps the compiler from dropping a computation whose result is otherwise unused.
template <class T> void Keep(const T& value) { asm volatile("" : : "r,m"(value) : "memory"); }

// One row of the table: two batch runners, each making n calls of its side.
struct Operation {
    std::string name;
    std::function<void(std::size_t)> ours;
    std::function<void(std::size_t)> openssl;
};

} // namespace velmor_bench

#endif
