#pragma once

#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/session/EmbeddedClient.h"
#include "CorvaneSyncClient/platform/loomer/session/Settlement.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// One session of one client, from the client's registration with it to the commit. Any exception out of
/// `run` leaves the transaction to be rolled back by the caller.
class Session {
 public:
  /// All must outlive this object. `schema` is the form of the client's records.
  Session(TruthStore& store, LoomerSessionDriver& driver, LoomerSessionDriverDataSource& dataSource,
          EmbeddedClient& client, const RecordSchema& schema);

  /// Runs the session and commits. Raises SessionCancelled, LoomerStoreException and what the data source
  /// raises.
  void run();

  /// Whether the session got as far as its transaction.
  bool tookLock() const { return _tookLock; }

 private:
  Opening open();
  void registerWithDataSource();
  int preferredMode();
  ClientState takeLock();
  int readAgain();
  std::optional<Journal> journalOf(const ClientState& client) const;
  TakenRecords takeRecords(const Opening& opening);
  Sides readSides(const Opening& opening, TakenRecords taken);
  std::unordered_map<String, RecordId> recordsByIdentifier(const Opening& opening, const Sides& sides);
  std::unordered_map<RecordId, String> identifiersOfAdditions(const Plan& plan);
  void store(const Opening& opening, const Plan& plan, const Settlement& settlement);
  void storeMerge(const Plan& plan, const Settlement& settlement);
  void adoptIdentifiers(const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after);
  void commit(const Plan& plan);
  void checkAnswer(bool answer, const String& error, const char* callback) const;

  TruthStore& _store;
  LoomerSessionDriver& _driver;
  LoomerSessionDriverDataSource& _dataSource;
  EmbeddedClient& _client;
  const RecordSchema& _schema;
  ClientTable _clients{_store};
  RecordTable _records{_store};
  BaseTable _bases{_store};
  JournalFile _journal;
  bool _tookLock = false;
};

}  // namespace corvane::loomer
