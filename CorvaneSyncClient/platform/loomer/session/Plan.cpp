#include "CorvaneSyncClient/platform/loomer/session/Plan.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/session/EarlierBase.h"

// The base to merge over is the stored one, with what the store does not know yet:
//
//  1. what sessions delivered that were killed before they could commit (the journal), as far as the client
//     shows that it has taken it; or, for a client that was put back to an earlier state, the base of the
//     newest state that it and the truth have in common;
//  2. what the client had lost, was deleted here, and was given to the client again by others, who knew
//     nothing of the deletion;
//  3. what others gave to a client whose ids are the records' own, and the truth knows by these ids.

namespace corvane::loomer {

namespace {

// Whether the client's record has a value that came with the delivery.
bool showsDelivery(const BaseRecord& before, const BaseRecord& after, const ClientRecord& now,
                   const std::vector<BaseRecord>& base) {
  const auto came = [&](auto Content::*value) {
    return before.content.*value != after.content.*value && now.content.*value == after.content.*value;
  };
  if (came(&Content::name) || came(&Content::url) || came(&Content::tabGroup)) return true;
  const BaseRecord* const folder = findRecord(base, after.parent);
  return before.parent != after.parent && now.parentLocalId == (folder ? folder->localId : String());
}

// Whether the client's records show that it has taken the delivery: they hold one of the additions or, where
// there was none, a value that came with it. An addition that is missing then counts as deleted by the user,
// so that nothing less will do.
bool showDelivery(const Journal& journal, const std::vector<BaseRecord>& base,
                  const std::vector<ClientRecord>& pushed) {
  std::unordered_map<String, const ClientRecord*> byLocalId;
  for (const ClientRecord& each : pushed) byLocalId.emplace(each.localId, &each);
  if (!journal.added.empty()) {
    return std::any_of(journal.added.begin(), journal.added.end(),
                       [&](const String& localId) { return byLocalId.contains(localId); });
  }
  const auto& held = journal.delivered.held;
  return std::any_of(held.begin(), held.end(), [&](const BaseRecord& after) {
    const auto found = after.notHeld ? byLocalId.end() : byLocalId.find(after.localId);
    const BaseRecord* const before = findRecord(base, after.record);
    return found != byLocalId.end() && before && showsDelivery(*before, after, *found->second, base);
  });
}

class Planning {
 public:
  Planning(const Opening& opening, Sides sides) : _opening(opening), _sides(std::move(sides)) {}

  Plan make() {
    takeSides();
    if (_plan.input.client) {
      if (_opening.journal) noteDenied(*_opening.journal);
      _sides.earlier ? takeEarlierBase() : takeJournal();
      matchLost();
      matchByIdentifier();
    }
    _plan.input.refresh = _plan.kind == SessionKind::refresh;
    _plan.input.replace = _plan.kind == SessionKind::replace;
    _plan.input.nextRecord = _opening.truth.nextRecord;
    _plan.input.revision = _opening.truth.revision + 1;
    _plan.result = merge(_plan.input);
    return std::move(_plan);
  }

 private:
  void takeSides() {
    _plan.kind = _opening.kind;
    _plan.taken = _sides.client.count;
    _plan.tookAllRecords = _sides.client.all;
    _plan.input.truth = std::move(_sides.truth.records);
    _plan.input.base = std::move(_sides.base.records);
    _plan.input.client = std::move(_sides.client.tree);
    _plan.truthRows = std::move(_sides.truth.contents);
    _plan.baseRows = std::move(_sides.base.contents);
    _plan.clientWentBack = _sides.earlier != nullptr;
  }

  void mergeOver(std::vector<BaseRecord> base) {
    if (!_plan.replacedBase) _plan.replacedBase = std::move(_plan.input.base);
    _plan.input.base = std::move(base);
  }

  void takeJournal() {
    if (!_opening.journal) return;
    const Journal& journal = *_opening.journal;
    if (_sides.tookPush == false && _sides.tookDenied) {
      takeDenied(journal.denied[*_sides.tookDenied]);
    } else if (!isDenied(journal)) {
      takeDelivered(journal);
    }
    if (_plan.knownPushId && !_opening.client.restorePending) _plan.kind = SessionKind::slow;
  }

  void takeDenied(const DeniedDelivery& delivery) {
    mergeOver(withDifference(delivery.after, _plan.input.base));
    _plan.knownPushId = delivery.pushId;
  }

  void takeDelivered(const Journal& journal) {
    mergeOver(withDifference(journal.known, _plan.input.base));
    const bool taken = _sides.tookPush.value_or(showDelivery(journal, _plan.input.base, *_plan.input.client));
    _plan.knownPushId = taken ? journal.pushId : journal.knownPushId;
    if (taken) _plan.input.base = withDifference(journal.delivered, _plan.input.base);
  }

