#include "CorvaneSyncClient/model/InsertionRule.h"

#include "CorvaneSyncClient/model/CorvaneBookmark.h"
#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"

namespace corvane {

namespace {

InsertionOrder orderFor(const CorvaneBookmark& child, bool inRoot) {
  if (child.position() != kUnknownPosition) return InsertionOrder::byPosition;
  return inRoot && !child.special() ? InsertionOrder::byTitleBehindSpecial : InsertionOrder::byTitle;
}

// -1 ranks below every titled sibling, 1 above.
int tierByTitle(InsertionOrder order, const SiblingKey& key) {
  if (order == InsertionOrder::byTitleBehindSpecial && key.exists && key.special) return -1;
  return key.exists && key.title ? 0 : 1;
}

}  // namespace

SiblingKey SiblingKey::of(const CorvaneBookmark* node) {
  if (!node) return {};
  return {true, node->special(), node->position(), node->title()};
}

int compareRank(InsertionOrder order, const SiblingKey& a, const SiblingKey& b) {
  if (order == InsertionOrder::byPosition) {
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

InsertionRule::InsertionRule(const CorvaneBookmark& child, bool inRoot)
    : _order(orderFor(child, inRoot)),
      _position(child.position()),
      _title(child.title()),
      _isFolder(child.asFolder() != nullptr) {}

bool InsertionRule::stopsBefore(const SiblingKey& sibling) const {
  return _order == InsertionOrder::byPosition ? stopsByPosition(sibling) : stopsByTitle(sibling);
}

bool InsertionRule::stopsByTitle(const SiblingKey& sibling) const {
  const int tier = tierByTitle(_order, sibling);
  if (tier != 0) return tier > 0;
  // A child without a title compares as equal and moves past every titled sibling.
  return _title && compareCaseInsensitive(_title.view(), sibling.title.view()) < 0;
}

bool InsertionRule::stopsByPosition(const SiblingKey& sibling) const {
  if (!sibling.exists) return true;
  if (_position != sibling.position) return _position < sibling.position;
  // A child without a title compares as equal; a sibling without one sorts as the empty text.
  const int order = _title ? compareCaseInsensitive(_title.view(), sibling.title.view()) : 0;
  return order != 0 ? order < 0 : _isFolder;
}

}  // namespace corvane
