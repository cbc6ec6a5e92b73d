#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_set>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomer {

/// The three sides of a merge, and how they are to be merged.
struct MergeInput {
  /// Every live record and every tombstone that is still kept, in any order.
  std::vector<TruthRecord> truth;
  std::vector<BaseRecord> base;
  /// What the client pushed, whole; nothing when it pushed no records (a fast session): it holds what its
  /// base says.
  std::optional<std::vector<ClientRecord>> client;
  /// The truth stands where both sides changed an attribute, and nothing is deleted because the client lacks
  /// it.
  bool refresh = false;
  /// The client is to be emptied and given everything anew: what it pushed is not merged.
  bool replace = false;
  /// Records that the client is told once more, also where it holds them as they are to be.
  std::unordered_set<RecordId> rewritten;
  /// Local ids of what the client holds as it was before it was deleted in the truth, which knows nothing of
  /// it: the client is to delete it too.
  std::unordered_set<String> forgotten;
  /// Records that the client holds in such a folder, but did not move there.
  std::unordered_set<RecordId> unmoved;
  /// The first unused record id and the revision that changed records get.
  RecordId nextRecord = 1;
  std::int64_t revision = 1;
};

/// One change for the client, in the order of delivery.
struct ClientChange {
  LoomerChangeType type = LoomerChangeTypeAdd;
  Entity entity = Entity::bookmark;
  RecordId record = 0;
  String localId;             ///< absent for an addition
  RecordId parent = kRoot;    ///< not for deletions
  bool moves = false;         ///< a modification that gives it another parent
  std::int32_t position = 0;  ///< the number that places it in the client's folder; not for deletions
  Content content;            ///< whole; not for deletions
};

/// What a merge does to the truth and to the client.
struct MergeResult {
  std::vector<TruthChange> truthChanges;    ///< at most one per record; only records that differ
  bool deleteAllFirst = false;              ///< the client is told to delete everything before the changes
  std::vector<ClientChange> clientChanges;  ///< folders before bookmarks; at most one per record
  /// The client's base after the session if it accepts every change: additions carry an absent local id until
  /// the client has told its own.
  std::vector<BaseRecord> base;
  std::vector<Loss> losses;
  /// How many live records the client's missing records would delete, of how many live ones: for the guard.
  std::size_t deletedByAbsence = 0;
  std::size_t liveBefore = 0;
};

/// Merges a client's tree with the truth three ways over the client's base. Pure: no input or output, no
/// clock, the same answer for the same input, and total: every input merges.
MergeResult merge(const MergeInput& input);

}  // namespace corvane::loomer
