#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/model/ChildList.h"
#include "CorvaneSyncClient/model/CorvaneBookmark.h"
#include "CorvaneSyncClient/platform/foundation/values/OrderedMap.h"

namespace corvane {

/// The bookmark tree: every node under its uid, in the order in which the uids came. Owns the nodes. Beside
/// them it holds special-folder markers, strings that record that a special folder of one title was seen; a
/// marker is never a node.
class BookmarkMap final : public Describable {
 public:
  /// A node, or null for a marker, which stands under itself.
  struct Entry {
    std::unique_ptr<CorvaneBookmark> node;
  };

  BookmarkMap() = default;
  BookmarkMap(const BookmarkMap&) = delete;
  BookmarkMap& operator=(const BookmarkMap&) = delete;

  /// The node under `uid`; null when there is none, also for a marker and for an absent uid.
  CorvaneBookmark* find(const String& uid) const;
  /// As `find`, for folders only.
  CorvaneBookmarkFolder* findFolder(const String& uid) const;
  /// The root folder, or null.
  CorvaneBookmarkFolder* root() const { return findFolder(kRootUid); }
  /// Whether anything stands under `uid`, a marker included.
  bool contains(const String& uid) const { return _entries.contains(uid); }
  /// Nodes and markers.
  std::size_t size() const { return _entries.size(); }

  /// Enters a node under its uid in place of whatever was there (a node there is destroyed). The map owns it.
  void insert(std::unique_ptr<CorvaneBookmark> node);
  /// Enters the marker under itself.
  void insertMarker(const String& marker);
  /// Takes the entry out, if there is one, and destroys its node.
  void remove(const String& uid);

  /// All keys in map order, markers included: for walks that change the map.
  std::vector<String> keys() const { return _entries.keys(); }
  /// In map order, markers included.
  OrderedMap<Entry>::const_iterator begin() const { return _entries.begin(); }
  OrderedMap<Entry>::const_iterator end() const { return _entries.end(); }

  /// What reading the file left out: entries, and lists of them, with all that they hold. A file that is
  /// written from this map lacks them.
  const Array& skippedEntries() const { return _skippedEntries; }
  /// Notes an entry, or a list of entries, that reading the file leaves out.
  void noteSkippedEntry(Value entry) { _skippedEntries.append(std::move(entry)); }

  /// A snapshot: every node copied, every marker and what was left out kept, in the same order.
  std::unique_ptr<BookmarkMap> scDeepMutableCopy() const;

  /// "{uid = node; uid = node}", cut with "…" beyond kDescriptionLimit.
  std::string description() const override;

 private:
  friend class CorvaneBookmark;
  friend class ChildIndex;

  /// Tells the lists that name `uid` that what stands there sorts differently now.
  void sortKeyChanged(const String& uid);

  // uid → the first of the indexed list items that name it and are fresh. The nodes go first, since their
  // folders' lists take leave of it.
  std::unordered_map<String, ChildIndex::Item*> _listings;
  OrderedMap<Entry> _entries;
  Array _skippedEntries;
};

}  // namespace corvane
