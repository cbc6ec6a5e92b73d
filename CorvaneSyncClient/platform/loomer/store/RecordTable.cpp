#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

#include <algorithm>
#include <limits>
#include <map>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadState = MessageText<1>("cannot read its state: %1").english();

constexpr const char* kReadRecords = MessageText<1>("cannot read the records: %1").english();
constexpr const char* kWriteRecords = MessageText<1>("cannot write the records: %1").english();

std::string selectFrom(const std::string& table) {
  return "SELECT r.id, r.entity, r.parent, r.place, r.revision, r.content, c.name, c.url, c.tab_group,"
         " c.special FROM " +
         table + " r JOIN contents c ON c.id = r.content";
}

// What `recordOf` reads. The root, which has no content, is not among the live ones.
const std::string kLive = selectFrom("records");
const std::string kDead = selectFrom("tombstones");
const std::string kEveryLive = kLive + " ORDER BY r.id";
const std::string kEveryDead = kDead + " ORDER BY r.id";
const std::string kOneLive = kLive + " WHERE r.id = ?";
const std::string kOneDead = kDead + " WHERE r.id = ?";
const std::string kNewestLive = kLive + " WHERE r.revision > ? LIMIT ?";
const std::string kNewestDead = kDead + " WHERE r.revision > ? LIMIT ?";
const RowInsert kInsertRecord("INSERT INTO records(id, entity, parent, place, content, revision)", 6);
const RowInsert kInsertContent("INSERT INTO contents(id, name, url, tab_group, special)", 5);
const std::string kLiveInFolder = kLive + " WHERE r.parent = ? ORDER BY r.place";

Entity entityOf(std::int64_t number) { return number == 0 ? Entity::folder : Entity::bookmark; }

TruthRecord recordOf(const Statement& row, bool deleted) {
  TruthRecord record;
  record.id = row.integer(0);
  record.entity = entityOf(row.integer(1));
  record.parent = row.integer(2);
  record.place = row.integer(3);
  record.revision = row.integer(4);
  record.content = {row.text(6), row.text(7), row.integer(8) != 0, row.integer(9) != 0};
  record.deleted = deleted;
  return record;
}

StoredTruth readRows(Statement& query, bool deleted) {
  StoredTruth truth;
  query.open();
  while (query.next()) {
    truth.records.push_back(recordOf(query, deleted));
    truth.contents.push_back(query.integer(5));
  }
  return truth;
}

// Both by ascending id.
StoredTruth merged(StoredTruth live, StoredTruth dead) {
  if (dead.records.empty()) return live;
  StoredTruth all;
  all.records.reserve(live.records.size() + dead.records.size());
  all.contents.reserve(all.records.capacity());
  std::size_t i = 0, j = 0;
  while (i < live.records.size() || j < dead.records.size()) {
    const bool takeLive =
        j == dead.records.size() || (i < live.records.size() && live.records[i].id < dead.records[j].id);
    StoredTruth& from = takeLive ? live : dead;
    std::size_t& at = takeLive ? i : j;
    all.records.push_back(std::move(from.records[at]));
    all.contents.push_back(from.contents[at]);
    ++at;
  }
  return all;
}

bool isLive(const std::optional<TruthRecord>& record) { return record && !record->deleted; }

// A place that no record is ever given, one for each record.
std::int64_t parkingPlace(RecordId record) { return std::numeric_limits<std::int64_t>::min() + record; }

template <typename Record, typename Key>
std::optional<ContentId> storedRow(const std::vector<Record>& records, const std::vector<ContentId>& rows,
                                   Key Record::*key, RecordId record, const Content& content) {
  const auto found = std::lower_bound(records.begin(), records.end(), record,
                                      [key](const Record& each, RecordId id) { return each.*key < id; });
  if (found == records.end() || (*found).*key != record || !(found->content == content)) return std::nullopt;
  return rows[static_cast<std::size_t>(found - records.begin())];
}

