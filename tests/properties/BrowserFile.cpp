#include "tests/properties/BrowserFile.h"

#include <stdexcept>

namespace corvane {

namespace {

Dictionary keysOf(const Dictionary& keys, const char* key) {
  const Dictionary* const found = keys.dictionary(key);
  return found ? *found : Dictionary();
}

kit::ClientTree::Node nodeOf(const Dictionary& keys) {
  kit::ClientTree::Node node;
  node.folder = keys.string("WebBookmarkType") == "WebBookmarkTypeList";
  node.name = node.folder ? keys.string("Title") : keysOf(keys, "URIDictionary").string("title");
  if (!node.folder) node.url = keys.string("URLString");
  node.tabGroup = keys.boolean("WebBookmarkAutoTab").value_or(false);
  node.hidden = keys.boolean("ShouldOmitFromUI").value_or(false);
  return node;
}

}  // namespace

BrowserFile::BrowserFile(const Dictionary& contents) : ClientTree("browser") { read(kRoot, contents); }

void BrowserFile::read(const std::string& id, const Dictionary& keys) {
  const Array* const listed = keys.array("Children");
  Dictionary own = keys;
  own.remove("Children");
  _keys[id] = own;
  if (!listed) return;
  for (const Value& each : *listed) {
    const Dictionary* const entry = each.as<Dictionary>();
    const std::string uid = entry ? entry->string("WebBookmarkUUID").toString() : "";
    if (uid.empty()) throw std::logic_error("an entry in the file has no uid");
    Node node = nodeOf(*entry);
    node.parent = id;
    insert(uid, std::move(node));
    read(uid, *entry);
  }
}

void BrowserFile::addWithNote(const std::string& uid, Node node, std::size_t index) {
  Dictionary keys{{"WebBookmarkType", node.folder ? "WebBookmarkTypeList" : "WebBookmarkTypeLeaf"},
                  {"WebBookmarkUUID", String(uid)},
                  {kNoteKey, String("note of " + uid)}};
  if (node.hidden) keys.set("ShouldOmitFromUI", true);
  _keys[uid] = keys;
  insert(uid, std::move(node), index);
}

// What was not edited keeps the form in which it came.
Dictionary BrowserFile::entry(const std::string& id) const {
  Dictionary keys = _keys.at(id);
  const bool isRoot = id == kRoot;
  const Node node = isRoot ? Node{.folder = true} : nodes.at(id);
  const Node came = nodeOf(keys);
  if (!isRoot && !(node.name == came.name)) {
    Dictionary names = keysOf(keys, "URIDictionary");
    names.set("title", node.name);
    node.folder ? keys.set("Title", node.name) : keys.set("URIDictionary", names);
  }
  if (!(node.url == came.url)) keys.set("URLString", node.url);
  if (node.tabGroup != came.tabGroup) keys.set("WebBookmarkAutoTab", node.tabGroup);
  if (!node.folder) return keys;
  Array entries;
  for (const std::string& child : childrenOf(id)) entries.append(entry(child));
  keys.set("Children", entries);
  return keys;
}

std::vector<std::string> BrowserFile::notes() const {
  std::vector<std::string> found;
  for (const auto& [uid, node] : nodes) {
    const String note = _keys.at(uid).string(kNoteKey);
    if (note) found.push_back(uid + ": " + note.toString());
  }
  return found;
}

}  // namespace corvane
