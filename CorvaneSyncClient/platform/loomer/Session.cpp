#include "CorvaneSyncClient/platform/loomer/Session.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/GlobalIdentifiers.h"
#include "CorvaneSyncClient/platform/loomer/HandedDown.h"
#include "CorvaneSyncClient/platform/loomer/HandingDown.h"
#include "CorvaneSyncClient/platform/loomer/SessionGuard.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

Session::Session(TruthStore& store, LoomerSessionDriver& driver, LoomerSessionDriverDataSource& dataSource,
                 EmbeddedClient& client, const RecordSchema& schema)
    : _store(store),
      _driver(driver),
      _dataSource(dataSource),
      _client(client),
      _schema(schema),
      _noteFile(store.path(), client.row()) {}

void Session::run() {
  registerWithDataSource();
  chooseMode();
  takeLock();
  takeRecords();
  if (!isQuiet()) {
    mingle();
    guard();
    writeTruth();
    handDown();
    writeBase();
  }
  finish();
}

void Session::registerWithDataSource() {
  _began = Platform::current().clock.now();
  const auto state = _clients.find(_client.clientIdentifier());
  _sessionsBefore = state ? state->sessions : 0;
  _client.holdValuesBack();
  String error;
  checkAnswer(_dataSource.sessionDriverDidRegisterClient(_driver, error), error, "begin the session");
}

void Session::chooseMode() {
  std::vector<String> missing;
  for (const EntitySchema& entity : _schema.entities) missing.push_back(entity.name);
  for (const String& name : _dataSource.entityNamesToSync()) {
    if (!_schema.named(name)) {
      throw SessionCancelled{
          format("The client syncs the entity %@, which the sync schema does not have. Nothing was changed; "
                 "install the client again.",
                 name)};
    }
    std::erase(missing, name);
    const int mode = _dataSource.preferredSyncModeForEntityName(name);
    const bool known = mode >= LoomerSyncModeFast && mode <= LoomerSyncModeRefresh;
    _preferredMode = std::max(_preferredMode, known ? mode : static_cast<int>(LoomerSyncModeRefresh));
  }
  if (missing.empty()) return;
  // Records of an entity that is left out would look deleted.
  throw SessionCancelled{
      format("The client does not sync the entity %@. Nothing was changed; install the client again.",
             missing.front())};
}

void Session::takeLock() {
  const double timeout = _dataSource.sessionBeginSessionTimeout();
  if (!_store.begin(timeout)) {
    throw SessionCancelled{
        format("Another sync session was still running after %.0f seconds of waiting. Nothing was changed; "
               "sync again when that session has ended.",
               timeout)};
  }
  _tookLock = true;
  const auto state = _clients.find(_client.clientIdentifier());
  if (!state || state->id != _client.row()) {
    throw SessionCancelled{
        format("The client %@ was unregistered meanwhile. Nothing was changed; register it and sync again.",
               _client.clientIdentifier())};
  }
  if (state->sessions != _sessionsBefore) {
    // What the client read before that session must not be taken for what it holds after it.
    throw SessionCancelled{
        format("Another session of the client %@ ended while this one waited. Nothing was changed; sync "
               "again.",
               _client.clientIdentifier())};
  }
  _state = *state;
  _truth = _records.state();
  _standing = _refusals.find(_state.id);
  _kind = sessionKind(_preferredMode, _state, _truth, _dataSource.tellsEveryChange());
  readNote();
  _client.storeHeldValues();
}

/// Where a session was killed while the client saved, this one looks at what the client holds.
void Session::readNote() {
  _note = _noteFile.read();
  if (!_note) return;
  if (!isOfNextSession(*_note, _state)) {
    _noteFile.remove();
    _note.reset();
  } else if (_kind == SessionKind::fast) {
    _kind = SessionKind::slow;
  }
}

