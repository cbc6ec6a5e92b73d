#include "browsers/host/HeldTree.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <unordered_set>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::browsers {

namespace {

constexpr char kRootMark = '@';

int compareTitles(const HeldNode& a, const HeldNode& b) {
  return compareCaseInsensitive(a.title.value.view(), b.title.value.view());
}

// Siblings rank by number and title.
bool ranksBelow(const HeldNode& a, const HeldNode& b) {
  return a.position != b.position ? a.position < b.position : compareTitles(a, b) < 0;
}

// The engine numbers what it delivers for the rule by which a bookmarks file is kept: model/InsertionRule.h.
// A node that goes before a sibling goes before all that rank higher than that.
bool goesBefore(const HeldNode& node, const HeldNode& sibling) {
  if (node.position != sibling.position) return node.position < sibling.position;
  const int order = node.title.value ? compareTitles(node, sibling) : 0;
  return order < 0 || (order == 0 && node.kind == NodeKind::folder);
}

struct Placing {
  const HeldNode& node;
};

struct ByRank {
  using is_transparent = void;
  bool operator()(const HeldNode* a, const HeldNode* b) const { return ranksBelow(*a, *b); }
  bool operator()(const Placing& placing, const HeldNode* sibling) const {
    return goesBefore(placing.node, *sibling);
  }
};

}  // namespace

void AddedTimes::set(std::int64_t time) {
  constexpr std::size_t kMostBefore = 8;
  if (time == now) return;
  std::erase(before, time);
  if (now != 0) before.push_back(now);
  if (before.size() > kMostBefore) before.erase(before.begin());
  now = time;
}

HeldNode* HeldTree::find(const std::string& localId) {
  return const_cast<HeldNode*>(std::as_const(*this).find(localId));
}

const HeldNode* HeldTree::find(const std::string& localId) const {
  const auto found = _nodes.find(localId);
  return found == _nodes.end() ? nullptr : &found->second;
}

HeldNode* HeldTree::root(RootKind kind) { return const_cast<HeldNode*>(std::as_const(*this).root(kind)); }

const HeldNode* HeldTree::root(RootKind kind) const {
  const auto found = _roots.find(kind);
  return found == _roots.end() ? nullptr : find(found->second);
}

const std::vector<std::string>& HeldTree::childrenOf(const std::string& folder) const {
  static const std::vector<std::string> kNone;
  const auto found = _children.find(folder);
  if (found == _children.end()) return kNone;
  arrange(folder, found->second);
  return found->second.listed;
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
  Children& siblings = _children[node.parent];
  arrange(node.parent, siblings);
  siblings.listed.push_back(node.localId);
  if (node.root) _roots.emplace(*node.root, node.localId);
  const std::string id = node.localId;
  return _nodes[id] = std::move(node);
}

void HeldTree::setChildren(const std::string& folder, std::vector<std::string> children) {
  if (children.empty()) {
    _children.erase(folder);
  } else {
    _children[folder] = {std::move(children), {}, false};
  }
}

void HeldTree::number() {
  for (auto& [folder, children] : _children) {
    arrange(folder, children);
    std::int32_t number = 0;
    for (const std::string& child : children.listed) {
      HeldNode& node = _nodes.at(child);
      node.position = node.isSpecial ? LoomerPositionSpecial : number;
      ++number;
    }
  }
}

void HeldTree::place(HeldNode node) {
  if (const HeldNode* const known = find(node.localId)) _children[known->parent].hasLeavers = true;
  _children[node.parent].placed.push_back(node.localId);
  if (node.root) _roots.emplace(*node.root, node.localId);
  const std::string id = node.localId;
  _nodes[id] = std::move(node);
}

void HeldTree::makeRoot(const std::string& localId, RootKind kind) {
  _nodes.at(localId).root = kind;
  _roots.emplace(kind, localId);
}

void HeldTree::endRoot(RootKind kind) {
  if (HeldNode* const node = root(kind)) node->root.reset();
  _roots.erase(kind);
}

void HeldTree::drop(const std::string& localId) {
  const auto found = _nodes.find(localId);
  if (found == _nodes.end()) return;
  _children[found->second.parent].hasLeavers = true;
  std::erase_if(_roots, [&](const auto& each) { return each.second == localId; });
  _nodes.erase(found);
}

bool HeldTree::liesIn(const std::string& localId, const std::string& folder) const {
  const HeldNode* const node = find(localId);
  return node && node->parent == folder;
}

void HeldTree::arrange(const std::string& folder, Children& children) const {
  if (!children.hasLeavers && children.placed.empty()) return;
  std::unordered_set<std::string> arriving;
  std::vector<std::string> placed;
  for (auto each = children.placed.rbegin(); each != children.placed.rend(); ++each) {
    if (liesIn(*each, folder) && arriving.insert(*each).second) placed.push_back(*each);
  }
  std::reverse(placed.begin(), placed.end());
  std::erase_if(children.listed,
                [&](const std::string& each) { return !liesIn(each, folder) || arriving.contains(each); });
  insertPlaced(children.listed, placed);
  children.placed.clear();
  children.hasLeavers = false;
}

// What a node stops at ranks higher than all before it. So a node's place is found among those siblings alone
// that do, which are sorted.
void HeldTree::insertPlaced(std::vector<std::string>& listed, const std::vector<std::string>& placed) const {
  if (placed.empty()) return;
  std::list<std::string> order;
  std::map<const HeldNode*, std::list<std::string>::iterator, ByRank> peaks;
  for (std::string& each : listed) {
    const HeldNode* const node = find(each);
    const auto at = order.insert(order.end(), std::move(each));
    if (peaks.empty() || ranksBelow(*peaks.rbegin()->first, *node)) peaks.emplace(node, at);
  }
  for (const std::string& each : placed) {
    const HeldNode* const node = find(each);
    auto next = peaks.upper_bound(Placing{*node});
    const auto at = order.insert(next == peaks.end() ? order.end() : next->second, each);
    if (next != peaks.begin() && !ranksBelow(*std::prev(next)->first, *node)) continue;
    if (next != peaks.end() && !ranksBelow(*node, *next->first)) next = peaks.erase(next);
    peaks.emplace_hint(next, node, at);
  }
  listed.assign(std::make_move_iterator(order.begin()), std::make_move_iterator(order.end()));
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

std::string titleToShow(const HeldNode& node) {
  return node.isSpecial ? tr("Bookmarks Menu") : node.title.value.toString();
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
