#include "CorvaneSyncClient/model/CorvaneFileForm.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane {

namespace {

const String kTypeKey = interned("WebBookmarkType");
const String kTypeList = "WebBookmarkTypeList";
const String kTypeLeaf = "WebBookmarkTypeLeaf";
const String kUuidKey = interned("WebBookmarkUUID");
const String kTitleKey = interned("Title");
const String kChildrenKey = interned("Children");
const String kAutoTabKey = interned("WebBookmarkAutoTab");
const String kUrlKey = interned("URLString");
const String kUriDictionaryKey = interned("URIDictionary");
const String kUriTitleKey = interned("title");
const String kUriUrlKey = interned("");
const String kOmitKey = interned("ShouldOmitFromUI");
const String kEmptyText = "";

// The value under an interned key in one type, as Dictionary's accessors answer it.
template <typename T>
const T* find(const Dictionary& entry, const String& key) {
  const Value* const value = entry.find(key);
  return value ? value->as<T>() : nullptr;
}
String stringIn(const Dictionary& entry, const String& key) {
  const String* const text = find<String>(entry, key);
  return text ? *text : String();
}
bool isTrue(const Dictionary& entry, const String& key) {
  const Value* const value = entry.find(key);
  return value && value->boolean().value_or(false);
}

Dictionary withoutChildren(const Dictionary& entry) {
  Dictionary kept = entry;
  kept.remove(kChildrenKey);
  return kept;
}

}  // namespace

std::size_t entryCount(const Array& entries) {
  std::size_t count = 0;
  std::unordered_set<const void*> counted{entries.identity()};
  std::vector<const Array*> open{&entries};
  while (!open.empty()) {
    const Array& list = *open.back();
    open.pop_back();
    for (const Value& value : list) {
      const Dictionary* entry = value.as<Dictionary>();
      const Array* inside = entry ? find<Array>(*entry, kChildrenKey) : value.as<Array>();
      if (entry || !inside || inside->empty()) ++count;
      if (inside && counted.insert(inside->identity()).second) open.push_back(inside);
    }
  }
  return count;
}

// A bookmark without an address is written of; one that is skipped is taken for such a one, too.
bool isReadInSilence(const Dictionary& root) {
  std::unordered_set<const void*> seen;
  std::vector<const Array*> open;
  const auto openChildren = [&](const Dictionary& entry) {
    const Array* const children = find<Array>(entry, kChildrenKey);
    if (children && seen.insert(children->identity()).second) open.push_back(children);
  };
  openChildren(root);
  while (!open.empty()) {
    const Array& list = *open.back();
    open.pop_back();
    for (const Value& value : list) {
      const Dictionary* const entry = value.as<Dictionary>();
      if (!entry) continue;
      const String* const type = find<String>(*entry, kTypeKey);
      if (!type || !(*type == kTypeLeaf)) {
        openChildren(*entry);
      } else if (!find<String>(*entry, kUrlKey)) {
        return false;
      }
    }
  }
  return true;
}

CorvaneBookmarkFolder* CorvaneFileForm::readFolder(const Dictionary& entry, const String& parentId,
                                                   std::int32_t position) {
  CorvaneBookmarkFolder* folder = openFolder(entry, parentId, position, false);
  while (!_open.empty()) {
    const OpenFolder& innermost = _open.back();
    if (innermost.entries && innermost.next < innermost.entries->size()) {
      readNextChild();
    } else {
      closeFolder();
    }
  }
  return folder;
}

CorvaneBookmarkRecord* CorvaneFileForm::readRecord(const Dictionary& entry, const String& parentId,
                                                   std::int32_t position, bool isInIgnoredFolder) {
  auto* record = readCommon<CorvaneBookmarkRecord>(entry, parentId, position, isInIgnoredFolder);
  if (!record) return nullptr;
  record->setUrl(entry.find(kUrlKey));
  if (const Dictionary* uri = find<Dictionary>(entry, kUriDictionaryKey)) {
    record->setTitle(stringIn(*uri, kUriTitleKey));
  }
  if (const Array* lost = find<Array>(entry, kChildrenKey); lost && !lost->empty())
    _map.noteSkippedEntry(*lost);
  return record;
}

