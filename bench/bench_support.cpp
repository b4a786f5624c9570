#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

namespace velmor_bench {

namespace {

struct Measurement {
    double nanoseconds = 0;
    double allocations = -1;
};

// Prints what the console reporter prints, and keeps each run's time per iteration.
class CollectingReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            Measurement& m = results[run.benchmark_name()];
            m.nanoseconds = run.GetAdjustedRealTime();
            const auto allocs = run.counters.find("allocs");
            if (allocs != run.counters.end()) {
                m.allocations = allocs->second.value;
            }
        }
    }
    std::map<std::string, Measurement> results;
};

std::string FormatAllocations(double allocations) {
    if (allocations < 0) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", allocations);
    return text;
}

void PrintComparison(const std::map<std::string, Measurement>& results) {
    std::printf("\n%-40s %12s %12s %9s %10s %10s\n", "operation", "velmor ns", "openssl ns",
                "speedup", "allocs(v)", "allocs(o)");
    for (const auto& [name, ours] : results) {
        const auto slash = name.rfind("/Velmor");
        if (slash == std::string::npos) {
            continue;
        }
        const std::string operation = name.substr(0, slash);
        const auto peer = results.find(operation + "/OpenSSL");
        if (peer == results.end()) {
            continue;
        }
        std::printf("%-40s %12.1f %12.1f %8.2fx %10s %10s\n", operation.c_str(), ours.nanoseconds,
                    peer->second.nanoseconds, peer->second.nanoseconds / ours.nanoseconds,
                    FormatAllocations(ours.allocations).c_str(),
                    FormatAllocations(peer->second.allocations).c_str());
    }
}

} // namespace

std::vector<std::uint8_t> ReadData(const std::string& relative) {
    const std::string path = std::string(VELMOR_TEST_DATA_DIR) + "/" + relative;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        std::exit(2);
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int RunAndCompare(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintComparison(reporter.results);
    benchmark::Shutdown();
    return 0;
}

} // namespace velmor_bench