  // What the client denies it may still be found to hold at the next session, if this one is killed, too.
  void noteDenied(const Journal& journal) {
    std::vector<DeniedDelivery> denied;
    if (_sides.tookPush == false) {
      const std::vector<BaseRecord>& stored = _plan.input.base;
      const auto after = withDifference(journal.delivered, withDifference(journal.known, stored));
      denied.push_back({journal.pushId, differenceOf(stored, after)});
    }
    for (std::size_t i = 0; i < journal.denied.size(); ++i) {
      if (_sides.tookDenied != i) denied.push_back(journal.denied[i]);
    }
    std::size_t records = 0;
    for (DeniedDelivery& each : denied) {
      records += each.after.held.size() + each.after.gone.size();
      if (records > kMostDeniedRecords || _plan.denied.size() == kMostDenied) return;
      _plan.denied.push_back(std::move(each));
    }
  }

  // Whether the client denies every delivery that the journal knows of: it was put back to a state before
  // them. What it lacks of them was not deleted.
  bool isDenied(const Journal& journal) const {
    return journal.knownPushId && _sides.tookPush == false && _sides.tookKnownPush == false;
  }

  void takeEarlierBase() {
    std::vector<HeldVersion> held = std::move(_sides.heldSince);
    if (_opening.journal) addDelivered(*_opening.journal, held);
    EarlierBase base = baseOfEarlierState(_plan.input.base, held, *_plan.input.client, *_sides.earlier);
    std::erase_if(base.forgotten, [this](const String& localId) { return isInTruth(localId); });
    _plan.lost = std::move(base.lost);
    _plan.input.rewritten = std::move(base.outdated);
    _plan.input.forgotten = std::move(base.forgotten);
    _plan.input.unmoved = std::move(base.unmoved);
    mergeOver(std::move(base.records));
  }

  // What killed sessions delivered the client may have held too. What they deleted there it no longer held,
  // if it took that; and what they knew of it goes with a delivery that it denies.
  void addDelivered(const Journal& journal, std::vector<HeldVersion>& held) const {
    const std::int64_t session = _opening.client.sessions + 1;
    std::unordered_set<RecordId> gone;
    const auto add = [&](const BaseDifference& difference, bool isTaken) {
      for (const BaseRecord& each : difference.held) {
        if (each.notHeld) continue;
        held.push_back({each, session, std::nullopt});
        gone.erase(each.record);
      }
      if (isTaken) gone.insert(difference.gone.begin(), difference.gone.end());
    };
    if (_sides.tookDenied) add(journal.denied[*_sides.tookDenied].after, true);
    if (!isDenied(journal)) add(journal.known, true);
    add(journal.delivered, _sides.tookPush == true);
    for (HeldVersion& each : held) {
      if (!each.until && gone.contains(each.record.record)) each.until = session;
    }
    std::stable_sort(held.begin(), held.end(), [](const HeldVersion& a, const HeldVersion& b) {
      return a.record.record < b.record.record;
    });
  }

  // Whether the truth has a record of that identifier.
  bool isInTruth(const String& identifier) const {
    const auto found = _sides.recordsByIdentifier.find(identifier);
    return found != _sides.recordsByIdentifier.end() && isLive(_plan.input.truth, found->second);
  }

  void matchLost() {
    if (_sides.lost.empty()) return;
    EarlierState earlier;
    for (const HeldVersion& each : _sides.lost) earlier.changed.insert(each.record.localId);
    const EarlierBase again = baseOfEarlierState(_plan.input.base, _sides.lost, *_plan.input.client, earlier);
    BaseDifference unknown;
    for (const BaseRecord& each : again.records) {
      if (!each.notHeld) _plan.matched.push_back(each.record);
      const BaseRecord* const known = findRecord(_plan.input.base, each.record);
      if (!known || known->notHeld) unknown.held.push_back(each);
    }
    if (!_plan.matched.empty()) mergeOver(withDifference(unknown, _plan.input.base));
  }

  // What is matched was not held before, but is known by that id.
  void matchByIdentifier() {
    if (_sides.recordsByIdentifier.empty()) return;
    std::unordered_set<String> known;
    for (const BaseRecord& each : _plan.input.base) known.insert(each.localId);
    BaseDifference matched;
    for (const ClientRecord& each : *_plan.input.client) {
      const auto found = _sides.recordsByIdentifier.find(each.localId);
      if (_plan.input.forgotten.contains(each.localId)) continue;
      if (found == _sides.recordsByIdentifier.end() || known.contains(each.localId)) continue;
      const BaseRecord* const before = findRecord(_plan.input.base, found->second);
      if (before && !before->notHeld) continue;
      BaseRecord& record = matched.held.emplace_back(before ? *before : BaseRecord());
      record.localId = each.localId;
      record.record = found->second;
      record.entity = each.entity;
      record.notHeld = true;
    }
    if (matched.held.empty()) return;
    sortByRecord(matched.held);
    mergeOver(withDifference(matched, _plan.input.base));
  }

  const Opening& _opening;
  Sides _sides;
  Plan _plan;
};

}  // namespace

Plan quietPlan(const Opening& opening, std::optional<std::size_t> seen) {
  Plan plan;
  plan.kind = opening.kind;
  plan.taken = seen.value_or(0);
  plan.tookAllRecords = seen.has_value();
  plan.input.revision = 0;
  return plan;
}

Plan makePlan(const Opening& opening, Sides sides) { return Planning(opening, std::move(sides)).make(); }

}  // namespace corvane::loomer
