#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"

#include <algorithm>
#include <limits>

#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {
constexpr const char* kReadBase = MessageText<1>("cannot read a client's base: %1").english();
constexpr const char* kWriteBase = MessageText<1>("cannot write a client's base: %1").english();

// What `baseRecordOf` reads, of one client, and the row of the content.
const std::string kBase =
    "SELECT b.record, b.local_id, b.entity, b.parent, b.position, b.refused_revision, b.not_held,"
    " c.name, c.url, c.tab_group, c.special, b.content"
    " FROM base b JOIN contents c ON c.id = b.content WHERE b.client = ?";
const std::string kEveryRecord = kBase + " ORDER BY b.record";
const std::string kOneRecord = kBase + " AND b.record = ?";
const std::string kOneLocalId = kBase + " AND b.local_id = ? LIMIT 1";
// The same without the contents.
const std::string kBareRecords =
    "SELECT record, local_id, entity, parent, position, refused_revision, not_held, content"
    " FROM base WHERE client = ?";
const std::string kEveryBareRecord = kBareRecords + " ORDER BY record";
const std::string kOneBareRecord = kBareRecords + " AND record = ?";
const std::string kRow =
    " INTO base(client, record, local_id, entity, parent, position, content, refused_revision, not_held, "
    "since)";
const RowInsert kInsert("INSERT" + kRow, 10);
const RowInsert kInsertOrReplace("INSERT OR REPLACE" + kRow, 10);
constexpr const char* kOneContent = "SELECT name, url, tab_group, special FROM contents WHERE id = ?";

// What `versionsOf` reads: the same, with the sessions from and to which the client held it.
std::string selectVersions(const std::string& versions) {
  return "SELECT b.record, b.local_id, b.entity, b.parent, b.position, 0, 0,"
         " c.name, c.url, c.tab_group, c.special, b.since, b.until FROM (" +
         versions + ") b JOIN contents c ON c.id = b.content ORDER BY b.record, b.since";
}
const std::string kHeldSince = selectVersions(
    "SELECT record, since, until, local_id, entity, parent, position, content"
    " FROM former_base WHERE client = ?1 AND until > ?2"
    " UNION ALL SELECT record, since, NULL, local_id, entity, parent, position, content"
    " FROM base WHERE client = ?1 AND NOT not_held");
const std::string kLost = selectVersions("SELECT * FROM former_base WHERE client = ?1 AND lost");

std::vector<HeldVersion> versionsOf(Statement& query) {
  std::vector<HeldVersion> versions;
  while (query.next())
    versions.push_back({baseRecordOf(query), query.integer(11), query.optionalInteger(12)});
  return versions;
}

// Whether both say that the client holds the very same.
bool holdTheSame(const BaseRecord& a, BaseRecord b) {
  b.refusedRevision = a.refusedRevision;
  return !a.notHeld && a == b;
}

}  // namespace

namespace {

Content contentOf(const Statement& row, int column) {
  return {row.text(column), row.text(column + 1), row.integer(column + 2) != 0, row.integer(column + 3) != 0};
}

BaseRecord bareRecordOf(const Statement& row) {
  BaseRecord record;
  record.record = row.integer(0);
  record.localId = row.text(1);
  record.entity = row.integer(2) == 0 ? Entity::folder : Entity::bookmark;
  record.parent = row.integer(3);
  record.position = static_cast<std::int32_t>(row.integer(4));
  record.refusedRevision = row.integer(5);
  record.notHeld = row.integer(6) != 0;
  return record;
}

}  // namespace

BaseRecord baseRecordOf(const Statement& row) {
  BaseRecord record = bareRecordOf(row);
  record.content = contentOf(row, 7);
  return record;
}

StoredBase BaseTable::read(std::int64_t client) {
  Statement query = _store.database().query(kEveryRecord.c_str(), kReadBase);
  StoredBase base;
  query.open(client);
  while (query.next()) {
    base.records.push_back(baseRecordOf(query));
    base.contents.push_back(query.integer(11));
  }
  return base;
}

namespace {

// Reads bare rows, by ascending record, beside the truth: where both name one row of contents, they share it.
class BesideTruth {
 public:
  BesideTruth(Database& database, const StoredTruth& truth)
      : _content(database.query(kOneContent, kReadBase)), _truth(truth) {
    base.records.reserve(truth.records.size());
    base.contents.reserve(truth.records.size());
  }

  void take(const Statement& row) {
    BaseRecord record = bareRecordOf(row);
    const ContentId content = row.integer(7);
    const std::vector<TruthRecord>& records = _truth.records;
    while (_at < records.size() && records[_at].id < record.record) ++_at;
    const bool isKnown = _at < records.size() && records[_at].id == record.record;
    if (isKnown && _truth.contents[_at] == content) {
      record.content = records[_at].content;
    } else if (_content.open(content).next()) {
      record.content = contentOf(_content, 0);
    } else {
      return;  // as a join has it; the check of the store reports it
    }
    base.records.push_back(std::move(record));
    base.contents.push_back(content);
  }

  StoredBase base;

 private:
  Statement _content;
  const StoredTruth& _truth;
  std::size_t _at = 0;
};

}  // namespace

StoredBase BaseTable::read(std::int64_t client, const StoredTruth& truth) {
  Statement query = _store.database().query(kEveryBareRecord.c_str(), kReadBase);
  BesideTruth reading(_store.database(), truth);
  query.open(client);
  while (query.next()) reading.take(query);
  return std::move(reading.base);
}

