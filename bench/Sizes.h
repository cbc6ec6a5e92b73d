#pragma once

#include <benchmark/benchmark.h>

namespace corvane::bench {

/// A size that fits the caches and one that does not: what costs more than n·log n shows in the items per
/// second.
inline void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(1'000)->Arg(100'000)->Unit(benchmark::kMicrosecond);
}

/// To be called behind the loop: each turn of it dealt with as many items as the benchmark's size.
inline void countItems(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace corvane::bench
