#include "CorvaneSyncClient/platform/loomer/session/EmbeddedSessionDriver.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/session/Agreement.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionGuard.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/session/Settlement.h"
#include "CorvaneSyncClient/platform/loomer/store/AgreementTable.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

// One session of one client, from the client's registration with it to the commit. Any exception out of
// `run` leaves the transaction to be rolled back by the caller.
class Session {
 public:
  // All must outlive this object. `schema` is the form of the client's records.
  Session(TruthStore& store, LoomerSessionDriver& driver, LoomerSessionDriverDataSource& dataSource,
          EmbeddedClient& client, const RecordSchema& schema)
      : _store(store),
        _driver(driver),
        _dataSource(dataSource),
        _client(client),
        _schema(schema),
        _journal(store.path(), client.row()) {}

  // Runs the session and commits. Answers what it did. Raises SessionCancelled, LoomerStoreException and what
  // the data source raises.
  //
  // All that can fail in the store comes before the client saves, but for the commit itself.
  LoomerSessionResult run() {
    const Opening opening = open();
    Stored stored = mergeAndStore(opening);
    String error;
    checkAnswer(_dataSource.sessionDriverDidPull(_driver, error), error,
                MessageText<2>("The client %1 could not take the changes in: %2."));
    const bool isInJournal = stored.journal.has_value();
    if (isInJournal) _journal.write(*std::exchange(stored.journal, std::nullopt));
    error = String();
    checkAnswer(_dataSource.sessionDriverWillFinishSession(_driver, error), error,
                MessageText<2>("The client %1 could not finish the session: %2."));
    commit(stored.delivers);
    if (opening.journal || isInJournal) _journal.remove();
    return stored.result;
  }

  // Whether the session got as far as its transaction.
  bool tookLock() const { return _tookLock; }

 private:
  Opening open() {
    Opening opening;
    opening.began = Platform::current().clock.now();
    const auto before = _clients.find(_client.clientIdentifier());
    registerWithDataSource();
    SessionKind preferred = preferredKind();
    opening.client = takeLock();
    // What the client read before another session of its own must not be taken for what it holds after that.
    const bool anotherEnded = !before || before->sessions != opening.client.sessions;
    if (anotherEnded || !_dataSource.isUpToDate()) preferred = readAgain();
    opening.truth = _records.state();
    opening.kind = sessionKind(preferred, opening.client, opening.truth, _dataSource.keepsHistory());
    opening.refusal = RefusalTable(_store).find(opening.client.id);
    opening.journal = journalOf(opening.client);
    if (opening.journal && opening.kind == SessionKind::fast) opening.kind = SessionKind::slow;
    _client.storeHeldValues();
    return opening;
  }

  void registerWithDataSource() {
    _client.holdValuesBack();
    String error;
    checkAnswer(_dataSource.sessionDriverDidRegisterClient(_driver, error), error,
                MessageText<2>("The client %1 could not begin the session: %2."));
  }

  // The strongest kind that is asked for.
  SessionKind preferredKind() {
    std::vector<String> missing;
    for (const EntitySchema& entity : _schema.entities) missing.push_back(entity.name);
    SessionKind preferred = SessionKind::fast;
    for (const String& name : _dataSource.entityNamesToSync()) {
      if (!_schema.named(name)) {
        throw SessionCancelled(Message(
            "The client syncs the entity %1, which the sync schema does not have. Nothing was changed; "
            "install the client again.",
            name.view()));
      }
      std::erase(missing, name);
      preferred = std::max(preferred, kindOfMode(_dataSource.preferredSyncModeForEntityName(name)));
    }
    if (missing.empty()) return preferred;
    // Records of an entity that is left out would look deleted.
    throw SessionCancelled(
        Message("The client does not sync the entity %1. Nothing was changed; install the client again.",
                missing.front().view()));
  }

