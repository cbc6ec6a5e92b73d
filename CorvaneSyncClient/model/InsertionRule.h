#pragma once

#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

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
enum class InsertionOrder : std::uint8_t { byPosition, byTitle, byTitleBehindSpecial };
inline constexpr int kInsertionOrders = 3;

/// Compares the ranks of two siblings: negative when `a` ranks lower. A sibling that the map lacks ranks
/// highest, and by title also one without a title; behind the special ones, a special sibling ranks lowest.
int compareRank(InsertionOrder order, const SiblingKey& a, const SiblingKey& b);

/// Where a child goes among its siblings. The child is inserted before the first sibling that it stops
/// before, or at the end.
class InsertionRule {
 public:
  /// `inRoot`: the folder is the root, where special folders keep the front.
  InsertionRule(const CorvaneBookmark& child, bool inRoot);

  InsertionOrder order() const { return _order; }
  bool stopsBefore(const SiblingKey& sibling) const;

 private:
  bool stopsByTitle(const SiblingKey& sibling) const;
  bool stopsByPosition(const SiblingKey& sibling) const;

  InsertionOrder _order;
  std::int32_t _position;
  String _title;
  bool _isFolder;
};

}  // namespace corvane
