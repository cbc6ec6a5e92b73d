#pragma once

#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/String.h"

namespace corvane {

class BookmarkMap;
class CorvaneBookmark;

/// What placement asks of a sibling: the node that the map holds under a listed uid, if it holds one.
struct SiblingKey {
  bool exists = false;
  bool special = false;
  std::int32_t position = 0;
  String title;

  static SiblingKey of(const CorvaneBookmark* node);
};

/// The three orders in which placement looks for a place. In each, whether a child stops before a sibling
/// depends on the sibling's rank alone and only grows with it, so that the first sibling to stop at can be
/// found through maxima.
enum class PlacementOrder : std::uint8_t { byPosition, byTitle, byTitleBehindSpecial };
inline constexpr int kPlacementOrders = 3;

/// Compares the ranks of two siblings: negative when `a` ranks lower. A sibling that the map lacks ranks
/// highest, and by title also one without a title; behind the special ones, a special sibling ranks lowest.
int compareRank(PlacementOrder order, const SiblingKey& a, const SiblingKey& b);

/// Where a child goes among its siblings. The child is inserted before the first sibling that it stops
/// before, or at the end.
class PlacementRule {
 public:
  /// `inRoot`: the folder is the root, where special folders keep the front.
  PlacementRule(const CorvaneBookmark& child, bool inRoot);

  PlacementOrder order() const { return _order; }
  bool stopsBefore(const SiblingKey& sibling) const;

 private:
  bool stopsByTitle(const SiblingKey& sibling) const;
  bool stopsByPosition(const SiblingKey& sibling) const;

  PlacementOrder _order;
  std::int32_t _position;
  String _title;
  bool _isFolder;
};

}  // namespace corvane
