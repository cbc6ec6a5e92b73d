#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/model/CorvaneFileForm.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane {

namespace {

// A key of the program's own beside the schema's.
const String kTabGroupKey = interned("is tab group");

}  // namespace

CorvaneBookmarkFolder* CorvaneBookmarkFolder::bookmarkWithUid(const String& uid, const Dictionary& record,
                                                              BookmarkMap& map) {
  const String name = record.string(LoomerAttribute_Bookmarks_Folder_Name.view());
  if (!name) {
    SCLog("Corvane - skipping record dict for folder without name: %@", record);
    return nullptr;
  }
  if (!uid) return nullptr;
  auto owned = std::make_unique<CorvaneBookmarkFolder>(uid);
  CorvaneBookmarkFolder* folder = owned.get();
  folder->setPosition(kUnknownPosition);
  map.insert(std::move(owned));
  folder->updateWithVessynDictionary(record, map);
  if (folder->position() == kSpecialPosition) {
    SCLog("Bookmark %@ sent down from Loomer is special", name);
    folder->setSpecial(true);
  }
  return folder;
}

void CorvaneBookmarkFolder::addChild(const CorvaneBookmark& child, BookmarkMap& map) {
  SCLog("Corvane - addChild called for child uid %@, children %@", child.uid(), _children);
  if (!child.uid()) return;
  _children.add(child, *this, map, owningMap());
  SCLog("Corvane - new children %@", _children);
}

void CorvaneBookmarkFolder::removeChild(const CorvaneBookmark& child) {
  if (child.uid()) _children.remove(child.uid(), owningMap());
}

std::unique_ptr<CorvaneBookmark> CorvaneBookmarkFolder::copyWithZone() const {
  return std::unique_ptr<CorvaneBookmark>(new CorvaneBookmarkFolder(*this));
}

bool CorvaneBookmarkFolder::isEqual(const CorvaneBookmark& other) const {
  if (this == &other) return true;
  const CorvaneBookmarkFolder* folder = other.asFolder();
  if (!folder || !CorvaneBookmark::isEqual(other)) return false;
  return children() && folder->children() && *children() == *folder->children();
}

std::string CorvaneBookmarkFolder::description() const {
  return format("%@ Children: %@", CorvaneBookmark::description(), _children);
}

std::optional<Dictionary> CorvaneBookmarkFolder::vessynDictionaryRepresentation(const BookmarkMap&) const {
  if (!parentId()) return std::nullopt;
  Dictionary record;
  record.reserve(5);
  record.setInterned(LoomerRecordEntityNameKey, LoomerEntity_Bookmarks_Folder);
  writeCommonRecordValues({LoomerAttribute_Bookmarks_Folder_Name, LoomerAttribute_Bookmarks_Folder_Position},
                          LoomerRelationship_Bookmarks_Folder_Parent, record);
  record.setInterned(kTabGroupKey, _autoTab ? 1 : 0);
  return record;
}

bool CorvaneBookmarkFolder::appendRecordText(std::string& text) const {
  text += _autoTab ? 't' : 'f';
  return CorvaneBookmark::appendRecordText(text);
}

void CorvaneBookmarkFolder::updateWithVessynDictionary(const Dictionary& record, BookmarkMap& map) {
  setTitle(record.string(LoomerAttribute_Bookmarks_Folder_Name.view()));
  takeAutoTab(record);
  setParentId(parentInRecord(record, LoomerRelationship_Bookmarks_Folder_Parent));
  // The bookmark entity's position key, not the folder's: the engine hands a folder's position down under
  // both.
  if (const auto position = record.integer32(LoomerAttribute_Bookmarks_Bookmark_Position.view())) {
    setPosition(*position);
  }
  replaceInParent(map);
}

void CorvaneBookmarkFolder::applyChangesFromVessynDictionary(
    const Dictionary& record, const CorvaneBookmark* exceptingChangesFromOrigBookmark, BookmarkMap& map) {
  mergeRecord({LoomerAttribute_Bookmarks_Folder_Name, LoomerAttribute_Bookmarks_Folder_Position}, record,
              exceptingChangesFromOrigBookmark, map);
}

void CorvaneBookmarkFolder::mergeOwnAttribute(const Dictionary& record, const CorvaneBookmark* original) {
  const CorvaneBookmarkFolder* originalFolder = original ? original->asFolder() : nullptr;
  const bool originalAutoTab = originalFolder && originalFolder->_autoTab;
  if (original && originalAutoTab != _autoTab) return;
  takeAutoTab(record);
}

void CorvaneBookmarkFolder::takeAutoTab(const Dictionary& record) {
  _autoTab = record.integer32(kTabGroupKey.view()) == 1;
  if (_autoTab) SCLog("Autotab key in Engine record found for modified record, setting auto tab to true");
}

CorvaneBookmarkFolder* CorvaneBookmarkFolder::bookmarkWithCorvaneDictionary(const Dictionary& dictionary,
                                                                            const String& parentId,
                                                                            std::int32_t position,
                                                                            BookmarkMap& map) {
  return CorvaneFileForm(map).readFolder(dictionary, parentId, position);
}

Dictionary CorvaneBookmarkFolder::corvaneDictionaryRepresentation(const BookmarkMap& map) const {
  return CorvaneFileFormWriter(map).writeFolder(*this);
}

}  // namespace corvane
