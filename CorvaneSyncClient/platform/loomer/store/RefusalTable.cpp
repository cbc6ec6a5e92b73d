#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"

#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadRefusedPlan = MessageText<1>("cannot read a refused plan: %1").english();
constexpr const char* kNoteRefusedPlan = MessageText<1>("cannot note a refused plan: %1").english();
constexpr const char* kApproveRefusedPlan = MessageText<1>("cannot approve a refused plan: %1").english();
constexpr const char* kForgetRefusedPlan = MessageText<1>("cannot forget a refused plan: %1").english();

}  // namespace

std::optional<Refusal> RefusalTable::find(std::int64_t client) {
  Statement query = _store.database().query(
      "SELECT digest, deletions, live, refused, approved FROM refusals WHERE client = ?", kReadRefusedPlan);
  if (!query.open(client).next()) return std::nullopt;
  Refusal refusal{query.text(0).toString(), static_cast<std::size_t>(query.integer(1)),
                  static_cast<std::size_t>(query.integer(2)), Date{query.real(3)}, std::nullopt};
  if (!query.isNull(4)) refusal.approved = Date{query.real(4)};
  return refusal;
}

std::vector<RecordId> RefusalTable::deletions(std::int64_t client) {
  Statement query = _store.database().query(
      "SELECT record FROM refused_deletions WHERE client = ? ORDER BY record", kReadRefusedPlan);
  std::vector<RecordId> records;
  query.open(client);
  while (query.next()) records.push_back(query.integer(0));
  return records;
}

void RefusalTable::enter(std::int64_t client, const Refusal& refusal,
                         const std::vector<RecordId>& deletions) {
  _store.writing([&] {
    _store.database()
        .query(
            "INSERT INTO refusals(client, digest, deletions, live, refused) VALUES(?, ?, ?, ?, ?)"
            " ON CONFLICT(client) DO UPDATE SET deletions = excluded.deletions, live = excluded.live,"
            " refused = excluded.refused, approved = CASE digest WHEN excluded.digest THEN approved END,"
            " digest = excluded.digest",
            kNoteRefusedPlan)
        .run(client, refusal.digest, refusal.deletions, refusal.live, refusal.refused.seconds);
    _store.database().query("DELETE FROM refused_deletions WHERE client = ?", kNoteRefusedPlan).run(client);
    Statement insert = _store.database().query("INSERT INTO refused_deletions(client, record) VALUES(?, ?)",
                                               kNoteRefusedPlan);
    for (const RecordId record : deletions) insert.run(client, record);
  });
}

bool RefusalTable::approve(std::int64_t client, Date now) {
  if (!find(client)) return false;
  _store.writing([&] {
    _store.database()
        .query("UPDATE refusals SET approved = ? WHERE client = ?", kApproveRefusedPlan)
        .run(now.seconds, client);
  });
  return true;
}

void RefusalTable::remove(std::int64_t client) {
  _store.writing([&] {
    _store.database().query("DELETE FROM refusals WHERE client = ?", kForgetRefusedPlan).run(client);
  });
}

}  // namespace corvane::loomer