String CorvaneFileForm::uidToTake(const Dictionary& entry, const String& parentId) const {
  const String uid = parentId ? stringIn(entry, kUuidKey) : kRootUid;
  if (!uid) {
    SCLog("Corvane - skipping Corvane entry for bookmark with no uid, dict is %@", entry);
    return String();
  }
  if (_map.contains(uid)) {
    SCLog("Corvane - skipping Corvane entry for bookmark with duplicate uid %@, dict is %@", uid, entry);
    return String();
  }
  return uid;
}

template <typename Node>
Node* CorvaneFileForm::readCommon(const Dictionary& entry, const String& parentId, std::int32_t position,
                                  bool isInIgnoredFolder) {
  const String uid = uidToTake(entry, parentId);
  if (!uid) return nullptr;
  auto owned = std::make_unique<Node>(uid);
  Node* node = owned.get();
  node->_initialCorvaneDictionaryRepresentation = withoutChildren(entry);
  node->_wasRead = true;
  node->_position = position;
  node->_isIgnoredBySync = isInIgnoredFolder || isTrue(entry, kOmitKey);
  node->_parentId = parentId;
  _map.insert(std::move(owned));
  return node;
}

CorvaneBookmarkFolder* CorvaneFileForm::openFolder(const Dictionary& entry, const String& parentId,
                                                   std::int32_t position, bool isInIgnoredFolder) {
  auto* folder = readCommon<CorvaneBookmarkFolder>(entry, parentId, position, isInIgnoredFolder);
  if (!folder) return nullptr;
  String title = stringIn(entry, kTitleKey);
  if (!title && parentId) {
    // The folder stays in the map, so that its uid stays taken and the engine still hears of it.
    SCLog("Corvane - skipping Corvane dict for folder without name: %@", entry);
    return nullptr;
  }
  if (title && parentId.isSameInstance(kRootUid)) markIfSpecial(*folder, title);
  if (!title) title = "/";
  folder->setTitle(title);
  folder->_autoTab = isTrue(entry, kAutoTabKey);
  if (folder->_autoTab) {
    SCLog("Corvane - creating object from Corvane record, setting auto tab to true for %@", title);
  }
  _open.push_back({folder, childrenToRead(entry, folder->uid()), 0, {}});
  return folder;
}

// A file may name one list of children in any number of folders. It is read once: by then every uid in it is
// taken, so that all there is to a second reading are the trace lines of what is skipped.
const Array* CorvaneFileForm::childrenToRead(const Dictionary& entry, const String& folderUid) {
  const Array* children = find<Array>(entry, kChildrenKey);
  if (!children || children->empty()) return nullptr;
  if (_read.insert(children->identity()).second) return children;
  _map.noteSkippedEntry(*children);
  if (!SCLogIsOn()) return nullptr;
  for (const Value& child : *children) {
    const Dictionary* skipped = child.as<Dictionary>();
    const String type = skipped ? stringIn(*skipped, kTypeKey) : String();
    if (type == kTypeList || type == kTypeLeaf) uidToTake(*skipped, folderUid);
  }
  return nullptr;
}

void CorvaneFileForm::markIfSpecial(CorvaneBookmarkFolder& folder, const String& title) {
  if (!(title == LoomerTitleBookmarksBar) && !(title == LoomerTitleBookmarksMenu)) return;
  const String marker = format("%@-SpecialBookmarkKey", title);
  if (_map.contains(marker)) {
    SCLog(
        "Corvane - already saw record for %@ in Corvane Bookmarks.plist, not setting another one as special",
        title);
    return;
  }
  folder.setPosition(kSpecialPosition);
  _map.insertMarker(marker);
  folder.setSpecial(true);
}

void CorvaneFileForm::readNextChild() {
  OpenFolder& parent = _open.back();
  const std::size_t parentDepth = _open.size() - 1;
  const Value& value = (*parent.entries)[parent.next++];
  const Dictionary* entry = value.as<Dictionary>();
  if (const CorvaneBookmark* child = entry ? readChild(*entry) : nullptr) {
    _open[parentDepth].built.push_back(child->uid());
  } else {
    _map.noteSkippedEntry(value);
  }
}

CorvaneBookmark* CorvaneFileForm::readChild(const Dictionary& entry) {
  const OpenFolder& parent = _open.back();
  const bool isIgnored = parent.folder->isIgnoredBySync();
  const String type = stringIn(entry, kTypeKey);
  const String parentId = parent.folder->uid();
  const auto position = static_cast<std::int32_t>(parent.built.size());
  if (type == kTypeList) return openFolder(entry, parentId, position, isIgnored);
  if (type == kTypeLeaf) return readRecord(entry, parentId, position, isIgnored);
  return nullptr;
}

