#include "CorvaneSyncClient/platform/loomer/session/HandingDown.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

HandingDown::HandingDown(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema,
                         RecordTable& records, const MergeInput& input, MergeResult& plan)
    : _dataSource(dataSource), _schema(schema), _input(input), _plan(plan) {
  for (std::size_t i = 0; i < plan.base.size(); ++i) {
    const BaseRecord& each = plan.base[i];
    _basePlaces.emplace(each.record, i);
    if (!each.localId || each.notHeld) continue;
    _localIds.emplace(each.record, each.localId);
    _takenIds.insert(each.localId);
  }
  for (const ClientChange& change : plan.clientChanges) {
    if (change.type == LoomerChangeTypeAdd)
      _pending.emplace(change.record, records.globalIdentifier(change.record));
  }
}

void HandingDown::run() {
  _timeout = _dataSource.sessionPullChangesTimeout();
  _began = Platform::current().clock.now().seconds;
  if (_plan.deleteAllFirst) deleteAll();
  for (const ClientChange& change : _plan.clientChanges) {
    checkTime();
    handDown(change);
  }
  for (BaseRecord& each : _keptAgainstDeletion) _plan.base.push_back(std::move(each));
}

void HandingDown::deleteAll() {
  for (const EntitySchema& entity : _schema.entities) {
    String error;
    if (_dataSource.deleteAllRecordsForEntityName(entity.name, error) && !error) continue;
    throw SessionCancelled{
        format("The client could not delete all records of %@ to be given the agreed ones: %@. Nothing was "
               "changed; remove the cause and sync again.",
               entity.name, error ? error : String("it gave no reason"))};
  }
}

void HandingDown::handDown(const ClientChange& change) {
  if (!canBeHeld(change)) {
    ++_refused;
    return leaveOut(change);
  }
  if (isIdentifierTaken(change)) return refuse(change);
  String localId;
  switch (apply(change, localId)) {
    case LoomerChangeAccepted:
      return accept(change, localId);
    case LoomerChangeRefused:
    case LoomerChangeIgnored:
      return refuse(change);
    default:
      cancel(change, "it answered with an error");
  }
}

bool HandingDown::canBeHeld(const ClientChange& change) {
  if (change.type == LoomerChangeTypeDelete) return true;
  const bool parentHeld =
      change.parent == kRoot || _localIds.contains(change.parent) || _pending.contains(change.parent);
  if (!parentHeld) return false;
  const bool folderMoves = _held && change.type == LoomerChangeTypeModify && change.entity == Entity::folder;
  return !folderMoves || !_held->wouldCloseCircle(change.record, change.parent);
}

/// Another record bears the identifier, as after somebody made a folder of a bookmark.
bool HandingDown::isIdentifierTaken(const ClientChange& change) const {
  return change.type == LoomerChangeTypeAdd && _dataSource.identifiersAreGlobal() &&
         _takenIds.contains(_pending.at(change.record));
}

int HandingDown::apply(const ClientChange& change, String& localId) {
  const EntitySchema& schema = _schema.of(change.entity);
  std::optional<Dictionary> record;
  if (change.type != LoomerChangeTypeDelete) {
    record = recordDictionary(schema, change.content, change.position, parentIdentifier(change.parent));
  }
  const bool addition = change.type == LoomerChangeTypeAdd;
  const String identifier = addition ? _pending.at(change.record) : change.localId;
  String remapped, error;
  const int answer = _dataSource.applyChange(LoomerChange(change.type, identifier, record), schema.name,
                                             remapped, record ? &*record : nullptr, error);
  if (error) cancel(change, error.toString());
  if (addition) localId = remapped ? remapped : identifier;
  return answer;
}

String HandingDown::parentIdentifier(RecordId parent) const {
  if (parent == kRoot) return String();
  const auto held = _localIds.find(parent);
  return held != _localIds.end() ? held->second : _pending.at(parent);
}

void HandingDown::accept(const ClientChange& change, const String& localId) {
  if (_held) _held->taken(change);
  if (change.type != LoomerChangeTypeAdd) return;
  if (localId.empty() || localId == LoomerRootIdentifier || !_takenIds.insert(localId).second) {
    cancel(change, "it handed back the identifier \"" + localId.toString() + "\", which is in use");
  }
  _pending.erase(change.record);
  _localIds.emplace(change.record, localId);
  _plan.base[_basePlaces.at(change.record)].localId = localId;
}

void HandingDown::refuse(const ClientChange& change) {
  ++_refused;
  HeldTree& tree = held(change);
  const std::int64_t revision = revisionOf(change.record);
  if (change.type == LoomerChangeTypeAdd) {
    leaveOut(change);
    _plan.base[_basePlaces.at(change.record)].refusedRevision = revision;
    return;
  }
  BaseRecord before = tree.before(change);
  before.refusedRevision = revision;
  if (change.type == LoomerChangeTypeModify) {
    _plan.base[_basePlaces.at(change.record)] = std::move(before);
  } else {
    _localIds.emplace(change.record, change.localId);
    _keptAgainstDeletion.push_back(std::move(before));
  }
}

void HandingDown::leaveOut(const ClientChange& change) {
  BaseRecord& base = _plan.base[_basePlaces.at(change.record)];
  if (change.type == LoomerChangeTypeAdd) {
    _pending.erase(change.record);
    base.notHeld = true;
    base.position = 0;
  } else {
    base = held(change).before(change);
  }
}

HeldTree& HandingDown::held(const ClientChange& change) {
  if (!_held) {
    _held.emplace(_input, _plan);
    for (const TruthChange& each : _plan.truthChanges)
      _changedRevisions.emplace(each.after.id, each.after.revision);
    // Everything before the first refusal was taken.
    for (const ClientChange& each : _plan.clientChanges) {
      if (&each == &change) break;
      _held->taken(each);
    }
  }
  return *_held;
}

std::int64_t HandingDown::revisionOf(RecordId record) const {
  const auto changed = _changedRevisions.find(record);
  if (changed != _changedRevisions.end()) return changed->second;
  const auto found = std::lower_bound(_input.truth.begin(), _input.truth.end(), record,
                                      [](const TruthRecord& each, RecordId id) { return each.id < id; });
  return found != _input.truth.end() && found->id == record ? found->revision : 0;
}

void HandingDown::checkTime() {
  if (!(Platform::current().clock.now().seconds - _began > _timeout)) return;
  throw SessionCancelled{
      format("The client took longer than %.0f seconds to take the changes in. Nothing was changed; sync "
             "again when the computer is less busy.",
             _timeout)};
}

void HandingDown::cancel(const ClientChange& change, const std::string& what) const {
  const char* kind = change.type == LoomerChangeTypeAdd      ? "the addition"
                     : change.type == LoomerChangeTypeModify ? "the change"
                                                             : "the deletion";
  throw SessionCancelled{
      format("The client could not take %@ of record %d (%@): %@. Nothing was changed; remove the cause and "
             "sync again.",
             kind, change.record, change.content.name, what)};
}

}  // namespace corvane::loomer
