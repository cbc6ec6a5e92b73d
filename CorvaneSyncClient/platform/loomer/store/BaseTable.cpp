#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"

#include <algorithm>
#include <limits>

namespace corvane::loomer {

namespace {
constexpr const char* kReadBase = "read a client's base";
constexpr const char* kWriteBase = "write a client's base";
}  // namespace

StoredBase BaseTable::read(std::int64_t client) {
  Statement query = _store.database().query(
      "SELECT b.record, b.local_id, b.entity, b.parent, b.position, b.refused_revision, b.not_held, "
      "b.content,"
      " c.name, c.url, c.tab_group, c.special"
      " FROM base b JOIN contents c ON c.id = b.content WHERE b.client = ? ORDER BY b.record",
      kReadBase);
  StoredBase base;
  query.open(client);
  while (query.next()) {
    BaseRecord& record = base.records.emplace_back();
    record.record = query.integer(0);
    record.localId = query.text(1);
    record.entity = query.integer(2) == 0 ? Entity::folder : Entity::bookmark;
    record.parent = query.integer(3);
    record.position = static_cast<std::int32_t>(query.integer(4));
    record.refusedRevision = query.integer(5);
    record.notHeld = query.integer(6) != 0;
    record.content = {query.text(8), query.text(9), query.integer(10) != 0, query.integer(11) != 0};
    base.contents.push_back(query.integer(7));
  }
  return base;
}

void BaseTable::replace(std::int64_t client, const std::vector<BaseRecord>& before,
                        std::vector<BaseRecord>& after, ContentRows& contents) {
  std::sort(after.begin(), after.end(),
            [](const BaseRecord& a, const BaseRecord& b) { return a.record < b.record; });
  Statement remove = _store.database().query("DELETE FROM base WHERE client = ? AND record = ?", kWriteBase);
  Statement enter = _store.database().query(
      "INSERT OR REPLACE INTO base(client, record, local_id, entity, parent, position, content, "
      "refused_revision,"
      " not_held) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)",
      kWriteBase);
  auto old = before.begin();
  const auto removeUpTo = [&](RecordId record) {
    for (; old != before.end() && old->record < record; ++old) remove.run(client, old->record);
  };
  for (const BaseRecord& now : after) {
    removeUpTo(now.record);
    const bool known = old != before.end() && old->record == now.record;
    if (!known || !(*old == now)) {
      enter.run(client, now.record, now.localId, static_cast<std::int64_t>(now.entity), now.parent,
                std::int64_t{now.position}, contents.row(now.record, now.content), now.refusedRevision,
                now.notHeld);
    }
    if (known) ++old;
  }
  removeUpTo(std::numeric_limits<RecordId>::max());
}

}  // namespace corvane::loomer
