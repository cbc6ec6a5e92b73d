#include "CorvaneSyncClient/platform/loomer/hub/OriginTable.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"

namespace corvane::loomer {

namespace {

using pelto::HubOrigins;

constexpr const char* kReadOrigins = "read where the online service's values come from";
constexpr const char* kWriteOrigins = "note where the online service's values come from";
constexpr std::size_t kUuidSize = 16;

// Zeros stand for what is not known.
std::string bytesOf(const String& uuid) {
  const auto bytes = uuid ? uuidBytes(uuid.view()) : std::nullopt;
  return bytes ? std::string(bytes->data(), bytes->size()) : std::string(kUuidSize, '\0');
}

String uuidOf(std::string_view bytes) {
  if (bytes == std::string(kUuidSize, '\0')) return String();
  UuidBytes uuid;
  std::copy(bytes.begin(), bytes.end(), uuid.begin());
  return String(uuidString(uuid));
}

std::string packed(const HubOrigins& origins) {
  std::string bytes;
  for (const String HubOrigins::*const each : pelto::kHubOrigins) bytes += bytesOf(origins.*each);
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
    if (at + kUuidSize <= bytes.size()) origins.*pelto::kHubOrigins[i] = uuidOf(bytes.substr(at, kUuidSize));
  }
  return origins;
}

}  // namespace

HubOrigins OriginTable::find(const String& id) {
  Statement query =
      _store.database().query("SELECT pushes FROM origins WHERE client = ? AND local_id = ?", kReadOrigins);
  const std::string key = bytesOf(id);
  return query.open(_client, Blob{key}).next() ? unpacked(query.blob(0)) : HubOrigins();
}

std::unordered_map<String, HubOrigins> OriginTable::readAll() {
  Statement query =
      _store.database().query("SELECT local_id, pushes FROM origins WHERE client = ?", kReadOrigins);
  std::unordered_map<String, HubOrigins> all;
  query.open(_client);
  while (query.next()) {
    const std::string_view id = query.blob(0);
    if (id.size() == kUuidSize) all.emplace(uuidOf(id), unpacked(query.blob(1)));
  }
  return all;
}

void OriginTable::put(const String& id, const HubOrigins& origins) {
  if (!uuidBytes(id.view())) return;  // no other identifier is ever the service's
  const std::string key = bytesOf(id);
  const std::string pushes = packed(origins);
  _store.database()
      .query("INSERT OR REPLACE INTO origins(client, local_id, pushes) VALUES(?, ?, ?)", kWriteOrigins)
      .run(_client, Blob{key}, Blob{pushes});
}

void OriginTable::remove(const String& id) {
  const std::string key = bytesOf(id);
  _store.database()
      .query("DELETE FROM origins WHERE client = ? AND local_id = ?", kWriteOrigins)
      .run(_client, Blob{key});
}

}  // namespace corvane::loomer
