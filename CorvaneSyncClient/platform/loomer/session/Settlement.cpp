#include "CorvaneSyncClient/platform/loomer/session/Settlement.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

namespace corvane::loomer {

namespace {

/// What the client held before the session of records of which it did not take a change.
class HeldBefore {
 public:
  explicit HeldBefore(const Plan& plan) {
    for (const std::vector<BaseRecord>* const base : {&plan.result.base, &plan.input.base}) {
      for (const BaseRecord& each : *base) {
        if (each.localId) _records.emplace(each.localId, each.record);
      }
    }
    for (const BaseRecord& each : plan.input.base) _base.emplace(each.record, &each);
    if (!plan.input.client) return;
    for (const ClientRecord& each : *plan.input.client) _pushed.emplace(each.localId, &each);
  }

  BaseRecord recordOf(const ClientChange& change) const {
    BaseRecord held;
    held.localId = change.localId;
    held.record = change.record;
    held.entity = change.entity;
    if (const auto pushed = _pushed.find(change.localId); pushed != _pushed.end()) {
      const auto parent = _records.find(pushed->second->parentLocalId);
      held.parent = parent == _records.end() ? kRoot : parent->second;
      held.position = pushed->second->position;
      held.content = pushed->second->content;
    } else if (const auto base = _base.find(change.record); base != _base.end()) {
      held.parent = base->second->parent;
      held.position = base->second->position;
      held.content = base->second->content;
    }
    return held;
  }

 private:
  std::unordered_map<String, RecordId> _records;            // by local id
  std::unordered_map<String, const ClientRecord*> _pushed;  // by local id
  std::unordered_map<RecordId, const BaseRecord*> _base;
};

/// The revision of each record that the client refused.
std::unordered_map<RecordId, std::int64_t> refusedRevisions(const Plan& plan, const Delivery& delivery) {
  std::unordered_map<RecordId, std::int64_t> revisions;
  for (const TruthRecord& each : plan.input.truth) {
    if (delivery.refused.contains(each.id)) revisions.insert_or_assign(each.id, each.revision);
  }
  for (const TruthChange& each : plan.result.truthChanges) {
    if (delivery.refused.contains(each.after.id)) {
      revisions.insert_or_assign(each.after.id, each.after.revision);
    }
  }
  return revisions;
}

BaseRecord& mutableRecord(std::vector<BaseRecord>& base, RecordId record) {
  return base[static_cast<std::size_t>(findRecord(base, record) - base.data())];
}

/// Corrects the plan's base, in which the client has taken everything.
void takeBackWhatWasNotTaken(std::vector<BaseRecord>& base, const Plan& plan, const Delivery& delivery) {
  const HeldBefore before(plan);
  const auto revisions = refusedRevisions(plan, delivery);
  std::vector<BaseRecord> stillHeld;
  for (const ClientChange& change : plan.result.clientChanges) {
    const auto refused = revisions.find(change.record);
    if (refused == revisions.end() && !delivery.withheld.contains(change.record)) continue;
    const std::int64_t revision = refused == revisions.end() ? 0 : refused->second;
    if (change.type == LoomerChangeTypeAdd) {
      BaseRecord& record = mutableRecord(base, change.record);
      record.notHeld = true;
      record.position = 0;
      record.refusedRevision = revision;
      continue;
    }
    BaseRecord held = before.recordOf(change);
    held.refusedRevision = revision;
    if (change.type == LoomerChangeTypeModify) {
      mutableRecord(base, change.record) = std::move(held);
    } else {
      stillHeld.push_back(std::move(held));
    }
  }
  for (BaseRecord& each : stillHeld) base.push_back(std::move(each));
  sortByRecord(base);
}

std::vector<BaseRecord> baseAfter(const Plan& plan, const Delivery& delivery) {
  std::vector<BaseRecord> base = plan.result.base;
  for (const auto& [record, localId] : delivery.localIds) mutableRecord(base, record).localId = localId;
  if (!delivery.refused.empty() || !delivery.withheld.empty()) {
    takeBackWhatWasNotTaken(base, plan, delivery);
  }
  return base;
}

/// Who refuses something is asked once more: what was noted of that goes with a session that is killed.
BaseRecord offeredAgain(const BaseRecord& settled) {
  BaseRecord record = settled;
  record.refusedRevision = 0;
  return record;
}

/// The base of a client that has taken the delivery and has changed nothing itself: for what it did change is
/// rolled back with a session that is killed, and must count as changed again at the next.
///
/// That is the truth as it was before the session, as far as the client has taken it; all else is as in the
/// base before.
class UnchangedClient {
 public:
  UnchangedClient(const Plan& plan, const std::vector<BaseRecord>& settled) : _plan(plan), _settled(settled) {
    for (const TruthChange& each : plan.result.truthChanges) _changed.emplace(each.after.id, &each.after);
  }

  std::vector<BaseRecord> base() {
    takeTruth();
    orderSiblings();
    takeTheRest();
    sortByRecord(_base);
    return std::move(_base);
  }

 private:
  void takeTruth() {
    std::vector<const TruthRecord*> live;
    for (const TruthRecord& each : _plan.input.truth) {
      if (!each.deleted) live.push_back(&each);
    }
    std::sort(live.begin(), live.end(), [](const TruthRecord* a, const TruthRecord* b) {
      return a->parent != b->parent ? a->parent < b->parent
             : a->place != b->place ? a->place < b->place
                                    : a->id < b->id;
    });
    for (const TruthRecord* const each : live) {
      const BaseRecord* const settled = findRecord(_settled, each->id);
      if (!settled || !isTaken(*settled, *each)) continue;
      BaseRecord& record = _base.emplace_back(offeredAgain(*settled));
      record.parent = each->parent;
      record.content = each->content;
      _taken.insert(record.record);
    }
  }

