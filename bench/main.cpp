// SPDX-License-Identifier: Apache-2.0
// The benchmarks: nanoseconds and heap allocations of each exchange.
#include <benchmark/benchmark.h>

#include "bench/allocations.h"
#include "bench/cases.h"
#include "bench/silence.h"

namespace {

void measure(benchmark::State& state, const bench::Case& one) {
    const bench::Silence silence;
    one.prepare();
    if (!one.run() || !one.verify()) {
        state.SkipWithError("the exchange does not work");
        return;
    }
    const uint64_t before = bench::allocations();
    uint64_t failures = 0;
    for ([[maybe_unused]] auto turn : state) {
        failures += one.run() ? 0 : 1;
    }
    const uint64_t taken = bench::allocations() - before;
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(taken), benchmark::Counter::kAvgIterations);
    if (failures != 0) {
        state.SkipWithError("an exchange failed");
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    for (const bench::Case& one : bench::cases()) {
        benchmark::RegisterBenchmark(one.name, [&one](benchmark::State& state) {
            measure(state, one);
        })->Unit(benchmark::kNanosecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
