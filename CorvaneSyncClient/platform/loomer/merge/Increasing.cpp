#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"

#include <algorithm>
#include <numeric>

namespace corvane::loomer {
namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

bool rises(const std::vector<std::int64_t>& values, Rise rise) {
  for (std::size_t i = 1; i < values.size(); ++i) {
    if (rise == Rise::strict ? values[i - 1] >= values[i] : values[i - 1] > values[i]) return false;
  }
  return true;
}

/// Distinct ranks such that a strict rise in ranks is the rise that was asked for in values.
std::vector<std::size_t> ranksOf(const std::vector<std::int64_t>& values, Rise rise) {
  std::vector<std::size_t> sorted(values.size());
  std::iota(sorted.begin(), sorted.end(), std::size_t{0});
  std::sort(sorted.begin(), sorted.end(), [&](std::size_t a, std::size_t b) {
    if (values[a] != values[b]) return values[a] < values[b];
    return rise == Rise::level ? a < b : a > b;
  });
  std::vector<std::size_t> ranks(values.size());
  for (std::size_t rank = 0; rank < sorted.size(); ++rank) ranks[sorted[rank]] = rank;
  return ranks;
}

/// Of the subsequences found so far, the heaviest that ends below a rank: a Fenwick tree of prefix maxima.
class HeaviestBelow {
 public:
  explicit HeaviestBelow(std::size_t count) : _ends(count + 1, kNone), _weights(count + 1, 0) {}

  /// The end of the heaviest subsequence whose last rank is less than `rank`, and its weight; kNone and 0 if
  /// there is none.
  std::pair<std::size_t, std::uint64_t> below(std::size_t rank) const {
    std::size_t end = kNone;
    std::uint64_t weight = 0;
    for (std::size_t at = rank; at > 0; at &= at - 1) {
      if (_weights[at] > weight) {
        weight = _weights[at];
        end = _ends[at];
      }
    }
    return {end, weight};
  }

  void enter(std::size_t rank, std::size_t end, std::uint64_t weight) {
    for (std::size_t at = rank + 1; at < _ends.size(); at += at & (~at + 1)) {
      if (weight > _weights[at]) {
        _weights[at] = weight;
        _ends[at] = end;
      }
    }
  }

 private:
  std::vector<std::size_t> _ends;
  std::vector<std::uint64_t> _weights;
};

}  // namespace

std::vector<bool> heaviestRising(const std::vector<std::int64_t>& values, Rise rise,
                                 const std::vector<std::uint64_t>& weights) {
  if (rises(values, rise)) return std::vector<bool>(values.size(), true);
  const std::vector<std::size_t> ranks = ranksOf(values, rise);
  std::vector<std::size_t> previous(values.size(), kNone);
  HeaviestBelow heaviest(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto [end, weight] = heaviest.below(ranks[i]);
    previous[i] = end;
    heaviest.enter(ranks[i], i, weight + (weights.empty() ? 1 : weights[i]));
  }
  std::vector<bool> chosen(values.size(), false);
  for (std::size_t at = heaviest.below(values.size()).first; at != kNone; at = previous[at])
    chosen[at] = true;
  return chosen;
}

}  // namespace corvane::loomer
