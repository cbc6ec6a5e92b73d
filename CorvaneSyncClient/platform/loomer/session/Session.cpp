#include "CorvaneSyncClient/platform/loomer/session/Session.h"

#include <algorithm>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionGuard.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
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
      _journal(store.path(), client.row()) {}

/// All that can fail in the store comes before the client saves, but for the commit itself.
void Session::run() {
  const Opening opening = open();
  TakenRecords taken = takeRecords(opening);
  const bool isQuiet = !taken.tree && opening.kind != SessionKind::replace;
  const Plan plan = isQuiet ? quietPlan(opening) : makePlan(opening, readSides(opening, std::move(taken)));
  guard(opening, plan);
  const Delivery delivery = deliver(_dataSource, _schema, plan, identifiersOfAdditions(plan));
  const Settlement settlement = settle(opening, plan, delivery, Platform::current().clock.now());
  store(opening, plan, settlement);
  String error;
  checkAnswer(_dataSource.sessionDriverDidPull(_driver, error), error, "take the changes in");
  if (settlement.journal) _journal.write(*settlement.journal);
  error = String();
  checkAnswer(_dataSource.sessionDriverWillFinishSession(_driver, error), error, "finish the session");
  commit(plan);
  if (opening.journal || settlement.journal) _journal.remove();
}

Opening Session::open() {
  Opening opening;
  opening.began = Platform::current().clock.now();
  const auto before = _clients.find(_client.clientIdentifier());
  registerWithDataSource();
  int mode = preferredMode();
  opening.client = takeLock();
  // What the client read before another session of its own must not be taken for what it holds after that.
  const bool anotherEnded = !before || before->sessions != opening.client.sessions;
  if (anotherEnded || !_dataSource.isUpToDate()) mode = readAgain();
  opening.truth = _records.state();
  opening.kind = sessionKind(mode, opening.client, opening.truth, _dataSource.tellsEveryChange());
  opening.refusal = RefusalTable(_store).find(opening.client.id);
  opening.journal = journalOf(opening.client);
  if (opening.journal && opening.kind == SessionKind::fast) opening.kind = SessionKind::slow;
  _client.storeHeldValues();
  return opening;
}