void Session::takeRecords() {
  if (_kind == SessionKind::replace) return;
  std::vector<ClientRecord> changed;
  if (_kind == SessionKind::fast) {
    changed = loomer::takeRecords(_dataSource, _schema, true);
    _taken = changed.size();
    if (changed.empty() && !mayHaveNews(_state, _truth)) return;
  }
  // To hand something down, the engine must know the client's present order.
  if (_kind != SessionKind::fast || mayHaveNews(_state, _truth)) {
    _pushed = loomer::takeRecords(_dataSource, _schema, false);
    _taken = _pushed->size();
    _tookRecords = true;
  } else {
    _pushed = clientTree(_bases.read(_state.id).records, changed);
  }
}

bool Session::isQuiet() const { return _kind != SessionKind::replace && !_pushed; }

void Session::mingle() {
  _storedTruth = _records.readAll();
  _storedBase = _bases.read(_state.id);
  _input.truth = std::move(_storedTruth.records);
  takeBase();
  meetByIdentifier();
  _input.client = std::move(_pushed);
  _input.refresh = _kind == SessionKind::refresh;
  _input.restored = _dataSource.wasRestored();
  _input.replace = _kind == SessionKind::replace;
  _input.nextRecord = _truth.nextRecord;
  _input.revision = _truth.revision + 1;
  _plan = merge(_input);
}

/// The store's base, or the newer one that sessions have left which never ended.
void Session::takeBase() {
  if (!_note || !_pushed) {
    _input.base = std::move(_storedBase.records);
    return;
  }
  _baseIsNewer = true;
  _input.base = withDifference(_note->known, _storedBase.records);
  const bool taken = wasTaken();
  if (taken) _input.base = withDifference(_note->handed, _input.base);
  if (_dataSource.wasRestored() || _state.giveBackPending) return;
  if (taken || !_note->known.isEmpty()) _kind = SessionKind::slow;
}

void Session::meetByIdentifier() {
  if (!_pushed || !_dataSource.identifiersAreGlobal()) return;
  auto met = baseMetByIdentifier(_records, _input.base, *_pushed);
  if (!met) return;
  if (!_baseIsNewer) _storedBase.records = std::move(_input.base);
  _baseIsNewer = true;
  _input.base = std::move(*met);
}

/// Whether the client holds what a session that never ended handed down to it.
bool Session::wasTaken() {
  const std::optional<bool> told = _dataSource.tookChanges(_note->mark);
  return told ? *told : showTaken(*_note, _input.base, *_pushed);
}

/// The base as the store has it.
const std::vector<BaseRecord>& Session::storedBase() const {
  return _baseIsNewer ? _storedBase.records : _input.base;
}

void Session::guard() {
  if (_dataSource.tellsEveryChange() || !mustBeApproved(_plan)) return;
  Refusal refusal{planDigest(_plan), _plan.deletedByAbsence, _plan.liveBefore, _began, std::nullopt};
  if (_standing && _standing->approved && _standing->digest == refusal.digest) return;
  _refused = refusal;
  const char* const another =
      "The plan that was approved was another one: the client or the agreed bookmarks have changed since. ";
  const String client = _client.clientIdentifier();
  throw SessionCancelled{
      format("The client lacks %d of %d bookmarks and folders, so that this session would delete them "
             "everywhere. Nothing was changed. %@If they are meant to go, look at `loomerctl plan %@`, run "
             "`loomerctl approve %@` and sync again; to give them back to the client, run "
             "`loomerctl giveback %@` and sync again.",
             refusal.deletions, refusal.live, _standing && _standing->approved ? another : "", client, client,
             client)};
}

std::vector<RecordId> Session::refusedDeletions() const {
  std::vector<RecordId> records;
  for (const TruthChange& change : _plan.truthChanges) {
    if (change.after.deleted && change.before && !change.before->deleted) records.push_back(change.after.id);
  }
  return records;
}

