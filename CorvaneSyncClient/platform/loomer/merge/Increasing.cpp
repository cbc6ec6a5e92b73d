#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"

#include <algorithm>
#include <numeric>

#include "CorvaneSyncClient/platform/loomer/merge/PrefixMaxima.h"

namespace corvane::loomer {
namespace {

bool rises(const std::vector<std::int64_t>& values, Rise rise) {
  for (std::size_t i = 1; i < values.size(); ++i) {
    if (rise == Rise::strict ? values[i - 1] >= values[i] : values[i - 1] > values[i]) return false;
  }
  return true;
}

// Distinct ranks such that a strict rise in ranks is the rise that was asked for in values.
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

}  // namespace

std::vector<bool> heaviestRising(const std::vector<std::int64_t>& values, Rise rise,
                                 const std::vector<std::uint64_t>& weights) {
  if (rises(values, rise)) return std::vector<bool>(values.size(), true);
  const std::vector<std::size_t> ranks = ranksOf(values, rise);
  // The ends of the subsequences found so far by their last ranks, and what they weigh.
  std::vector<std::size_t> previous(values.size(), PrefixMaxima::kNone);
  PrefixMaxima heaviest(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto [end, weight] = heaviest.below(ranks[i]);
    previous[i] = end;
    heaviest.enter(ranks[i], i, weight + (weights.empty() ? 1 : weights[i]));
  }
  std::vector<bool> chosen(values.size(), false);
  for (std::size_t at = heaviest.below(values.size()).first; at != PrefixMaxima::kNone; at = previous[at])
    chosen[at] = true;
  return chosen;
}

}  // namespace corvane::loomer
