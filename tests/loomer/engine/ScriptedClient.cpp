#include "tests/loomer/engine/ScriptedClient.h"

#include <algorithm>

namespace corvane {

namespace {

bool isFolders(const String& entity) { return entity == LoomerEntity_Bookmarks_Folder; }

const String& nameKey(bool folder) {
  return folder ? LoomerAttribute_Bookmarks_Folder_Name : LoomerAttribute_Bookmarks_Bookmark_Name;
}

}  // namespace

std::size_t ScriptedClient::ordinaryChildren(const std::string& parent) const {
  const std::vector<std::string>& siblings = childrenOf(parent);
  return static_cast<std::size_t>(std::count_if(
      siblings.begin(), siblings.end(), [this](const std::string& id) { return !nodes.at(id).isSpecial(); }));
}

std::size_t ScriptedClient::indexOf(const std::string& parent, int at) const {
  if (at < 0) return kEnd;
  return childrenOf(parent).size() - ordinaryChildren(parent) + static_cast<std::size_t>(at);
}

std::string ScriptedClient::addFolder(const std::string& parent, const std::string& name, int at) {
  return add(kit::newNode(true, parent, name), indexOf(parent, at));
}

std::string ScriptedClient::addBookmark(const std::string& parent, const std::string& name,
                                        const std::string& url, int at) {
  return add(kit::newNode(false, parent, name, url), indexOf(parent, at));
}

std::string ScriptedClient::addSpecial(const std::string& name) {
  Node node = kit::newNode(true, kRoot, name);
  node.position = LoomerPositionSpecial;
  return add(std::move(node));
}

void ScriptedClient::move(const std::string& id, const std::string& parent, int at) {
  ClientTree::move(id, parent, indexOf(parent, at));
}

std::string ScriptedClient::sync() {
  const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(*this);
  driver->_setClient(set);
  calls.clear();
  delivered.clear();
  _sent.clear();
  save();
  const bool ok = driver->sync();
  sessionClient = driver->client();
  const std::string error = driver->lastError().inEnglish();
  if (ok) return error;
  return error.empty() ? "failed without an error" : error;
}

void ScriptedClient::save() {
  _savedNodes = nodes;
  _savedChildren = children;
}

void ScriptedClient::note(const std::string& call) {
  calls.push_back(call);
  if (onCall) onCall(call);
}

String ScriptedClient::clientIdentifier() { return identifier; }

std::optional<Url> ScriptedClient::clientDescriptionURL() {
  if (!description.text) return std::nullopt;
  return description;
}

std::vector<Url> ScriptedClient::schemaBundleURLs() { return {schema}; }

std::vector<String> ScriptedClient::entityNamesToSync() {
  if (!entityNames.empty()) return entityNames;
  return {LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark};
}

int ScriptedClient::preferredSyncModeForEntityName(const String& entityName) {
  note(isFolders(entityName) ? "mode folders" : "mode bookmarks");
  if (mode) return mode;
  if (!sessionClient || !sessionClient->objectForKey("synced")) return LoomerSyncModeRefresh;
  return edited ? LoomerSyncModeSlow : LoomerSyncModeFast;
}

bool ScriptedClient::readAgain() {
  note("read again");
  upToDate = readsAgain && readsAgain();
  save();
  return upToDate;
}

double ScriptedClient::sessionBeginSessionTimeout() {
  note("begin timeout");
  return beginTimeout;
}

Dictionary ScriptedClient::recordOf(const Node& node) const {
  Dictionary record;
  record.set(LoomerRecordEntityNameKey,
             node.folder ? LoomerEntity_Bookmarks_Folder : LoomerEntity_Bookmarks_Bookmark);
  if (node.name) record.set(nameKey(node.folder), node.name);
  record.set(
      node.folder ? LoomerAttribute_Bookmarks_Folder_Position : LoomerAttribute_Bookmarks_Bookmark_Position,
      node.position);
  if (!node.parent.empty()) record.set(LoomerRelationship_Bookmarks_Folder_Parent, Array{node.parent});
  if (node.folder) {
    record.set("is tab group", node.tabGroup ? 1 : 0);
  } else if (node.url) {
    record.set(LoomerAttribute_Bookmarks_Bookmark_Url, Url{node.url});
  }
  return record;
}

Dictionary ScriptedClient::recordsForEntityName(const String& entityName, bool& moreComing, String& error) {
  note(isFolders(entityName) ? "records folders" : "records bookmarks");
  error = recordsError;
  std::size_t& sent = _sent[entityName.toString()];
  Dictionary records;
  std::size_t number = 0;
  for (const auto& [id, node] : _savedNodes) {
    if (node.folder != isFolders(entityName) || number++ < sent) continue;
    if (chunk && records.size() == chunk) {
      moreComing = true;
      break;
    }
    records.set(id, recordOf(node));
  }
  sent += records.size();
  return records;
}

Dictionary ScriptedClient::changedRecordsForEntityName(const String& entityName, bool&, String&) {
  note(isFolders(entityName) ? "changed folders" : "changed bookmarks");
  return changedRecords[isFolders(entityName) ? 0 : 1];
}

int ScriptedClient::applyChange(const LoomerChange& change, const String& entityName,
                                String& remappedRecordIdentifier, const Dictionary* formattedRecord,
                                String&) {
  static const char* kNames[] = {"?", "add ", "modify ", "delete "};
  std::string name;
  if (formattedRecord) {
    name = formattedRecord->string(nameKey(isFolders(entityName)).view()).toString();
  } else if (const auto known = nodes.find(change.recordIdentifier().toString()); known != nodes.end()) {
    name = known->second.name.toString();
  }
  note(kNames[change.type()] + name);
  delivered.push_back(change);
  const int result = answer ? answer(change) : static_cast<int>(LoomerChangeAccepted);
  if (result != LoomerChangeAccepted) return result;
  std::string id = change.recordIdentifier().toString();
  if (change.type() == LoomerChangeTypeAdd && !unmappedIds) {
    const String own = mapId ? mapId(change.recordIdentifier()) : String(newId());
    remappedRecordIdentifier = own;
    id = own.toString();
  }
  if (change.type() == LoomerChangeTypeDelete) {
    drop(id);
  } else {
    place(id, nodeOf(id, *change.record(), isFolders(entityName)));
  }
  return result;
}

ScriptedClient::Node ScriptedClient::nodeOf(const std::string& id, const Dictionary& record,
                                            bool folder) const {
  const auto known = nodes.find(id);
  Node node = known == nodes.end() ? Node() : known->second;
  node.folder = folder;
  node.name = record.string(nameKey(folder).view());
  if (const Value* url = record.find(LoomerAttribute_Bookmarks_Bookmark_Url)) node.url = url->as<Url>()->text;
  node.position = *record.integer32(LoomerAttribute_Bookmarks_Bookmark_Position.view());
  node.tabGroup = record.integer32("is tab group") == 1;
  const Array* parent = record.array(LoomerRelationship_Bookmarks_Folder_Parent.view());
  node.parent = parent ? (*parent)[0].string().toString() : kRoot;
  return node;
}

bool ScriptedClient::deleteAllRecordsForEntityName(const String& entityName, String&) {
  note(isFolders(entityName) ? "delete all folders" : "delete all bookmarks");
  if (!deleteAllAnswer) return false;
  dropAll(isFolders(entityName));
  return true;
}

bool ScriptedClient::sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String&) {
  sessionClient = driver.client();
  note("did register");
  return registerAnswer;
}

bool ScriptedClient::sessionDriverDidPull(LoomerSessionDriver&, String&) {
  note("did pull");
  return pullAnswer;
}

bool ScriptedClient::sessionDriverWillFinishSession(LoomerSessionDriver& driver, String&) {
  note("will finish");
  if (!finishAnswer) return false;
  number();
  edited = false;
  driver.client()->setObject(Value(true), "synced");
  return true;
}

void ScriptedClient::sessionDriverWillCancelSession(LoomerSessionDriver& driver) {
  nodes = _savedNodes;
  children = _savedChildren;
  driver.client()->setObject(std::nullopt, "synced");
  note("will cancel");
}

}  // namespace corvane
