#include "CorvaneSyncClient/model/ChildIndex.h"

#include <array>
#include <utility>

#include "CorvaneSyncClient/model/BookmarkMap.h"

namespace corvane {

struct ChildIndex::Item {
  String uid;
  SiblingKey key;
  ChildIndex* index = nullptr;
  Item* parent = nullptr;
  Item* left = nullptr;
  Item* right = nullptr;
  Item* nextSameUid = nullptr;  // in this list
  Item* nextFresh = nullptr;    // in any list
  Item* previousFresh = nullptr;
  std::array<Item*, kInsertionOrders> highest{};  // of the subtree, in each order; never null once linked
  std::uint32_t priority = 0;
  bool stale = false;
};

ChildIndex::ChildIndex(BookmarkMap& map, const std::vector<String>& uids) : _map(map) {
  // The right spine, from the last item up, takes each new item as its lowest member; what has a lower
  // priority becomes its left subtree and is finished.
  Item* last = nullptr;
  for (const String& uid : uids) {
    Item* item = newItem(uid);
    Item* above = last;
    Item* below = nullptr;
    while (above && above->priority < item->priority) {
      updateMaxima(*above);
      below = std::exchange(above, above->parent);
    }
    item->left = below;
    if (below) below->parent = item;
    item->parent = above;
    (above ? above->right : _root) = item;
    last = item;
  }
  updateUpwards(last);
}

ChildIndex::~ChildIndex() {
  // From the leaves up: neither stack nor memory.
  Item* item = _root;
  while (item) {
    if (Item*& below = item->left ? item->left : item->right) {
      item = std::exchange(below, nullptr);
    } else {
      deleteItem(std::exchange(item, item->parent));
    }
  }
}

void ChildIndex::insertBefore(Item* next, const String& uid) { linkBefore(next, *newItem(uid)); }

bool ChildIndex::remove(const String& uid) {
  refreshStale();
  const auto listed = _byUid.find(uid);
  if (listed == _byUid.end()) return false;
  Item* item = listed->second;
  _byUid.erase(listed);
  while (item) {
    Item* next = item->nextSameUid;
    unlink(*item);
    deleteItem(item);
    item = next;
  }
  return true;
}

std::vector<String> ChildIndex::uids() const {
  std::vector<String> result;
  visitInOrder([&](const Item& item) {
    result.push_back(item.uid);
    return true;
  });
  return result;
}

std::size_t ChildIndex::placeOf(const Item* item) const {
  std::size_t place = 0;
  visitInOrder([&](const Item& other) {
    if (&other == item) return false;
    ++place;
    return true;
  });
  return place;
}

template <typename Visit>
void ChildIndex::visitInOrder(const Visit& visit) const {
  std::vector<const Item*> open;
  for (const Item* item = _root; item || !open.empty(); item = item->right) {
    for (; item; item = item->left) open.push_back(item);
    item = open.back();
    open.pop_back();
    if (!visit(*item)) return;
  }
}

void ChildIndex::markStale(Item*& first) {
  for (Item* item = std::exchange(first, nullptr); item;) {
    Item* next = std::exchange(item->nextFresh, nullptr);
    item->previousFresh = nullptr;
    item->stale = true;
    item->index->_stale.push_back(item);
    item = next;
  }
}

void ChildIndex::refreshStale() {
  for (Item* item : std::exchange(_stale, {})) {
    item->key = SiblingKey::of(_map.find(item->uid));
    enterFresh(*item);
    updateUpwards(item);
  }
}

ChildIndex::Item* ChildIndex::newItem(const String& uid) {
  Item* item = new Item;
  item->uid = uid;
  item->key = SiblingKey::of(_map.find(uid));
  item->index = this;
  item->priority = nextPriority();
  item->nextSameUid = std::exchange(_byUid[uid], item);
  enterFresh(*item);
  return item;
}

void ChildIndex::deleteItem(Item* item) {
  if (!item->stale) leaveFresh(*item);
  delete item;
}

void ChildIndex::enterFresh(Item& item) {
  Item*& first = _map._listings[item.uid];
  item.stale = false;
  item.nextFresh = first;
  if (first) first->previousFresh = &item;
  first = &item;
}

void ChildIndex::leaveFresh(Item& item) {
  if (item.nextFresh) item.nextFresh->previousFresh = item.previousFresh;
  if (item.previousFresh) {
    item.previousFresh->nextFresh = item.nextFresh;
  } else if (item.nextFresh) {
    _map._listings[item.uid] = item.nextFresh;
  } else {
    _map._listings.erase(item.uid);
  }
}

ChildIndex::Item* ChildIndex::firstToStopAt(const InsertionRule& rule) {
  refreshStale();
  const auto order = static_cast<std::size_t>(rule.order());
  const auto holdsStop = [&](const Item* subtree) {
    return subtree && rule.stopsBefore(subtree->highest[order]->key);
  };
  Item* item = _root;
  if (!holdsStop(item)) return nullptr;
  while (true) {
    if (holdsStop(item->left)) {
      item = item->left;
    } else if (rule.stopsBefore(item->key)) {
      return item;
    } else {
      item = item->right;
    }
  }
}

void ChildIndex::linkBefore(Item* next, Item& item) {
  if (next && !next->left) return linkBelow(next, next->left, item);
  Item* last = next ? next->left : _root;
  if (!last) return linkBelow(nullptr, _root, item);
  while (last->right) last = last->right;
  linkBelow(last, last->right, item);
}

void ChildIndex::linkBelow(Item* parent, Item*& place, Item& item) {
  place = &item;
  item.parent = parent;
  updateMaxima(item);
  while (item.parent && item.parent->priority < item.priority) rotateUp(item);
  updateUpwards(item.parent);
}

void ChildIndex::unlink(Item& item) {
  while (item.left || item.right) {
    const bool leftRises = !item.right || (item.left && item.left->priority > item.right->priority);
    rotateUp(leftRises ? *item.left : *item.right);
  }
  linkTo(item) = nullptr;
  updateUpwards(item.parent);
}

void ChildIndex::rotateUp(Item& item) {
  Item& parent = *item.parent;
  linkTo(parent) = &item;
  item.parent = parent.parent;
  const bool wasLeft = parent.left == &item;
  Item*& inner = wasLeft ? item.right : item.left;
  (wasLeft ? parent.left : parent.right) = inner;
  if (inner) inner->parent = &parent;
  inner = &parent;
  parent.parent = &item;
  updateMaxima(parent);
  updateMaxima(item);
}

ChildIndex::Item*& ChildIndex::linkTo(Item& item) {
  if (!item.parent) return _root;
  return item.parent->left == &item ? item.parent->left : item.parent->right;
}

void ChildIndex::updateMaxima(Item& item) {
  for (int i = 0; i < kInsertionOrders; ++i) {
    const auto order = static_cast<InsertionOrder>(i);
    const auto at = static_cast<std::size_t>(i);
    Item* highest = &item;
    for (const Item* child : {item.left, item.right}) {
      if (child && compareRank(order, child->highest[at]->key, highest->key) > 0)
        highest = child->highest[at];
    }
    item.highest[at] = highest;
  }
}

void ChildIndex::updateUpwards(Item* item) {
  for (; item; item = item->parent) updateMaxima(*item);
}

// Marsaglia, "Xorshift RNGs", 2003.
std::uint32_t ChildIndex::nextPriority() {
  _random ^= _random << 13;
  _random ^= _random >> 17;
  _random ^= _random << 5;
  return _random;
}

}  // namespace corvane
