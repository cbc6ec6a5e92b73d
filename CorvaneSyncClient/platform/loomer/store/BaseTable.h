#pragma once

#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// The base record in a row of the columns record, local_id, entity, parent, position, refused_revision,
/// not_held, name, url, tab_group and special.
BaseRecord baseRecordOf(const Statement& row);

/// In a base by ascending record; null for one that it does not name.
const BaseRecord* findRecord(const std::vector<BaseRecord>& base, RecordId record);

/// The clients' bases: which local id stands for which record, and what the client held when its last session
/// ended.
class BaseTable {
 public:
  explicit BaseTable(TruthStore& store) : _store(store) {}

  StoredBase read(std::int64_t client);
  /// What the client's base says of one record; nothing when it does not name it.
  std::optional<BaseRecord> find(std::int64_t client, RecordId record);
  /// How many records the client held when its last session ended.
  std::size_t heldCount(std::int64_t client);
  /// How many records the client was offered in vain.
  std::size_t notHeldCount(std::int64_t client);
  /// Makes `after` the client's base, in the open transaction; writes only what differs from `before` (by
  /// ascending record). Sorts `after` by record.
  void replace(std::int64_t client, const std::vector<BaseRecord>& before, std::vector<BaseRecord>& after,
               ContentRows& contents);
  /// Has what the client was offered in vain offered to it once more.
  void offerAgain(std::int64_t client);

 private:
  std::size_t count(std::int64_t client, bool notHeld);

  TruthStore& _store;
};

}  // namespace corvane::loomer