// The text of an identifier as the store holds it.
String identifierOf(const TruthStore& store, RecordId record, std::string_view stored) {
  UuidBytes bytes;
  if (stored.size() != bytes.size()) {
    throw DamagedStoreException(store.path(),
                                Message("the record %1 has no identifier", std::to_string(record)));
  }
  std::copy(stored.begin(), stored.end(), bytes.begin());
  return uuidString(bytes);
}

}  // namespace

ContentRows::ContentRows(Database& database, const std::vector<TruthRecord>& truth,
                         const std::vector<ContentId>& truthRows, const std::vector<BaseRecord>& base,
                         const std::vector<ContentId>& baseRows, std::size_t most)
    : _insertion(database, kInsertContent, most, kWriteRecords),
      _next(database.integer("SELECT coalesce(max(id), 0) + 1 FROM contents", kReadRecords)),
      _truth(truth),
      _truthRows(truthRows),
      _base(base),
      _baseRows(baseRows) {
  _stored.reserve(most);
  _byRecord.reserve(most);
}

ContentId ContentRows::row(RecordId record, const Content& content) {
  const std::uint32_t own = placeOf(record);
  if (own != HashIndex::kNowhere && *_stored[own].content == content) return _stored[own].id;
  if (const auto row = storedRow(_truth, _truthRows, &TruthRecord::id, record, content)) return *row;
  if (const auto row = storedRow(_base, _baseRows, &BaseRecord::record, record, content)) return *row;
  const Row row{record, _next++, &content};
  if (own == HashIndex::kNowhere) {
    _byRecord.enter(hashOf(record), _stored.size());
    _stored.push_back(row);
  } else {
    _stored[own] = row;
  }
  _insertion.add(row.id, content.name, content.url, content.tabGroup, content.special);
  return row.id;
}

std::uint32_t ContentRows::placeOf(RecordId record) const {
  return _byRecord.find(hashOf(record), [&](std::uint32_t place) { return _stored[place].record == record; });
}

void ContentRows::finish() { _insertion.finish(); }

TruthState RecordTable::state() {
  Statement query =
      _store.database().query("SELECT revision, next_record, forgotten_revision FROM truth", kReadState);
  if (!query.open().next()) throw DamagedStoreException(_store.path(), Message("its counters are missing"));
  return {query.integer(0), query.integer(1), query.integer(2)};
}

StoredTruth RecordTable::readAll() {
  Statement live = _store.database().query(kEveryLive.c_str(), kReadRecords);
  Statement dead = _store.database().query(kEveryDead.c_str(), kReadRecords);
  return merged(readRows(live, false), readRows(dead, true));
}

StoredTruth RecordTable::readFolders(std::vector<RecordId> folders) {
  std::map<RecordId, std::pair<TruthRecord, ContentId>> found;
  const auto enter = [&](const Statement& row) {
    found.try_emplace(row.integer(0), recordOf(row, false), row.integer(5));
  };
  Statement inside = _store.database().query(kLiveInFolder.c_str(), kReadRecords);
  Statement one = _store.database().query(kOneLive.c_str(), kReadRecords);
  std::sort(folders.begin(), folders.end());
  folders.erase(std::unique(folders.begin(), folders.end()), folders.end());
  for (const RecordId folder : folders) {
    inside.open(folder);
    while (inside.next()) enter(inside);
    for (RecordId above = folder; above != kRoot && !found.contains(above);
         above = found.at(above).first.parent) {
      if (!one.open(above).next()) break;  // as if it stood in the root; the check of the store reports it
      enter(one);
    }
  }
  StoredTruth truth;
  for (auto& [id, record] : found) {
    truth.records.push_back(std::move(record.first));
    truth.contents.push_back(record.second);
  }
  return truth;
}

std::optional<TruthRecord> RecordTable::find(RecordId record) {
  Statement live = _store.database().query(kOneLive.c_str(), kReadRecords);
  if (live.open(record).next()) return recordOf(live, false);
  Statement dead = _store.database().query(kOneDead.c_str(), kReadRecords);
  if (dead.open(record).next()) return recordOf(dead, true);
  return std::nullopt;
}

std::vector<TruthRecord> RecordTable::children(RecordId folder) {
  Statement query = _store.database().query(kLiveInFolder.c_str(), kReadRecords);
  std::vector<TruthRecord> records;
  query.open(folder);
  while (query.next()) records.push_back(recordOf(query, false));
  return records;
}

