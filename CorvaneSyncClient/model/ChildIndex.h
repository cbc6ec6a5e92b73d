#pragma once

#include <cstdint>
#include <vector>

#include "CorvaneSyncClient/model/Placement.h"

namespace corvane {

class BookmarkMap;

/// A long list of child uids in which placing and removing a child costs O(log n) instead of a walk.
///
/// A treap (Seidel and Aragon, "Randomized search trees", 1996) over list places, in which every item knows
/// the highest-ranking sibling of its subtree in each placement order. The ranks are those of the nodes that
/// one map holds; the map tells the index when one changes.
class ChildIndex {
 public:
  struct Item;

  /// `map` must outlive the index.
  ChildIndex(BookmarkMap& map, const std::vector<String>& uids);
  ~ChildIndex();
  ChildIndex(const ChildIndex&) = delete;
  ChildIndex& operator=(const ChildIndex&) = delete;

  /// Inserts `uid` where `rule` places it.
  void insert(const String& uid, const PlacementRule& rule);
  /// Removes every occurrence of `uid`; answers whether there was one.
  bool remove(const String& uid);
  std::vector<String> uids() const;
  BookmarkMap& map() const { return _map; }

  /// Reads the item's sibling anew; called by the map for every item that names a changed uid.
  static void refresh(Item& item);
  /// The next item, in this list or another, that names the same uid; null at the end.
  static Item* nextListing(const Item& item);

 private:
  Item* newItem(const String& uid);
  void enterListing(Item& item);
  void leaveListing(Item& item);
  Item* firstToStopAt(const PlacementRule& rule) const;
  void linkBefore(Item* next, Item& item);
  void linkBelow(Item* parent, Item*& place, Item& item);
  void unlink(Item& item);
  void rotateUp(Item& item);
  Item*& linkTo(Item& item);
  static void updateMaxima(Item& item);
  static void updateUpwards(Item* item);
  std::uint32_t nextPriority();

  BookmarkMap& _map;
  Item* _root = nullptr;
  std::uint32_t _random = 0x9E3779B9u;
};

}  // namespace corvane