void Session::registerWithDataSource() {
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

/// Begins the transaction. Answers the client's state in it.
ClientState Session::takeLock() {
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
  return *state;
}

/// Has the client read anew what it holds. Answers the mode that it prefers then.
int Session::readAgain() {
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

/// The journal of a session that was killed while the client saved; nothing when there is none, or it is of
/// another time.
std::optional<Journal> Session::journalOf(const ClientState& client) const {
  std::optional<Journal> journal = _journal.read();
  if (!journal) return std::nullopt;
  const bool isOfThisSession = journal->registered == client.registered &&
                               journal->sessions == client.sessions &&
                               journal->syncedRevision == client.syncedRevision;
  if (isOfThisSession) return journal;
  _journal.remove();
  return std::nullopt;
}

TakenRecords Session::takeRecords(const Opening& opening) {
  if (opening.kind == SessionKind::replace) return {};
  const bool hasNews = mayHaveNews(opening.client, opening.truth);
  if (opening.kind == SessionKind::fast) {
    std::vector<ClientRecord> changed = loomer::takeRecords(_dataSource, _schema, true);
    if (changed.empty() && !hasNews) return {};
    // To deliver something, the engine must know the client's present order.
    if (!hasNews) {
      return {clientTree(_bases.read(opening.client.id).records, changed), changed.size(), false};
    }
  }
  std::vector<ClientRecord> all = loomer::takeRecords(_dataSource, _schema, false);
  const std::size_t count = all.size();
  return {std::move(all), count, true};
}

Sides Session::readSides(const Opening& opening, TakenRecords taken) {
  const std::int64_t client = opening.client.id;
  Sides sides;
  sides.truth = _records.readAll();
  sides.base = _bases.read(client);
  sides.client = std::move(taken);
  sides.earlier = _dataSource.wentBackTo();
  if (!sides.client.tree) return sides;
  if (opening.journal) {
    sides.tookPush = _dataSource.tookChanges(opening.journal->pushId);
    if (opening.journal->knownPushId) {
      sides.tookKnownPush = _dataSource.tookChanges(opening.journal->knownPushId);
    }
  }
  if (sides.earlier) sides.heldSince = _bases.heldSince(client, sides.earlier->session);
  if (_dataSource.mayGoBack()) sides.lost = _bases.lost(client);
  if (_dataSource.identifiersAreGlobal()) sides.recordsByIdentifier = recordsByIdentifier(opening, sides);
  return sides;
}

std::unordered_map<String, RecordId> Session::recordsByIdentifier(const Opening& opening,
                                                                  const Sides& sides) {
  std::unordered_set<String> known;
  for (const BaseRecord& each : sides.base.records) known.insert(each.localId);
  const std::vector<ClientRecord>& pushed = *sides.client.tree;
  const bool allKnown = std::all_of(pushed.begin(), pushed.end(),
                                    [&](const ClientRecord& each) { return known.contains(each.localId); });
  if (allKnown && !sides.earlier && !opening.journal) return {};
  return _records.byGlobalIdentifier();
}

std::unordered_map<RecordId, String> Session::identifiersOfAdditions(const Plan& plan) {
  std::unordered_map<RecordId, String> identifiers;
  for (const ClientChange& change : plan.result.clientChanges) {
    if (change.type != LoomerChangeTypeAdd) continue;
    identifiers.emplace(change.record, _records.globalIdentifier(change.record));
  }
  return identifiers;
}

/// Writes all that the session changes in the store, in the transaction that is open.
void Session::store(const Opening& opening, const Plan& plan, const Settlement& settlement) {
  const std::optional<SessionEntry>& entry = settlement.logEntry;
  if (!plan.isQuiet()) storeMerge(plan, settlement);
  if (opening.refusal) RefusalTable(_store).remove(opening.client.id);
  _clients.finishSession(settlement.client);
  const bool isNewToClient = opening.client.syncedRevision != settlement.client.syncedRevision;
  if (isNewToClient || entry) _records.dropOldTombstones();
  if (entry) pruneLog(_store, entry->ended, kPrunedRows + plan.result.truthChanges.size());
}

void Session::storeMerge(const Plan& plan, const Settlement& settlement) {
  ContentRows contents(_store.database(), plan.input.truth, plan.truthRows, plan.storedBase(), plan.baseRows);
  const std::vector<TruthChange>& changes = plan.result.truthChanges;
  _records.apply(changes, plan.input.revision, contents);
  if (settlement.logEntry) {
    SessionLog(_store).enter(*settlement.logEntry, changes, plan.result.losses, contents);
  }
  const std::int64_t client = settlement.client.id;
  _bases.replace(client, settlement.client.sessions, _dataSource.mayGoBack(), plan.storedBase(),
                 settlement.base, contents);
  for (const RecordId record : plan.matched) _bases.setLost(client, record, false);
  for (const RecordId record : plan.lost) {
    const bool isGone = !findRecord(settlement.base, record);  // what is not gone is given to it once more
    if (isGone) _bases.setLost(client, record, true);
  }
  if (_dataSource.identifiersAreGlobal()) adoptIdentifiers(plan.storedBase(), settlement.base);
}

/// Gives each record that has a new local id that one for its identifier. Another record that bore it gets a
/// fresh one.
void Session::adoptIdentifiers(const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after) {
  std::vector<const BaseRecord*> adopted;
  for (const BaseRecord& each : after) {
    if (each.notHeld || !each.localId) continue;
    const BaseRecord* const known = findRecord(before, each.record);
    if (!known || known->localId != each.localId) adopted.push_back(&each);
  }
  if (adopted.empty()) return;
  const std::unordered_map<String, RecordId> bearers = _records.byGlobalIdentifier();
  for (const BaseRecord* const each : adopted) {
    const auto bearer = bearers.find(each->localId);
    if (bearer != bearers.end() && bearer->second == each->record) continue;
    if (bearer != bearers.end()) _records.makeGlobalIdentifier(bearer->second);
    _records.setGlobalIdentifier(each->record, each->localId);
  }
}

void Session::commit(const Plan& plan) {
  try {
    _store.database().commit();
  } catch (const LoomerStoreException& exception) {
    if (!plan.delivers()) throw;
    throw LoomerStoreException(
        exception.reason() +
        " The client has saved the changes that were delivered to it; the next session "
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
