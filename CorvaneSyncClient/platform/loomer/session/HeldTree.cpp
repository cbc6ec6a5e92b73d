#include "CorvaneSyncClient/platform/loomer/session/HeldTree.h"

namespace corvane::loomer {

HeldTree::HeldTree(const MergeInput& input, const MergeResult& plan) {
  for (const BaseRecord& each : input.base) {
    if (each.localId) _records.insert_or_assign(each.localId, each.record);
    _base.emplace(each.record, &each);
  }
  for (const BaseRecord& each : plan.base) {
    if (each.localId) _records.insert_or_assign(each.localId, each.record);
  }
  for (const ClientChange& change : plan.clientChanges) {
    if (change.localId) _records.insert_or_assign(change.localId, change.record);
  }
  if (!input.client) return;
  for (const ClientRecord& each : *input.client) _pushed.emplace(each.localId, &each);
  hangUpFolders(*input.client);
}

/// What hangs on nothing or in a circle hangs under the root, as the merge takes it.
void HeldTree::hangUpFolders(const std::vector<ClientRecord>& pushed) {
  std::vector<const ClientRecord*> folders;
  for (const ClientRecord& each : pushed) {
    const RecordId record = recordOf(each.localId);
    if (each.entity != Entity::folder || record == kRoot) continue;
    if (_nodes.emplace(record, static_cast<Index>(folders.size() + 1)).second) folders.push_back(&each);
  }
  Parents parents{kNoNode};
  for (const ClientRecord* const folder : folders) {
    const Index parent = nodeOf(recordOf(folder->parentLocalId));
    parents.push_back(parent == kNoNode ? kRootNode : parent);
  }
  for (const Index node : nodesOnCircles(parents)) parents[node] = kRootNode;
  _folders = MovableForest(parents);
}

RecordId HeldTree::recordOf(const String& localId) const {
  const auto found = localId ? _records.find(localId) : _records.end();
  return found == _records.end() ? kRoot : found->second;
}

Index HeldTree::nodeOf(RecordId folder) const {
  const auto found = _nodes.find(folder);
  return found == _nodes.end() ? kNoNode : found->second;
}

BaseRecord HeldTree::before(const ClientChange& change) const {
  BaseRecord held;
  held.localId = change.localId;
  held.record = change.record;
  held.entity = change.entity;
  const auto pushed = _pushed.find(change.localId);
  if (pushed != _pushed.end()) {
    held.parent = recordOf(pushed->second->parentLocalId);
    held.position = pushed->second->position;
    held.content = pushed->second->content;
  } else if (const auto base = _base.find(change.record); base != _base.end()) {
    held.parent = base->second->parent;
    held.position = base->second->position;
    held.content = base->second->content;
  }
  return held;
}

void HeldTree::taken(const ClientChange& change) {
  if (change.entity != Entity::folder) return;
  const auto [known, isNew] = _nodes.try_emplace(change.record);
  if (isNew) known->second = _folders.add();
  _folders.hang(known->second, change.type == LoomerChangeTypeDelete ? kNoNode : nodeOf(change.parent));
}

bool HeldTree::wouldCloseCircle(RecordId folder, RecordId parent) {
  const Index node = nodeOf(folder);
  const Index above = nodeOf(parent);
  return node != kNoNode && above != kNoNode && _folders.isAtOrAbove(node, above);
}

}  // namespace corvane::loomer
