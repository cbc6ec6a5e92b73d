#pragma once

#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/session/EmbeddedClient.h"
#include "CorvaneSyncClient/platform/loomer/session/Mingling.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"

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

  /// What the guard refused, to be noted once the session is rolled back.
  const std::optional<Refusal>& refusal() const { return _refused; }
  /// The records that the refused plan would delete.
  std::vector<RecordId> refusedDeletions() const;
  /// Whether the session got as far as its transaction.
  bool tookLock() const { return _tookLock; }

 private:
  void registerWithDataSource();
  int preferredMode();
  void takeLock();
  bool isOutdated();
  int modeOnceReadAgain();
  void begin(int preferredMode);
  void readNote();
  TakenRecords takeRecords();
  void guard();
  void finish();
  void noteSession();
  void noteHandedDown();
  bool handsDown() const { return _mingling && _mingling->handsDown(); }
  void commit();
  void checkAnswer(bool answer, const String& error, const char* callback) const;

  TruthStore& _store;
  LoomerSessionDriver& _driver;
  LoomerSessionDriverDataSource& _dataSource;
  EmbeddedClient& _client;
  const RecordSchema& _schema;
  ClientTable _clients{_store};
  RefusalTable _refusals{_store};
  HandedDownFile _noteFile;

  std::int64_t _sessionsBefore = 0;  // of the client, when the data source was registered
  bool _tookLock = false;
  SessionStart _start;
  std::optional<Refusal> _standing;  // the guard's refusal of the client's last plan
  std::optional<Refusal> _refused;   // of this one
  bool _tookAllRecords = false;
  std::optional<Mingling> _mingling;  // none in a quiet session
};

}  // namespace corvane::loomer