  // Begins the transaction. Answers the client's state in it.
  ClientState takeLock() {
    const double timeout = _dataSource.sessionBeginSessionTimeout();
    if (!_store.begin(timeout)) {
      throw SessionCancelled(Message::counted(wholeSeconds(timeout),
                                              "Another sync session was still running after %1 second of "
                                              "waiting. Nothing was changed; sync again "
                                              "when that session has ended.",
                                              "Another sync session was still running after %1 seconds of "
                                              "waiting. Nothing was changed; sync again "
                                              "when that session has ended."));
    }
    _tookLock = true;
    const auto state = _clients.find(_client.clientIdentifier());
    if (!state || state->id != _client.row()) {
      throw SessionCancelled(Message(
          "The client %1 was unregistered meanwhile. Nothing was changed; register it and sync again.",
          _client.clientIdentifier().view()));
    }
    return *state;
  }

  // Has the client read anew what it holds. Answers the kind that it asks for then.
  SessionKind readAgain() {
    _client.dropHeldValues();
    if (!_dataSource.readAgain()) {
      throw SessionCancelled(
          Message("Another session of the client %1 ended while this one waited. Nothing was changed; sync "
                  "again.",
                  _client.clientIdentifier().view()));
    }
    registerWithDataSource();
    return preferredKind();
  }

  // The journal of a session that was killed while the client saved; nothing when there is none, or it is of
  // another time.
  std::optional<Journal> journalOf(const ClientState& client) const {
    std::optional<Journal> journal = _journal.read();
    if (!journal) return std::nullopt;
    const bool isOfThisSession = journal->registered == client.registered &&
                                 journal->sessions == client.sessions &&
                                 journal->syncedRevision == client.syncedRevision;
    if (isOfThisSession) return journal;
    _journal.remove();
    return std::nullopt;
  }

  Plan planFor(const Opening& opening) {
    if (std::optional<Plan> plan = planOverAgreement(opening)) return *std::move(plan);
    _agreement.reset();
    TakenRecords taken = takeRecords(opening);
    const bool isQuiet = !taken.tree && opening.kind != SessionKind::replace;
    if (isQuiet) return quietPlan(opening, std::nullopt);
    return makePlan(opening, readSides(opening, std::move(taken)));
  }

  // Where client and truth say what they said when they last agreed, but for a few values, the rest is
  // neither taken nor read nor merged. Nothing where that does not do.
  std::optional<Plan> planOverAgreement(const Opening& opening) {
    const bool hasNews = mayHaveNews(opening.client, opening.truth);
    const bool takesAll = opening.kind == SessionKind::slow || (opening.kind == SessionKind::fast && hasNews);
    if (!takesAll || opening.journal) return std::nullopt;
    _agreement = _agreements.find(opening.client.id);
    if (!_agreement) return std::nullopt;
    std::vector<TruthRecord> news;
    if (hasNews) {
      auto found = newsSince(*opening.client.syncedRevision, _records);
      if (!found || found->empty()) return std::nullopt;
      news = *std::move(found);
    }
    std::optional<std::vector<std::uint64_t>> now = _dataSource.recordDigests(_agreement->key);
    const auto changed = now ? differingPlaces(_agreement->digests, *now) : std::nullopt;
    if (!changed) return std::nullopt;
    if (changed->empty() && !hasNews) return quietPlan(opening, now->size());
    auto sides = sidesAround(opening.client.id, recordsAt(*changed), news, _records, _bases);
    if (!sides) return std::nullopt;
    sides->client.count = now->size();
    sides->client.all = true;
    _agreement->digests = *std::move(now);
    Plan plan = makePlan(opening, *std::move(sides));
    if (!deliversAlone(plan, news)) return std::nullopt;
    return plan;
  }

  std::vector<ClientRecord> recordsAt(const std::vector<std::size_t>& places) {
    std::vector<ClientRecord> records;
    for (const EntitySchema& entity : _schema.entities) {
      for (const auto& [localId, value] : _dataSource.recordsAt(entity.name, places)) {
        if (const auto* record = value.as<Dictionary>())
          records.push_back(clientRecord(entity, localId, *record));
      }
    }
    return records;
  }

