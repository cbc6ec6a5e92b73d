#include "tests/properties/BrowserFile.h"

#include <algorithm>

#include "tests/kit/TreeText.h"

namespace corvane {

using loomer::Entity;

BrowserFile::BrowserFile(const Dictionary& contents) {
  read(contents, 0);
  _entries[0].isFolder = true;
  for (std::size_t at = 0; at < _entries.size(); ++at) {
    // `read` appends the children, so that this walk reaches them later.
    const Array children =
        _entries[at].keys.array("Children") ? *_entries[at].keys.array("Children") : Array();
    _entries[at].keys.remove("Children");
    for (const Value& child : children) {
      const Dictionary* const keys = child.as<Dictionary>();
      if (!keys) continue;
      _entries[at].children.push_back(_entries.size());
      read(*keys, at);
    }
  }
}

void BrowserFile::read(const Dictionary& keys, std::size_t parent) {
  Entry entry;
  entry.keys = keys;
  entry.isFolder = keys.string("WebBookmarkType") == "WebBookmarkTypeList";
  entry.isHidden =
      keys.boolean("ShouldOmitFromUI").value_or(false) || (!_entries.empty() && _entries[parent].isHidden);
  entry.parent = parent;
  _entries.push_back(std::move(entry));
}

std::size_t BrowserFile::add(std::size_t folder, std::size_t index, Entity entity, const std::string& title,
                             const std::string& uid, bool hidden) {
  Entry entry;
  entry.isFolder = entity == Entity::folder;
  entry.isHidden = hidden;
  entry.keys.set("WebBookmarkType", entry.isFolder ? "WebBookmarkTypeList" : "WebBookmarkTypeLeaf");
  entry.keys.set("WebBookmarkUUID", String(uid));
  entry.keys.set(kNoteKey, String("note of " + uid));
  if (hidden) entry.keys.set("ShouldOmitFromUI", true);
  _entries.push_back(std::move(entry));
  const std::size_t made = _entries.size() - 1;
  rename(made, title);
  if (entity == Entity::bookmark) readdress(made, "http://example.com/" + title);
  insert(made, folder, index);
  return made;
}

void BrowserFile::rename(std::size_t entry, const std::string& title) {
  Dictionary& keys = _entries[entry].keys;
  if (_entries[entry].isFolder) return keys.set("Title", String(title));
  Dictionary names = keys.dictionary("URIDictionary") ? *keys.dictionary("URIDictionary") : Dictionary();
  names.set("title", String(title));
  keys.set("URIDictionary", names);
}

void BrowserFile::readdress(std::size_t entry, const std::string& url) {
  _entries[entry].keys.set("URLString", String(url));
}

void BrowserFile::toggle(std::size_t entry) {
  Dictionary& keys = _entries[entry].keys;
  keys.set("WebBookmarkAutoTab", !keys.boolean("WebBookmarkAutoTab").value_or(false));
}

void BrowserFile::insert(std::size_t entry, std::size_t folder, std::size_t index) {
  _entries[entry].parent = folder;
  std::vector<std::size_t>& siblings = _entries[folder].children;
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(std::min(index, siblings.size())), entry);
}

void BrowserFile::remove(std::size_t entry) { std::erase(_entries[_entries[entry].parent].children, entry); }

void BrowserFile::move(std::size_t entry, std::size_t folder, std::size_t index) {
  for (std::size_t at = folder; at != 0; at = _entries[at].parent) {
    if (at == entry) return;
  }
  remove(entry);
  insert(entry, folder, index);
}

void BrowserFile::erase(std::size_t entry) { remove(entry); }

std::vector<std::size_t> BrowserFile::reachable() const {
  std::vector<std::size_t> found{0};
  for (std::size_t at = 0; at < found.size(); ++at) {
    const std::vector<std::size_t>& children = _entries[found[at]].children;
    found.insert(found.end(), children.begin(), children.end());
  }
  return found;
}

Dictionary BrowserFile::contents() const {
  const std::vector<std::size_t> topDown = reachable();
  std::vector<Dictionary> made(_entries.size());
  for (auto at = topDown.rbegin(); at != topDown.rend(); ++at) {
    const Entry& entry = _entries[*at];
    made[*at] = entry.keys;
    if (!entry.isFolder) continue;
    Array children;
    for (const std::size_t child : entry.children) children.append(made[child]);
    made[*at].set("Children", children);
  }
  return made[0];
}

std::string BrowserFile::title(std::size_t entry) const {
  const Dictionary& keys = _entries[entry].keys;
  if (_entries[entry].isFolder) return keys.string("Title").toString();
  const Dictionary* const names = keys.dictionary("URIDictionary");
  return names ? names->string("title").toString() : std::string();
}

std::vector<std::size_t> BrowserFile::visible(bool foldersOnly) const {
  std::vector<std::size_t> found = reachable();
  std::erase_if(found, [&](std::size_t at) {
    return _entries[at].isHidden || (foldersOnly && !_entries[at].isFolder);
  });
  return found;
}

std::string BrowserFile::print() const {
  const auto childrenOf = [this](std::size_t folder) {
    std::vector<std::size_t> children = _entries[folder].children;
    std::erase_if(children, [this](std::size_t at) { return _entries[at].isHidden; });
    return children;
  };
  const auto node = [this](std::size_t at) -> kit::TreeNode {
    const Entry& entry = _entries[at];
    return {.label = title(at),
            .folder = entry.isFolder,
            .title = title(at),
            .url = entry.isFolder ? String() : entry.keys.string("URLString"),
            .tabGroup = entry.keys.boolean("WebBookmarkAutoTab").value_or(false)};
  };
  return kit::printTree(kit::treeBelow(std::size_t{0}, childrenOf, node));
}

std::vector<std::string> BrowserFile::notes() const {
  std::vector<std::string> found;
  for (const std::size_t at : reachable()) {
    const Dictionary& keys = _entries[at].keys;
    const String note = keys.string(kNoteKey);
    if (note) found.push_back(keys.string("WebBookmarkUUID").toString() + ": " + note.toString());
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace corvane
