#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

#include <limits>

#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadLog = MessageText<1>("cannot read the log of sessions: %1").english();
constexpr const char* kWriteLog = MessageText<1>("cannot write the log of sessions: %1").english();

struct Side {
  std::optional<std::int64_t> parent, place, content;
};

Side sideOf(const TruthRecord* record, ContentRows& contents) {
  if (!record || record->deleted) return {};
  return {record->parent, record->place, contents.row(record->id, record->content)};
}

std::optional<LoggedState> stateAt(const Statement& row, int column) {
  if (row.isNull(column)) return std::nullopt;
  return LoggedState{row.integer(column),
                     row.integer(column + 1),
                     {row.text(column + 2), row.text(column + 3), row.integer(column + 4) != 0,
                      row.integer(column + 5) != 0}};
}

// What `entryOf` reads, of what the log has not forgotten.
const std::string kSessions =
    "SELECT id, client, began, ended, mode, revision, taken, changed, handed_down, refused FROM sessions"
    " WHERE id > (SELECT pruned_session FROM truth)";
const std::string kOldestFirst = kSessions + " ORDER BY id";
const std::string kNewestFirst = kSessions + " ORDER BY id DESC";
const std::string kOneSession = kSessions + " AND id = ?";

SessionEntry entryOf(const Statement& row) {
  const auto size = [&row](int column) { return static_cast<std::size_t>(row.integer(column)); };
  return {row.integer(0),
          row.text(1).toString(),
          Date{row.real(2)},
          Date{row.real(3)},
          static_cast<int>(row.integer(4)),
          row.integer(5),
          size(6),
          size(7),
          size(8),
          size(9)};
}

const RowInsert kInsertChange(
    "INSERT INTO changes(session, record, entity, before_parent, before_place, before_content, after_parent,"
    " after_place, after_content)",
    9);

void enterChanges(Database& database, std::int64_t session, const std::vector<TruthChange>& changes,
                  ContentRows& contents) {
  RowInsertion insertion(database, kInsertChange, changes.size(), kWriteLog);
  for (const TruthChange& change : changes) {
    const Side before = sideOf(pointerTo(change.before), contents);
    const Side after = sideOf(&change.after, contents);
    insertion.add(session, change.after.id, static_cast<std::int64_t>(change.after.entity), before.parent,
                  before.place, before.content, after.parent, after.place, after.content);
  }
  contents.finish();
  insertion.finish();
}

void enterLosses(Database& database, std::int64_t session, const std::vector<Loss>& losses) {
  Statement insert = database.query(
      "INSERT INTO losses(session, record, attribute, client_value, truth_value, client_won)"
      " VALUES(?, ?, ?, ?, ?, ?)",
      kWriteLog);
  for (const Loss& loss : losses) {
    insert.run(session, loss.record, loss.attribute, loss.clientValue, loss.truthValue, loss.clientWon);
  }
}

}  // namespace

std::int64_t SessionLog::enter(const SessionEntry& session, const std::vector<TruthChange>& changes,
                               const std::vector<Loss>& losses, ContentRows& contents) {
  Database& database = _store.database();
  database
      .query(
          "INSERT INTO sessions(client, began, ended, mode, revision, taken, changed, handed_down, refused)"
          " VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)",
          kWriteLog)
      .run(session.client, session.began.seconds, session.ended.seconds, session.mode, session.revision,
           session.taken, session.changed, session.delivered, session.refused);
  const std::int64_t id = database.lastInsertedRow();
  enterChanges(database, id, changes, contents);
  enterLosses(database, id, losses);
  return id;
}

bool SessionLog::isPruned(std::int64_t session) {
  return session > 0 && session <= _store.database().integer("SELECT pruned_session FROM truth", kReadLog);
}

std::size_t SessionLog::count() {
  return static_cast<std::size_t>(_store.database().integer(
      "SELECT count(*) FROM sessions WHERE id > (SELECT pruned_session FROM truth)", kReadLog));
}

