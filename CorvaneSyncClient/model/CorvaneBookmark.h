#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/values/Format.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane {

class BookmarkMap;
class CorvaneBookmarkFolder;
class CorvaneBookmarkRecord;

/// The uid of the root folder: one shared instance. Reading, writing and placement know the root by this very
/// instance; the sync record form compares by value.
extern const String kRootUid;

/// Given to every node built from an engine record until the record's own position is read: placed by title.
inline constexpr std::int32_t kUnknownPosition = LoomerPositionByTitle;
/// Marks the bookmarks bar and the bookmarks menu directly under the root.
inline constexpr std::int32_t kSpecialPosition = LoomerPositionSpecial;

/// What every node of the bookmark tree has. Nodes live in one BookmarkMap, which owns them, and refer to
/// each other by uid alone. Abstract in spirit: the operations that belong to folders and bookmarks only log
/// when they are asked of a plain node.
class CorvaneBookmark : public Describable {
 public:
  /// A node that belongs to no map yet.
  explicit CorvaneBookmark(String uid) : _uid(std::move(uid)) {}
  virtual ~CorvaneBookmark() = default;
  CorvaneBookmark& operator=(const CorvaneBookmark&) = delete;

  const String& uid() const { return _uid; }
  /// Absent where none was given.
  const String& title() const { return _title; }
  void setTitle(String title);
  /// Absent for the root folder, and for nodes whose record named no parent.
  const String& parentId() const { return _parentId; }
  void setParentId(String parentId);
  /// A sort key among siblings; see the constants above.
  std::int32_t position() const { return _position; }
  /// The bookmarks bar or the bookmarks menu.
  bool special() const { return _special; }
  /// Hidden from the user interface, or inside something hidden: the engine never hears of it.
  bool isIgnoredBySync() const { return _isIgnoredBySync; }
  /// The node's entry as it was read, less its "Children"; nothing for nodes built from engine records.
  std::optional<Dictionary> initialCorvaneDictionaryRepresentation() const {
    return _wasRead ? std::optional(_initialCorvaneDictionaryRepresentation) : std::nullopt;
  }

  /// The node as one of the two kinds, or null.
  virtual CorvaneBookmarkFolder* asFolder() { return nullptr; }
  virtual CorvaneBookmarkRecord* asRecord() { return nullptr; }
  const CorvaneBookmarkFolder* asFolder() const { return const_cast<CorvaneBookmark*>(this)->asFolder(); }
  const CorvaneBookmarkRecord* asRecord() const { return const_cast<CorvaneBookmark*>(this)->asRecord(); }

  /// A copy of the node that belongs to no map.
  virtual std::unique_ptr<CorvaneBookmark> copyWithZone() const;
  /// By uid, title and parent id; a value that this node lacks counts as different even where the other lacks
  /// it too. `other` is taken to be of this node's class.
  virtual bool isEqual(const CorvaneBookmark& other) const;
  std::string description() const override;

  /// `corvaneDictionaryRepresentation:`: the entry for the browser's file, with the whole subtree under a
  /// folder.
  virtual Dictionary corvaneDictionaryRepresentation(const BookmarkMap& map) const;
  /// `vessynDictionaryRepresentation:`: the record for the engine; nothing for the root folder.
  virtual std::optional<Dictionary> vessynDictionaryRepresentation(const BookmarkMap& map) const;
  /// Appends what tells the node's record and its uid from every other: equal texts are of equal records.
  /// False where making the record writes a line to the system log.
  virtual bool appendRecordText(std::string& text) const;
  /// `updateWithVessynDictionary:map:`: overwrites the node from a record and places it anew in its parent.
  virtual void updateWithVessynDictionary(const Dictionary& record, BookmarkMap& map);
  /// `applyChangesFromVessynDictionary:exceptingChangesFromOrigBookmark:map:`: merges a record into the node,
  /// keeping what differs from `exceptingChangesFromOrigBookmark` (null: keeping nothing), and places it
  /// anew.
  virtual void applyChangesFromVessynDictionary(const Dictionary& record,
                                                const CorvaneBookmark* exceptingChangesFromOrigBookmark,
                                                BookmarkMap& map);

 protected:
  friend class BookmarkMap;
  friend class CorvaneFileForm;

  CorvaneBookmark(const CorvaneBookmark& other);
  virtual const char* className() const { return "CorvaneBookmark"; }

  void setPosition(std::int32_t position);
  void setSpecial(bool special);
  /// Takes the node out of the folder under its `parentId` and places it there again; nothing when there is
  /// no such folder.
  void replaceInParent(BookmarkMap& map);
  /// The map that owns the node; null for one outside any map.
  BookmarkMap* owningMap() const { return _map; }
  /// The keys under which a record of this node's entity carries its name and position.
  struct RecordKeys {
    const String& name;
    const String& position;
  };
  /// The text behind its length, so that no two sequences of texts look alike; an absent one is no empty one.
  static void appendText(std::string& text, const String& value);
  /// The name, parent and position of a record for this node. All keys are interned.
  void writeCommonRecordValues(const RecordKeys& keys, const String& parentKey, Dictionary& record) const;
  /// Title and position of the three-way merge, with the class's own attribute between them.
  void mergeRecord(const RecordKeys& keys, const Dictionary& record, const CorvaneBookmark* original,
                   BookmarkMap& map);
  /// A plain node has none.
  virtual void mergeOwnAttribute(const Dictionary& record, const CorvaneBookmark* original);

 private:
  void sortKeyChanged();

  String _uid;
  String _title;
  String _parentId;
  BookmarkMap* _map = nullptr;  // the map that owns the node, if one does; learns of changed sort keys
  Dictionary _initialCorvaneDictionaryRepresentation;  // if it has one
  std::int32_t _position = 0;
  bool _wasRead = false;  // and so has one
  bool _special = false;
  bool _isIgnoredBySync = false;
};

/// The first value of a record's parent relationship; absent when there is none.
String parentInRecord(const Dictionary& record, const String& parentKey);

}  // namespace corvane
