#include "tests/loomer/merge/ClientSimulation.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "tests/loomer/merge/RecordTrees.h"

namespace corvane::loomer::test {
namespace {

constexpr std::int32_t kUnknownPosition = -1000;

bool hasSpecialTitle(const String& title) { return title == "BookmarksBar" || title == "BookmarksMenu"; }

}  // namespace

ClientSimulation::ClientSimulation(std::string name) : _name(std::move(name)) {
  _entries[kRootUid].entity = Entity::folder;
}

std::string ClientSimulation::newUid() { return _name + "-" + std::to_string(++_made); }

std::string ClientSimulation::add(const std::string& parent, std::size_t index, Entity entity,
                                  const std::string& title, const std::string& url, bool hidden) {
  const std::string uid = newUid();
  Entry& entry = _entries[uid];
  entry.parent = parent;
  entry.entity = entity;
  entry.title = String(title);
  if (entity == Entity::bookmark) entry.url = String(url);
  entry.hidden = hidden;
  std::vector<std::string>& siblings = _entries.at(parent).children;
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(std::min(index, siblings.size())), uid);
  return uid;
}

void ClientSimulation::move(const std::string& uid, const std::string& parent, std::size_t index) {
  for (std::string at = parent; at != kRootUid; at = _entries.at(at).parent) {
    if (at == uid) return;
  }
  removeChild(_entries.at(uid).parent, uid);
  _entries.at(uid).parent = parent;
  std::vector<std::string>& siblings = _entries.at(parent).children;
  siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(std::min(index, siblings.size())), uid);
}

void ClientSimulation::erase(const std::string& uid) {
  removeChild(_entries.at(uid).parent, uid);
  forget(uid);
}

void ClientSimulation::forget(const std::string& uid) {
  for (const std::string& child : _entries.at(uid).children) forget(child);
  _entries.erase(uid);
}

void ClientSimulation::readFolder(const std::string& uid) {
  const bool hidden = _entries.at(uid).hidden;
  std::int32_t number = 0;
  std::set<std::string> specialTitles;
  for (const std::string& child : _entries.at(uid).children) {
    Entry& entry = _entries.at(child);
    if (entry.parent != uid) throw std::logic_error("entry " + child + " is listed in two folders");
    entry.hidden = entry.hidden || hidden;
    entry.position = number++;
    entry.special = uid == kRootUid && entry.entity == Entity::folder && hasSpecialTitle(entry.title) &&
                    specialTitles.insert(entry.title.toString()).second;
    if (entry.special) entry.position = kSpecialPosition;
    if (entry.entity == Entity::folder) readFolder(child);
  }
}

std::vector<ClientRecord> ClientSimulation::read() {
  std::map<std::string, Entry> reachable;
  std::vector<std::string> open{kRootUid};
  while (!open.empty()) {
    const std::string uid = open.back();
    open.pop_back();
    const Entry& entry = _entries.at(uid);
    open.insert(open.end(), entry.children.begin(), entry.children.end());
    if (!reachable.emplace(uid, entry).second) throw std::logic_error("entry " + uid + " is listed twice");
  }
  _entries = std::move(reachable);
  readFolder(kRootUid);
  std::vector<ClientRecord> records;
  for (const auto& [uid, entry] : _entries) {
    if (uid == kRootUid || entry.hidden) continue;
    records.push_back({.localId = String(uid),
                       .parentLocalId = entry.parent == kRootUid ? String() : String(entry.parent),
                       .entity = entry.entity,
                       .position = entry.position,
                       .content = {entry.title, entry.url, entry.tabGroup, entry.special}});
  }
  return records;
}

