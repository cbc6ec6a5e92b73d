#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/HandedDownFile.h"

namespace corvane::loomer {

/// What a session knows once it has its lock.
struct SessionStart {
  Date began;
  SessionKind kind = SessionKind::fast;
  ClientState client;
  TruthState truth;
  std::optional<HandedDown> note;  ///< of a session of the client that never ended
};

/// What the client gave to a session.
struct TakenRecords {
  /// The client's whole tree as it is now; nothing where it is what the base says, or does not matter.
  std::optional<std::vector<ClientRecord>> tree;
  std::size_t count = 0;  ///< records that the client gave
};

/// The merge of one session, and its carrying out at the store and at the client, in the open transaction.
class Mingling {
 public:
  /// Reads the truth and the client's base, and merges; changes nothing. `store`, `dataSource` and `start`
  /// must outlive this object.
  Mingling(TruthStore& store, LoomerSessionDriverDataSource& dataSource, const SessionStart& start,
           TakenRecords taken);
  Mingling(const Mingling&) = delete;
  Mingling& operator=(const Mingling&) = delete;

  const MergeResult& plan() const { return _plan; }

  /// Writes the truth and the log, hands the changes down, and writes the base that the client's answers
  /// make. Raises SessionCancelled (see HandingDown) and LoomerStoreException. `schema` is the form of the
  /// records.
  void carryOut(const RecordSchema& schema);

  /// The truth's revision from now on.
  std::int64_t revision() const {
    return _plan.truthChanges.empty() ? _start.truth.revision : _input.revision;
  }
  /// Whether there is something to hand down.
  bool handsDown() const { return _plan.deleteAllFirst || !_plan.clientChanges.empty(); }
  /// The session in the log; nothing where it changed nothing on either side.
  std::optional<std::int64_t> entry() const { return _entry; }
  /// Changes that the client did not take.
  std::size_t refused() const { return _refused; }
  /// What is to be noted, under that mark, before the client saves, once it has answered; nothing where a
  /// session that is killed then leaves nothing to be known.
  std::optional<HandedDown> noteForNextSession(String mark);

 private:
  void takeBase();
  void takeEarlierBase(const EarlierState& earlier);
  void meetLost();
  bool wasUndone(const HandedDown& note);
  bool wasTaken();
  void meetByIdentifier();
  void addToBase(const std::vector<BaseRecord>& records);
  const std::vector<BaseRecord>& baseInStore() const;
  void writeTruth(ContentRows& contents);
  void handDown(const RecordSchema& schema);
  void writeBase(ContentRows& contents);

  TruthStore& _store;
  LoomerSessionDriverDataSource& _dataSource;
  RecordTable _records;
  const SessionStart& _start;
  SessionKind _kind;
  std::size_t _taken;         // records that the client gave
  StoredTruth _storedTruth;   // its records go into `_input`
  StoredBase _storedBase;     // so do these, unless that base is newer
  bool _baseIsNewer = false;  // than the store's: with what the note tells, or what was met by its identifier
  std::vector<RecordId> _lost;      // at the client, which was put back
  std::vector<RecordId> _metAgain;  // of what it had lost before
  String _knownMark;                // of the newest handing down that the note tells of and that was taken
  MergeInput _input;
  MergeResult _plan;
  std::optional<std::int64_t> _entry;
  std::size_t _refused = 0;
};

}  // namespace corvane::loomer
