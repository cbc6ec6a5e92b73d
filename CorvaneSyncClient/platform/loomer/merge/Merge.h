#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/String.h"
#include "CorvaneSyncClient/platform/loomer/LoomerConstants.h"

namespace corvane::loomer {

/// A record's number in the truth: given once, never used again. The root is no record; it is the parent
/// `kRoot`.
using RecordId = std::int64_t;
inline constexpr RecordId kRoot = 0;

enum class Entity : std::uint8_t { folder, bookmark };

/// What a record says, apart from its place in the tree. Each field merges on its own.
struct Content {
  String name;            ///< absent where a client sent none
  String url;             ///< bookmarks only; absent where a client sent none
  bool tabGroup = false;  ///< folders only: opens as a group of tabs
  bool special = false;   ///< the bookmarks bar and the bookmarks menu, folders directly in the root
  friend bool operator==(const Content&, const Content&) = default;
};

/// One record of the truth. Siblings are ordered by `place`; no two live siblings share one.
struct TruthRecord {
  RecordId id = 0;
  Entity entity = Entity::bookmark;
  RecordId parent = kRoot;
  std::int64_t place = 0;
  Content content;
  std::int64_t revision = 0;  ///< of the last session that changed it
  bool deleted = false;       ///< a tombstone
};

/// One record of a client's base: what that client held when its last session ended, and which record it
/// stands for.
struct BaseRecord {
  String localId;
  RecordId record = 0;
  Entity entity = Entity::bookmark;
  RecordId parent = kRoot;    ///< the record that the client's parent folder stands for
  std::int32_t position = 0;  ///< the client's own number, a sort key among its siblings
  Content content;
  /// The truth's revision of the record that the client refused or ignored: not offered again while it
  /// stands.
  std::int64_t refusedRevision = 0;
  /// The client was offered the record but does not hold it: it never counts as deleted by the client.
  bool notHeld = false;
  friend bool operator==(const BaseRecord&, const BaseRecord&) = default;
};

/// One record as the client pushed it.
struct ClientRecord {
  String localId;
  String parentLocalId;  ///< absent for the root
  Entity entity = Entity::bookmark;
  std::int32_t position = 0;
  Content content;
};

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
  /// The first unused record id and the revision that changed records get.
  RecordId nextRecord = 1;
  std::int64_t revision = 1;
};

/// A record of the truth as it is to be after the session. `before` is absent for a new record.
struct TruthChange {
  std::optional<TruthRecord> before;
  TruthRecord after;
};

/// One change for the client, in the order of handing down.
struct ClientChange {
  LoomerChangeType type = LoomerChangeTypeAdd;
  Entity entity = Entity::bookmark;
  RecordId record = 0;
  String localId;             ///< absent for an addition
  RecordId parent = kRoot;    ///< not for deletions
  std::int32_t position = 0;  ///< the number that places it in the client's folder; not for deletions
  Content content;            ///< whole; not for deletions
};

/// A value that lost a conflict: kept for the change log.
struct Loss {
  RecordId record = 0;
  std::string attribute;  ///< "name", "url", "tab group", "parent", "order" or "deletion"
  std::string clientValue;
  std::string truthValue;
  bool clientWon = false;
};

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
