#include "CorvaneSyncClient/platform/loomer/hub/OriginTable.h"

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/loomer/hub/StoredUuid.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {

using pelto::HubOrigins;

constexpr const char* kReadOrigins =
    MessageText<1>("cannot read where the online service's values come from: %1").english();
constexpr const char* kWriteOrigins =
    MessageText<1>("cannot note where the online service's values come from: %1").english();

std::string packed(const HubOrigins& origins) {
  std::string bytes;
  for (const String HubOrigins::*const each : pelto::kHubOrigins) bytes += storedUuid(origins.*each);
  const std::string_view first = std::string_view(bytes).substr(0, kUuidSize);
  for (std::size_t at = 0; at < bytes.size(); at += kUuidSize) {
    if (bytes.compare(at, kUuidSize, first) != 0) return bytes;
  }
  return std::string(first);
}

HubOrigins unpacked(std::string_view bytes) {
  HubOrigins origins;
  for (std::size_t i = 0; i < pelto::kHubOrigins.size(); ++i) {
    const std::size_t at = bytes.size() == kUuidSize ? 0 : i * kUuidSize;
    if (at + kUuidSize <= bytes.size())
      origins.*pelto::kHubOrigins[i] = uuidFrom(bytes.substr(at, kUuidSize));
  }
  return origins;
}

}  // namespace

HubOrigins OriginTable::find(const String& id) {
  Statement query =
      _store.database().query("SELECT pushes FROM origins WHERE client = ? AND local_id = ?", kReadOrigins);
  const std::string key = storedUuid(id);
  return query.open(_client, Blob{key}).next() ? unpacked(query.blob(0)) : HubOrigins();
}

std::unordered_map<String, HubOrigins> OriginTable::readAll() {
  Statement query =
      _store.database().query("SELECT local_id, pushes FROM origins WHERE client = ?", kReadOrigins);
  std::unordered_map<String, HubOrigins> all;
  query.open(_client);
  while (query.next()) {
    const std::string_view id = query.blob(0);
    if (id.size() == kUuidSize) all.emplace(uuidFrom(id), unpacked(query.blob(1)));
  }
  return all;
}

void OriginTable::put(const String& id, const HubOrigins& origins) {
  if (!uuidBytes(id.view())) return;  // no other identifier is ever the service's
  const std::string key = storedUuid(id);
  const std::string pushes = packed(origins);
  _store.database()
      .query("INSERT OR REPLACE INTO origins(client, local_id, pushes) VALUES(?, ?, ?)", kWriteOrigins)
      .run(_client, Blob{key}, Blob{pushes});
}

std::unordered_map<String, String> OriginTable::readDeletions() {
  Statement query =
      _store.database().query("SELECT local_id, push FROM deletions WHERE client = ?", kReadOrigins);
  std::unordered_map<String, String> deletions;
  query.open(_client);
  while (query.next()) deletions.emplace(uuidFrom(query.blob(0)), uuidFrom(query.blob(1)));
  return deletions;
}

void OriginTable::putDeletion(const String& id, const String& pushId, std::int64_t session) {
  if (!uuidBytes(id.view())) return;
  const std::string key = storedUuid(id);
  _store.database()
      .query("DELETE FROM origins WHERE client = ? AND local_id = ?", kWriteOrigins)
      .run(_client, Blob{key});
  if (!pushId) return removeDeletion(id);
  const std::string push = storedUuid(pushId);
  _store.database()
      .query("INSERT OR REPLACE INTO deletions(client, local_id, push, session) VALUES(?, ?, ?, ?)",
             kWriteOrigins)
      .run(_client, Blob{key}, Blob{push}, session);
}

void OriginTable::removeDeletion(const String& id) {
  const std::string key = storedUuid(id);
  _store.database()
      .query("DELETE FROM deletions WHERE client = ? AND local_id = ?", kWriteOrigins)
      .run(_client, Blob{key});
}

void OriginTable::forgetDeletions(std::int64_t session) {
  _store.database()
      .query("DELETE FROM deletions WHERE client = ? AND session <= ?", kWriteOrigins)
      .run(_client, session);
}

}  // namespace corvane::loomer
