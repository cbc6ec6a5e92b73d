#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"
#include "CorvaneSyncClient/platform/loomer/store/Journal.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadClient = MessageText<1>("cannot read a client: %1").english();
constexpr const char* kReadClients = MessageText<1>("cannot read the clients: %1").english();
constexpr const char* kRegisterClient = MessageText<1>("cannot register a client: %1").english();
constexpr const char* kUnregisterClient = MessageText<1>("cannot unregister a client: %1").english();
constexpr const char* kNoteClientReset = MessageText<1>("cannot note a client's reset: %1").english();
constexpr const char* kNoteClientRestore = MessageText<1>("cannot note a client's restore: %1").english();
constexpr const char* kNoteCancelledSession = MessageText<1>("cannot note a cancelled session: %1").english();
constexpr const char* kNoteFinishedSession = MessageText<1>("cannot note a finished session: %1").english();
constexpr const char* kReadClientValue = MessageText<1>("cannot read a client's value: %1").english();
constexpr const char* kRemoveClientValue = MessageText<1>("cannot remove a client's value: %1").english();
constexpr const char* kStoreClientValue = MessageText<1>("cannot store a client's value: %1").english();

// What `clientOf` reads.
const std::string kClients =
    "SELECT id, identifier, registered, reset_pending, synced_revision, sessions, without_records,"
    " handed_down, last_session, give_back_pending, cancelled FROM clients";
const std::string kEveryClient = kClients + " ORDER BY identifier";
const std::string kOneClient = kClients + " WHERE identifier = ?";

ClientState clientOf(const Statement& row) {
  ClientState client;
  client.id = row.integer(0);
  client.identifier = row.text(1);
  client.registered = Date{row.real(2)};
  client.resetPending = row.integer(3) != 0;
  client.syncedRevision = row.optionalInteger(4);
  client.sessions = row.integer(5);
  client.sessionsWithoutRecords = row.integer(6);
  client.delivered = row.integer(7) != 0;
  if (!row.isNull(8)) client.lastSession = Date{row.real(8)};
  client.restorePending = row.integer(9) != 0;
  client.cancelled = row.integer(10) != 0;
  return client;
}

}  // namespace

std::optional<ClientState> ClientTable::find(const String& identifier) {
  Statement query = _store.database().query(kOneClient.c_str(), kReadClient);
  if (!query.open(identifier).next()) return std::nullopt;
  return clientOf(query);
}

std::vector<ClientState> ClientTable::all() {
  Statement query = _store.database().query(kEveryClient.c_str(), kReadClients);
  std::vector<ClientState> clients;
  query.open();
  while (query.next()) clients.push_back(clientOf(query));
  return clients;
}

void ClientTable::enter(const String& identifier, const Dictionary& description, Date now) {
  const std::string bytes = writeBinaryPropertyList(description);
  if (const auto known = find(identifier)) {
    Statement query = _store.database().query("SELECT description FROM clients WHERE id = ?", kReadClient);
    if (query.open(known->id).next() && query.blob(0) == bytes) return;
  }
  _store.writing([&] {
    _store.database()
        .query(
            "INSERT INTO clients(identifier, description, registered) VALUES(?, ?, ?)"
            " ON CONFLICT(identifier) DO UPDATE SET description = excluded.description",
            kRegisterClient)
        .run(identifier, Blob{bytes}, now.seconds);
  });
}

Dictionary ClientTable::description(std::int64_t client) {
  Statement query = _store.database().query("SELECT description FROM clients WHERE id = ?", kReadClient);
  if (!query.open(client).next()) return {};
  const Value stored = readPropertyList(query.blob(0));
  const Dictionary* description = stored.as<Dictionary>();
  return description ? *description : Dictionary();
}

void ClientTable::remove(std::int64_t client) {
  _store.writing([&] {
    Database& database = _store.database();
    ReleasedContents released(_store);
    if (released.isNeeded()) {
      Statement base = database.query("SELECT record, content FROM base WHERE client = ?", kUnregisterClient);
      base.open(client);
      while (base.next()) released.add(base.integer(0), base.integer(1));
    }
    database.query("DELETE FROM clients WHERE id = ?", kUnregisterClient).run(client);
    released.drop();
  });
}

void ClientTable::setResetPending(std::int64_t client, bool pending) {
  _store.writing([&] {
    _store.database()
        .query("UPDATE clients SET reset_pending = ? WHERE id = ?", kNoteClientReset)
        .run(pending, client);
  });
}

void ClientTable::setRestorePending(std::int64_t client, bool pending) {
  _store.writing([&] {
    _store.database()
        .query("UPDATE clients SET give_back_pending = ? WHERE id = ?", kNoteClientRestore)
        .run(pending, client);
  });
}

void ClientTable::setCancelled(std::int64_t client) {
  _store.writing([&] {
    _store.database()
        .query("UPDATE clients SET cancelled = 1 WHERE id = ?", kNoteCancelledSession)
        .run(client);
  });
}

void ClientTable::finishSession(const ClientState& after) {
  _store.writing([&] {
    _store.database()
        .query(
            "UPDATE clients SET cancelled = 0, reset_pending = ?, give_back_pending = ?, synced_revision = "
            "?, sessions = ?,"
            " without_records = ?, handed_down = ?, last_session = ? WHERE id = ?",
            kNoteFinishedSession)
        .run(after.resetPending, after.restorePending, after.syncedRevision, after.sessions,
             after.sessionsWithoutRecords, after.delivered, after.lastSession.value_or(Date{}).seconds,
             after.id);
  });
}

std::optional<Value> ClientTable::value(std::int64_t client, const String& key) {
  Statement query = _store.database().query("SELECT value FROM client_values WHERE client = ? AND key = ?",
                                            kReadClientValue);
  if (!query.open(client, key).next()) return std::nullopt;
  return readPropertyList(query.blob(0));
}

void ClientTable::setValue(std::int64_t client, const String& key, const std::optional<Value>& value) {
  const std::string bytes = value ? writeBinaryPropertyList(*value) : std::string();
  {
    Statement query = _store.database().query("SELECT value FROM client_values WHERE client = ? AND key = ?",
                                              kReadClientValue);
    const bool stored = query.open(client, key).next();
    if (stored ? value && query.blob(0) == bytes : !value) return;
  }
  _store.writing([&] {
    if (!value) {
      _store.database()
          .query("DELETE FROM client_values WHERE client = ? AND key = ?", kRemoveClientValue)
          .run(client, key);
      return;
    }
    _store.database()
        .query(
            "INSERT INTO client_values(client, key, value) VALUES(?, ?, ?)"
            " ON CONFLICT(client, key) DO UPDATE SET value = excluded.value",
            kStoreClientValue)
        .run(client, key, Blob{bytes});
  });
}

void forgetClient(TruthStore& store, const ClientState& client) {
  ClientTable(store).remove(client.id);
  JournalFile(store.path(), client.id).remove();
  FailedRuns(store.path()).forget(client.identifier);
}

}  // namespace corvane::loomer
