#pragma once

#include <cstdint>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// Where the values and the deletions come from that the online service holds, and those that it lost and is
/// still to be given again. By the record's id there.
class OriginTable {
 public:
  /// Of that client.
  OriginTable(TruthStore& store, std::int64_t client) : _store(store), _client(client) {}

  /// All absent for a record of which nothing is known.
  pelto::HubOrigins find(const String& id);
  std::unordered_map<String, pelto::HubOrigins> readAll();
  /// In the open transaction, here and below.
  void put(const String& id, const pelto::HubOrigins& origins);

  /// Which push deleted a record, as far as that is known.
  std::unordered_map<String, String> readDeletions();
  /// In place of what is known of the record's values. `pushId` may be absent; `session` is the number of the
  /// client's session that learns of it.
  void putDeletion(const String& id, const String& pushId, std::int64_t session);
  void removeDeletion(const String& id);
  /// Forgets what the session of that number and those before it learned.
  void forgetDeletions(std::int64_t session);

 private:
  TruthStore& _store;
  std::int64_t _client;
};

}  // namespace corvane::loomer