  TakenRecords takeRecords(const Opening& opening) {
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

  Sides readSides(const Opening& opening, TakenRecords taken) {
    const std::int64_t client = opening.client.id;
    Sides sides;
    sides.truth = _records.readAll();
    sides.base = _bases.read(client, sides.truth);
    sides.client = std::move(taken);
    sides.earlier = _dataSource.wentBackTo();
    if (!sides.client.tree) return sides;
    if (opening.journal) {
      sides.tookPush = _dataSource.tookChanges(opening.journal->pushId);
      if (opening.journal->knownPushId) {
        sides.tookKnownPush = _dataSource.tookChanges(opening.journal->knownPushId);
      }
      const auto& denied = opening.journal->denied;
      const auto took = std::find_if(denied.begin(), denied.end(), [this](const DeniedDelivery& each) {
        return _dataSource.tookChanges(each.pushId) == true;
      });
      if (took != denied.end()) sides.tookDenied = static_cast<std::size_t>(took - denied.begin());
    }
    if (sides.earlier) sides.heldSince = _bases.heldSince(client, sides.earlier->session);
    if (!_dataSource.keepsHistory()) return sides;
    sides.lost = _bases.lost(client);
    sides.recordsByIdentifier = recordsByIdentifier(opening, sides);
    return sides;
  }

  std::unordered_map<String, RecordId> recordsByIdentifier(const Opening& opening, const Sides& sides) {
    std::unordered_set<String> known;
    for (const BaseRecord& each : sides.base.records) known.insert(each.localId);
    const std::vector<ClientRecord>& pushed = *sides.client.tree;
    const bool allKnown = std::all_of(pushed.begin(), pushed.end(),
                                      [&](const ClientRecord& each) { return known.contains(each.localId); });
    if (allKnown && !sides.earlier && !opening.journal) return {};
    return _records.byGlobalIdentifier();
  }

  // Those of all records where most are added: one by one they cost more.
  std::unordered_map<RecordId, String> identifiersOfAdditions(const Plan& plan) {
    const auto isAddition = [](const ClientChange& each) { return each.type == LoomerChangeTypeAdd; };
    const std::vector<ClientChange>& changes = plan.result.clientChanges;
    const std::ptrdiff_t additions = std::count_if(changes.begin(), changes.end(), isAddition);
    if (additions * 2 > std::ssize(plan.input.truth)) return _records.globalIdentifiers();
    std::unordered_map<RecordId, String> identifiers;
    for (const ClientChange& change : changes) {
      if (isAddition(change)) identifiers.emplace(change.record, _records.globalIdentifier(change.record));
    }
    return identifiers;
  }

  // What is still to be known of a session all of which is in the store.
  struct Stored {
    bool delivers = false;
    LoomerSessionResult result;
    std::optional<Journal> journal;
  };

  // The plan, of the size of all records, goes before the client saves, which takes as much memory again.
  Stored mergeAndStore(const Opening& opening) {
    Plan plan = planFor(opening);
    guard(opening, plan);
    const Delivery delivery = deliver(_dataSource, _schema, plan, identifiersOfAdditions(plan));
    std::vector<BaseRecord> planned = std::move(plan.result.base);
    Settlement settlement =
        settle(opening, plan, std::move(planned), delivery, Platform::current().clock.now());
    store(opening, plan, settlement);
    LoomerSessionResult result;
    if (const auto& entry = settlement.logEntry)
      result = {entry->changed, entry->delivered - entry->refused, plan.result.losses.size()};
    return {plan.delivers(), result, std::move(settlement.journal)};
  }

  // Writes all that the session changes in the store, in the transaction that is open.
  void store(const Opening& opening, const Plan& plan, const Settlement& settlement) {
    const std::optional<SessionEntry>& entry = settlement.logEntry;
    if (!plan.isQuiet()) storeMerge(plan, settlement);
    if (opening.refusal) RefusalTable(_store).remove(opening.client.id);
    _clients.finishSession(settlement.client);
    const bool isNewToClient = opening.client.syncedRevision != settlement.client.syncedRevision;
    if (isNewToClient || entry) _records.dropOldTombstones();
    if (entry) pruneLog(_store, entry->ended, kPrunedRows + plan.result.truthChanges.size());
  }

  void storeMerge(const Plan& plan, const Settlement& settlement) {
    const std::vector<TruthChange>& changes = plan.result.truthChanges;
    ContentRows contents(_store.database(), plan.input.truth, plan.truthRows, plan.storedBase(),
                         plan.baseRows, changes.size());
    _records.apply(changes, plan.input.revision, contents);
    if (settlement.logEntry) {
      SessionLog(_store).enter(*settlement.logEntry, changes, plan.result.losses, contents);
    }
    const std::int64_t client = settlement.client.id;
    _bases.replace(client, settlement.client.sessions, _dataSource.keepsHistory(), plan.storedBase(),
                   settlement.base, contents);
    for (const RecordId record : plan.matched) _bases.setLost(client, record, false);
    for (const RecordId record : plan.lost) {
      const bool isGone = !findRecord(settlement.base, record);  // what is not gone is given to it once more
      if (isGone) _bases.setLost(client, record, true);
    }
    if (_dataSource.keepsHistory()) adoptIdentifiers(plan.storedBase(), settlement.base);
    noteAgreement(plan, settlement);
  }

  void noteAgreement(const Plan& plan, const Settlement& settlement) {
    const bool agrees = isAgreement(plan, settlement);
    if (agrees && !_agreement) {
      const HashKey key = _agreements.freshKey();
      if (auto digests = _dataSource.recordDigests(key)) _agreement = Agreement{key, *std::move(digests)};
    }
    if (!agrees) _agreement.reset();
    _agreements.replace(settlement.client.id, _agreement);
  }

  // Gives each record that has a new local id that one for its identifier. Another record that bore it gets
  // a fresh one.
  void adoptIdentifiers(const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after) {
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

  void commit(bool delivers) {
    try {
      _store.database().commit();
    } catch (const LoomerStoreException& exception) {
      if (!delivers) throw;
      throw LoomerStoreException(sentences(
          exception.message(), Message("The client has saved the changes that were delivered to it; "
                                       "the next session notices that and loses nothing.")));
    }
  }

  void checkAnswer(bool answer, const String& error, MessageText<2> problem) const {
    if (answer && !error) return;
    throw SessionCancelled(
        sentences(Message(problem, _client.clientIdentifier().view(), reasonGiven(error)), nothingChanged()));
  }

  TruthStore& _store;
  LoomerSessionDriver& _driver;
  LoomerSessionDriverDataSource& _dataSource;
  EmbeddedClient& _client;
  const RecordSchema& _schema;
  ClientTable _clients{_store};
  RecordTable _records{_store};
  BaseTable _bases{_store};
  AgreementTable _agreements{_store};
  std::optional<Agreement> _agreement;  // as it is to be stored, if the session is over one
  JournalFile _journal;
  bool _tookLock = false;
};

}  // namespace

EmbeddedSessionDriver::EmbeddedSessionDriver(ClientRegistry& clients,
                                             LoomerSessionDriverDataSource& dataSource,
                                             std::unique_ptr<Exchange> exchange)
    : _clients(clients), _dataSource(dataSource), _exchange(std::move(exchange)) {}

EmbeddedSessionDriver::~EmbeddedSessionDriver() = default;

void EmbeddedSessionDriver::_setClient(LoomerClient* client) {
  _identifier = client ? client->clientIdentifier() : String();
  _client = client ? _clients.find(_identifier) : nullptr;
}

bool EmbeddedSessionDriver::sync() {
  if (_exchange) _exchange->takeIn();
  _lastError = Message();
  _lastResult = {};
  const auto schema = prepare();
  if (!schema) return false;
  Session session(_clients.store(), *this, _dataSource, *_client, *schema);
  try {
    _lastResult = session.run();
  } catch (const SessionRefused& refused) {
    rollBack();
    cancel(sentences(refused.message(), storeRefusal(refused)), session.tookLock());
    return false;
  } catch (const SessionCancelled& cancelled) {
    cancel(cancelled.message(), session.tookLock());
    return false;
  } catch (const LoomerStoreException& exception) {
    cancel(exception.message(), session.tookLock());
    return false;
  } catch (const PlatformException& exception) {
    cancelQuietly(exception.message(), session.tookLock());
    throw;
  } catch (...) {
    cancelQuietly(Message("The client failed with an exception of an unknown kind. Nothing was changed."),
                  session.tookLock());
    throw;
  }
  if (_exchange) _exchange->giveChanges();
  return true;
}

std::optional<RecordSchema> EmbeddedSessionDriver::prepare() {
  try {
    findClient();
    return readRecordSchema(_dataSource.schemaBundleURLs());
  } catch (const SessionCancelled& cancelled) {
    _lastError = cancelled.message();
  } catch (const SchemaProblem& problem) {
    _lastError = problem.message();
  } catch (const LoomerStoreException& exception) {
    _lastError = exception.message();
  }
  return std::nullopt;
}

void EmbeddedSessionDriver::findClient() {
  const String identifier = _identifier ? _identifier : _dataSource.clientIdentifier();
  // Looked up anew: it may have been unregistered since it was set, by another process too.
  _client = _clients.find(identifier);
  if (_client) return;
  const auto url = _dataSource.clientDescriptionURL();
  const auto path = url ? pathOfFileUrl(*url) : std::nullopt;
  Message problem("it cannot be found");
  if (path) _client = _clients.registerClient(identifier, *path, problem);
  if (_client) return;
  if (!url)
    throw SessionCancelled(
        Message("The client %1 is not registered, and there is no description to register it "
                "by. Install the client again.",
                identifier.view()));
  throw SessionCancelled(
      Message("The client %1 is not registered, and its description (%2) cannot be used to "
              "register it: %3. Install the client again.",
              identifier.view(), url->text.view(), problem));
}

Message EmbeddedSessionDriver::storeRefusal(const SessionRefused& refused) {
  try {
    RefusalTable(_clients.store()).enter(_client->row(), refused.refusal(), refused.deletions());
    return {};
  } catch (const PlatformException& exception) {
    // The session is refused all the same, and so is the next one, which may be stored.
    return Message("But there is nothing to approve yet, since what was refused could not be noted: %1",
                   exception.message());
  }
}

void EmbeddedSessionDriver::rollBack() noexcept {
  _clients.store().database().rollback();
  _client->dropHeldValues();
}

void EmbeddedSessionDriver::cancel(const Message& reason, bool tookLock) {
  rollBack();
  _lastError = reason;
  _client->holdValuesBack();
  try {
    _dataSource.sessionDriverWillCancelSession(*this);
  } catch (...) {
    keepValues(tookLock);
    throw;
  }
  keepValues(tookLock);
}

void EmbeddedSessionDriver::cancelQuietly(const Message& reason, bool tookLock) noexcept {
  try {
    cancel(reason, tookLock);
  } catch (...) {
    // The exception that ended the session is the one to be known; it goes on to the caller.
  }
}

void EmbeddedSessionDriver::keepValues(bool tookLock) noexcept {
  // Where another session would not let this one begin, it will not let it write now either: waiting on would
  // only hold the caller up. Nothing was changed on either side, so that the values from before still hold.
  constexpr double kTimeoutSeconds = 60.0;
  try {
    if (_clients.store().begin(tookLock ? kTimeoutSeconds : 0.0)) {
      _client->storeHeldValues();
      ClientTable(_clients.store()).setCancelled(_client->row());
      _clients.store().database().commit();
    }
  } catch (...) {
    // The store is in trouble, or memory is: `lastError` already says why the session failed.
  }
  rollBack();
}

}  // namespace corvane::loomer
