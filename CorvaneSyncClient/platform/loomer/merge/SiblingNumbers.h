#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

// The numbers that make a client list a folder's children in a wanted order.
//
// A client places a child that is delivered to it by walking the folder's list: it goes before the first
// sibling with a greater number, or with the same number and a title that sorts after its own, else at the
// end. Where the list is sorted by (number, title) before, it is so afterwards; so a list that was sorted
// ends sorted by the last (number, title) of every child, in whatever order the children arrive. That is what
// `listsInOrder` checks, and all it takes. Children that the client keeps to itself have numbers too: they
// stand between others but separate none.

namespace corvane::loomer {

/// One child of a folder, in the wanted order.
struct PlacedChild {
  /// Whether the client lists it in this folder now, so that it stays where it is unless it is delivered.
  bool listed = false;
  std::uint32_t rank = 0;   ///< its place among the listed children now
  std::int32_t number = 0;  ///< before: the client's, if listed; after: the one it is to have
  bool delivered = false;   ///< before: for another reason; after: also for its number
  bool hasTitle = false;    ///< the title after the change
  std::string_view title = {};
};

/// Gives the children numbers of at least `least`, such that the client lists them in the order given. Of the
/// listed children that are not delivered for another reason the fewest possible get another number. O(n
/// log n).
void numberChildren(std::vector<PlacedChild>& children, std::int32_t least);

/// Whether a client that takes those children lists them in the order given.
bool listsInOrder(const std::vector<PlacedChild>& children, std::int32_t least);

}  // namespace corvane::loomer
