#include "browsers/host/BrowserTree.h"

#include <algorithm>
#include <utility>

#include "browsers/host/MessageProblem.h"

namespace corvane::browsers {

void BrowserTree::add(BrowserNode node) {
  if (node.id.empty()) throw MessageProblem("The browser's tree has a node without an id.");
  _text += node.title.size() + node.url.size();
  if (_nodes.size() >= _mostNodes || _text > kMostText) {
    throw MessageProblem("The browser's tree is larger than any that can be synced.");
  }
  const bool isRoot = node.root.has_value();
  if (isRoot != node.parent.empty()) {
    throw MessageProblem("The node " + node.id + " of the browser's tree is neither in a folder nor a root.");
  }
  if (!isRoot) {
    const BrowserNode* const parent = find(node.parent);
    if (!parent || parent->kind != NodeKind::folder) {
      throw MessageProblem("The node " + node.id +
                           " of the browser's tree lies in no folder that came before it.");
    }
  }
  const std::string id = node.id;
  const std::string parent = node.parent;
  if (isRoot) {
    const auto [known, isFirst] = _roots.emplace(*node.root, id);
    if (!isFirst && node.syncing && !_nodes.at(known->second).syncing) known->second = id;
  }
  if (!_nodes.emplace(id, std::move(node)).second) {
    throw MessageProblem("The browser's tree has two nodes with the id " + id + ".");
  }
  if (!isRoot) _children[parent].append(id);
}

std::vector<const BrowserNode*> BrowserTree::nodes() const {
  std::vector<const BrowserNode*> found;
  found.reserve(_nodes.size());
  for (const auto& [kind, id] : _roots) {
    // The folders that are open, each with the next of its children.
    std::vector<std::pair<const std::vector<std::string>*, std::size_t>> open;
    found.push_back(find(id));
    open.emplace_back(&childrenOf(id), 0);
    while (!open.empty()) {
      auto& [children, next] = open.back();
      if (next == children->size()) {
        open.pop_back();
        continue;
      }
      const BrowserNode* const child = find((*children)[next++]);
      found.push_back(child);
      open.emplace_back(&childrenOf(child->id), 0);
    }
  }
  return found;
}

const BrowserNode* BrowserTree::find(const std::string& id) const {
  const auto found = _nodes.find(id);
  return found == _nodes.end() ? nullptr : &found->second;
}

const BrowserNode* BrowserTree::root(RootKind kind) const {
  const auto found = _roots.find(kind);
  return found == _roots.end() ? nullptr : find(found->second);
}

const std::vector<std::string>& BrowserTree::childrenOf(const std::string& id) const {
  static const std::vector<std::string> kNone;
  const auto found = _children.find(id);
  return found == _children.end() ? kNone : found->second.ids();
}

std::size_t BrowserTree::indexOf(const std::string& id) const {
  return _children.at(_nodes.at(id).parent).indexOf(id);
}

bool BrowserTree::isSyncedByBrowser() const {
  return std::any_of(_roots.begin(), _roots.end(),
                     [this](const auto& root) { return _nodes.at(root.second).syncing; });
}

void BrowserTree::put(const BrowserNode& node, std::size_t index) {
  const auto [known, isNew] = _nodes.try_emplace(node.id, node);
  if (!isNew) {
    unlist(known->second);
    known->second = node;
  }
  _children[node.parent].insert(index, node.id);
}

void BrowserTree::remove(const std::string& id) {
  const auto known = _nodes.find(id);
  if (known == _nodes.end()) return;
  unlist(known->second);
  _children.erase(id);
  _nodes.erase(known);
}

void BrowserTree::unlist(const BrowserNode& node) {
  const auto siblings = _children.find(node.parent);
  if (siblings != _children.end()) siblings->second.remove(node.id);
}

}  // namespace corvane::browsers
