#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/SiblingNumbers.h"
#include "bench/Sizes.h"

// The numbers that make a client list a folder in a wanted order.

namespace corvane::bench {
namespace {

using loomer::PlacedChild;

class NumberedFolder {
 public:
  explicit NumberedFolder(std::int64_t size) {
    for (std::int64_t i = 0; i < size; ++i) _titles.push_back("Title " + std::to_string(i));
    for (std::size_t i = 0; i < _titles.size(); ++i) {
      children.push_back({.listed = true,
                          .rank = static_cast<std::uint32_t>(i),
                          .number = static_cast<std::int32_t>(i),
                          .hasTitle = true,
                          .title = _titles[i]});
    }
  }

  std::vector<PlacedChild> children;

 private:
  std::vector<std::string> _titles;
};

void measure(benchmark::State& state, const std::vector<PlacedChild>& children) {
  for (auto _ : state) {
    std::vector<PlacedChild> numbered = children;
    loomer::numberChildren(numbered, -1);
    benchmark::DoNotOptimize(numbered);
  }
  countItems(state);
}

void placeOneInTheMiddle(benchmark::State& state) {
  NumberedFolder folder(state.range(0));
  const PlacedChild added{.hasTitle = true, .title = "New"};
  folder.children.insert(folder.children.begin() + state.range(0) / 2, added);
  measure(state, folder.children);
}
BENCHMARK(placeOneInTheMiddle)->Apply(sizes);

void placeShuffled(benchmark::State& state) {
  NumberedFolder folder(state.range(0));
  std::shuffle(folder.children.begin(), folder.children.end(), std::mt19937(1));
  measure(state, folder.children);
}
BENCHMARK(placeShuffled)->Apply(sizes);

}  // namespace
}  // namespace corvane::bench
