#pragma once

#include <vector>

#include "CorvaneSyncClient/model/ChildList.h"
#include "CorvaneSyncClient/model/CorvaneBookmark.h"

namespace corvane {

/// A folder: an ordered list of child uids, which may be absent, and whether it opens as a group of tabs.
class CorvaneBookmarkFolder : public CorvaneBookmark {
 public:
  using CorvaneBookmark::CorvaneBookmark;

  /// `bookmarkWithCorvaneDictionary:parentId:position:map:`: builds the folder and everything below it from a
  /// file entry and enters it all in `map`, which owns it. An absent `parentId` makes it the root. Null when
  /// the entry is skipped.
  static CorvaneBookmarkFolder* bookmarkWithCorvaneDictionary(const Dictionary& dictionary,
                                                              const String& parentId, std::int32_t position,
                                                              BookmarkMap& map);
  /// `bookmarkWithUid:dictionary:map:`: builds a folder from an engine record, enters it in `map` in place of
  /// whatever was there, and places it in its parent if the map holds that. Null, with the map untouched, for
  /// a nameless record and for an absent uid.
  static CorvaneBookmarkFolder* bookmarkWithUid(const String& uid, const Dictionary& record,
                                                BookmarkMap& map);

  /// The uids in order; null when there is no list. Valid until the folder changes.
  const std::vector<String>* children() const { return _children.uids(); }
  /// Replaces the list; the children's own parents stay as they are.
  void setChildren(std::vector<String> children) { _children.assign(std::move(children)); }
  /// Whether it opens as a group of tabs.
  bool autoTab() const { return _autoTab; }

  /// `addChild:map:`: enters the child's uid at its sorted place; does not look for an occurrence that is
  /// there already. About O(log n).
  void addChild(const CorvaneBookmark& child, BookmarkMap& map);
  /// `removeChild:`: takes out every occurrence of the child's uid. About O(log n) each.
  void removeChild(const CorvaneBookmark& child);

  using CorvaneBookmark::asFolder;
  CorvaneBookmarkFolder* asFolder() override { return this; }
  std::unique_ptr<CorvaneBookmark> copyWithZone() const override;
  bool isEqual(const CorvaneBookmark& other) const override;
  std::string description() const override;
  Dictionary corvaneDictionaryRepresentation(const BookmarkMap& map) const override;
  std::optional<Dictionary> vessynDictionaryRepresentation(const BookmarkMap& map) const override;
  bool appendRecordText(std::string& text) const override;
  void updateWithVessynDictionary(const Dictionary& record, BookmarkMap& map) override;
  void applyChangesFromVessynDictionary(const Dictionary& record,
                                        const CorvaneBookmark* exceptingChangesFromOrigBookmark,
                                        BookmarkMap& map) override;

 private:
  friend class CorvaneFileForm;

  CorvaneBookmarkFolder(const CorvaneBookmarkFolder&) = default;
  const char* className() const override { return "CorvaneBookmarkFolder"; }
  void mergeOwnAttribute(const Dictionary& record, const CorvaneBookmark* original) override;
  void takeAutoTab(const Dictionary& record);

  ChildList _children;
  bool _autoTab = false;
};

}  // namespace corvane
