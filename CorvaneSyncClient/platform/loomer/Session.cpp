#include "CorvaneSyncClient/platform/loomer/Session.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/HandingDown.h"
#include "CorvaneSyncClient/platform/loomer/SessionGuard.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

Session::Session(TruthStore& store, LoomerSessionDriver& driver, LoomerSessionDriverDataSource& dataSource,
                 EmbeddedClient& client, const RecordSchema& schema)
    : _store(store), _driver(driver), _dataSource(dataSource), _client(client), _schema(schema) {}

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
          format("The client syncs the entity %@, which the sync schema does not have. Nothing was "
                 "changed; install the client again.",
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
      format("The client does not sync the entity %@. Nothing was changed; install the client "
             "again.",
             missing.front())};
}

void Session::takeLock() {
  const double timeout = _dataSource.sessionBeginSessionTimeout();
  if (!_store.begin(timeout)) {
    throw SessionCancelled{
        format("Another sync session was still running after %.0f seconds of waiting. Nothing was "
               "changed; sync again when that session has ended.",
               timeout)};
  }
  _tookLock = true;
  const auto state = _clients.find(_client.clientIdentifier());
  if (!state || state->id != _client.row()) {
    throw SessionCancelled{
        format("The client %@ was unregistered meanwhile. Nothing was changed; register it and sync "
               "again.",
               _client.clientIdentifier())};
  }
  if (state->sessions != _sessionsBefore) {
    // What the client read before that session must not be taken for what it holds after it.
    throw SessionCancelled{
        format("Another session of the client %@ ended while this one waited. Nothing was changed; "
               "sync again.",
               _client.clientIdentifier())};
  }
  _state = *state;
  _truth = _records.state();
  _standing = _refusals.find(_state.id);
  _kind = sessionKind(_preferredMode, _state, _truth, _standing.has_value());
  _client.storeHeldValues();
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
  _input.base = std::move(_storedBase.records);
  _input.client = std::move(_pushed);
  _input.refresh = _kind == SessionKind::refresh;
  _input.replace = _kind == SessionKind::replace;
  _input.nextRecord = _truth.nextRecord;
  _input.revision = _truth.revision + 1;
  _plan = merge(_input);
}

void Session::guard() {
  if (!mustBeApproved(_plan)) return;
  Refusal refusal{planDigest(_plan), _plan.deletedByAbsence, _plan.liveBefore, _began, std::nullopt};
  if (_standing && _standing->approved && _standing->digest == refusal.digest) return;
  _refused = refusal;
  throw SessionCancelled{
      format("The client lacks %d of %d bookmarks and folders, so that this session would delete them "
             "everywhere. Nothing was "
             "changed. If they are meant to go, run `loomerctl approve %@` and sync again; to give them back "
             "to the client, run "
             "`loomerctl reset %@` and sync again.",
             refusal.deletions, refusal.live, _client.clientIdentifier(), _client.clientIdentifier())};
}

std::vector<RecordId> Session::refusedDeletions() const {
  std::vector<RecordId> records;
  for (const TruthChange& change : _plan.truthChanges) {
    if (change.after.deleted && change.before && !change.before->deleted) records.push_back(change.after.id);
  }
  return records;
}

void Session::writeTruth() {
  _contents.emplace(_store.database(), _input.truth, _storedTruth.contents, _input.base,
                    _storedBase.contents);
  const bool changesTruth = !_plan.truthChanges.empty();
  const bool handsDown = _plan.deleteAllFirst || !_plan.clientChanges.empty();
  if (changesTruth) _truth.revision = _input.revision;
  _records.apply(_plan.truthChanges, _input.revision, *_contents);
  if (!changesTruth && !handsDown && !_plan.baseChanged && _plan.losses.empty()) return;
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
  if (!_plan.deleteAllFirst && _plan.clientChanges.empty()) return;
  HandingDown handingDown(_dataSource, _schema, _records, _input, _plan);
  handingDown.run();
  _refusedChanges = handingDown.refused();
}

void Session::writeBase() { _bases.replace(_state.id, _input.base, _plan.base, *_contents); }

void Session::finish() {
  String error;
  checkAnswer(_dataSource.sessionDriverDidPull(_driver, error), error, "take the changes in");
  error = String();
  checkAnswer(_dataSource.sessionDriverWillFinishSession(_driver, error), error, "finish the session");

  const Date now = Platform::current().clock.now();
  if (_entry) _log.finish(*_entry, now, _refusedChanges);
  if (_standing) _refusals.remove(_state.id);
  const bool news = _state.syncedRevision != _truth.revision;
  _state.resetPending = false;
  _state.syncedRevision = _truth.revision;
  ++_state.sessions;
  _state.sessionsWithoutRecords = _tookRecords ? 0 : _state.sessionsWithoutRecords + 1;
  _state.handedDown = _plan.deleteAllFirst || !_plan.clientChanges.empty();
  _state.lastSession = now;
  _clients.finishSession(_state);
  if (news || _entry) _records.dropOldTombstones();
  if (_entry) pruneLog(_store, now, kPrunedRows + _plan.truthChanges.size());
  _store.database().commit();
}

void Session::checkAnswer(bool answer, const String& error, const char* callback) const {
  if (answer && !error) return;
  throw SessionCancelled{
      format("The client %@ could not %@: %@. Nothing was changed; remove the cause and sync again.",
             _client.clientIdentifier(), callback, error ? error : String("it gave no reason"))};
}

}  // namespace corvane::loomer
