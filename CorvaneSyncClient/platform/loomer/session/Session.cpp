#include "CorvaneSyncClient/platform/loomer/session/Session.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/session/HandedDown.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionGuard.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
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
  const int preferred = preferredMode();
  takeLock();
  begin(isOutdated() ? modeOnceReadAgain() : preferred);
  TakenRecords taken = takeRecords();
  if (_start.kind == SessionKind::replace || taken.tree) {
    _mingling.emplace(_store, _dataSource, _start, std::move(taken));
    guard();
    _mingling->carryOut(_schema);
  }
  finish();
}

void Session::registerWithDataSource() {
  _start.began = Platform::current().clock.now();
  const auto state = _clients.find(_client.clientIdentifier());
  _sessionsBefore = state ? state->sessions : 0;
  _client.holdValuesBack();
  String error;
  checkAnswer(_dataSource.sessionDriverDidRegisterClient(_driver, error), error, "begin the session");
}

/// The strongest mode that is asked for.
int Session::preferredMode() {
  std::vector<String> missing;
  for (const EntitySchema& entity : _schema.entities) missing.push_back(entity.name);
  int preferred = LoomerSyncModeFast;
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
    preferred = std::max(preferred, known ? mode : static_cast<int>(LoomerSyncModeRefresh));
  }
  if (missing.empty()) return preferred;
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
  _start.client = *state;
}

/// What the client read before another session of its own must not be taken for what it holds after that one.
bool Session::isOutdated() { return _start.client.sessions != _sessionsBefore || !_dataSource.isUpToDate(); }

int Session::modeOnceReadAgain() {
  _client.dropHeldValues();
  if (!_dataSource.readAgain()) {
    throw SessionCancelled{
        format("Another session of the client %@ ended while this one waited. Nothing was changed; sync "
               "again.",
               _client.clientIdentifier())};
  }
  registerWithDataSource();
  return preferredMode();
}

void Session::begin(int preferredMode) {
  _start.truth = RecordTable(_store).state();
  _start.kind = sessionKind(preferredMode, _start.client, _start.truth, _dataSource.tellsEveryChange());
  _standing = _refusals.find(_start.client.id);
  readNote();
  _client.storeHeldValues();
}

/// Where a session was killed while the client saved, this one looks at what the client holds.
void Session::readNote() {
  _start.note = _noteFile.read();
  if (!_start.note) return;
  if (!isOfNextSession(*_start.note, _start.client)) {
    _noteFile.remove();
    _start.note.reset();
  } else if (_start.kind == SessionKind::fast) {
    _start.kind = SessionKind::slow;
  }
}

TakenRecords Session::takeRecords() {
  if (_start.kind == SessionKind::replace) return {};
  const bool news = mayHaveNews(_start.client, _start.truth);
  std::vector<ClientRecord> changed;
  if (_start.kind == SessionKind::fast) {
    changed = loomer::takeRecords(_dataSource, _schema, true);
    if (changed.empty() && !news) return {};
  }
  // To hand something down, the engine must know the client's present order.
  _tookAllRecords = _start.kind != SessionKind::fast || news;
  if (!_tookAllRecords) {
    return {clientTree(BaseTable(_store).read(_start.client.id).records, changed), changed.size()};
  }
  std::vector<ClientRecord> all = loomer::takeRecords(_dataSource, _schema, false);
  const std::size_t count = all.size();
  return {std::move(all), count};
}

void Session::guard() {
  const MergeResult& plan = _mingling->plan();
  if (!mustBeApproved(plan)) return;
  Refusal refusal{planDigest(plan), plan.deletedByAbsence, plan.liveBefore, _start.began, std::nullopt};
  if (_standing && _standing->approved && _standing->digest == refusal.digest) return;
  _refused = refusal;
  const char* const another =
      "The plan that was approved was another one: the client or the agreed bookmarks have changed since. ";
  const String client = _client.clientIdentifier();
  throw SessionCancelled{
      format("The client %@ lacks %d of %d bookmarks and folders, so that this session would delete them "
             "everywhere. Nothing was changed. %@If they are meant to go, look at `loomerctl plan %@`, run "
             "`loomerctl approve %@` and sync again; to give them back to the client, run "
             "`loomerctl restore %@` and sync again.",
             client, refusal.deletions, refusal.live, _standing && _standing->approved ? another : "", client,
             client, client)};
}

std::vector<RecordId> Session::refusedDeletions() const {
  std::vector<RecordId> records;
  for (const TruthChange& change : _mingling->plan().truthChanges) {
    if (change.after.deleted && change.before && !change.before->deleted) records.push_back(change.after.id);
  }
  return records;
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
  if (_start.note || handsDown()) _noteFile.remove();
}

void Session::noteSession() {
  const Date now = Platform::current().clock.now();
  const std::optional<std::int64_t> entry = _mingling ? _mingling->entry() : std::nullopt;
  if (entry) SessionLog(_store).finish(*entry, now, _mingling->refused());
  if (_standing) _refusals.remove(_start.client.id);
  const std::int64_t revision = _mingling ? _mingling->revision() : _start.truth.revision;
  const bool news = _start.client.syncedRevision != revision;
  ClientState after = _start.client;
  after.resetPending = after.restorePending = false;
  after.syncedRevision = revision;
  ++after.sessions;
  after.sessionsWithoutRecords = _tookAllRecords ? 0 : after.sessionsWithoutRecords + 1;
  after.handedDown = handsDown();
  after.lastSession = now;
  _clients.finishSession(after);
  if (news || entry) RecordTable(_store).dropOldTombstones();
  if (entry) pruneLog(_store, now, kPrunedRows + _mingling->plan().truthChanges.size());
}

void Session::noteHandedDown() {
  if (!handsDown()) return;
  const String mark = Platform::current().uuids.newUuid();
  _dataSource.willTakeChanges(mark);
  if (const auto note = _mingling->noteForNextSession(mark)) _noteFile.write(*note);
}

void Session::commit() {
  try {
    _store.database().commit();
  } catch (const PlatformException& exception) {
    if (!handsDown()) throw;
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
