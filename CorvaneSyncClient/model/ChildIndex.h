#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/model/InsertionRule.h"

namespace corvane {

class BookmarkMap;

/// A long list of child uids in which placing and removing a child costs O(log n) instead of a walk.
///
/// A treap (Seidel and Aragon, "Randomized search trees", 1996) over list places, in which every item knows
/// the highest-ranking sibling of its subtree in each insertion order. The ranks are those of the nodes that
/// one map holds. When one changes, the map marks the items that name it stale; a list reads its stale items
/// anew when it is next asked. An item that is stale already is not marked again, so that a uid may stay
/// listed in any number of folders.
class ChildIndex {
 public:
  struct Item;

  /// `map` must outlive the index.
  ChildIndex(BookmarkMap& map, const std::vector<String>& uids);
  ~ChildIndex();
  ChildIndex(const ChildIndex&) = delete;
  ChildIndex& operator=(const ChildIndex&) = delete;

  /// The first item that a child stops before; null where it goes to the end. Valid until the list changes.
  Item* firstToStopAt(const InsertionRule& rule);
  /// Inserts `uid` before the item `next`; at the end for null.
  void insertBefore(Item* next, const String& uid);
  /// How many items stand before `item`, all of them for null. Walks the list.
  std::size_t placeOf(const Item* item) const;
  /// Removes every occurrence of `uid`; answers whether there was one.
  bool remove(const String& uid);
  /// In the order of the list.
  std::vector<String> uids() const;

  /// Marks all fresh items that name a uid, of whichever list, as stale: `first` is the first of them, as the
  /// map keeps it, and becomes null.
  static void markStale(Item*& first);

 private:
  /// Visits the items in their order for as long as `visit` answers true.
  template <typename Visit>
  void visitInOrder(const Visit& visit) const;
  Item* newItem(const String& uid);
  void deleteItem(Item* item);
  /// Fresh items that name one uid form a chain that the map holds on to.
  void enterFresh(Item& item);
  void leaveFresh(Item& item);
  void refreshStale();
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
  std::unordered_map<String, Item*> _byUid;  // the first of the items that name a uid
  std::vector<Item*> _stale;
  std::uint32_t _random = 0x9E3779B9u;
};

}  // namespace corvane