void CorvaneFileForm::closeFolder() {
  OpenFolder& done = _open.back();
  done.folder->setChildren(std::move(done.built));
  _open.pop_back();
}

Dictionary entryToWrite(const CorvaneBookmark& node) {
  if (auto initial = node.initialCorvaneDictionaryRepresentation()) return *std::move(initial);
  return Dictionary{{kUuidKey, node.uid()}};
}

// What is written anew goes behind what was read.
Dictionary writeRecord(const CorvaneBookmarkRecord& record) {
  constexpr std::size_t kLeast = 4;  // a uid, and what is set here
  const String url = record.url() ? record.url() : kEmptyText;
  Dictionary uri;
  uri.reserve(2);
  if (record.title()) uri.setInterned(kUriTitleKey, record.title());
  uri.setInterned(kUriUrlKey, url);
  const Dictionary read = entryToWrite(record);
  Dictionary entry;
  entry.reserve(std::max(read.size(), kLeast));
  for (const auto& [key, value] : read) {
    const bool isWrittenAnew =
        key == kUriTitleKey || key == kUrlKey || key == kUriDictionaryKey || key == kTypeKey;
    if (!isWrittenAnew) entry.setInterned(key, value);
  }
  entry.setInterned(kUriDictionaryKey, std::move(uri));
  entry.setInterned(kUrlKey, url);
  entry.setInterned(kTypeKey, kTypeLeaf);
  return entry;
}

Dictionary CorvaneFileFormWriter::writeFolder(const CorvaneBookmarkFolder& folder) {
  open(folder);
  while (true) {
    OpenFolder& innermost = _open.back();
    const auto* children = innermost.folder->children();
    if (children && innermost.next < children->size()) {
      writeNextChild();
      continue;
    }
    Dictionary entry = finish(innermost);
    _written[innermost.folder] = Written{entry, innermost.firstTabGroup, _tabGroups.size()};
    _open.pop_back();
    if (_open.empty()) return entry;
    _open.back().children.emplace_back(std::move(entry));
  }
}

void CorvaneFileFormWriter::open(const CorvaneBookmarkFolder& folder) {
  Dictionary entry = entryToWrite(folder);
  for (const String& key : {kTitleKey, kAutoTabKey, kTypeKey}) entry.remove(key);
  if (folder.parentId() && folder.title()) entry.set(kTitleKey, folder.title());
  _written.emplace(&folder, std::nullopt);
  _open.push_back({&folder, std::move(entry), _tabGroups.size(), 0, {}});
}

void CorvaneFileFormWriter::writeNextChild() {
  OpenFolder& parent = _open.back();
  const CorvaneBookmark* child = _map.find((*parent.folder->children())[parent.next++]);
  if (!child) return;
  const CorvaneBookmarkFolder* folder = child->asFolder();
  if (!folder) {
    parent.children.emplace_back(child->corvaneDictionaryRepresentation(_map));
    return;
  }
  const auto begun = _written.find(folder);
  if (begun == _written.end()) {
    open(*folder);
  } else if (begun->second) {
    parent.children.emplace_back(begun->second->entry);
    traceTabGroupsAgain(*begun->second);
  }
}

Dictionary CorvaneFileFormWriter::finish(OpenFolder& open) {
  const auto* children = open.folder->children();
  if (children && !children->empty()) open.entry.set(kChildrenKey, Array(std::move(open.children)));
  if (open.folder->autoTab()) {
    open.entry.set(kAutoTabKey, true);
    traceTabGroup(*open.folder);
  }
  open.entry.set(kTypeKey, kTypeList);
  return std::move(open.entry);
}

void CorvaneFileFormWriter::traceTabGroup(const CorvaneBookmarkFolder& folder) {
  if (!SCLogIsOn()) return;
  SCLog("Corvane - creating Corvane record, auto tab is true for %@", folder.title());
  _tabGroups.push_back(&folder);
}

void CorvaneFileFormWriter::traceTabGroupsAgain(const Written& written) {
  for (std::size_t i = written.firstTabGroup; i < written.endOfTabGroups; ++i) traceTabGroup(*_tabGroups[i]);
}

}  // namespace corvane
