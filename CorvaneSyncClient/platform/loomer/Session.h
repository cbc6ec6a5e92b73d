#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/EmbeddedClient.h"
#include "CorvaneSyncClient/platform/loomer/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/HandedDownFile.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

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
  void chooseMode();
  void takeLock();
  void readNote();
  void takeRecords();
  bool isQuiet() const;
  void mingle();
  void takeBase();
  bool wasTaken();
  void meetByIdentifier();
  const std::vector<BaseRecord>& storedBase() const;
  void guard();
  void writeTruth();
  void handDown();
  void writeBase();
  void finish();
  void noteSession();
  void noteHandedDown();
  void commit();
  void checkAnswer(bool answer, const String& error, const char* callback) const;

  TruthStore& _store;
  LoomerSessionDriver& _driver;
  LoomerSessionDriverDataSource& _dataSource;
  EmbeddedClient& _client;
  const RecordSchema& _schema;
  ClientTable _clients{_store};
  RecordTable _records{_store};
  BaseTable _bases{_store};
  SessionLog _log{_store};
  RefusalTable _refusals{_store};

  Date _began;
  std::int64_t _sessionsBefore = 0;  // of the client, when the data source was registered
  int _preferredMode = LoomerSyncModeFast;
  SessionKind _kind = SessionKind::fast;
  ClientState _state;
  TruthState _truth;
  std::optional<Refusal> _standing;  // the guard's refusal of the client's last plan
  std::optional<Refusal> _refused;   // of this one
  HandedDownFile _noteFile;
  std::optional<HandedDown> _note;  // of a session that never ended

  std::optional<std::vector<ClientRecord>> _pushed;  // the client's whole tree
  bool _tookLock = false;
  bool _tookRecords = false;
  std::size_t _taken = 0;
  StoredTruth _storedTruth;
  StoredBase _storedBase;
  bool _baseIsNewer = false;  // than the store's: taken over from the note
  MergeInput _input;
  MergeResult _plan;
  std::optional<ContentRows> _contents;
  std::optional<std::int64_t> _entry;  // in the log of sessions
  bool _handsDown = false;
  std::size_t _refusedChanges = 0;
};

}  // namespace corvane::loomer
