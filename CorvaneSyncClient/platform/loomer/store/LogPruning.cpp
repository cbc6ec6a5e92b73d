#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"

#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

constexpr const char* kPrune = MessageText<1>("cannot drop old sessions from the log: %1").english();

class Pruning {
 public:
  Pruning(TruthStore& store, Date now, std::size_t rows)
      : _store(store), _database(store.database()), _now(now), _left(static_cast<std::int64_t>(rows)) {}

  void run() {
    while (_left > 0) {
      const std::optional<std::int64_t> session = next();
      if (!session) return;
      if (dropChanges(*session) && _left > 0 && dropLosses(*session) && _left > 0) dropSession(*session);
    }
  }

 private:
  // The oldest session of which something is left to drop.
  std::optional<std::int64_t> next() {
    const std::int64_t pruned = _database.integer("SELECT pruned_session FROM truth", kPrune);
    Statement oldest = _database.query("SELECT min(id) FROM sessions WHERE id <= ?", kPrune);
    if (oldest.open(pruned).next() && !oldest.isNull(0)) return oldest.integer(0);
    const std::int64_t newest = _database.integer("SELECT max(id) FROM sessions", kPrune);
    Statement old = _database.query(
        "SELECT id, ended FROM sessions WHERE id <= ? AND ended <= ? ORDER BY id LIMIT 1", kPrune);
    if (!old.open(newest - kKeptSessions, _now.seconds).next()) return std::nullopt;
    if (!(old.real(1) < _now.seconds - kKeptSeconds)) return std::nullopt;
    _database.query("UPDATE truth SET pruned_session = ?", kPrune).run(old.integer(0));
    return next();
  }

  // Whether none is left.
  bool dropChanges(std::int64_t session) {
    ReleasedContents released(_store);
    std::vector<RecordId> records;
    {
      Statement query = _database.query(
          "SELECT record, before_content, after_content FROM changes WHERE session = ? ORDER BY record LIMIT "
          "?",
          kPrune);
      query.open(session, _left);
      while (query.next()) {
        records.push_back(query.integer(0));
        for (const int column : {1, 2}) {
          if (!query.isNull(column)) released.add(records.back(), query.integer(column));
        }
      }
    }
    const bool isLast = static_cast<std::int64_t>(records.size()) < _left;
    _left -= static_cast<std::int64_t>(records.size());
    Statement remove = _database.query("DELETE FROM changes WHERE session = ? AND record = ?", kPrune);
    for (const RecordId record : records) remove.run(session, record);
    released.drop();
    return isLast;
  }

  bool dropLosses(std::int64_t session) {
    Statement remove = _database.query(
        "DELETE FROM losses WHERE id IN (SELECT id FROM losses WHERE session = ? LIMIT ?)", kPrune);
    remove.run(session, _left);
    const std::int64_t dropped = _database.integer("SELECT changes()", kPrune);
    const bool isLast = dropped < _left;
    _left -= dropped;
    return isLast;
  }

  void dropSession(std::int64_t session) {
    _database.query("DELETE FROM sessions WHERE id = ?", kPrune).run(session);
    --_left;
  }

  TruthStore& _store;
  Database& _database;
  Date _now;
  std::int64_t _left;  // rows that may still be dropped
};

}  // namespace

void pruneLog(TruthStore& store, Date now, std::size_t rows) { Pruning(store, now, rows).run(); }

ReleasedContents::ReleasedContents(TruthStore& store)
    : _database(store.database()),
      _isLogPruned(_database.integer("SELECT pruned_session FROM truth", kPrune) > 0) {}

// Each content is one record's, which is why the record leads to all that can refer to it. The log is looked
// up by what was before alone: what a change left behind is what the truth still holds, or what a later
// change, which is dropped later, found.
void ReleasedContents::drop() {
  Statement remove = _database.query(
      "DELETE FROM contents WHERE id = ?2"
      " AND NOT EXISTS (SELECT 1 FROM records WHERE id = ?1 AND content = ?2)"
      " AND NOT EXISTS (SELECT 1 FROM tombstones WHERE id = ?1 AND content = ?2)"
      " AND NOT EXISTS (SELECT 1 FROM clients CROSS JOIN base b ON b.client = clients.id"
      " WHERE b.record = ?1 AND b.content = ?2)"
      " AND NOT EXISTS (SELECT 1 FROM clients CROSS JOIN former_base f ON f.client = clients.id"
      " WHERE f.record = ?1 AND f.content = ?2)"
      " AND NOT EXISTS (SELECT 1 FROM changes WHERE before_content = ?2)",
      kPrune);
  for (const auto& [record, content] : _released) remove.run(record, content);
  _released.clear();
}

}  // namespace corvane::loomer
