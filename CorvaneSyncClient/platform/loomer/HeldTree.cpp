#include "CorvaneSyncClient/platform/loomer/HeldTree.h"

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
  for (const ClientRecord& each : *input.client) {
    const RecordId record = recordOf(each.localId);
    if (record != kRoot) _parents.insert_or_assign(record, recordOf(each.parentLocalId));
  }
}

RecordId HeldTree::recordOf(const String& localId) const {
  const auto found = localId ? _records.find(localId) : _records.end();
  return found == _records.end() ? kRoot : found->second;
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
  if (change.type == LoomerChangeTypeDelete) {
    _parents.erase(change.record);
  } else {
    _parents.insert_or_assign(change.record, change.parent);
  }
}

bool HeldTree::wouldCloseCircle(RecordId record, RecordId parent) const {
  std::size_t steps = 0;  // bounded, should the client's own tree hold a circle
  for (RecordId at = parent; at != kRoot && steps <= _parents.size(); ++steps) {
    if (at == record) return true;
    const auto next = _parents.find(at);
    if (next == _parents.end()) return false;
    at = next->second;
  }
  return steps > _parents.size();
}

}  // namespace corvane::loomer
