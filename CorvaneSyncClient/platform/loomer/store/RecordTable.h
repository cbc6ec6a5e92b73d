#pragma once

#include <optional>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

namespace corvane::loomer {

/// The row of "contents" that holds what a record says.
using ContentId = std::int64_t;

/// Counters of the truth.
struct TruthState {
  std::int64_t revision = 0;           ///< of the last session that changed a record
  RecordId nextRecord = 1;             ///< the first number never given
  std::int64_t forgottenRevision = 0;  ///< the greatest revision of a tombstone that was dropped
};

/// How many records of each kind there are.
struct RecordCounts {
  std::size_t folders = 0;
  std::size_t bookmarks = 0;
  std::size_t tombstones = 0;
};

/// The truth as it is stored: live records and tombstones by ascending id, and in `contents` the row of each.
struct StoredTruth {
  std::vector<TruthRecord> records;
  std::vector<ContentId> contents;
};

/// One client's base as it is stored: by ascending record, and in `contents` the row of each.
struct StoredBase {
  std::vector<BaseRecord> records;
  std::vector<ContentId> contents;
};

/// Finds the stored row of a record's content, so that what the truth, a base and the logs have in common is
/// stored once; stores a new row where there is none.
class ContentRows {
 public:
  /// Rows already stored. Both sides by ascending record; they and the rows must outlive this object. `most`:
  /// about how many new ones are to come.
  ContentRows(Database& database, const std::vector<TruthRecord>& truth,
              const std::vector<ContentId>& truthRows, const std::vector<BaseRecord>& base,
              const std::vector<ContentId>& baseRows, std::size_t most);

  /// The row that holds that content of the record. A new one is stored with the next `finish` at the latest,
  /// with which each function ends that is given this object; the content must live as long as this object.
  ContentId row(RecordId record, const Content& content);
  /// Stores all rows that are new.
  void finish();

 private:
  struct Row {
    RecordId record;
    ContentId id;
    const Content* content;
  };
  /// Where the newest of a record's rows stands; `HashIndex::kNowhere` for none.
  std::uint32_t placeOf(RecordId record) const;

  RowInsertion _insertion;
  ContentId _next;
  const std::vector<TruthRecord>& _truth;
  const std::vector<ContentId>& _truthRows;
  const std::vector<BaseRecord>& _base;
  const std::vector<ContentId>& _baseRows;
  std::vector<Row> _stored;  // by this object; the newest of each record
  HashIndex _byRecord;
};

/// The records of the truth.
class RecordTable {
 public:
  explicit RecordTable(TruthStore& store) : _store(store) {}

  /// The truth's counters.
  TruthState state();
  /// Everything, whatever its size.
  StoredTruth readAll();
  /// What is in these folders, and every folder on the way up from there.
  StoredTruth readFolders(std::vector<RecordId> folders);
  /// The record, or its tombstone; nothing when there never was one or it is forgotten.
  std::optional<TruthRecord> find(RecordId record);
  /// The live records in a folder, in their order; those of kRoot stand directly in the root.
  std::vector<TruthRecord> children(RecordId folder);
  /// Of live folders and bookmarks, and of tombstones.
  RecordCounts counts();
  /// `most` of the live records and tombstones that were changed after that revision; walks the records.
  std::vector<TruthRecord> newest(std::int64_t revision, std::size_t most);
  /// How many live records and tombstones were changed after that revision.
  std::size_t changedSince(std::int64_t revision);
  /// The identifier, in the form of a UUID, that a record has in every store; absent for an unknown record.
  String globalIdentifier(RecordId record);
  /// The same of every record and tombstone.
  std::unordered_map<RecordId, String> globalIdentifiers();
  /// Every record and tombstone by that identifier.
  std::unordered_map<String, RecordId> byGlobalIdentifier();
  /// Gives a live record the identifier that it has in other stores; a text that is no UUID changes nothing.
  void setGlobalIdentifier(RecordId record, const String& identifier);
  /// Gives a record or tombstone a fresh one.
  void makeGlobalIdentifier(RecordId record);

  /// Brings the changed records to their new state, in the open transaction. Each change's `before` must be
  /// what is stored. What breaks an invariant of the tree raises LoomerStoreException here or at the commit.
  void apply(const std::vector<TruthChange>& changes, std::int64_t revision, ContentRows& contents);
  /// Drops the tombstones that every registered client's base has passed and none refers to.
  void dropOldTombstones();

 private:
  void park(const std::vector<TruthChange>& changes);
  void makeTombstone(const TruthChange& change, ContentRows& contents);
  void place(const TruthChange& change, ContentRows& contents, RowInsertion& insertion);

  TruthStore& _store;
};

}  // namespace corvane::loomer