void Session::writeTruth() {
  _contents.emplace(_store.database(), _input.truth, _storedTruth.contents, storedBase(),
                    _storedBase.contents);
  const bool changesTruth = !_plan.truthChanges.empty();
  _handsDown = _plan.deleteAllFirst || !_plan.clientChanges.empty();
  if (changesTruth) _truth.revision = _input.revision;
  _records.apply(_plan.truthChanges, _input.revision, *_contents);
  if (!changesTruth && !_handsDown && !_plan.baseChanged && _plan.losses.empty()) return;
  SessionEntry entry;
  entry.client = _state.identifier;
  entry.began = _began;
  entry.mode = static_cast<int>(_kind);
  entry.revision = _truth.revision;
  entry.taken = _taken;
  entry.changed = _plan.truthChanges.size();
  entry.handedDown = _plan.clientChanges.size();
  _entry = _log.enter(entry, _plan.truthChanges, _plan.losses, *_contents);
}

void Session::handDown() {
  if (!_handsDown) return;
  HandingDown handingDown(_dataSource, _schema, _records, _input, _plan);
  handingDown.run();
  _refusedChanges = handingDown.refused();
}

void Session::writeBase() {
  _bases.replace(_state.id, storedBase(), _plan.base, *_contents);
  if (_dataSource.identifiersAreGlobal()) adoptIdentifiers(_records, storedBase(), _plan.base);
}

/// All that can fail in the store comes before the client saves, but for the commit itself.
void Session::finish() {
  String error;
  checkAnswer(_dataSource.sessionDriverDidPull(_driver, error), error, "take the changes in");
  noteSession();
  noteHandedDown();
  error = String();
  checkAnswer(_dataSource.sessionDriverWillFinishSession(_driver, error), error, "finish the session");
  commit();
  if (_note || _handsDown) _noteFile.remove();
}

void Session::noteSession() {
  const Date now = Platform::current().clock.now();
  if (_entry) _log.finish(*_entry, now, _refusedChanges);
  if (_standing) _refusals.remove(_state.id);
  const bool news = _state.syncedRevision != _truth.revision;
  ClientState after = _state;
  after.resetPending = after.giveBackPending = false;
  after.syncedRevision = _truth.revision;
  ++after.sessions;
  after.sessionsWithoutRecords = _tookRecords ? 0 : _state.sessionsWithoutRecords + 1;
  after.handedDown = _handsDown;
  after.lastSession = now;
  _clients.finishSession(after);
  if (news || _entry) _records.dropOldTombstones();
  if (_entry) pruneLog(_store, now, kPrunedRows + _plan.truthChanges.size());
}

/// A client that is given everything anew is given it once more after a session that was killed.
void Session::noteHandedDown() {
  if (!_handsDown || _plan.deleteAllFirst) return;
  HandedDown note;
  note.mark = Platform::current().uuids.newUuid();
  note.registered = _state.registered;
  note.sessions = _state.sessions;
  note.syncedRevision = _state.syncedRevision;
  if (_baseIsNewer) note.known = differenceOf(_storedBase.records, _input.base);
  note.handed = handedDifference(_input, _plan);
  note.added = addedIds(_plan);
  _dataSource.willTakeChanges(note.mark);
  _noteFile.write(note);
}

void Session::commit() {
  try {
    _store.database().commit();
  } catch (const PlatformException& exception) {
    if (!_handsDown) throw;
    throw PlatformException(exception.name(),
                            exception.reason() +
                                " The client has saved the changes that it was handed down; the next session "
                                "notices that and loses nothing.");
  }
}

void Session::checkAnswer(bool answer, const String& error, const char* callback) const {
  if (answer && !error) return;
  throw SessionCancelled{
      format("The client %@ could not %@: %@. Nothing was changed; remove the cause and sync again.",
             _client.clientIdentifier(), callback, error ? error : String("it gave no reason"))};
}

}  // namespace corvane::loomer
