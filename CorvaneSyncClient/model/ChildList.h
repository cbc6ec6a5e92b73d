#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/model/ChildIndex.h"
#include "CorvaneSyncClient/platform/foundation/values/Format.h"

namespace corvane {

/// A folder's list of child uids, which may be absent. Seen from outside it is replaced whole at each
/// change; long lists that change are kept in a ChildIndex, so that a change does not walk them.
class ChildList final : public Describable {
 public:
  ChildList() = default;
  /// Copies the list alone; the copy is indexed when it needs to be.
  ChildList(const ChildList& other);
  ChildList& operator=(const ChildList&) = delete;

  /// The uids in order; null when there is no list. Valid until the list changes.
  const std::vector<String>* uids() const;
  /// Replaces the list; from then on there is one, though it may be empty.
  void assign(std::vector<String> uids);

  /// Inserts a child of the folder `folder`. `folderMap` is the map that owns the folder, or null: without
  /// it, and when `map` is another one, the list is walked.
  void add(const CorvaneBookmark& child, const CorvaneBookmark& folder, BookmarkMap& map,
           BookmarkMap* folderMap);
  /// Removes every occurrence of `uid`.
  void remove(const String& uid, BookmarkMap* folderMap);

  /// "(uid, uid)", "(null)" when absent; cut with "…" beyond kDescriptionLimit.
  std::string description() const override;

 private:
  /// Makes the index if the list is long enough for one; answers whether there is one.
  bool indexed(BookmarkMap& map);
  /// The plain list, with the index given up.
  std::vector<String>& walkedList();

  mutable std::vector<String> _uids;  // what `uids` shows; behind the index while `_stale`
  std::unique_ptr<ChildIndex> _index;
  mutable bool _stale = false;
  bool _present = false;
};

}  // namespace corvane
