#include "CorvaneSyncClient/platform/loomer/session/Mingling.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/session/EarlierBase.h"
#include "CorvaneSyncClient/platform/loomer/session/GlobalIdentifiers.h"
#include "CorvaneSyncClient/platform/loomer/session/HandedDown.h"
#include "CorvaneSyncClient/platform/loomer/session/HandingDown.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

Mingling::Mingling(TruthStore& store, LoomerSessionDriverDataSource& dataSource, const SessionStart& start,
                   TakenRecords taken)
    : _store(store),
      _dataSource(dataSource),
      _records(store),
      _start(start),
      _kind(start.kind),
      _taken(taken.count),
      _storedTruth(_records.readAll()),
      _storedBase(BaseTable(store).read(start.client.id)) {
  _input.truth = std::move(_storedTruth.records);
  _input.client = std::move(taken.tree);
  takeBase();
  meetLost();
  meetByIdentifier();
  _input.refresh = _kind == SessionKind::refresh;
  _input.replace = _kind == SessionKind::replace;
  _input.nextRecord = _start.truth.nextRecord;
  _input.revision = _start.truth.revision + 1;
  _plan = merge(_input);
}

/// The store's base, or the newer one that sessions have left which never ended.
void Mingling::takeBase() {
  const EarlierState* const earlier = _input.client ? _dataSource.wentBackTo() : nullptr;
  if (earlier) return takeEarlierBase(*earlier);
  const std::optional<HandedDown>& note = _start.note;
  if (!note || !_input.client || wasUndone(*note)) {
    _input.base = std::move(_storedBase.records);
    return;
  }
  _baseIsNewer = true;
  _input.base = withDifference(note->known, _storedBase.records);
  const bool taken = wasTaken();
  _knownMark = taken ? note->mark : note->knownMark;
  if (taken) _input.base = withDifference(note->handed, _input.base);
  if (_start.client.restorePending) return;
  if (_knownMark) _kind = SessionKind::slow;
}

/// What sessions that never ended have handed down, the client may have held too.
void Mingling::takeEarlierBase(const EarlierState& earlier) {
  std::vector<HeldVersion> held = BaseTable(_store).heldSince(_start.client.id, earlier.session);
  if (_start.note) {
    for (const BaseDifference* const each : {&_start.note->known, &_start.note->handed}) {
      for (const BaseRecord& record : each->held) {
        if (!record.notHeld) held.push_back({record, _start.client.sessions + 1, std::nullopt});
      }
    }
    std::stable_sort(held.begin(), held.end(), [](const HeldVersion& a, const HeldVersion& b) {
      return a.record.record < b.record.record;
    });
  }
  EarlierBase base = baseOfEarlierState(_storedBase.records, held, *_input.client, earlier);
  _input.base = std::move(base.records);
  _lost = std::move(base.lost);
  _input.rewritten = std::move(base.moved);
  _baseIsNewer = true;
}

/// What was deleted here while the client had lost it, and was given to it again by others since, who knew
/// nothing of that, is met over what it was, so that the deletion stands.
void Mingling::meetLost() {
  if (!_input.client || !_dataSource.mayGoBack()) return;
  const std::vector<HeldVersion> held = BaseTable(_store).lost(_start.client.id);
  if (held.empty()) return;
  EarlierState earlier;
  for (const HeldVersion& each : held) earlier.changed.insert(each.record.localId);
  const EarlierBase again = baseOfEarlierState(_input.base, held, *_input.client, earlier);
  for (const BaseRecord& each : again.records) {
    if (!each.notHeld) _metAgain.push_back(each.record);
  }
  if (!_metAgain.empty()) addToBase(again.records);
}

/// Those that the client is not known to hold.
void Mingling::addToBase(const std::vector<BaseRecord>& records) {
  BaseDifference added;
  for (const BaseRecord& each : records) {
    const BaseRecord* const known = findRecord(_input.base, each.record);
    if (!known || known->notHeld) added.held.push_back(each);
  }
  std::vector<BaseRecord> all = withDifference(added, _input.base);
  if (!_baseIsNewer) _storedBase.records = std::move(_input.base);
  _baseIsNewer = true;
  _input.base = std::move(all);
}

