#include "CorvaneSyncClient/platform/loomer/merge/LostTurns.h"

#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"
#include "CorvaneSyncClient/platform/loomer/merge/PrefixMaxima.h"

namespace corvane::loomer {
namespace {

// Which siblings may be named as losers. Of those that the base does not know, they are the ones outside a
// longest subsequence that the merge kept.
std::vector<bool> candidates(const OrderedSide& side) {
  std::vector<std::int64_t> merged;
  std::vector<std::uint64_t> weights;
  for (const OrderedSibling& sibling : side) {
    merged.push_back(static_cast<std::int64_t>(sibling.merged));
    weights.push_back(sibling.base ? side.size() + 1 : 1);
  }
  const std::vector<bool> kept = heaviestRising(merged, Rise::strict, weights);
  std::vector<bool> result(side.size());
  for (std::size_t i = 0; i < side.size(); ++i) result[i] = side[i].base ? side[i].moved : !kept[i];
  return result;
}

// For each candidate the farthest sibling that the side has before it and the merge behind it, as far as
// this is the side's doing; kNone for the others.
std::vector<std::size_t> putBehind(const OrderedSide& side, const std::vector<bool>& candidates) {
  // What the base does not know counts as passed by all that stand behind it.
  const std::size_t count = side.size();
  const auto keyOf = [count](const OrderedSibling& sibling) {
    return sibling.base ? count - *sibling.base : 0;
  };
  std::vector<std::size_t> passed(count, PrefixMaxima::kNone);
  PrefixMaxima farthest(count + 1);
  for (std::size_t i = 0; i < count; ++i) {
    const OrderedSibling& sibling = side[i];
    if (candidates[i]) {
      const auto [other, place] = farthest.below(sibling.disputed ? count + 1 : keyOf(sibling));
      if (place > sibling.merged) passed[i] = other;
    }
    farthest.enter(keyOf(sibling), i, sibling.merged + 1);
  }
  return passed;
}

// The same siblings, every order read from its end.
OrderedSide mirrored(const OrderedSide& side) {
  OrderedSide result(side.rbegin(), side.rend());
  for (OrderedSibling& sibling : result) {
    sibling.merged = side.size() - 1 - sibling.merged;
    if (sibling.base) sibling.base = side.size() - 1 - *sibling.base;
  }
  return result;
}

}  // namespace

std::vector<LostTurn> lostTurns(const OrderedSide& side) {
  const std::vector<bool> mayLose = candidates(side);
  const std::vector<std::size_t> behind = putBehind(side, mayLose);
  const std::vector<std::size_t> before = putBehind(mirrored(side), {mayLose.rbegin(), mayLose.rend()});
  std::vector<LostTurn> turns;
  for (std::size_t i = 0; i < side.size(); ++i) {
    const std::size_t last = side.size() - 1;
    if (behind[i] != PrefixMaxima::kNone) {
      turns.push_back({i, behind[i], true});
    } else if (before[last - i] != PrefixMaxima::kNone) {
      turns.push_back({i, last - before[last - i], false});
    }
  }
  return turns;
}

}  // namespace corvane::loomer
