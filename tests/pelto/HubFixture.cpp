#include "tests/pelto/HubFixture.h"

#include <algorithm>
#include <functional>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"

namespace corvane::pelto {

namespace {

std::string shortText(const String& text) {
  if (!text) return "-";
  if (text.view().size() <= 200) return '"' + text.toString() + '"';
  return std::to_string(text.view().size()) + " bytes, " +
         std::to_string(std::hash<std::string_view>()(text.view()));
}

std::string lineOf(const HubRecord& record) {
  if (record.deleted) return record.id.toString() + " deleted\n";
  return record.id.toString() + (record.folder ? " folder " : " bookmark ") + shortText(record.name) + " " +
         shortText(record.url) + " in " + shortText(record.parent) + " at " +
         std::to_string(record.position) + (record.tabGroup ? " tab group" : "") +
         (record.special ? " special" : "") + "\n";
}

}  // namespace

HubRecord bookmark(const String& name, const String& url, const String& parent) {
  HubRecord record;
  record.id = newUuidString();
  record.parent = parent;
  record.name = name;
  record.url = url;
  return record;
}

HubRecord folder(const String& name, const String& parent) {
  HubRecord record = bookmark(name, {}, parent);
  record.folder = true;
  return record;
}

HubRecord tombstone(const HubRecord& record) {
  HubRecord gone;
  gone.id = record.id;
  gone.folder = record.folder;
  gone.deleted = true;
  return gone;
}

std::string text(std::vector<HubRecord> records) {
  std::sort(records.begin(), records.end(),
            [](const HubRecord& a, const HubRecord& b) { return a.id.view() < b.id.view(); });
  std::string lines;
  for (const HubRecord& record : records) lines += lineOf(record);
  return lines;
}

String HubTest::give(Hub& to, std::vector<HubRecord> records) {
  const HubPush push{to.remoteChanges({}).now, newUuidString(), std::move(records)};
  EXPECT_TRUE(to.push(push));
  return push.id;
}

std::string HubTest::forAccount(std::string sql) {
  const std::string account = "(SELECT id FROM corvane_hub.accounts WHERE role = '" + user + "')";
  for (std::size_t at = sql.find('$'); at != std::string::npos; at = sql.find('$', at + account.size()))
    sql.replace(at, 1, account);
  return sql;
}

std::int64_t HubTest::number(std::string sql) {
  return std::stoll(server.administer(forAccount(std::move(sql))));
}

void HubTest::administer(std::string sql) { server.administer(forAccount(std::move(sql))); }

}  // namespace corvane::pelto