StoredBase BaseTable::readOnly(std::int64_t client, const StoredTruth& truth) {
  Statement query = _store.database().query(kOneBareRecord.c_str(), kReadBase);
  BesideTruth reading(_store.database(), truth);
  for (const TruthRecord& each : truth.records) {
    if (query.open(client, each.id).next()) reading.take(query);
  }
  return std::move(reading.base);
}

std::optional<BaseRecord> BaseTable::find(std::int64_t client, const String& localId) {
  Statement query = _store.database().query(kOneLocalId.c_str(), kReadBase);
  if (!query.open(client, localId).next()) return std::nullopt;
  return baseRecordOf(query);
}

std::optional<BaseRecord> BaseTable::find(std::int64_t client, RecordId record) {
  Statement query = _store.database().query(kOneRecord.c_str(), kReadBase);
  if (!query.open(client, record).next()) return std::nullopt;
  return baseRecordOf(query);
}

std::size_t BaseTable::heldCount(std::int64_t client) { return count(client, false); }

std::size_t BaseTable::notHeldCount(std::int64_t client) { return count(client, true); }

std::size_t BaseTable::count(std::int64_t client, bool notHeld) {
  Statement query =
      _store.database().query("SELECT count(*) FROM base WHERE client = ? AND not_held = ?", kReadBase);
  return query.open(client, notHeld).next() ? static_cast<std::size_t>(query.integer(0)) : 0;
}

void BaseTable::replace(std::int64_t client, std::int64_t session, bool keepsFormer,
                        const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after,
                        ContentRows& contents) {
  Statement remove = _store.database().query("DELETE FROM base WHERE client = ? AND record = ?", kWriteBase);
  // Into a base that is empty, rows go without a look at what they might replace.
  if (before.empty()) _store.database().query("DELETE FROM base WHERE client = ?", kWriteBase).run(client);
  RowInsertion entering(_store.database(), before.empty() ? kInsert : kInsertOrReplace, after.size(),
                        kWriteBase);
  Statement refuse = _store.database().query(
      "UPDATE base SET refused_revision = ? WHERE client = ? AND record = ?", kWriteBase);
  Statement keep = _store.database().query(
      "INSERT INTO former_base(client, record, since, until, local_id, entity, parent, position, content)"
      " SELECT client, record, since, ?, local_id, entity, parent, position, content FROM base"
      " WHERE client = ? AND record = ? AND NOT not_held",
      kWriteBase);
  ReleasedContents released(_store);
  auto old = before.begin();
  const auto release = [&] {
    if (released.isNeeded()) released.add(old->record, contents.row(old->record, old->content));
  };
  const auto keepOld = [&] {
    if (keepsFormer) keep.run(session, client, old->record);
  };
  const auto removeUpTo = [&](RecordId record) {
    for (; old != before.end() && old->record < record; ++old) {
      keepOld();
      remove.run(client, old->record);
      release();
    }
  };
  for (const BaseRecord& now : after) {
    removeUpTo(now.record);
    const bool known = old != before.end() && old->record == now.record;
    if (known && holdTheSame(*old, now)) {
      if (!(*old == now)) refuse.run(now.refusedRevision, client, now.record);
    } else if (!known || !(*old == now)) {
      if (known) keepOld();
      entering.add(client, now.record, now.localId, static_cast<std::int64_t>(now.entity), now.parent,
                   std::int64_t{now.position}, contents.row(now.record, now.content), now.refusedRevision,
                   now.notHeld, session);
    }
    if (!known) continue;
    if (!(old->content == now.content)) release();
    ++old;
  }
  removeUpTo(std::numeric_limits<RecordId>::max());
  contents.finish();
  entering.finish();
  released.drop();
}

std::vector<HeldVersion> BaseTable::heldSince(std::int64_t client, std::int64_t session) {
  Statement query = _store.database().query(kHeldSince.c_str(), kReadBase);
  return versionsOf(query.open(client, session));
}

void BaseTable::setLost(std::int64_t client, RecordId record, bool lost) {
  _store.database()
      .query("UPDATE former_base SET lost = ? WHERE client = ? AND record = ?", kWriteBase)
      .run(lost, client, record);
}

std::vector<HeldVersion> BaseTable::lost(std::int64_t client) {
  Statement query = _store.database().query(kLost.c_str(), kReadBase);
  return versionsOf(query.open(client));
}

void BaseTable::forgetFormer(std::int64_t client, std::int64_t session, std::size_t most) {
  Database& database = _store.database();
  {
    Statement beyond = database.query(
        "SELECT until FROM former_base WHERE client = ? ORDER BY until DESC LIMIT 1 OFFSET ?", kReadBase);
    if (beyond.open(client, static_cast<std::int64_t>(most)).next())
      session = std::max(session, beyond.integer(0));
  }
  ReleasedContents released(_store);
  {
    Statement remove = database.query(
        "DELETE FROM former_base WHERE client = ? AND until <= ? RETURNING record, content", kWriteBase);
    remove.open(client, session);
    while (remove.next()) released.add(remove.integer(0), remove.integer(1));
  }
  released.drop();
}

void BaseTable::offerAgain(std::int64_t client) {
  _store.writing([&] {
    _store.database()
        .query("UPDATE base SET refused_revision = 0 WHERE client = ? AND refused_revision <> 0", kWriteBase)
        .run(client);
  });
}

}  // namespace corvane::loomer