RecordCounts RecordTable::counts() {
  const auto count = [this](const char* sql) {
    return static_cast<std::size_t>(_store.database().integer(sql, kReadRecords));
  };
  return {count("SELECT count(*) FROM records WHERE id > 0 AND entity = 0"),
          count("SELECT count(*) FROM records WHERE entity = 1"), count("SELECT count(*) FROM tombstones")};
}

std::vector<TruthRecord> RecordTable::newest(std::int64_t revision, std::size_t most) {
  std::vector<TruthRecord> records;
  for (const bool deleted : {true, false}) {
    Statement query = _store.database().query((deleted ? kNewestDead : kNewestLive).c_str(), kReadRecords);
    query.open(revision, most - records.size());
    while (query.next()) records.push_back(recordOf(query, deleted));
  }
  return records;
}

std::size_t RecordTable::changedSince(std::int64_t revision) {
  Statement query = _store.database().query(
      "SELECT (SELECT count(*) FROM records WHERE revision > ?1) +"
      " (SELECT count(*) FROM tombstones WHERE revision > ?1)",
      kReadRecords);
  return query.open(revision).next() ? static_cast<std::size_t>(query.integer(0)) : 0;
}

String RecordTable::globalIdentifier(RecordId record) {
  Statement query = _store.database().query(
      "SELECT global_id FROM records WHERE id = ?1 UNION ALL SELECT global_id FROM tombstones WHERE id = ?1",
      kReadRecords);
  if (!query.open(record).next()) return String();
  return identifierOf(_store, record, query.blob(0));
}

namespace {

template <typename Take>
void eachIdentifier(TruthStore& store, Take take) {
  Statement query = store.database().query(
      "SELECT global_id, id FROM tombstones UNION ALL SELECT global_id, id FROM records WHERE id > 0",
      kReadRecords);
  query.open();
  while (query.next()) {
    const RecordId record = query.integer(1);
    take(identifierOf(store, record, query.blob(0)), record);
  }
}

}  // namespace

std::unordered_map<String, RecordId> RecordTable::byGlobalIdentifier() {
  std::unordered_map<String, RecordId> records;
  eachIdentifier(_store, [&](const String& identifier, RecordId record) {
    records.insert_or_assign(identifier, record);
  });
  return records;
}

std::unordered_map<RecordId, String> RecordTable::globalIdentifiers() {
  std::unordered_map<RecordId, String> identifiers;
  eachIdentifier(_store, [&](const String& identifier, RecordId record) {
    identifiers.insert_or_assign(record, identifier);
  });
  return identifiers;
}

void RecordTable::setGlobalIdentifier(RecordId record, const String& identifier) {
  const auto bytes = uuidBytes(identifier.view());
  if (!bytes) return;
  const Blob blob{{bytes->data(), bytes->size()}};
  _store.database()
      .query("UPDATE records SET global_id = ?1 WHERE id = ?2 AND global_id <> ?1", kWriteRecords)
      .run(blob, record);
}

void RecordTable::makeGlobalIdentifier(RecordId record) {
  Database& database = _store.database();
  database.query("UPDATE records SET global_id = randomblob(16) WHERE id = ?", kWriteRecords).run(record);
  database.query("UPDATE tombstones SET global_id = randomblob(16) WHERE id = ?", kWriteRecords).run(record);
}

void RecordTable::apply(const std::vector<TruthChange>& changes, std::int64_t revision,
                        ContentRows& contents) {
  if (changes.empty()) return;
  // Siblings may trade places: first everything that moves is parked, then each record goes where it belongs.
  park(changes);
  RecordId last = 0;
  RowInsertion insertion(_store.database(), kInsertRecord, changes.size(), kWriteRecords);
  for (const TruthChange& change : changes) {
    last = std::max(last, change.after.id);
    if (change.after.deleted) {
      makeTombstone(change, contents);
    } else {
      place(change, contents, insertion);
    }
  }
  contents.finish();
  insertion.finish();
  _store.database()
      .query("UPDATE truth SET revision = ?, next_record = max(next_record, ? + 1)", kWriteRecords)
      .run(revision, last);
}

