#include "tests/kit/ClientTree.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane::kit {

bool ClientTree::Node::isSpecial() const { return position == LoomerPositionSpecial; }

std::string ClientTree::newId() { return _name + "-" + std::to_string(++_made); }

std::string ClientTree::add(Node node, std::size_t index) {
  const std::string id = newId();
  insert(id, std::move(node), index);
  return id;
}

void ClientTree::insert(const std::string& id, Node node, std::size_t index) {
  const std::string parent = node.parent;
  if (!nodes.emplace(id, std::move(node)).second) throw std::logic_error("there are two of " + id);
  put(id, parent, index);
}

void ClientTree::rename(const std::string& id, const std::string& name) {
  nodes.at(id).name = String(name);
  edited = true;
}

void ClientTree::readdress(const std::string& id, const std::string& url) {
  nodes.at(id).url = String(url);
  edited = true;
}

void ClientTree::toggle(const std::string& id) {
  nodes.at(id).tabGroup = !nodes.at(id).tabGroup;
  edited = true;
}

void ClientTree::move(const std::string& id, const std::string& parent, std::size_t index) {
  for (std::string at = parent; at != kRoot; at = nodes.at(at).parent) {
    if (at == id) return;
  }
  unlist(id);
  put(id, parent, index);
}

void ClientTree::remove(const std::string& id) {
  const std::string parent = nodes.at(id).parent;
  for (const std::string& each : subtree(id)) drop(each);
  numberIn(childrenOf(parent));
  edited = true;
}

void ClientTree::removeAll() {
  nodes.clear();
  children.clear();
  edited = true;
}

void ClientTree::put(const std::string& id, const std::string& parent, std::size_t index) {
  nodes.at(id).parent = parent;
  std::vector<std::string>& siblings = children[parent];
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(std::min(index, siblings.size())), id);
  numberIn(siblings);
  edited = true;
}

void ClientTree::place(const std::string& id, Node node) {
  if (node.parent != kRoot && !nodes.contains(node.parent)) throw std::logic_error("no folder for " + id);
  if (nodes.contains(id)) unlist(id);
  const Node& placed = nodes[id] = std::move(node);
  const auto goesBefore = [&](const std::string& other) {
    const Node& sibling = nodes.at(other);
    if (placed.position != sibling.position) return placed.position < sibling.position;
    const int order = placed.name ? compareCaseInsensitive(placed.name.view(), sibling.name.view()) : 0;
    return order < 0 || (order == 0 && placed.folder);
  };
  std::vector<std::string>& siblings = children[placed.parent];
  siblings.insert(std::find_if(siblings.begin(), siblings.end(), goesBefore), id);
}

void ClientTree::drop(const std::string& id) {
  if (!nodes.contains(id)) return;
  unlist(id);
  nodes.erase(id);
  children.erase(id);
}

void ClientTree::dropAll(bool folders) {
  std::vector<std::string> all;
  for (const auto& [id, node] : nodes) {
    if (node.folder == folders && !isHidden(id)) all.push_back(id);
  }
  for (const std::string& each : all) drop(each);
}

void ClientTree::unlist(const std::string& id) {
  const auto siblings = children.find(nodes.at(id).parent);
  if (siblings != children.end()) std::erase(siblings->second, id);
}

void ClientTree::number() {
  for (const auto& [parent, siblings] : children) numberIn(siblings);
}

void ClientTree::numberIn(const std::vector<std::string>& siblings) {
  int number = 0;
  for (const std::string& each : siblings) {
    Node& node = nodes.at(each);
    if (!node.isSpecial()) node.position = number;
    ++number;
  }
}

bool ClientTree::isHidden(const std::string& id) const {
  for (auto at = nodes.find(id); at != nodes.end(); at = nodes.find(at->second.parent)) {
    if (at->second.hidden) return true;
  }
  return false;
}

std::vector<std::string> ClientTree::visibleFolders() const {
  std::vector<std::string> found{kRoot};
  for (const auto& [id, node] : nodes) {
    if (node.folder && !isHidden(id)) found.push_back(id);
  }
  return found;
}

std::vector<std::string> ClientTree::visibleNodes() const {
  std::vector<std::string> found;
  for (const auto& [id, node] : nodes) {
    if (!isHidden(id)) found.push_back(id);
  }
  return found;
}

const std::vector<std::string>& ClientTree::childrenOf(const std::string& id) const {
  static const std::vector<std::string> kNone;
  const auto found = children.find(id);
  return found == children.end() ? kNone : found->second;
}

std::vector<std::string> ClientTree::subtree(const std::string& id) const {
  std::vector<std::string> found{id};
  std::set<std::string> seen{id};
  for (std::size_t at = 0; at < found.size(); ++at) {
    const std::string folder = found[at];
    for (const std::string& child : childrenOf(folder)) {
      if (!seen.insert(child).second) throw std::logic_error(child + " is listed twice");
      if (nodes.at(child).parent != folder) throw std::logic_error(child + " is listed in two folders");
      found.push_back(child);
    }
  }
  return found;
}

std::string ClientTree::find(const std::string& name) const {
  for (const auto& [id, node] : nodes) {
    if (node.name == std::string_view(name)) return id;
  }
  return {};
}

std::vector<TreeNode> ClientTree::tree() const {
  const auto visibleChildren = [this](const std::string& folder) {
    std::vector<std::string> visible = childrenOf(folder);
    std::erase_if(visible, [this](const std::string& id) { return nodes.at(id).hidden; });
    return visible;
  };
  const auto nodeOf = [this](const std::string& id) -> TreeNode {
    const Node& node = nodes.at(id);
    return {.label = node.name.toString(),
            .folder = node.folder,
            .title = node.name,
            .url = node.folder ? String() : node.url,
            .tabGroup = node.tabGroup,
            .special = node.isSpecial()};
  };
  return treeBelow(std::string(kRoot), visibleChildren, nodeOf);
}

ClientTree::Node newNode(bool folder, const std::string& parent, const std::string& name,
                         const std::string& url) {
  return {.folder = folder, .name = String(name), .url = folder ? String() : String(url), .parent = parent};
}

}  // namespace corvane::kit
