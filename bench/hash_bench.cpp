#include <string>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "bench/Sizes.h"

namespace corvane::bench {
namespace {

// Of texts of so many bytes: a key, a uid, an address, a long text.
void hashText(benchmark::State& state) {
  const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
  const HashKey key{1, 2};
  for (auto _ : state) benchmark::DoNotOptimize(sipHash(key, text));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(hashText)->Arg(8)->Arg(36)->Arg(100)->Arg(4096);

// Looking records up by uid, each text hashed once.
void lookUpByUid(benchmark::State& state) {
  std::vector<String> uids;
  std::unordered_map<String, std::size_t> places;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    uids.emplace_back("0F8FAD5B-D9CB-469F-A165-" + std::to_string(100'000'000'000 + i));
    places.emplace(uids.back(), uids.size());
  }
  for (auto _ : state) {
    std::size_t sum = 0;
    for (const String& uid : uids) sum += places.find(uid)->second;
    benchmark::DoNotOptimize(sum);
  }
  countItems(state);
}
BENCHMARK(lookUpByUid)->Apply(sizes);

}  // namespace
}  // namespace corvane::bench