void ClientSimulation::deleteEntry(const std::string& uid) {
  const auto found = _entries.find(uid);
  if (found == _entries.end()) return;
  removeChild(found->second.parent, uid);
  _entries.erase(found);
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
    for (const Entity entity : {Entity::folder, Entity::bookmark}) {
      std::vector<std::string> all;
      for (const auto& [uid, entry] : _entries) {
        if (uid != kRootUid && !entry.hidden && entry.entity == entity) all.push_back(uid);
      }
      for (const std::string& uid : all) deleteEntry(uid);
    }
  }
  for (const ClientChange& change : result.clientChanges) {
    if (change.entity == Entity::bookmark) placeHeldAside();
    std::string uid = change.localId.toString();
    if (change.type == LoomerChangeTypeAdd) {
      uid = newUid();
      _uids[change.record] = uid;
    }
    if (change.type == LoomerChangeTypeDelete) {
      deleteEntry(uid);
    } else if (change.entity == Entity::folder) {
      if (_placedHeldAside) throw std::logic_error("a folder change after a bookmark change");
      (change.type == LoomerChangeTypeAdd ? _addedFolders : _modifiedFolders).push_back({uid, change});
    } else {
      if (change.type == LoomerChangeTypeAdd) _entries[uid].position = kUnknownPosition;
      if (_entries.at(uid).parent != uidOf(change.parent)) removeChild(_entries.at(uid).parent, uid);
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
      if (_entries.contains(uidOf(held.change.parent))) {
        applyHeldAside(held);
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
  for (const HeldAside& held : _modifiedFolders) applyHeldAside(held);
}

void ClientSimulation::applyHeldAside(const HeldAside& held) {
  const std::string parent = uidOf(held.change.parent);
  if (!_entries.contains(parent)) throw std::logic_error("broken invariant: no parent for " + held.uid);
  const auto found = _entries.find(held.uid);
  if (found == _entries.end()) {
    Entry& entry = _entries[held.uid];
    entry.entity = Entity::folder;
    entry.position = kUnknownPosition;
  } else if (found->second.parent != parent) {
    removeChild(found->second.parent, held.uid);
  }
  update(held.uid, held.change);
}

std::string ClientSimulation::uidOf(RecordId record) const {
  return record == kRoot ? kRootUid : _uids.at(record);
}

void ClientSimulation::update(const std::string& uid, const ClientChange& change) {
  Entry& entry = _entries.at(uid);
  entry.title = change.content.name;
  if (change.entity == Entity::bookmark && change.content.url) entry.url = change.content.url;
  entry.tabGroup = change.content.tabGroup;
  entry.parent = uidOf(change.parent);
  entry.position = change.position;
  if (!_entries.contains(entry.parent)) return;
  removeChild(entry.parent, uid);
  addChild(entry.parent, uid);
}

void ClientSimulation::addChild(const std::string& parent, const std::string& child) {
  const Entry& candidate = _entries.at(child);
  if (candidate.position == kUnknownPosition) throw std::logic_error("placed by title: " + child);
  std::vector<std::string>& children = _entries.at(parent).children;
  const auto before = std::find_if(children.begin(), children.end(), [&](const std::string& uid) {
    const auto sibling = _entries.find(uid);
    if (sibling == _entries.end()) return true;
    if (candidate.position != sibling->second.position) {
      return candidate.position < sibling->second.position;
    }
    const int byTitle =
        candidate.title ? compareCaseInsensitive(candidate.title.view(), sibling->second.title.view()) : 0;
    return byTitle < 0 || (byTitle == 0 && candidate.entity == Entity::folder);
  });
  children.insert(before, child);
}

void ClientSimulation::removeChild(const std::string& parent, const std::string& child) {
  const auto found = _entries.find(parent);
  if (found != _entries.end()) std::erase(found->second.children, child);
}

std::vector<std::string> ClientSimulation::uids(Entity entity) const {
  std::vector<std::string> result;
  for (const auto& [uid, entry] : _entries) {
    if (entry.entity == entity && !entry.hidden) result.push_back(uid);
  }
  return result;
}

std::string ClientSimulation::print() const {
  const auto childrenOf = [this](const std::string& folder) {
    std::vector<std::string> children = _entries.at(folder).children;
    std::erase_if(children, [this](const std::string& uid) { return _entries.at(uid).hidden; });
    // Where special folders stand in the file is the client's own affair.
    std::stable_sort(children.begin(), children.end(), [this](const auto& a, const auto& b) {
      const Entry& left = _entries.at(a);
      const Entry& right = _entries.at(b);
      if (left.special != right.special) return left.special;
      return left.special && left.title.view() < right.title.view();
    });
    return children;
  };
  const auto node = [this](const std::string& uid) {
    const Entry& entry = _entries.at(uid);
    return nodeOf(entry.title.toString(), entry.entity,
                  {entry.title, entry.url, entry.tabGroup, entry.special});
  };
  return kit::printTree(kit::treeBelow(std::string(kRootUid), childrenOf, node));
}

}  // namespace corvane::loomer::test
