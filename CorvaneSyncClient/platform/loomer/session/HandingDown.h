#pragma once

#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/session/HeldTree.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// Hands a merge's changes to the client, and makes of its answers the base that the next session starts
/// from.
///
/// What the client does not take is never half true in the base: a refused addition is noted as not held, a
/// refused modification or deletion as what the client held before. What hangs on a folder that was refused
/// is not offered.
class HandingDown {
 public:
  /// All must outlive this object; `plan.base` is changed as the client answers. The truth's changes are
  /// already written, so that every record has its global identifier.
  HandingDown(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema, RecordTable& records,
              const MergeInput& input, MergeResult& plan);

  /// Raises SessionCancelled when the client answers an error, hands back an identifier that is in use, or
  /// takes longer than it said it would.
  void run();
  /// Changes that the client did not take: it refused or ignored them, or they hang on what it did not take
  /// and were not offered.
  std::size_t refused() const { return _refused; }

 private:
  void deleteAll();
  void handDown(const ClientChange& change);
  bool canBeHeld(const ClientChange& change);
  bool isIdentifierTaken(const ClientChange& change) const;
  int apply(const ClientChange& change, String& localId);
  String parentIdentifier(RecordId parent) const;
  void accept(const ClientChange& change, const String& localId);
  void refuse(const ClientChange& change);
  void leaveOut(const ClientChange& change);
  /// What the client holds, followed from the first refusal on.
  HeldTree& held(const ClientChange& change);
  std::int64_t revisionOf(RecordId record) const;
  void checkTime();
  [[noreturn]] void cancel(const ClientChange& change, const std::string& what) const;

  LoomerSessionDriverDataSource& _dataSource;
  const RecordSchema& _schema;
  const MergeInput& _input;
  MergeResult& _plan;
  double _began = 0.0;    // seconds
  double _timeout = 0.0;  // seconds
  std::size_t _refused = 0;
  std::optional<HeldTree> _held;
  std::vector<BaseRecord> _keptAgainstDeletion;

  std::unordered_map<RecordId, std::int64_t> _changedRevisions;  // of what this session changed; with `_held`
  std::unordered_map<RecordId, std::size_t> _basePlaces;         // in the plan's base
  std::unordered_map<RecordId, String> _localIds;                // of what the client holds
  std::unordered_map<RecordId, String> _pending;  // engine's identifiers of the additions still to come
  std::unordered_set<String> _takenIds;           // local ids in use
};

}  // namespace corvane::loomer