std::unordered_map<RecordId, RecordDates> SessionLog::dates() {
  Statement query = _store.database().query(
      "SELECT c.record, s.began, c.before_place IS NULL FROM sessions s JOIN changes c ON c.session = s.id"
      " WHERE s.id > (SELECT pruned_session FROM truth) ORDER BY s.id",
      kReadLog);
  std::unordered_map<RecordId, RecordDates> dates;
  query.open();
  while (query.next()) {
    RecordDates& record = dates[query.integer(0)];
    const Date began{query.real(1)};
    if (query.integer(2) != 0 && !record.added) record.added = began;
    record.changed = began;
  }
  return dates;
}

std::vector<SessionEntry> SessionLog::sessions() {
  Statement query = _store.database().query(kOldestFirst.c_str(), kReadLog);
  std::vector<SessionEntry> sessions;
  query.open();
  while (query.next()) sessions.push_back(entryOf(query));
  return sessions;
}

void SessionLog::newestFirst(const std::function<bool(const SessionEntry&)>& take) {
  Statement query = _store.database().query(kNewestFirst.c_str(), kReadLog);
  query.open();
  while (query.next() && take(entryOf(query))) continue;
}

std::optional<SessionEntry> SessionLog::session(std::int64_t id) {
  Statement query = _store.database().query(kOneSession.c_str(), kReadLog);
  if (!query.open(id).next()) return std::nullopt;
  return entryOf(query);
}

std::vector<LoggedChange> SessionLog::changes(std::int64_t session) {
  std::vector<LoggedChange> changes;
  changesOf(session, std::nullopt, [&](const LoggedChange& change) {
    changes.push_back(change);
    return true;
  });
  return changes;
}

void SessionLog::changesOf(std::int64_t session, std::optional<RecordId> record,
                           const std::function<bool(const LoggedChange&)>& take) {
  if (isPruned(session)) return;
  // A range, so that one query serves both and uses the key.
  Statement query = _store.database().query(
      "SELECT c.record, c.entity, c.before_parent, c.before_place, b.name, b.url, b.tab_group, b.special,"
      " c.after_parent, c.after_place, a.name, a.url, a.tab_group, a.special"
      " FROM changes c LEFT JOIN contents b ON b.id = c.before_content"
      " LEFT JOIN contents a ON a.id = c.after_content"
      " WHERE c.session = ? AND c.record BETWEEN ? AND ? ORDER BY c.record",
      kReadLog);
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t kGreatest = std::numeric_limits<std::int64_t>::max();
  query.open(session, record.value_or(kLeast), record.value_or(kGreatest));
  while (query.next()) {
    const Entity entity = query.integer(1) == 0 ? Entity::folder : Entity::bookmark;
    if (!take({session, query.integer(0), entity, stateAt(query, 2), stateAt(query, 8)})) return;
  }
}

std::optional<RecordCounts> SessionLog::additionsAlone(std::int64_t session) {
  if (isPruned(session)) return std::nullopt;
  // A side without a place is a record that was not there.
  Statement query = _store.database().query(
      "SELECT count(before_place), count(*), sum(entity) FROM changes WHERE session = ?", kReadLog);
  if (!query.open(session).next() || query.integer(0) > 0) return std::nullopt;
  RecordCounts counts;
  counts.bookmarks = static_cast<std::size_t>(query.integer(2));
  counts.folders = static_cast<std::size_t>(query.integer(1)) - counts.bookmarks;
  return counts;
}

std::vector<Loss> SessionLog::losses(std::int64_t session) {
  if (isPruned(session)) return {};
  Statement query = _store.database().query(
      "SELECT record, attribute, client_value, truth_value, client_won FROM losses WHERE session = ? ORDER "
      "BY id",
      kReadLog);
  std::vector<Loss> losses;
  query.open(session);
  while (query.next()) {
    losses.push_back({query.integer(0), query.text(1).toString(), query.text(2).toString(),
                      query.text(3).toString(), query.integer(4) != 0});
  }
  return losses;
}

std::size_t SessionLog::lossCount(std::int64_t session) {
  if (isPruned(session)) return 0;
  Statement query = _store.database().query("SELECT count(*) FROM losses WHERE session = ?", kReadLog);
  return query.open(session).next() ? static_cast<std::size_t>(query.integer(0)) : 0;
}

}  // namespace corvane::loomer