void RecordTable::park(const std::vector<TruthChange>& changes) {
  Statement update = _store.database().query("UPDATE records SET place = ? WHERE id = ?", kWriteRecords);
  for (const TruthChange& change : changes) {
    if (!isLive(change.before)) continue;
    const bool moves = change.after.deleted || change.before->parent != change.after.parent ||
                       change.before->place != change.after.place;
    if (moves) update.run(parkingPlace(change.after.id), change.after.id);
  }
}

void RecordTable::makeTombstone(const TruthChange& change, ContentRows& contents) {
  const TruthRecord& after = change.after;
  const ContentId content = contents.row(after.id, after.content);
  Database& database = _store.database();
  if (isLive(change.before)) {
    database
        .query(
            "INSERT INTO tombstones(id, global_id, entity, parent, place, content, revision)"
            " SELECT id, global_id, entity, ?, ?, ?, ? FROM records WHERE id = ?",
            kWriteRecords)
        .run(after.parent, after.place, content, after.revision, after.id);
    database.query("DELETE FROM records WHERE id = ?", kWriteRecords).run(after.id);
  } else {
    database
        .query("UPDATE tombstones SET parent = ?, place = ?, content = ?, revision = ? WHERE id = ?",
               kWriteRecords)
        .run(after.parent, after.place, content, after.revision, after.id);
  }
}

void RecordTable::place(const TruthChange& change, ContentRows& contents, RowInsertion& insertion) {
  const TruthRecord& after = change.after;
  const ContentId content = contents.row(after.id, after.content);
  Database& database = _store.database();
  if (isLive(change.before)) {
    database
        .query("UPDATE records SET parent = ?, place = ?, content = ?, revision = ? WHERE id = ?",
               kWriteRecords)
        .run(after.parent, after.place, content, after.revision, after.id);
  } else if (change.before) {
    database
        .query(
            "INSERT INTO records(id, global_id, entity, parent, place, content, revision)"
            " SELECT id, global_id, entity, ?, ?, ?, ? FROM tombstones WHERE id = ?",
            kWriteRecords)
        .run(after.parent, after.place, content, after.revision, after.id);
    database.query("DELETE FROM tombstones WHERE id = ?", kWriteRecords).run(after.id);
  } else {
    insertion.add(after.id, static_cast<std::int64_t>(after.entity), after.parent, after.place, content,
                  after.revision);
  }
}

void RecordTable::dropOldTombstones() {
  // A client that goes back to an earlier state may hold what was deleted since.
  static const std::string kUnneeded =
      " revision <= ?1"
      " AND NOT EXISTS (SELECT 1 FROM clients CROSS JOIN base b ON b.client = clients.id"
      " WHERE b.record = tombstones.id)"
      " AND NOT EXISTS (SELECT 1 FROM clients CROSS JOIN former_base f ON f.client = clients.id"
      " WHERE f.record = tombstones.id)";
  static const std::string kNewest = "SELECT max(revision) FROM tombstones WHERE" + kUnneeded;
  static const std::string kDrop = "DELETE FROM tombstones WHERE" + kUnneeded + " RETURNING id, content";
  Database& database = _store.database();
  const std::int64_t passed =
      database.integer("SELECT coalesce(min(coalesce(synced_revision, 0)), 0) FROM clients", kReadRecords);
  std::optional<std::int64_t> forgotten;
  {
    Statement query = database.query(kNewest.c_str(), kReadRecords);
    if (query.open(passed).next()) forgotten = query.optionalInteger(0);
  }
  if (!forgotten) return;
  ReleasedContents released(_store);
  {
    Statement remove = database.query(kDrop.c_str(), kWriteRecords);
    remove.open(passed);
    while (remove.next()) released.add(remove.integer(0), remove.integer(1));
  }
  released.drop();
  database.query("UPDATE truth SET forgotten_revision = max(forgotten_revision, ?)", kWriteRecords)
      .run(*forgotten);
}

}  // namespace corvane::loomer
