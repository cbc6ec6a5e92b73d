#include "CorvaneSyncClient/model/CorvaneBookmark.h"

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneFileForm.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"

namespace corvane {

const String kRootUid = LoomerRootIdentifier;

namespace {

// An absent value differs from everything, also from an absent one.
bool equalIfPresent(const String& mine, const String& other) { return mine && mine == other; }

void logAbstractCall(int line) {
  systemLog("This is an abstract class.  Why are you calling methods on me? %s: %d",
            "CorvaneSyncClient/CorvaneBookmark", line);
}

}  // namespace

CorvaneBookmark::CorvaneBookmark(const CorvaneBookmark& other)
    : Describable(other),
      _uid(other._uid),
      _title(other._title),
      _parentId(other._parentId),
      _initialCorvaneDictionaryRepresentation(other._initialCorvaneDictionaryRepresentation),
      _position(other._position),
      _wasRead(other._wasRead),
      _special(other._special),
      _isIgnoredBySync(other._isIgnoredBySync) {}

void CorvaneBookmark::setTitle(String title) {
  if (title == _title) return;
  _title = std::move(title);
  sortKeyChanged();
}

void CorvaneBookmark::setParentId(String parentId) {
  if (parentId == _parentId) return;
  _parentId = std::move(parentId);
}

std::unique_ptr<CorvaneBookmark> CorvaneBookmark::copyWithZone() const {
  return std::unique_ptr<CorvaneBookmark>(new CorvaneBookmark(*this));
}

bool CorvaneBookmark::isEqual(const CorvaneBookmark& other) const {
  if (this == &other) return true;
  return equalIfPresent(_uid, other._uid) && equalIfPresent(_title, other._title) &&
         equalIfPresent(_parentId, other._parentId);
}

std::string CorvaneBookmark::description() const {
  return format("%@ - UID:%@ Title: %@", className(), _uid, _title);
}

std::optional<Dictionary> CorvaneBookmark::vessynDictionaryRepresentation(const BookmarkMap&) const {
  logAbstractCall(111);
  return std::nullopt;
}

void CorvaneBookmark::appendText(std::string& text, const String& value) {
  const std::uint64_t length = value ? value.view().size() + 1 : 0;
  text.append(reinterpret_cast<const char*>(&length), sizeof length);
  text += value.view();
}

bool CorvaneBookmark::appendRecordText(std::string& text) const {
  text.append(reinterpret_cast<const char*>(&_position), sizeof _position);
  for (const String* const each : {&_uid, &_title, &_parentId}) appendText(text, *each);
  return true;
}

void CorvaneBookmark::updateWithVessynDictionary(const Dictionary&, BookmarkMap&) { logAbstractCall(116); }

void CorvaneBookmark::applyChangesFromVessynDictionary(const Dictionary&, const CorvaneBookmark*,
                                                       BookmarkMap&) {
  logAbstractCall(120);
}

void CorvaneBookmark::setPosition(std::int32_t position) {
  if (position == _position) return;
  _position = position;
  sortKeyChanged();
}

void CorvaneBookmark::setSpecial(bool special) {
  if (special == _special) return;
  _special = special;
  sortKeyChanged();
}

void CorvaneBookmark::sortKeyChanged() {
  if (_map) _map->sortKeyChanged(_uid);
}

void CorvaneBookmark::replaceInParent(BookmarkMap& map) {
  CorvaneBookmarkFolder* parent = map.findFolder(_parentId);
  if (!parent) return;
  parent->removeChild(*this);
  parent->addChild(*this, map);
}

void CorvaneBookmark::writeCommonRecordValues(const RecordKeys& keys, const String& parentKey,
                                              Dictionary& record) const {
  if (_title) record.setInterned(keys.name, _title);
  if (_parentId && !(_parentId == kRootUid)) record.setInterned(parentKey, Array{_parentId});
  record.setInterned(keys.position, _position);
}

void CorvaneBookmark::mergeRecord(const RecordKeys& keys, const Dictionary& record,
                                  const CorvaneBookmark* original, BookmarkMap& map) {
  const String name = record.string(keys.name.view());
  if (original && !equalIfPresent(_title, original->_title)) {
    SCLog(
        "NOT applying title change of bookmark %@. Sync Server has title: %@, Corvane has title %@, original "
        "has title "
        "%@",
        _uid, name, _title, original->_title);
  } else {
    SCLog("applying title change of bookmark %@, new title: %@", _uid, name);
    setTitle(name);
  }
  mergeOwnAttribute(record, original);
  if (original && _position != original->_position) return;
  if (const auto position = record.integer32(keys.position.view())) setPosition(*position);
  replaceInParent(map);
}

void CorvaneBookmark::mergeOwnAttribute(const Dictionary&, const CorvaneBookmark*) {}

String parentInRecord(const Dictionary& record, const String& parentKey) {
  const Array* parents = record.array(parentKey.view());
  return parents && !parents->empty() ? (*parents)[0].string() : String();
}

Dictionary CorvaneBookmark::corvaneDictionaryRepresentation(const BookmarkMap&) const {
  return entryToWrite(*this);
}

}  // namespace corvane
