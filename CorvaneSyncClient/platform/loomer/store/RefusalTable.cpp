#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"

namespace corvane::loomer {

std::optional<Refusal> RefusalTable::find(std::int64_t client) {
  Statement query = _store.database().query(
      "SELECT digest, deletions, live, refused, approved FROM refusals WHERE client = ?",
      "read a refused plan");
  if (!query.open(client).next()) return std::nullopt;
  Refusal refusal{query.text(0).toString(), static_cast<std::size_t>(query.integer(1)),
                  static_cast<std::size_t>(query.integer(2)), Date{query.real(3)}, std::nullopt};
  if (!query.isNull(4)) refusal.approved = Date{query.real(4)};
  return refusal;
}

void RefusalTable::enter(std::int64_t client, const Refusal& refusal) {
  _store.write([&] {
    _store.database()
        .query(
            "INSERT INTO refusals(client, digest, deletions, live, refused) VALUES(?, ?, ?, ?, ?)"
            " ON CONFLICT(client) DO UPDATE SET deletions = excluded.deletions, live = excluded.live,"
            " refused = excluded.refused, approved = CASE digest WHEN excluded.digest THEN approved END,"
            " digest = excluded.digest",
            "note a refused plan")
        .run(client, refusal.digest, refusal.deletions, refusal.live, refusal.refused.seconds);
  });
}

bool RefusalTable::approve(std::int64_t client, Date now) {
  if (!find(client)) return false;
  _store.write([&] {
    _store.database()
        .query("UPDATE refusals SET approved = ? WHERE client = ?", "approve a refused plan")
        .run(now.seconds, client);
  });
  return true;
}

void RefusalTable::remove(std::int64_t client) {
  _store.write([&] {
    _store.database().query("DELETE FROM refusals WHERE client = ?", "forget a refused plan").run(client);
  });
}

}  // namespace corvane::loomer
