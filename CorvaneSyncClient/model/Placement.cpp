#include "CorvaneSyncClient/model/Placement.h"

#include "CorvaneSyncClient/model/CorvaneBookmark.h"
#include "CorvaneSyncClient/platform/foundation/Text.h"

namespace corvane {

namespace {

PlacementOrder orderFor(const CorvaneBookmark& child, bool inRoot) {
  if (child.position() != kUnknownPosition) return PlacementOrder::byPosition;
  return inRoot && !child.special() ? PlacementOrder::byTitleBehindSpecial : PlacementOrder::byTitle;
}

// -1 ranks below every titled sibling, 1 above.
int tierByTitle(PlacementOrder order, const SiblingKey& key) {
  if (order == PlacementOrder::byTitleBehindSpecial && key.exists && key.special) return -1;
  return key.exists && key.title ? 0 : 1;
}

}  // namespace

SiblingKey SiblingKey::of(const CorvaneBookmark* node) {
  if (!node) return {};
  return {true, node->special(), node->position(), node->title()};
}

int compareRank(PlacementOrder order, const SiblingKey& a, const SiblingKey& b) {
  if (order == PlacementOrder::byPosition) {
    if (a.exists != b.exists) return a.exists ? -1 : 1;
    if (!a.exists) return 0;
    if (a.position != b.position) return a.position < b.position ? -1 : 1;
    return compareCaseInsensitive(a.title.view(), b.title.view());
  }
  const int tierA = tierByTitle(order, a);
  const int tierB = tierByTitle(order, b);
  if (tierA != tierB || tierA != 0) return tierA - tierB;
  return compareCaseInsensitive(a.title.view(), b.title.view());
}

PlacementRule::PlacementRule(const CorvaneBookmark& child, bool inRoot)
    : _order(orderFor(child, inRoot)),
      _position(child.position()),
      _title(child.title()),
      _isFolder(child.asFolder() != nullptr) {}

bool PlacementRule::stopsBefore(const SiblingKey& sibling) const {
  return _order == PlacementOrder::byPosition ? stopsByPosition(sibling) : stopsByTitle(sibling);
}

bool PlacementRule::stopsByTitle(const SiblingKey& sibling) const {
  const int tier = tierByTitle(_order, sibling);
  if (tier != 0) return tier > 0;
  // A child without a title compares as equal and moves past every titled sibling.
  return _title && compareCaseInsensitive(_title.view(), sibling.title.view()) < 0;
}

bool PlacementRule::stopsByPosition(const SiblingKey& sibling) const {
  if (!sibling.exists) return true;
  if (_position != sibling.position) return _position < sibling.position;
  // A child without a title compares as equal; a sibling without one sorts as the empty text.
  const int order = _title ? compareCaseInsensitive(_title.view(), sibling.title.view()) : 0;
  return order != 0 ? order < 0 : _isFolder;
}

}  // namespace corvane
