#pragma once

#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// The base record in a row of the columns record, local_id, entity, parent, position, refused_revision,
/// not_held, name, url, tab_group and special.
BaseRecord baseRecordOf(const Statement& row);

/// A record as a client held it from the end of one of its sessions to the end of a later one. Sessions are
/// numbered from 1; 0 is the time before the first.
struct HeldVersion {
  BaseRecord record;
  std::int64_t since = 0;
  std::optional<std::int64_t> until;  ///< nothing: it holds it still
};

/// The clients' bases: which local id stands for which record, and what the client held when its last session
/// ended.
class BaseTable {
 public:
  explicit BaseTable(TruthStore& store) : _store(store) {}

  /// Empty for a client that has finished no session.
  StoredBase read(std::int64_t client);
  /// The same, beside the truth as it is stored: what both say is read once, and its text shared.
  StoredBase read(std::int64_t client, const StoredTruth& truth);
  /// As before, of the truth's records alone.
  StoredBase readOnly(std::int64_t client, const StoredTruth& truth);
  /// What the client's base says of one record; nothing when it does not name it.
  std::optional<BaseRecord> find(std::int64_t client, RecordId record);
  /// The same of what the client knows by that id; walks the base.
  std::optional<BaseRecord> find(std::int64_t client, const String& localId);
  /// How many records the client held when its last session ended.
  std::size_t heldCount(std::int64_t client);
  /// How many records the client was offered and does not hold.
  std::size_t notHeldCount(std::int64_t client);
  /// Makes `after` the client's base at the end of its session of that number, in the open transaction;
  /// writes only what differs from `before`, both by ascending record. What it held before is kept where
  /// `keepsFormer`.
  void replace(std::int64_t client, std::int64_t session, bool keepsFormer,
               const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after,
               ContentRows& contents);
  /// What the client held at the end of that session or later, as far as that is kept: by record, oldest
  /// first.
  std::vector<HeldVersion> heldSince(std::int64_t client, std::int64_t session);
  /// Marks what is kept of that record as lost at the client, which is not to be told of its deletion (it
  /// lacks the record) but may be given it by others, who do not know of the deletion either; or takes the
  /// mark off.
  void setLost(std::int64_t client, RecordId record, bool lost);
  /// What is so marked: by record, oldest first.
  std::vector<HeldVersion> lost(std::int64_t client);
  /// Drops what the client did not hold any more at the end of that session, in the open transaction, and the
  /// oldest of the rest where there is more than `most`.
  void forgetFormer(std::int64_t client, std::int64_t session, std::size_t most);
  /// Has what the client refused offered to it once more.
  void offerAgain(std::int64_t client);

 private:
  std::size_t count(std::int64_t client, bool notHeld);

  TruthStore& _store;
};

}  // namespace corvane::loomer
