#include "CorvaneSyncClient/platform/loomer/session/Settlement.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace corvane::loomer {

namespace {

BaseRecord& mutableRecord(std::vector<BaseRecord>& base, RecordId record) {
  return base[static_cast<std::size_t>(findRecord(base, record) - base.data())];
}

// The revision, after the session, of each record that the client refused.
std::unordered_map<RecordId, std::int64_t> refusedRevisions(const Plan& plan, const Delivery& delivery) {
  std::unordered_map<RecordId, std::int64_t> revisions;
  for (const TruthRecord& each : plan.input.truth) {
    if (delivery.refused.contains(each.id)) revisions.emplace(each.id, each.revision);
  }
  for (const TruthChange& each : plan.result.truthChanges) {
    if (delivery.refused.contains(each.after.id)) revisions[each.after.id] = each.after.revision;
  }
  return revisions;
}

// Corrects the plan's base, in which the client has taken everything. Of a record of which it did not take
// the change or deletion, it holds what it gave to the session.
void takeBackWhatWasNotTaken(std::vector<BaseRecord>& base, const Plan& plan, const Delivery& delivery) {
  const auto revisions = refusedRevisions(plan, delivery);
  std::unordered_map<String, RecordId> records;
  for (const std::vector<BaseRecord>* const each : {&std::as_const(base), &plan.input.base}) {
    for (const BaseRecord& record : *each) {
      if (record.localId) records.emplace(record.localId, record.record);
    }
  }
  std::unordered_map<String, const ClientRecord*> given;
  if (plan.input.client) {
    for (const ClientRecord& each : *plan.input.client) given.emplace(each.localId, &each);
  }
  std::vector<BaseRecord> stillHeld;
  for (const ClientChange& change : plan.result.clientChanges) {
    const auto refused = revisions.find(change.record);
    if (refused == revisions.end() && !delivery.withheld.contains(change.record)) continue;
    const bool isDeletion = change.type == LoomerChangeTypeDelete;
    BaseRecord& record = isDeletion ? stillHeld.emplace_back() : mutableRecord(base, change.record);
    record.refusedRevision = refused == revisions.end() ? 0 : refused->second;
    record.notHeld = change.type == LoomerChangeTypeAdd;
    if (record.notHeld) {
      record.position = 0;
      continue;
    }
    const ClientRecord& held = *given.at(change.localId);
    const auto parent = records.find(held.parentLocalId);
    record.localId = change.localId;
    record.record = change.record;
    record.entity = change.entity;
    record.parent = parent == records.end() ? kRoot : parent->second;
    record.position = held.position;
    record.content = held.content;
  }
  for (BaseRecord& each : stillHeld) base.push_back(std::move(each));
  sortByRecord(base);
}

std::vector<BaseRecord> baseAfter(const Plan& plan, std::vector<BaseRecord> base, const Delivery& delivery) {
  if (!delivery.refused.empty() || !delivery.withheld.empty()) {
    takeBackWhatWasNotTaken(base, plan, delivery);
  }
  for (const auto& [record, localId] : delivery.localIds) mutableRecord(base, record).localId = localId;
  return base;
}

// Who refuses something is asked once more: what was noted of that goes with a session that is killed.
BaseRecord offeredAgain(const BaseRecord& settled) {
  BaseRecord record = settled;
  record.refusedRevision = 0;
  return record;
}

// The base of a client that has taken the delivery and has changed nothing itself: for what it did change is
// rolled back with a session that is killed, and must count as changed again at the next.
//
// That is the truth as it was before the session, as far as the client has taken it; all else is as in the
// base before.
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

  // Whether the client holds what the truth says after the session.
  bool isTaken(const BaseRecord& settled, const TruthRecord& before) const {
    const auto changed = _changed.find(settled.record);
    const TruthRecord& merged = changed == _changed.end() ? before : *changed->second;
    return !settled.notHeld && settled.parent == merged.parent && settled.content == merged.content;
  }

  // The client's own numbers stay where they say the same order as the truth did.
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

  // What the client did not take, what it has deleted, and what was deleted in the truth and lives again
  // because the client has changed it.
  void takeTheRest() {
    const auto wasLive = [this](RecordId record) { return isLive(_plan.input.truth, record); };
    for (const BaseRecord& before : _plan.input.base) {
      if (_taken.contains(before.record)) continue;
      const bool isKept = findRecord(_settled, before.record) || wasLive(before.record);
      if (isKept) _base.push_back(before);
      _taken.insert(before.record);
    }
    for (const BaseRecord& settled : _settled) {
      if (!_taken.contains(settled.record) && wasLive(settled.record)) _base.push_back(offeredAgain(settled));
    }
  }

  const Plan& _plan;
  const std::vector<BaseRecord>& _settled;
  std::unordered_map<RecordId, const TruthRecord*> _changed;  // as they are after the session
  std::unordered_set<RecordId> _taken;
  std::vector<BaseRecord> _base;
};

// The client's ids of what it has added.
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
  journal.denied = plan.denied;
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

Settlement settle(const Opening& opening, const Plan& plan, std::vector<BaseRecord> planned,
                  const Delivery& delivery, Date now) {
  Settlement settlement;
  settlement.base = baseAfter(plan, std::move(planned), delivery);
  settlement.client = clientAfter(opening, plan, delivery, now);
  settlement.logEntry = logEntry(opening, plan, delivery, now);
  // A client that is given everything anew is given it once more after a session that was killed.
  if (plan.delivers() && !plan.result.deleteAllFirst) {
    settlement.journal = journalOf(opening, plan, delivery, settlement.base);
  }
  return settlement;
}

}  // namespace corvane::loomer
