#include "browsers/host/BrowserClient.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::browsers {

namespace {

constexpr const char* kGenerationKey = "browserSnapshotGeneration";

loomer::Entity entityFor(NodeKind kind) {
  return kind == NodeKind::folder ? loomer::Entity::folder : loomer::Entity::bookmark;
}

// In the truth only what lies in its root is special.
bool isSpecialThere(const HeldNode& node) { return node.isSpecial && node.parent.empty(); }

// So that texts of different parts never make one text.
void append(std::string& text, std::string_view part, bool isAbsent = false) {
  const std::uint64_t length = isAbsent ? 0 : part.size() + 1;
  text.append(reinterpret_cast<const char*>(&length), sizeof length);
  text += part;
}

// All that a node's record says.
void appendRecord(std::string& text, const HeldNode& node) {
  text.append(reinterpret_cast<const char*>(&node.position), sizeof node.position);
  text += static_cast<char>(node.kind);
  text += static_cast<char>(node.opensAsTabs);
  text += static_cast<char>(isSpecialThere(node));
  append(text, node.localId);
  append(text, node.parent);
  append(text, node.title.value.view(), !node.title.value);
  append(text, node.url.value.view(), !node.url.value);
}

NodeKind kindOf(loomer::Entity entity) {
  return entity == loomer::Entity::folder ? NodeKind::folder : NodeKind::bookmark;
}

}  // namespace

BrowserClient::BrowserClient(String identifier, std::string description, State& state, const Stamp& now,
                             Save save)
    : _identifier(std::move(identifier)),
      _description(std::move(description)),
      _state(state),
      _now(now),
      _save(std::move(save)),
      _schema(loomer::readRecordSchema({loomer::bookmarksSchemaUrl()})),
      _working(state.held) {}

std::optional<Url> BrowserClient::clientDescriptionURL() { return loomer::fileUrl(_description); }

std::vector<Url> BrowserClient::schemaBundleURLs() { return {loomer::bookmarksSchemaUrl()}; }

std::vector<String> BrowserClient::entityNamesToSync() {
  return {LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark};
}

loomer::Entity BrowserClient::entityOf(const String& entityName) const {
  return entityName == LoomerEntity_Bookmarks_Folder ? loomer::Entity::folder : loomer::Entity::bookmark;
}

bool BrowserClient::sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String& /*error*/) {
  LoomerClient* const client = driver.client();
  const std::optional<Value> value = client ? client->objectForKey(kGenerationKey) : std::nullopt;
  const auto* const generation = value ? value->as<std::int64_t>() : nullptr;
  _seen = generation ? std::optional(*generation) : std::nullopt;
  return true;
}

int BrowserClient::preferredSyncModeForEntityName(const String& /*entityName*/) {
  if (!_seen || *_seen > _state.generation) return LoomerSyncModeRefresh;
  return *_seen == _state.generation && !_state.isEdited ? LoomerSyncModeFast : LoomerSyncModeSlow;
}

bool BrowserClient::readAgain() {
  _working = _state.held;
  _delivered = 0;
  return true;
}

Dictionary BrowserClient::recordsForEntityName(const String& entityName, bool& /*moreComing*/,
                                               String& /*error*/) {
  const NodeKind kind = kindOf(entityOf(entityName));
  Dictionary records;
  eachRecord([&](const HeldNode& node) {
    if (node.kind == kind) records.set(node.localId, recordOf(node));
  });
  return records;
}

Dictionary BrowserClient::recordOf(const HeldNode& node) const {
  const loomer::Content content{.name = node.title.value,
                                .url = node.url.value,
                                .tabGroup = node.opensAsTabs,
                                .special = isSpecialThere(node)};
  const String parent = node.parent.empty() ? String() : String(node.parent);
  return loomer::recordDictionary(_schema.of(entityFor(node.kind)), content, node.position, parent);
}

template <typename Take>
void BrowserClient::eachRecord(Take take) const {
  for (const HeldNode* const node : _state.held.topDown()) {
    if (node->kind != NodeKind::separator) take(*node);
  }
}

std::optional<std::vector<std::uint64_t>> BrowserClient::recordDigests(const HashKey& key) {
  std::vector<std::uint64_t> digests;
  std::string text;
  eachRecord([&](const HeldNode& node) {
    text.clear();
    appendRecord(text, node);
    digests.push_back(sipHash(key, text));
  });
  return digests;
}

Dictionary BrowserClient::recordsAt(const String& entityName, const std::vector<std::size_t>& places) {
  const NodeKind kind = kindOf(entityOf(entityName));
  Dictionary records;
  std::size_t place = 0;
  auto next = places.begin();
  eachRecord([&](const HeldNode& node) {
    if (next == places.end() || *next != place++) return;
    ++next;
    if (node.kind == kind) records.set(node.localId, recordOf(node));
  });
  return records;
}

