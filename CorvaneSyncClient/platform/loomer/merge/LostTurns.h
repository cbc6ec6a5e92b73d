#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace corvane::loomer {

/// A sibling that both sides have, as one side lists it.
struct OrderedSibling {
  std::size_t merged = 0;           ///< its place in the merged order, counted from 0 without gaps
  std::optional<std::size_t> base;  ///< its place in the base's order, if the base knows it
  bool moved = false;               ///< by this side
  bool disputed = false;            ///< moved by both sides, or unknown to the base
};

/// The siblings in the order of one side.
using OrderedSide = std::vector<OrderedSibling>;

/// Two siblings that a side put in an order which the merge did not keep; both are places in that side's
/// list.
struct LostTurn {
  std::size_t sibling = 0;
  std::size_t other = 0;
  bool behind = false;  ///< whether the side has `sibling` behind `other`; the merge has it before
};

/// What became of a side's changes to the order: for each sibling that the side moved past others where the
/// merge has it on their near side, one turn with the farthest of those. Turns that the side did not make,
/// since it has the two as the base has them, are not among its losses, but for disputed siblings, on whose
/// places the sides differ as a whole. Of siblings that the base does not know as few are named as explain
/// the difference. In the side's order; O(n log n).
std::vector<LostTurn> lostTurns(const OrderedSide& side);

}  // namespace corvane::loomer
