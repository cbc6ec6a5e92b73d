#include "tests/loomer/merge/ClientSimulation.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace corvane::loomer::test {
namespace {

constexpr std::int32_t kUnknownPosition = -1000;

bool hasSpecialTitle(const String& title) { return title == "BookmarksBar" || title == "BookmarksMenu"; }

}  // namespace

void ClientSimulation::forgetUnreachable() {
  const std::vector<std::string> listed = subtree(kRoot);
  const std::set<std::string> reachable(listed.begin(), listed.end());
  std::erase_if(nodes, [&](const auto& each) { return !reachable.contains(each.first); });
  std::erase_if(children, [&](const auto& each) { return !reachable.contains(each.first); });
}

// The first folder of each such title that lies in the root.
void ClientSimulation::findSpecial() {
  for (auto& [uid, node] : nodes) node.position = 0;
  std::set<std::string> titles;
  for (const std::string& uid : childrenOf(kRoot)) {
    Node& node = nodes.at(uid);
    const bool isSpecial =
        node.folder && hasSpecialTitle(node.name) && titles.insert(node.name.toString()).second;
    if (isSpecial) node.position = LoomerPositionSpecial;
  }
}

std::vector<ClientRecord> ClientSimulation::read() {
  forgetUnreachable();
  findSpecial();
  number();
  std::vector<ClientRecord> records;
  for (const std::string& uid : visibleNodes()) {
    const Node& node = nodes.at(uid);
    records.push_back({.localId = String(uid),
                       .parentLocalId = node.parent == kRoot ? String() : String(node.parent),
                       .entity = node.folder ? Entity::folder : Entity::bookmark,
                       .position = node.position,
                       .content = {node.name, node.url, node.tabGroup, node.isSpecial()}});
  }
  return records;
}

void ClientSimulation::apply(const MergeResult& result, std::vector<BaseRecord>& base) {
  _placedHeldAside = false;
  _addedFolders.clear();
  _modifiedFolders.clear();
  _uids.clear();
  for (const BaseRecord& record : base) {
    if (record.localId && !record.notHeld) _uids[record.record] = record.localId.toString();
  }
  if (result.deleteAllFirst) {
    dropAll(true);
    dropAll(false);
  }
  for (const ClientChange& change : result.clientChanges) {
    if (change.entity == Entity::bookmark) placeHeldAside();
    std::string uid = change.localId.toString();
    if (change.type == LoomerChangeTypeAdd) {
      uid = newId();
      _uids[change.record] = uid;
    }
    if (change.type == LoomerChangeTypeDelete) {
      drop(uid);
    } else if (change.entity == Entity::folder) {
      if (_placedHeldAside) throw std::logic_error("a folder change after a bookmark change");
      (change.type == LoomerChangeTypeAdd ? _addedFolders : _modifiedFolders).push_back({uid, change});
    } else {
      update(uid, change);
    }
  }
  placeHeldAside();
  for (BaseRecord& record : base) {
    const auto uid = _uids.find(record.record);
    if (!record.localId && !record.notHeld && uid != _uids.end()) record.localId = String(uid->second);
  }
}

void ClientSimulation::placeHeldAside() {
  if (_placedHeldAside) return;
  _placedHeldAside = true;
  // Parents first; what never finds its parent is left out, which the histories then see.
  std::vector<HeldAside> pending = std::move(_addedFolders);
  for (bool placed = true; placed;) {
    placed = false;
    std::vector<HeldAside> later;
    for (const HeldAside& held : pending) {
      const std::string parent = uidOf(held.change.parent);
      if (parent == kRoot || nodes.contains(parent)) {
        update(held.uid, held.change);
        placed = true;
      } else {
        later.push_back(held);
      }
    }
    pending = std::move(later);
  }
  // In an order of the client's own.
  std::sort(_modifiedFolders.begin(), _modifiedFolders.end(),
            [](const HeldAside& a, const HeldAside& b) { return a.uid < b.uid; });
  for (const HeldAside& held : _modifiedFolders) update(held.uid, held.change);
}

std::string ClientSimulation::uidOf(RecordId record) const {
  return record == loomer::kRoot ? kRoot : _uids.at(record);
}

void ClientSimulation::update(const std::string& uid, const ClientChange& change) {
  if (change.position == kUnknownPosition) throw std::logic_error("placed by title: " + uid);
  if (change.type == LoomerChangeTypeModify && change.entity == Entity::bookmark && !nodes.contains(uid)) {
    throw std::logic_error("a bookmark that is not there is modified: " + uid);
  }
  Node node = nodes.contains(uid) ? nodes.at(uid) : Node();
  node.folder = change.entity == Entity::folder;
  node.name = change.content.name;
  if (!node.folder && change.content.url) node.url = change.content.url;
  node.tabGroup = change.content.tabGroup;
  node.parent = uidOf(change.parent);
  node.position = change.position;
  place(uid, std::move(node));
}

std::string ClientSimulation::print() const {
  std::vector<kit::TreeNode> inFront = tree();
  std::stable_sort(inFront.begin(), inFront.end(), [](const kit::TreeNode& a, const kit::TreeNode& b) {
    if (a.special != b.special) return a.special;
    return a.special && a.title.view() < b.title.view();
  });
  return kit::printTree(inFront);
}

}  // namespace corvane::loomer::test
