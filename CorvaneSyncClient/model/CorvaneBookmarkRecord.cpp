#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/model/CorvaneFileForm.h"
#include "CorvaneSyncClient/platform/foundation/values/TypedUrl.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"

namespace corvane {

CorvaneBookmarkRecord* CorvaneBookmarkRecord::bookmarkWithUid(const String& uid, const Dictionary& record,
                                                              BookmarkMap& map) {
  if (!uid) return nullptr;
  auto owned = std::make_unique<CorvaneBookmarkRecord>(uid);
  CorvaneBookmarkRecord* bookmark = owned.get();
  bookmark->setPosition(kUnknownPosition);
  map.insert(std::move(owned));
  bookmark->updateWithVessynDictionary(record, map);
  return bookmark;
}

void CorvaneBookmarkRecord::setUrl(const Value* url) {
  if (url && url->as<Url>()) {
    SCLog("setUrl called with a url, not a string");
    _url = url->as<Url>()->text;
  } else if (url && url->as<String>()) {
    _url = *url->as<String>();
  } else {
    systemLog("setURL called with an unknown type %@", url ? url->typeName() : nullptr);
  }
}

std::unique_ptr<CorvaneBookmark> CorvaneBookmarkRecord::copyWithZone() const {
  return std::unique_ptr<CorvaneBookmark>(new CorvaneBookmarkRecord(*this));
}

bool CorvaneBookmarkRecord::isEqual(const CorvaneBookmark& other) const {
  if (this == &other) return true;
  const CorvaneBookmarkRecord* record = other.asRecord();
  return record && CorvaneBookmark::isEqual(other) && _url && _url == record->_url;
}

std::optional<Dictionary> CorvaneBookmarkRecord::vessynDictionaryRepresentation(const BookmarkMap&) const {
  Dictionary record;
  record.reserve(5);
  record.setInterned(LoomerRecordEntityNameKey, LoomerEntity_Bookmarks_Bookmark);
  writeCommonRecordValues(
      {LoomerAttribute_Bookmarks_Bookmark_Name, LoomerAttribute_Bookmarks_Bookmark_Position},
      LoomerRelationship_Bookmarks_Bookmark_Parent, record);
  const std::optional<Url> url = _url ? urlForRecord() : std::nullopt;
  if (url) {
    record.setInterned(LoomerAttribute_Bookmarks_Bookmark_Url, *url);
  } else if (_url) {
    systemLog("Warning - url \"%@\" for Bookmark \"%@\" is invalid, not syncing url value for bookmark", _url,
              title());
  }
  return record;
}

std::optional<Url> CorvaneBookmarkRecord::urlForRecord() const {
  if (auto url = urlWithUserTypedString(_url)) return url;
  const std::string escaped = percentEscaped(_url.view());
  SCLog("Escaped bad url \"%@\" into \"%@\"", _url, escaped);
  return urlWithUserTypedString(escaped);
}

bool CorvaneBookmarkRecord::appendRecordText(std::string& text) const {
  text += 'b';
  appendText(text, _url);
  return (!_url || urlForRecord()) && CorvaneBookmark::appendRecordText(text);
}

void CorvaneBookmarkRecord::updateWithVessynDictionary(const Dictionary& record, BookmarkMap& map) {
  setTitle(record.string(LoomerAttribute_Bookmarks_Bookmark_Name.view()));
  setUrl(record.find(LoomerAttribute_Bookmarks_Bookmark_Url));
  setParentId(parentInRecord(record, LoomerRelationship_Bookmarks_Bookmark_Parent));
  if (const auto position = record.integer32(LoomerAttribute_Bookmarks_Bookmark_Position.view())) {
    setPosition(*position);
  }
  replaceInParent(map);
}

void CorvaneBookmarkRecord::applyChangesFromVessynDictionary(
    const Dictionary& record, const CorvaneBookmark* exceptingChangesFromOrigBookmark, BookmarkMap& map) {
  mergeRecord({LoomerAttribute_Bookmarks_Bookmark_Name, LoomerAttribute_Bookmarks_Bookmark_Position}, record,
              exceptingChangesFromOrigBookmark, map);
}

void CorvaneBookmarkRecord::mergeOwnAttribute(const Dictionary& record, const CorvaneBookmark* original) {
  const Value* url = record.find(LoomerAttribute_Bookmarks_Bookmark_Url);
  const CorvaneBookmarkRecord* originalRecord = original ? original->asRecord() : nullptr;
  const String originalUrl = originalRecord ? originalRecord->_url : String();
  if (original && !(_url && _url == originalUrl)) {
    SCLog(
        "NOT applying url change of bookmark %@. Sync Server has url: %@, Corvane has url %@, original has "
        "url %@",
        uid(), url, _url, originalUrl);
    return;
  }
  SCLog("applying url change of bookmark %@, new url: %@", uid(), url);
  setUrl(url);
}

CorvaneBookmarkRecord* CorvaneBookmarkRecord::bookmarkWithCorvaneDictionary(const Dictionary& dictionary,
                                                                            const String& parentId,
                                                                            std::int32_t position,
                                                                            BookmarkMap& map) {
  return CorvaneFileForm(map).readRecord(dictionary, parentId, position);
}

Dictionary CorvaneBookmarkRecord::corvaneDictionaryRepresentation(const BookmarkMap&) const {
  return writeRecord(*this);
}

}  // namespace corvane