Dictionary BrowserClient::changedRecordsForEntityName(const String&, bool&, String&) { return {}; }

std::optional<RootKind> BrowserClient::rootFor(const loomer::ClientRecord& record) const {
  if (record.entity != loomer::Entity::folder || record.parentLocalId) return std::nullopt;
  for (const RootKind kind : kRootKinds) {
    const bool isLike =
        record.content.name == titleOfRoot(kind) && record.content.special == isSpecialRoot(kind);
    if (isLike && _state.roots.contains(kind) && !_working.root(kind)) return kind;
  }
  return std::nullopt;
}

int BrowserClient::applyChange(const LoomerChange& change, const String& entityName,
                               String& remappedRecordIdentifier, const Dictionary* /*formattedRecord*/,
                               String& error) {
  ++_delivered;
  const std::string identifier = change.recordIdentifier().toString();
  if (change.type() == LoomerChangeTypeDelete) {
    deleteNode(identifier);
    return LoomerChangeAccepted;
  }
  if (!change.record()) {
    error = "a change came without its record";
    return LoomerChangeError;
  }
  const loomer::ClientRecord record =
      loomer::clientRecord(_schema.of(entityOf(entityName)), change.recordIdentifier(), *change.record());
  HeldNode node;
  if (change.type() == LoomerChangeTypeAdd) {
    remappedRecordIdentifier = Platform::current().uuids.newUuid();
    node.localId = remappedRecordIdentifier.toString();
    node.kind = kindOf(record.entity);
    node.url.isPending = node.kind == NodeKind::bookmark;
    node.root = rootFor(record);
    if (node.root) {
      node.showing = Showing::shown;
      const BrowserNode& root = _state.roots.at(*node.root);
      node.browserId = root.id;
      node.isOfAccount = root.syncing;
      node.title.isPending = false;
    }
  } else if (const HeldNode* const known = _working.find(identifier)) {
    node = *known;
  } else {
    error = "there is no such node";
    return LoomerChangeError;
  }
  node.title.set(record.content.name);
  if (node.root || node.isSpecial) node.title.isPending = node.showing == Showing::waiting;
  if (node.kind == NodeKind::bookmark) node.url.set(record.content.url);
  node.opensAsTabs = record.content.tabGroup;
  node.isSpecial = record.content.special;
  node.parent = record.parentLocalId.toString();
  node.position = record.position;
  _working.place(std::move(node));
  return LoomerChangeAccepted;
}

void BrowserClient::deleteNode(const std::string& localId) {
  const HeldNode* const node = _working.find(localId);
  if (!node) return;
  if (node->showing == Showing::shown && !node->root) {
    _working.removed.push_back({.kind = node->kind,
                                .browserId = node->browserId,
                                .title = node->title.shown,
                                .url = node->url.shown,
                                .added = node->added,
                                .changed = _now,
                                .isWaiting = true});
  }
  _working.drop(localId);
}

bool BrowserClient::deleteAllRecordsForEntityName(const String& entityName, String& /*error*/) {
  const NodeKind kind = kindOf(entityOf(entityName));
  std::vector<std::string> all;
  for (const auto& [localId, node] : _working.nodes()) {
    if (node.kind == kind) all.push_back(localId);
  }
  std::sort(all.begin(), all.end());  // for an order that can be repeated
  for (const std::string& each : all) deleteNode(each);
  _delivered += all.size();
  return true;
}

// The engine knows of no separators: they go with their folder.
bool BrowserClient::sessionDriverDidPull(LoomerSessionDriver& /*driver*/, String& error) {
  std::vector<std::string> without;
  for (const auto& [localId, node] : _working.nodes()) {
    const bool isWithout = !node.parent.empty() && !_working.find(node.parent);
    if (isWithout) without.push_back(localId);
    if (isWithout && node.kind != NodeKind::separator)
      error = "a folder was deleted and something is left in it";
  }
  for (const std::string& each : without) deleteNode(each);
  return !error;
}

bool BrowserClient::sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& /*error*/) {
  const bool isKnown = _seen == _state.generation && !_state.isEdited && _delivered == 0;
  if (isKnown) return true;
  _state.generation = _save(_working);
  _state.held = std::move(_working);
  if (LoomerClient* const client = driver.client())
    client->setObject(Value(_state.generation), kGenerationKey);
  return true;
}

void BrowserClient::sessionDriverWillCancelSession(LoomerSessionDriver& /*driver*/) {}

}  // namespace corvane::browsers