/// Whether the client denies all that the note tells: it was put back to a state before. What it lacks of
/// that was not deleted.
bool Mingling::wasUndone(const HandedDown& note) {
  return note.knownMark && _dataSource.tookChanges(note.mark) == false &&
         _dataSource.tookChanges(note.knownMark) == false;
}

/// Whether the client holds what a session that never ended handed down to it.
bool Mingling::wasTaken() {
  const std::optional<bool> told = _dataSource.tookChanges(_start.note->mark);
  return told ? *told : showTaken(*_start.note, _input.base, *_input.client);
}

/// Enters what the client pushed under identifiers that only the truth knows into the base.
void Mingling::meetByIdentifier() {
  if (!_input.client || !_dataSource.identifiersAreGlobal()) return;
  auto met = baseMetByIdentifier(_records, _input.base, *_input.client);
  if (!met) return;
  if (!_baseIsNewer) _storedBase.records = std::move(_input.base);
  _baseIsNewer = true;
  _input.base = std::move(*met);
}

const std::vector<BaseRecord>& Mingling::baseInStore() const {
  return _baseIsNewer ? _storedBase.records : _input.base;
}

void Mingling::carryOut(const RecordSchema& schema) {
  ContentRows contents(_store.database(), _input.truth, _storedTruth.contents, baseInStore(),
                       _storedBase.contents);
  writeTruth(contents);
  handDown(schema);
  writeBase(contents);
}

void Mingling::writeTruth(ContentRows& contents) {
  _records.apply(_plan.truthChanges, _input.revision, contents);
  if (_plan.truthChanges.empty() && !handsDown() && _plan.losses.empty()) return;
  SessionEntry entry;
  entry.client = _start.client.identifier;
  entry.began = _start.began;
  entry.mode = static_cast<int>(_kind);
  entry.revision = revision();
  entry.taken = _taken;
  entry.changed = _plan.truthChanges.size();
  entry.handedDown = _plan.clientChanges.size();
  _entry = SessionLog(_store).enter(entry, _plan.truthChanges, _plan.losses, contents);
}

void Mingling::handDown(const RecordSchema& schema) {
  if (!handsDown()) return;
  HandingDown handingDown(_dataSource, schema, _records, _input, _plan);
  handingDown.run();
  _refused = handingDown.refused();
}

void Mingling::writeBase(ContentRows& contents) {
  const std::int64_t client = _start.client.id;
  BaseTable base(_store);
  base.replace(client, _start.client.sessions + 1, _dataSource.mayGoBack(), baseInStore(), _plan.base,
               contents);
  for (const RecordId record : _metAgain) base.setLost(client, record, false);
  for (const RecordId record : _lost) {
    const bool isGone = !findRecord(_plan.base, record);  // what is not gone is given to the client once more
    if (isGone) base.setLost(client, record, true);
  }
  if (!_dataSource.identifiersAreGlobal()) return;
  adoptIdentifiers(_records, baseInStore(), _plan.base);
}

/// A client that is given everything anew is given it once more after a session that was killed.
std::optional<HandedDown> Mingling::noteForNextSession(String mark) {
  if (_plan.deleteAllFirst) return std::nullopt;
  HandedDown note;
  note.mark = std::move(mark);
  note.registered = _start.client.registered;
  note.sessions = _start.client.sessions;
  note.syncedRevision = _start.client.syncedRevision;
  if (_baseIsNewer) note.known = differenceOf(_storedBase.records, _input.base);
  // What is known of a client that was put back holds only if it has taken this.
  note.knownMark = _dataSource.wentBackTo() ? note.mark : _knownMark;
  note.handed = handedDifference(_input, _plan);
  note.added = addedIds(_plan);
  return note;
}

}  // namespace corvane::loomer
