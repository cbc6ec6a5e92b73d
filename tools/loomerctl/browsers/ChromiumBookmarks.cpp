#include "tools/loomerctl/browsers/ChromiumBookmarks.h"

#include <string_view>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

constexpr int kChromiumVersion = 1;

// A root by its key in the file.
struct ChromiumRoot {
  std::string_view key;
  const char* title;
  bool toolbar;
};
constexpr ChromiumRoot kChromiumRoots[] = {{"bookmark_bar", LoomerTitleBookmarksBar, true},
                                           {"other", kOtherBookmarks, false},
                                           {"synced", kMobileBookmarks, false}};

class ChromiumReader {
 public:
  explicit ChromiumReader(std::string name) : _name(std::move(name)) {}

  BrowserBookmarks read(const JsonValue& document) {
    const JsonValue* const version = memberOf(document, "version");
    if (!version || !version->IsInt() || version->GetInt() != kChromiumVersion) {
      throw Refused{tr("%1 is written in a form that is not known: what stands at \"/version\" is not %2.",
                       _name, std::to_string(kChromiumVersion))};
    }
    const JsonValue& roots = *memberOf(document, "roots");
    for (const ChromiumRoot& each : kChromiumRoots) {
      if (const JsonValue* const root = memberOf(roots, each.key.data())) readRoot(*root, each);
    }
    for (const auto& each : roots.GetObject()) leaveOutUnknown(each.name.GetString(), each.value);
    return std::move(_bookmarks);
  }

 private:
  void readRoot(const JsonValue& root, const ChromiumRoot& known) {
    const std::string pointer = "/roots/" + std::string(known.key);
    if (!root.IsObject())
      throw Refused{tr("%1 is damaged: what stands at \"%2\" is no object.", _name, pointer)};
    const auto folder = static_cast<std::uint32_t>(_bookmarks.nodes.size());
    JsonWalk walk(root, pointer, folder, _name);
    const JsonValue* entry = walk.next();
    if (!entry) return;
    ImportedNode& node = _bookmarks.nodes.emplace_back();
    node.folder = true;
    node.title = known.title;
    node.toolbar = known.toolbar;
    for (; entry; entry = walk.next()) readEntry(*entry, walk);
  }

  void readEntry(const JsonValue& entry, JsonWalk& walk) {
    ImportedNode node;
    node.folder = walk.text("type") == "folder";
    node.title = walk.text("name");
    node.parent = walk.parent();
    if (!node.folder) node.url = walk.text("url");
    if (!node.folder && (walk.text("type") != "url" || node.url.empty())) {
      return _bookmarks.leftOut.add(Extra::entry, node.parent, walk.pointer());
    }
    const auto index = static_cast<std::uint32_t>(_bookmarks.nodes.size());
    leaveOutRest(entry, walk, index);
    if (node.folder) walk.enter(index);
    _bookmarks.nodes.push_back(std::move(node));
  }

  void leaveOutRest(const JsonValue& entry, const JsonWalk& walk, std::uint32_t node) {
    // In microseconds since 1601, as a text; "0" stands for none.
    const auto isDate = [](const std::string& text) { return !text.empty() && text != "0"; };
    if (isDate(walk.text("date_added")) || isDate(walk.text("date_modified"))) {
      _bookmarks.leftOut.count(Extra::date);
    }
    for (const char* const key : {"meta_info", "unsynced_meta_info"}) {
      const JsonValue* const values = memberOf(entry, key);
      if (!values || !values->IsObject()) continue;
      for (const auto& each : values->GetObject()) {
        const bool isEmpty = each.value.IsString() && each.value.GetStringLength() == 0;
        if (!isEmpty)
          _bookmarks.leftOut.add(Extra::value, node, std::string(key) + '/' + each.name.GetString());
      }
    }
  }

  void leaveOutUnknown(const std::string& key, const JsonValue& root) {
    for (const ChromiumRoot& each : kChromiumRoots) {
      if (key == each.key) return;
    }
    // Beside the roots stand a few texts about them.
    if (root.IsObject()) _bookmarks.leftOut.add(Extra::entry, ImportedNode::kRoot, "/roots/" + key);
  }

  std::string _name;
  BrowserBookmarks _bookmarks;
};

}  // namespace

bool isChromiumBookmarks(const JsonValue& document) {
  const JsonValue* const roots = memberOf(document, "roots");
  return roots && roots->IsObject();
}

BrowserBookmarks readChromiumBookmarks(const JsonValue& document, const std::string& name) {
  return ChromiumReader(name).read(document);
}

}  // namespace corvane::loomerctl
