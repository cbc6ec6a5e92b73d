#include "browsers/host/HeldTree.h"

#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane::browsers {

namespace {

constexpr char kRootMark = '@';

// The engine numbers what it delivers for the rule by which a bookmarks file is kept: model/InsertionRule.h.
bool goesBefore(const HeldNode& node, const HeldNode& sibling) {
  if (node.position != sibling.position) return node.position < sibling.position;
  const String& title = node.title.value;
  const int order = title ? compareCaseInsensitive(title.view(), sibling.title.value.view()) : 0;
  return order < 0 || (order == 0 && node.kind == NodeKind::folder);
}

}  // namespace

HeldNode* HeldTree::find(const std::string& localId) {
  return const_cast<HeldNode*>(std::as_const(*this).find(localId));
}

const HeldNode* HeldTree::find(const std::string& localId) const {
  const auto found = _nodes.find(localId);
  return found == _nodes.end() ? nullptr : &found->second;
}

HeldNode* HeldTree::root(RootKind kind) { return const_cast<HeldNode*>(std::as_const(*this).root(kind)); }

// Roots lie in the truth's root unless somebody has moved them, and there are four.
const HeldNode* HeldTree::root(RootKind kind) const {
  for (const std::string& each : childrenOf({})) {
    if (const HeldNode& node = _nodes.at(each); node.root == kind) return &node;
  }
  const auto moved = std::find_if(_nodes.begin(), _nodes.end(),
                                  [kind](const auto& each) { return each.second.root == kind; });
  return moved == _nodes.end() ? nullptr : &moved->second;
}

const std::vector<std::string>& HeldTree::childrenOf(const std::string& folder) const {
  static const std::vector<std::string> kNone;
  const auto found = _children.find(folder);
  return found == _children.end() ? kNone : found->second;
}

std::vector<const HeldNode*> HeldTree::topDown() const {
  std::vector<const HeldNode*> found;
  std::vector<std::string> open{std::string()};
  while (!open.empty()) {
    const std::string each = std::move(open.back());
    open.pop_back();
    if (!each.empty()) found.push_back(&_nodes.at(each));
    const std::vector<std::string>& children = childrenOf(each);
    open.insert(open.end(), children.rbegin(), children.rend());
  }
  return found;
}

HeldNode& HeldTree::add(HeldNode node) {
  _children[node.parent].push_back(node.localId);
  const std::string id = node.localId;
  return _nodes[id] = std::move(node);
}

void HeldTree::setChildren(const std::string& folder, std::vector<std::string> children) {
  if (children.empty()) {
    _children.erase(folder);
  } else {
    _children[folder] = std::move(children);
  }
}

void HeldTree::number() {
  for (const auto& [folder, children] : _children) {
    std::int32_t number = 0;
    for (const std::string& child : children) {
      HeldNode& node = _nodes.at(child);
      node.position = node.isSpecial ? LoomerPositionSpecial : number;
      ++number;
    }
  }
}

void HeldTree::place(HeldNode node) {
  if (const HeldNode* const known = find(node.localId)) unlist(*known);
  const std::string id = node.localId;
  const HeldNode& placed = _nodes[id] = std::move(node);
  std::vector<std::string>& siblings = _children[placed.parent];
  const auto at = std::find_if(siblings.begin(), siblings.end(), [&](const std::string& other) {
    return goesBefore(placed, _nodes.at(other));
  });
  siblings.insert(at, id);
}

void HeldTree::drop(const std::string& localId) {
  const auto found = _nodes.find(localId);
  if (found == _nodes.end()) return;
  unlist(found->second);
  _nodes.erase(found);
}

void HeldTree::unlist(const HeldNode& node) {
  const auto siblings = _children.find(node.parent);
  if (siblings != _children.end()) std::erase(siblings->second, node.localId);
}

std::string HeldTree::folderToShowIn(const HeldNode& node) const {
  if (node.parent.empty()) return folderOfRoot(RootKind::other);
  const HeldNode* const parent = find(node.parent);
  return parent && parent->root ? folderOfRoot(*parent->root) : node.parent;
}

std::vector<std::string> HeldTree::toShowIn(const std::string& folder) const {
  const auto kind = rootOfFolder(folder);
  const HeldNode* const own = kind ? root(*kind) : find(folder);
  std::vector<std::string> all = own ? childrenOf(own->localId) : std::vector<std::string>();
  if (kind == RootKind::other) {
    const std::vector<std::string>& inRoot = childrenOf({});
    all.insert(all.end(), inRoot.begin(), inRoot.end());
  }
  std::erase_if(all, [this](const std::string& each) { return find(each)->root.has_value(); });
  return all;
}

std::string folderOfRoot(RootKind kind) { return kRootMark + std::string(nameOf(kind)); }

std::optional<RootKind> rootOfFolder(const std::string& folder) {
  if (!folder.starts_with(kRootMark)) return std::nullopt;
  return rootKindNamed(std::string_view(folder).substr(1));
}

const char* titleOfRoot(RootKind kind) {
  switch (kind) {
    case RootKind::bar:
      return LoomerTitleBookmarksBar;
    case RootKind::menu:
      return LoomerTitleBookmarksMenu;
    case RootKind::other:
      return "Other Bookmarks";
    case RootKind::mobile:
      break;
  }
  return "Mobile Bookmarks";
}

}  // namespace corvane::browsers
