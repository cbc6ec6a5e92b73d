#include "CorvaneSyncClient/model/BookmarkMap.h"

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"

namespace corvane {

CorvaneBookmark* BookmarkMap::find(const String& uid) const {
  const Entry* entry = _entries.find(uid);
  return entry ? entry->node.get() : nullptr;
}

CorvaneBookmarkFolder* BookmarkMap::findFolder(const String& uid) const {
  CorvaneBookmark* node = find(uid);
  return node ? node->asFolder() : nullptr;
}

void BookmarkMap::insert(std::unique_ptr<CorvaneBookmark> node) {
  const String uid = node->uid();
  node->_map = this;
  _entries.set(uid, Entry{std::move(node)});
  sortKeyChanged(uid);
}

void BookmarkMap::insertMarker(const String& marker) { _entries.set(marker, Entry{nullptr}); }

void BookmarkMap::remove(const String& uid) {
  const String removed = uid;  // the caller's may belong to the node that goes
  if (_entries.remove(removed)) sortKeyChanged(removed);
}

std::unique_ptr<BookmarkMap> BookmarkMap::scDeepMutableCopy() const {
  auto copy = std::make_unique<BookmarkMap>();
  copy->_entries.reserve(size());
  for (const auto& [uid, entry] : _entries) {
    Entry copied;
    if (entry.node) {
      copied.node = entry.node->copyWithZone();
      copied.node->_map = copy.get();
    }
    copy->_entries.set(uid, std::move(copied));
  }
  copy->_skippedEntries = _skippedEntries;
  return copy;
}

std::string BookmarkMap::description() const {
  std::string text = "{";
  const char* separator = "";
  for (const auto& [uid, entry] : _entries) {
    if (text.size() > kDescriptionLimit) return text + "…";
    text += format("%@%@ = %@", separator, uid, entry.node ? entry.node->description() : uid.toString());
    separator = "; ";
  }
  return text + "}";
}

void BookmarkMap::sortKeyChanged(const String& uid) {
  if (_listings.empty()) return;
  const auto listing = _listings.find(uid);
  if (listing == _listings.end()) return;
  ChildIndex::markStale(listing->second);
  _listings.erase(listing);
}

}  // namespace corvane
