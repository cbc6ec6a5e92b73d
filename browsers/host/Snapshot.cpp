#include "browsers/host/Snapshot.h"

#include <string_view>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"

namespace corvane::browsers {

namespace {

constexpr std::int64_t kVersion = 1;

[[noreturn]] void refuse(const char* what) {
  throw PropertyListException(std::string("it is no snapshot of a browser: ") + what);
}

std::int64_t integerIn(const Dictionary& dictionary, const char* key) {
  const Value* const value = dictionary.find(key);
  const auto* const number = value ? value->as<std::int64_t>() : nullptr;
  return number ? *number : 0;
}

double realIn(const Dictionary& dictionary, const char* key) {
  const Value* const value = dictionary.find(key);
  const auto* const number = value ? value->as<double>() : nullptr;
  return number ? *number : 0.0;
}

bool flagIn(const Dictionary& dictionary, const char* key) { return dictionary.boolean(key).value_or(false); }

void setFlag(Dictionary& dictionary, const char* key, bool flag) {
  if (flag) dictionary.set(key, true);
}

void setText(Dictionary& dictionary, const char* key, const std::string& text) {
  if (!text.empty()) dictionary.set(key, text);
}

void setForm(Dictionary& dictionary, const std::string& key, const Form& form) {
  if (form.value) dictionary.set(key, form.value);
  if (form.value.view() != form.shown) dictionary.set("Shown" + key, form.shown);
  setFlag(dictionary, ("Pending" + key).c_str(), form.isPending);
}

Form formIn(const Dictionary& dictionary, const std::string& key) {
  Form form;
  form.value = dictionary.string(key);
  const String shown = dictionary.string("Shown" + key);
  form.shown = shown ? shown.toString() : form.value.toString();
  form.isPending = flagIn(dictionary, ("Pending" + key).c_str());
  return form;
}

void setStamp(Dictionary& dictionary, const Stamp& stamp) {
  dictionary.set("Generation", stamp.generation);
  dictionary.set("Changed", stamp.time);
}

Stamp stampIn(const Dictionary& dictionary) {
  return {integerIn(dictionary, "Generation"), realIn(dictionary, "Changed")};
}

void setAdded(Dictionary& entry, const AddedTimes& added) {
  entry.set("Added", added.now);
  if (added.before.empty()) return;
  std::vector<Value> before(added.before.begin(), added.before.end());
  entry.set("AddedBefore", Array(std::move(before)));
}

std::vector<std::int64_t> integersIn(const Dictionary& dictionary, const char* key) {
  std::vector<std::int64_t> integers;
  const Array* const values = dictionary.array(key);
  if (!values) return integers;
  for (const Value& each : *values) {
    if (const auto* const integer = each.as<std::int64_t>()) integers.push_back(*integer);
  }
  return integers;
}

AddedTimes addedIn(const Dictionary& entry) {
  return {integerIn(entry, "Added"), integersIn(entry, "AddedBefore")};
}

Dictionary entryOf(const HeldNode& node) {
  Dictionary entry{{"Id", node.localId}, {"Kind", nameOf(node.kind)}};
  setText(entry, "Parent", node.parent);
  setForm(entry, "Title", node.title);
  if (node.kind == NodeKind::bookmark) setForm(entry, "Url", node.url);
  setFlag(entry, "OpensAsTabs", node.opensAsTabs);
  setFlag(entry, "Special", node.isSpecial);
  if (node.root) entry.set("Root", nameOf(*node.root));
  setFlag(entry, "OfAccount", node.isOfAccount);
  setFlag(entry, "Waiting", node.showing == Showing::waiting);
  setFlag(entry, "Refused", node.showing == Showing::refused);
  setText(entry, "BrowserId", node.browserId);
  setText(entry, "StandIn", node.standIn);
  setText(entry, "ShownIn", node.shownIn);
  entry.set("ShownIndex", node.shownIndex);
  setAdded(entry, node.added);
  setStamp(entry, node.changed);
  return entry;
}

NodeKind kindIn(const Dictionary& entry) {
  const auto kind = nodeKindNamed(entry.string("Kind").view());
  if (!kind) refuse("an entry is of no kind");
  return *kind;
}

HeldNode nodeOf(const Dictionary& entry) {
  HeldNode node;
  node.localId = entry.string("Id").toString();
  node.parent = entry.string("Parent").toString();
  node.kind = kindIn(entry);
  node.title = formIn(entry, "Title");
  node.url = node.kind == NodeKind::bookmark ? formIn(entry, "Url") : Form{{}, {}, false};
  node.opensAsTabs = flagIn(entry, "OpensAsTabs");
  node.isSpecial = flagIn(entry, "Special");
  node.root = rootKindNamed(entry.string("Root").view());
  node.isOfAccount = flagIn(entry, "OfAccount");
  node.showing = flagIn(entry, "Waiting")   ? Showing::waiting
                 : flagIn(entry, "Refused") ? Showing::refused
                                            : Showing::shown;
  node.browserId = entry.string("BrowserId").toString();
  node.standIn = entry.string("StandIn").toString();
  node.shownIn = entry.string("ShownIn").toString();
  node.shownIndex = integerIn(entry, "ShownIndex");
  node.added = addedIn(entry);
  node.changed = stampIn(entry);
  return node;
}

Dictionary entryOf(const RemovedNode& node) {
  Dictionary entry{{"Kind", nameOf(node.kind)}};
  setAdded(entry, node.added);
  setText(entry, "BrowserId", node.browserId);
  setText(entry, "Title", node.title);
  setText(entry, "Url", node.url);
  setFlag(entry, "Waiting", node.isWaiting);
  setStamp(entry, node.changed);
  return entry;
}

RemovedNode removedNodeOf(const Dictionary& entry) {
  return {.kind = kindIn(entry),
          .browserId = entry.string("BrowserId").toString(),
          .title = entry.string("Title").toString(),
          .url = entry.string("Url").toString(),
          .added = addedIn(entry),
          .changed = stampIn(entry),
          .isWaiting = flagIn(entry, "Waiting")};
}

template <typename Take>
void eachEntry(const Dictionary& file, const char* key, Take take) {
  const Array* const entries = file.array(key);
  if (!entries) refuse("a list is missing");
  for (const Value& each : *entries) {
    const auto* const entry = each.as<Dictionary>();
    if (!entry) refuse("an entry is no dictionary");
    take(*entry);
  }
}

void addNode(HeldTree& tree, HeldNode node) {
  const HeldNode* const parent = tree.find(node.parent);
  const bool isPlaced = node.parent.empty() || (parent && parent->kind == NodeKind::folder);
  if (node.localId.empty() || tree.find(node.localId) || !isPlaced) refuse("its entries make no tree");
  tree.add(std::move(node));
}

}  // namespace

std::string snapshotBytes(const Snapshot& snapshot) {
  std::vector<Value> nodes;
  for (const HeldNode* const each : snapshot.tree.topDown()) nodes.emplace_back(entryOf(*each));
  std::vector<Value> told(snapshot.told.begin(), snapshot.told.end());
  std::vector<Value> removed;
  for (const RemovedNode& each : snapshot.tree.removed) removed.emplace_back(entryOf(each));
  Dictionary ordered;
  for (const auto& [folder, stamp] : snapshot.tree.ordered) {
    Dictionary entry;
    setStamp(entry, stamp);
    ordered.set(folder, std::move(entry));
  }
  Dictionary file{{"Version", kVersion},
                  {"Generation", snapshot.generation},
                  {"Told", Array(std::move(told))},
                  {"Run", snapshot.run},
                  {"Saved", snapshot.saved},
                  {"Finished", snapshot.isFinished},
                  {"Nodes", Array(std::move(nodes))},
                  {"Removed", Array(std::move(removed))},
                  {"Ordered", std::move(ordered)}};
  if (snapshot.ended) file.set("Ended", *snapshot.ended);
  return writeBinaryPropertyList(file);
}

Snapshot snapshotOf(std::string_view bytes) {
  const Value value = readPropertyList(bytes);
  const auto* const file = value.as<Dictionary>();
  if (!file || integerIn(*file, "Version") != kVersion) refuse("it is of no version that is known here");
  Snapshot snapshot;
  snapshot.generation = integerIn(*file, "Generation");
  snapshot.told = integersIn(*file, "Told");
  snapshot.run = file->string("Run").toString();
  snapshot.saved = file->date("Saved").value_or(Date());
  snapshot.ended = file->date("Ended");
  snapshot.isFinished = flagIn(*file, "Finished");
  eachEntry(*file, "Nodes", [&](const Dictionary& entry) { addNode(snapshot.tree, nodeOf(entry)); });
  eachEntry(*file, "Removed",
            [&](const Dictionary& entry) { snapshot.tree.removed.push_back(removedNodeOf(entry)); });
  if (const Dictionary* const ordered = file->dictionary("Ordered")) {
    for (const auto& [folder, entry] : *ordered) {
      if (const auto* const stamp = entry.as<Dictionary>())
        snapshot.tree.ordered[folder.toString()] = stampIn(*stamp);
    }
  }
  return snapshot;
}

std::string snapshotDirectory() {
  return joinedPath(Place(LoomerManager::storePath()).directory, "Browsers");
}

std::string snapshotPath(const std::string& token) {
  return joinedPath(snapshotDirectory(), token + ".plist");
}

std::optional<Snapshot> SnapshotFile::read() const {
  std::string bytes;
  const std::error_code error = Platform::current().files.read(_path, bytes);
  if (error == std::errc::no_such_file_or_directory) return std::nullopt;
  try {
    if (error) throw PropertyListException(error.message());
    return snapshotOf(bytes);
  } catch (const PropertyListException& exception) {
    systemLog("What is remembered of a browser (%@) cannot be used: %@. Its bookmarks are matched anew.",
              _path, exception.reason());
    return std::nullopt;
  }
}

void SnapshotFile::write(const Snapshot& snapshot) const {
  const PrivateUmask forTheUserAlone;
  const std::error_code error = Platform::current().files.writeAtomically(_path, snapshotBytes(snapshot));
  if (!error) return;
  throw PlatformException(
      "CorvaneBrowserSnapshotException",
      Message("What is remembered of the browser cannot be saved in %1: %2", _path, error.message()));
}

}  // namespace corvane::browsers