  /// Whether the client holds what the truth says after the session.
  bool isTaken(const BaseRecord& settled, const TruthRecord& before) const {
    const auto changed = _changed.find(settled.record);
    const TruthRecord& merged = changed == _changed.end() ? before : *changed->second;
    return !settled.notHeld && settled.parent == merged.parent && settled.content == merged.content;
  }

  /// The client's own numbers stay where they say the same order as the truth did.
  void orderSiblings() {
    for (auto first = _base.begin(); first != _base.end();) {
      const auto end = std::find_if(first, _base.end(),
                                    [&](const BaseRecord& each) { return each.parent != first->parent; });
      if (!std::is_sorted(first, end, precedesAmongSiblings<BaseRecord>)) {
        std::int32_t position = 0;
        for (auto each = first; each != end; ++each) each->position = position++;
      }
      first = end;
    }
  }

  /// What the client did not take, what it has deleted, and what was deleted in the truth and lives again
  /// because the client has changed it.
  void takeTheRest() {
    for (const BaseRecord& before : _plan.input.base) {
      if (_taken.contains(before.record)) continue;
      const bool isKept = findRecord(_settled, before.record) || isLive(before.record);
      if (isKept) _base.push_back(before);
      _taken.insert(before.record);
    }
    for (const BaseRecord& settled : _settled) {
      if (!_taken.contains(settled.record) && isLive(settled.record)) _base.push_back(offeredAgain(settled));
    }
  }

  /// In the truth, before the session.
  bool isLive(RecordId record) const {
    const auto& truth = _plan.input.truth;
    const auto found = std::lower_bound(truth.begin(), truth.end(), record,
                                        [](const TruthRecord& each, RecordId id) { return each.id < id; });
    return found != truth.end() && found->id == record && !found->deleted;
  }

  const Plan& _plan;
  const std::vector<BaseRecord>& _settled;
  std::unordered_map<RecordId, const TruthRecord*> _changed;  // as they are after the session
  std::unordered_set<RecordId> _taken;
  std::vector<BaseRecord> _base;
};

/// The client's ids of what it has added.
std::vector<String> addedIds(const Plan& plan, const Delivery& delivery) {
  std::vector<String> added;
  for (const ClientChange& change : plan.result.clientChanges) {
    const auto localId = delivery.localIds.find(change.record);
    if (localId != delivery.localIds.end()) added.push_back(localId->second);
  }
  return added;
}

Journal journalOf(const Opening& opening, const Plan& plan, const Delivery& delivery,
                  const std::vector<BaseRecord>& settled) {
  Journal journal;
  journal.pushId = delivery.pushId;
  journal.registered = opening.client.registered;
  journal.sessions = opening.client.sessions;
  journal.syncedRevision = opening.client.syncedRevision;
  if (plan.replacedBase) journal.known = differenceOf(*plan.replacedBase, plan.input.base);
  // What is known of a client that was put back holds only if it has taken this.
  journal.knownPushId = plan.clientWentBack ? delivery.pushId : plan.knownPushId;
  journal.delivered = differenceOf(plan.input.base, UnchangedClient(plan, settled).base());
  journal.added = addedIds(plan, delivery);
  return journal;
}

std::int64_t revisionAfter(const Opening& opening, const Plan& plan) {
  return plan.result.truthChanges.empty() ? opening.truth.revision : plan.input.revision;
}

ClientState clientAfter(const Opening& opening, const Plan& plan, const Delivery& delivery, Date now) {
  ClientState client = opening.client;
  client.resetPending = client.restorePending = false;
  const std::int64_t revision = revisionAfter(opening, plan);
  // For a client from which something was withheld the truth is ahead, so that its next session offers it.
  const bool isUpToDate = delivery.withheld.empty();
  client.syncedRevision = isUpToDate ? revision : std::max(opening.truth.forgottenRevision, revision - 1);
  ++client.sessions;
  client.sessionsWithoutRecords = plan.tookAllRecords ? 0 : client.sessionsWithoutRecords + 1;
  client.delivered = plan.delivers();
  client.lastSession = now;
  return client;
}

std::optional<SessionEntry> logEntry(const Opening& opening, const Plan& plan, const Delivery& delivery,
                                     Date now) {
  const MergeResult& result = plan.result;
  if (result.truthChanges.empty() && !plan.delivers() && result.losses.empty()) return std::nullopt;
  SessionEntry entry;
  entry.client = opening.client.identifier;
  entry.began = opening.began;
  entry.ended = now;
  entry.mode = static_cast<int>(plan.kind);
  entry.revision = revisionAfter(opening, plan);
  entry.taken = plan.taken;
  entry.changed = result.truthChanges.size();
  entry.delivered = result.clientChanges.size();
  entry.refused = delivery.refused.size() + delivery.withheld.size();
  return entry;
}

}  // namespace

Settlement settle(const Opening& opening, const Plan& plan, const Delivery& delivery, Date now) {
  Settlement settlement;
  settlement.base = baseAfter(plan, delivery);
  settlement.client = clientAfter(opening, plan, delivery, now);
  settlement.logEntry = logEntry(opening, plan, delivery, now);
  // A client that is given everything anew is given it once more after a session that was killed.
  if (plan.delivers() && !plan.result.deleteAllFirst) {
    settlement.journal = journalOf(opening, plan, delivery, settlement.base);
  }
  return settlement;
}

}  // namespace corvane::loomer
