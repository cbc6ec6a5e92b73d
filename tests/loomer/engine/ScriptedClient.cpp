#include "tests/loomer/engine/ScriptedClient.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"

namespace corvane {

namespace {
constexpr int kSpecial = -2;
bool isFolders(const String& entity) { return entity == LoomerEntity_Bookmarks_Folder; }
}  // namespace

std::vector<std::string>::iterator ScriptedClient::placeIn(std::vector<std::string>& siblings, int at) {
  if (at < 0) return siblings.end();
  const auto isSpecial = [this](const std::string& id) {
    const auto node = nodes.find(id);
    return node != nodes.end() && node->second.position == kSpecial;
  };
  return siblings.begin() + std::count_if(siblings.begin(), siblings.end(), isSpecial) + at;
}

std::string ScriptedClient::enter(Node node, int at) {
  const std::string id = identifier + "-" + std::to_string(_nextId++);
  std::vector<std::string>& siblings = children[node.parent];
  siblings.insert(placeIn(siblings, at), id);
  nodes[id] = std::move(node);
  renumber();
  edited = true;
  return id;
}

std::string ScriptedClient::addFolder(const std::string& parent, const std::string& name, int at) {
  return enter({true, name, String(), parent, 0, false}, at);
}

std::string ScriptedClient::addBookmark(const std::string& parent, const std::string& name,
                                        const std::string& url, int at) {
  return enter({false, name, url, parent, 0, false}, at);
}

std::string ScriptedClient::addSpecial(const std::string& name) {
  return enter({true, name, String(), "", kSpecial, false}, -1);
}

void ScriptedClient::rename(const std::string& id, const std::string& name) {
  nodes.at(id).name = name;
  edited = true;
}

void ScriptedClient::readdress(const std::string& id, const std::string& url) {
  nodes.at(id).url = url;
  edited = true;
}

void ScriptedClient::move(const std::string& id, const std::string& parent, int at) {
  unplace(id);
  nodes.at(id).parent = parent;
  std::vector<std::string>& siblings = children[parent];
  siblings.insert(placeIn(siblings, at), id);
  renumber();
  edited = true;
}

void ScriptedClient::remove(const std::string& id) {
  const std::vector<std::string> below = children[id];
  for (const std::string& child : below) remove(child);
  unplace(id);
  children.erase(id);
  nodes.erase(id);
  renumber();
  edited = true;
}

void ScriptedClient::removeAll() {
  nodes.clear();
  children.clear();
  edited = true;
}

std::string ScriptedClient::find(const std::string& name) const {
  for (const auto& [id, node] : nodes) {
    if (node.name == std::string_view(name)) return id;
  }
  return {};
}

std::vector<kit::TreeNode> ScriptedClient::tree() const {
  const auto childrenOf = [this](const std::string& parent) {
    const auto found = children.find(parent);
    return found == children.end() ? std::vector<std::string>() : found->second;
  };
  const auto nodeOf = [this](const std::string& id) -> kit::TreeNode {
    const Node& node = nodes.at(id);
    return {.label = node.name.toString(),
            .folder = node.folder,
            .title = node.name,
            .url = node.folder ? String() : node.url,
            .tabGroup = node.tabGroup,
            .special = node.position == kSpecial};
  };
  return kit::treeBelow(std::string(), childrenOf, nodeOf);
}

std::string ScriptedClient::sync() {
  const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(*this);
  driver->_setClient(set);
  calls.clear();
  delivered.clear();
  _mapped.clear();
  _sent.clear();
  _savedNodes = nodes;
  _savedChildren = children;
  const bool ok = driver->sync();
  sessionClient = driver->client();
  const std::string error = driver->lastError().toString();
  if (ok) return error;
  return error.empty() ? "failed without an error" : error;
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
  _savedNodes = nodes;
  _savedChildren = children;
  return upToDate;
}

double ScriptedClient::sessionBeginSessionTimeout() {
  note("begin timeout");
  return beginTimeout;
}

Dictionary ScriptedClient::recordOf(const std::string& id) const {
  const Node& node = nodes.at(id);
  Dictionary record;
  record.set(LoomerRecordEntityNameKey,
             node.folder ? LoomerEntity_Bookmarks_Folder : LoomerEntity_Bookmarks_Bookmark);
  if (node.name) {
    record.set(node.folder ? LoomerAttribute_Bookmarks_Folder_Name : LoomerAttribute_Bookmarks_Bookmark_Name,
               node.name);
  }
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
    records.set(id, recordOf(id));
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
    name = formattedRecord
               ->string((isFolders(entityName) ? LoomerAttribute_Bookmarks_Folder_Name
                                               : LoomerAttribute_Bookmarks_Bookmark_Name)
                            .view())
               .toString();
  } else if (const auto known = nodes.find(change.recordIdentifier().toString()); known != nodes.end()) {
    name = known->second.name.toString();
  }
  note(kNames[change.type()] + name);
  delivered.push_back(change);
  const int result = answer ? answer(change) : static_cast<int>(LoomerChangeAccepted);
  if (result != LoomerChangeAccepted) return result;
  std::string id = change.recordIdentifier().toString();
  if (change.type() == LoomerChangeTypeAdd && !unmappedIds) {
    const String own =
        mapId ? mapId(change.recordIdentifier()) : String(identifier + "-" + std::to_string(_nextId++));
    remappedRecordIdentifier = own;
    id = own.toString();
  }
  take(change, id, isFolders(entityName));
  return result;
}

