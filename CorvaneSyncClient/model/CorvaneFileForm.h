#pragma once

#include <cstdint>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"

namespace corvane {

/// How many entries of the file `entries` are, with all that they hold. Members that are lists count by their
/// own members; a list that several folders name counts once.
std::size_t entryCount(const Array& entries);

/// Whether reading the root folder's entry writes nothing to the system log, whatever else it does.
bool isReadInSilence(const Dictionary& root);

// The browser's file form of the tree. Both directions keep their own stack of open folders, so that nesting
// costs memory and never stack.

/// Reads one entry of the file into a node of the map, and a folder's entry with everything below it.
class CorvaneFileForm {
 public:
  explicit CorvaneFileForm(BookmarkMap& map) : _map(map) {}

  /// `initWithCorvaneDictionary:parentId:position:map:isIgnoredBySync:` of each class: builds the node and
  /// enters it in the map; null when the entry is skipped. The folder's form reads its subtree as well. What
  /// is in a folder that is ignored by sync is ignored too.
  CorvaneBookmarkFolder* readFolder(const Dictionary& entry, const String& parentId, std::int32_t position);
  CorvaneBookmarkRecord* readRecord(const Dictionary& entry, const String& parentId, std::int32_t position,
                                    bool isInIgnoredFolder = false);

 private:
  /// A folder whose children are being read.
  struct OpenFolder {
    CorvaneBookmarkFolder* folder;
    const Array* entries;  // null: no children
    std::size_t next = 0;
    std::vector<String> built;
  };

  /// The uid that the entry's node gets; absent, with a trace line, when the entry is skipped for its uid.
  String uidToTake(const Dictionary& entry, const String& parentId) const;
  /// The part common to all nodes; null when the entry is skipped.
  template <typename Node>
  Node* readCommon(const Dictionary& entry, const String& parentId, std::int32_t position,
                   bool isInIgnoredFolder);
  /// The folder part, up to the children; null when the entry is skipped.
  CorvaneBookmarkFolder* openFolder(const Dictionary& entry, const String& parentId, std::int32_t position,
                                    bool isInIgnoredFolder);
  const Array* childrenToRead(const Dictionary& entry, const String& folderUid);
  void markIfSpecial(CorvaneBookmarkFolder& folder, const String& title);
  void readNextChild();
  CorvaneBookmark* readChild(const Dictionary& entry);
  void closeFolder();

  BookmarkMap& _map;
  std::vector<OpenFolder> _open;
  std::unordered_set<const void*> _read;  // the lists of children begun, by identity
};

/// What a node is written from: the entry as it was read, so that keys unknown to this program survive.
Dictionary entryToWrite(const CorvaneBookmark& node);

/// A bookmark's entry.
Dictionary writeRecord(const CorvaneBookmarkRecord& record);

/// Writes a folder's entry with the whole subtree below it. A folder that is listed inside itself is left out
/// there.
class CorvaneFileFormWriter {
 public:
  explicit CorvaneFileFormWriter(const BookmarkMap& map) : _map(map) {}

  Dictionary writeFolder(const CorvaneBookmarkFolder& folder);

 private:
  struct OpenFolder {
    const CorvaneBookmarkFolder* folder;
    Dictionary entry;
    std::size_t firstTabGroup;
    std::size_t next = 0;
    std::vector<Value> children;
  };
  /// A folder's entry, and which of `_tabGroups` are in it.
  struct Written {
    Dictionary entry;
    std::size_t firstTabGroup;
    std::size_t endOfTabGroups;
  };

  void open(const CorvaneBookmarkFolder& folder);
  /// Writes the next child of the innermost open folder, or opens it.
  void writeNextChild();
  Dictionary finish(OpenFolder& open);
  void traceTabGroup(const CorvaneBookmarkFolder& folder);
  /// Traces the groups of tabs of an entry that is written in another place too.
  void traceTabGroupsAgain(const Written& written);

  const BookmarkMap& _map;
  std::vector<OpenFolder> _open;
  /// Folders begun: an open one has no entry yet. The entry of a folder that is listed twice is shared.
  std::unordered_map<const CorvaneBookmarkFolder*, std::optional<Written>> _written;
  std::vector<const CorvaneBookmarkFolder*> _tabGroups;  // as traced: an entry's own stand in one row
};

}  // namespace corvane
