#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadLog = "read the log of sessions";
constexpr const char* kWriteLog = "write the log of sessions";

struct Side {
  std::optional<std::int64_t> parent, place, content;
};

Side sideOf(const std::optional<TruthRecord>& record, ContentRows& contents) {
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

void enterChanges(Database& database, std::int64_t session, const std::vector<TruthChange>& changes,
                  ContentRows& contents) {
  Statement insert = database.query(
      "INSERT INTO changes(session, record, entity, before_parent, before_place, before_content, "
      "after_parent,"
      " after_place, after_content) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)",
      kWriteLog);
  for (const TruthChange& change : changes) {
    const Side before = sideOf(change.before, contents);
    const Side after = sideOf(change.after, contents);
    insert.run(session, change.after.id, static_cast<std::int64_t>(change.after.entity), before.parent,
               before.place, before.content, after.parent, after.place, after.content);
  }
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
          "INSERT INTO sessions(client, began, mode, revision, taken, changed, handed_down)"
          " VALUES(?, ?, ?, ?, ?, ?, ?)",
          kWriteLog)
      .run(session.client, session.began.seconds, session.mode, session.revision, session.taken,
           session.changed, session.handedDown);
  const std::int64_t id = database.lastInsertedRow();
  enterChanges(database, id, changes, contents);
  enterLosses(database, id, losses);
  return id;
}

void SessionLog::finish(std::int64_t session, Date ended, std::size_t refused) {
  _store.database()
      .query("UPDATE sessions SET ended = ?, refused = ? WHERE id = ?", kWriteLog)
      .run(ended.seconds, refused, session);
}

std::vector<SessionEntry> SessionLog::sessions() {
  Statement query = _store.database().query(
      "SELECT id, client, began, ended, mode, revision, taken, changed, handed_down, refused FROM sessions"
      " ORDER BY id",
      kReadLog);
  std::vector<SessionEntry> sessions;
  const auto size = [&](int column) { return static_cast<std::size_t>(query.integer(column)); };
  query.open();
  while (query.next()) {
    sessions.push_back({query.integer(0), query.text(1), Date{query.real(2)}, Date{query.real(3)},
                        static_cast<int>(query.integer(4)), query.integer(5), size(6), size(7), size(8),
                        size(9)});
  }
  return sessions;
}

std::vector<LoggedChange> SessionLog::changes(std::int64_t session) {
  Statement query = _store.database().query(
      "SELECT c.record, c.entity, c.before_parent, c.before_place, b.name, b.url, b.tab_group, b.special,"
      " c.after_parent, c.after_place, a.name, a.url, a.tab_group, a.special"
      " FROM changes c LEFT JOIN contents b ON b.id = c.before_content LEFT JOIN contents a ON a.id = "
      "c.after_content"
      " WHERE c.session = ? ORDER BY c.record",
      kReadLog);
  std::vector<LoggedChange> changes;
  query.open(session);
  while (query.next()) {
    changes.push_back({session, query.integer(0), query.integer(1) == 0 ? Entity::folder : Entity::bookmark,
                       stateAt(query, 2), stateAt(query, 8)});
  }
  return changes;
}

std::vector<Loss> SessionLog::losses(std::int64_t session) {
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

}  // namespace corvane::loomer