void ScriptedClient::take(const LoomerChange& change, const std::string& id, bool folder) {
  if (nodes.contains(id)) unplace(id);
  if (change.type() == LoomerChangeTypeDelete) {
    nodes.erase(id);
    children.erase(id);
    return;
  }
  const Dictionary& record = *change.record();
  Node& node = nodes[id];
  node.folder = folder;
  node.name = record.string(
      (folder ? LoomerAttribute_Bookmarks_Folder_Name : LoomerAttribute_Bookmarks_Bookmark_Name).view());
  if (const Value* url = record.find(LoomerAttribute_Bookmarks_Bookmark_Url)) node.url = url->as<Url>()->text;
  node.position = *record.integer32(LoomerAttribute_Bookmarks_Bookmark_Position.view());
  node.tabGroup = record.integer32("is tab group") == 1;
  const Array* parent = record.array(LoomerRelationship_Bookmarks_Folder_Parent.view());
  node.parent = parent ? (*parent)[0].string().toString() : "";
  place(id);
}

void ScriptedClient::place(const std::string& id) {
  const Node& node = nodes.at(id);
  std::vector<std::string>& siblings = children[node.parent];
  const auto goesBefore = [&](const std::string& other) {
    const Node& sibling = nodes.at(other);
    if (node.position != sibling.position) return node.position < sibling.position;
    const int order = compareCaseInsensitive(node.name.view(), sibling.name.view());
    return order < 0 || (order == 0 && node.folder);
  };
  siblings.insert(std::find_if(siblings.begin(), siblings.end(), goesBefore), id);
}

void ScriptedClient::unplace(const std::string& id) { std::erase(children[nodes.at(id).parent], id); }

void ScriptedClient::renumber() {
  for (auto& [parent, list] : children) {
    for (std::size_t i = 0; i < list.size(); ++i) {
      Node& node = nodes.at(list[i]);
      if (node.position != kSpecial) node.position = static_cast<int>(i);
    }
  }
}

bool ScriptedClient::deleteAllRecordsForEntityName(const String& entityName, String&) {
  note(isFolders(entityName) ? "delete all folders" : "delete all bookmarks");
  if (!deleteAllAnswer) return false;
  std::erase_if(nodes, [&](const auto& each) { return each.second.folder == isFolders(entityName); });
  for (auto& [parent, list] : children)
    std::erase_if(list, [&](const std::string& id) { return !nodes.contains(id); });
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
  renumber();
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
