#pragma once

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/Journal.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

namespace corvane::loomer {

/// What a session knows once it has its lock.
struct Opening {
  Date began;
  SessionKind kind = SessionKind::fast;
  ClientState client;
  TruthState truth;
  std::optional<Refusal> refusal;  ///< of the client's last plan, which still stands
  std::optional<Journal> journal;  ///< of a session of the client that was killed
};

/// All that a plan is made from: what the store holds, and what the client says.
struct Sides {
  StoredTruth truth;
  StoredBase base;
  TakenRecords client;

  // Of a client whose session was killed: whether it has durably taken the delivery of the journal, and the
  // newest one that the journal knows of; nothing when it cannot tell.
  std::optional<bool> tookPush;
  std::optional<bool> tookKnownPush;
  /// The latest of the deliveries in the journal that it denied and that it holds now all the same.
  std::optional<std::size_t> tookDenied;

  // Of a client that may be put back to an earlier state.
  const EarlierState* earlier = nullptr;  ///< null when it was not
  std::vector<HeldVersion> heldSince;     ///< what it held at that state and since
  std::vector<HeldVersion> lost;          ///< what it lost when it was put back, and was deleted since

  /// Of a client whose ids are the records' own: the records that bear the ids it pushed and its base does
  /// not know.
  std::unordered_map<String, RecordId> recordsByIdentifier;
};

/// What a session is to do to the truth and to the client, and what it is made of.
struct Plan {
  SessionKind kind = SessionKind::fast;
  std::size_t taken = 0;        ///< records that the client gave
  bool tookAllRecords = false;  ///< all that it holds
  MergeInput input;
  MergeResult result;
  /// The stored base, when the merge is over another one: `input.base`.
  std::optional<std::vector<BaseRecord>> replacedBase;
  // The stored rows of the contents of `input.truth` and of the stored base.
  std::vector<ContentId> truthRows, baseRows;
  bool clientWentBack = false;
  std::vector<RecordId> lost;          ///< at the client, which was put back
  std::vector<RecordId> matched;       ///< of what it had lost before, what others have given it again
  std::vector<DeniedDelivery> denied;  ///< of killed sessions, by the client; the latest first
  String knownPushId;                  ///< of the newest delivery of a killed session that the client took

  /// The base as it stands in the store.
  const std::vector<BaseRecord>& storedBase() const { return replacedBase ? *replacedBase : input.base; }
  /// Whether there is something to deliver.
  bool delivers() const { return result.deleteAllFirst || !result.clientChanges.empty(); }
  /// Whether nothing is new on either side, so that nothing was merged.
  bool isQuiet() const { return input.revision == 0; }
};

/// The plan of a session in which nothing is new on either side. `seen` are the records of the client of
/// which that is known, all that it holds; nothing where it was not asked.
Plan quietPlan(const Opening& opening, std::optional<std::size_t> seen);

/// Finds the base to merge over and merges. Pure: no input or output, the same plan for the same input.
Plan makePlan(const Opening& opening, Sides sides);

}  // namespace corvane::loomer
