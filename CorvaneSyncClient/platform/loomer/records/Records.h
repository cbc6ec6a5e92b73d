#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane::loomer {

/// A record's number in the truth: given once, never used again. The root is no record; it is the parent
/// `kRoot`.
using RecordId = std::int64_t;
inline constexpr RecordId kRoot = 0;

/// The kinds of records; the numbers stand in the store.
enum class Entity : std::uint8_t { folder, bookmark };

/// What a record says, apart from its place in the tree. Each field merges on its own.
struct Content {
  String name;            ///< absent where a client sent none
  String url;             ///< bookmarks only; absent where a client sent none
  bool tabGroup = false;  ///< folders only: opens as a group of tabs
  bool special = false;   ///< the bookmarks bar and the bookmarks menu, folders directly in the root
  friend bool operator==(const Content&, const Content&) = default;
};

// There may be a million of each of these: their members stand so that none leaves a gap.

/// One record of the truth. Siblings are ordered by `place`; no two live siblings share one.
struct TruthRecord {
  RecordId id = 0;
  Entity entity = Entity::bookmark;
  bool deleted = false;  ///< a tombstone
  RecordId parent = kRoot;
  std::int64_t place = 0;
  Content content;
  std::int64_t revision = 0;  ///< of the last session that changed it
};

/// One record of a client's base: what that client held when its last session ended, and which record it
/// stands for.
struct BaseRecord {
  String localId;
  RecordId record = 0;
  RecordId parent = kRoot;  ///< the record that the client's parent folder stands for
  Entity entity = Entity::bookmark;
  /// The client was offered the record but does not hold it: it never counts as deleted by the client.
  bool notHeld = false;
  std::int32_t position = 0;  ///< the client's own number, a sort key among its siblings
  Content content;
  /// The truth's revision of the record that the client refused or ignored: not offered again while it
  /// stands.
  std::int64_t refusedRevision = 0;
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

/// A record of the truth as it is to be after the session. `before` is absent for a new record.
struct TruthChange {
  std::optional<TruthRecord> before;
  TruthRecord after;
};

/// A value that lost a conflict: kept for the change log.
struct Loss {
  RecordId record = 0;
  std::string attribute;  ///< "name", "url", "tab group", "parent", "order" or "deletion"
  std::string clientValue;
  std::string truthValue;
  bool clientWon = false;
};

/// From one base of a client to another.
struct BaseDifference {
  std::vector<BaseRecord> held;  ///< records of which the other says something else, by ascending record
  std::vector<RecordId> gone;    ///< records that the other does not name, ascending
};

/// The order in which a client lists siblings that it, or its base, numbers: by number, then by title,
/// folders first.
template <typename Record>
bool precedesAmongSiblings(const Record& a, const Record& b) {
  if (a.position != b.position) return a.position < b.position;
  const int byTitle = compareCaseInsensitive(a.content.name.view(), b.content.name.view());
  if (byTitle != 0) return byTitle < 0;
  if (a.entity != b.entity) return a.entity == Entity::folder;
  return a.localId.view() < b.localId.view();
}

/// Whether the truth, given by ascending record, has that one and has not deleted it.
bool isLive(const std::vector<TruthRecord>& truth, RecordId record);

// Bases are by ascending record, here and below.

/// Null for a record that the base does not name.
const BaseRecord* findRecord(const std::vector<BaseRecord>& base, RecordId record);
/// What leads from `before` to `after`.
BaseDifference differenceOf(const std::vector<BaseRecord>& before, std::vector<BaseRecord> after);
/// The base to which the difference leads.
std::vector<BaseRecord> withDifference(const BaseDifference& difference, const std::vector<BaseRecord>& base);
/// By ascending record; O(n) when it is so already.
void sortByRecord(std::vector<BaseRecord>& base);

}  // namespace corvane::loomer
