#include "tools/loomerctl/browsers/FirefoxBackup.h"

#include <cstdint>
#include <string_view>
#include <utility>

#include "tools/loomerctl/browsers/FirefoxRoots.h"

namespace corvane::loomerctl {

namespace {

constexpr std::string_view kFirefoxFolder = "text/x-moz-place-container";
constexpr std::string_view kFirefoxBookmark = "text/x-moz-place";
constexpr std::string_view kFirefoxSeparator = "text/x-moz-place-separator";

// The text under the key; empty where there is none.
std::string_view textIn(const JsonValue& value, const char* key) {
  const JsonValue* const text = memberOf(value, key);
  return text && text->IsString() ? std::string_view(text->GetString(), text->GetStringLength()) : "";
}

bool isRoot(const JsonValue& entry, const FirefoxRoot& root) {
  return textIn(entry, "root") == root.name || textIn(entry, "guid") == root.guid;
}

class BackupReader {
 public:
  explicit BackupReader(std::string name) : _name(std::move(name)) {}

  BrowserBookmarks read(const JsonValue& document) {
    JsonWalk walk(document, "", ImportedNode::kRoot, _name);
    while (const JsonValue* const entry = walk.next()) {
      const FirefoxRoot* const root = walk.parent() == ImportedNode::kRoot ? rootOf(*entry) : nullptr;
      if (root) {
        enterRoot(*entry, *root, walk);
      } else {
        readEntry(*entry, walk);
      }
    }
    return std::move(_bookmarks);
  }

 private:
  static const FirefoxRoot* rootOf(const JsonValue& entry) {
    for (const FirefoxRoot& each : kFirefoxRoots) {
      if (isRoot(entry, each)) return &each;
    }
    return nullptr;
  }

  std::uint32_t nextNode() const { return static_cast<std::uint32_t>(_bookmarks.nodes.size()); }

  void enterRoot(const JsonValue& entry, const FirefoxRoot& root, JsonWalk& walk) {
    const JsonValue* const children = memberOf(entry, "children");
    if (!children || (children->IsArray() && children->Empty())) return;
    if (!root.title) return leaveOutTags(*children, walk);
    walk.enter(nextNode());
    ImportedNode& node = _bookmarks.nodes.emplace_back();
    node.folder = true;
    node.title = root.title;
    node.toolbar = root.name == kFirefoxToolbar.name;
  }

  // Early versions list the tagged addresses here, later ones name the tags with each bookmark.
  void leaveOutTags(const JsonValue& tags, const JsonWalk& walk) {
    if (!tags.IsArray()) walk.refuseForList("/children");
    for (const JsonValue& tag : tags.GetArray()) {
      const JsonValue* const tagged = memberOf(tag, "children");
      const std::size_t count = tagged && tagged->IsArray() ? tagged->Size() : 0;
      for (std::size_t i = 0; i < count; ++i) {
        _bookmarks.leftOut.add(Extra::tag, ImportedNode::kRoot, withoutZeros(textIn(tag, "title")));
      }
    }
  }

  void readEntry(const JsonValue& entry, JsonWalk& walk) {
    const std::string type = walk.text("type");
    if (type == kFirefoxSeparator) return _bookmarks.leftOut.add(Extra::separator, walk.parent());
    ImportedNode node;
    node.folder = type == kFirefoxFolder;
    node.title = walk.text("title");
    node.parent = walk.parent();
    if (!node.folder) node.url = walk.text("uri");
    if (!node.folder && (type != kFirefoxBookmark || node.url.empty())) {
      return _bookmarks.leftOut.add(Extra::entry, node.parent, walk.pointer());
    }
    leaveOutRest(entry, walk);
    if (node.folder) walk.enter(nextNode());
    _bookmarks.nodes.push_back(std::move(node));
  }

  void leaveOutRest(const JsonValue& entry, const JsonWalk& walk) {
    LeftOut& leftOut = _bookmarks.leftOut;
    const auto add = [&](const char* key, Extra kind) {
      std::string text = walk.text(key);
      if (!text.empty()) leftOut.add(kind, nextNode(), std::move(text));
    };
    addTags(leftOut, nextNode(), walk.text("tags"));
    add("keyword", Extra::keyword);
    add("postData", Extra::value);
    add("charset", Extra::value);
    if (!walk.text("iconUri").empty() || !walk.text("iconuri").empty()) leftOut.count(Extra::icon);
    // In microseconds since 1970.
    if (memberOf(entry, "dateAdded") || memberOf(entry, "lastModified")) leftOut.count(Extra::date);
    const JsonValue* const notes = memberOf(entry, "annos");
    if (!notes || !notes->IsArray()) return;
    for (const JsonValue& note : notes->GetArray()) leaveOutNote(note);
  }

  void leaveOutNote(const JsonValue& note) {
    const std::string_view name = textIn(note, "name");
    const bool describes = name == kFirefoxDescription;
    _bookmarks.leftOut.add(describes ? Extra::description : Extra::value, nextNode(),
                           withoutZeros(describes ? textIn(note, "value") : name));
  }

  std::string _name;
  BrowserBookmarks _bookmarks;
};

}  // namespace

bool isFirefoxBackup(const JsonValue& document) {
  return isRoot(document, kFirefoxTop) || textIn(document, "type") == kFirefoxFolder;
}

BrowserBookmarks readFirefoxBackup(const JsonValue& document, const std::string& name) {
  return BackupReader(name).read(document);
}

}  // namespace corvane::loomerctl
