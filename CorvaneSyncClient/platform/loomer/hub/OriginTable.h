#pragma once

#include <cstdint>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// Where the values come from that the online service holds, and those that it lost and is still to be given
/// again. By the record's id there.
class OriginTable {
 public:
  /// Of that client.
  OriginTable(TruthStore& store, std::int64_t client) : _store(store), _client(client) {}

  /// All absent for a record of which nothing is known.
  pelto::HubOrigins find(const String& id);
  std::unordered_map<String, pelto::HubOrigins> readAll();
  /// In the open transaction, here and below.
  void put(const String& id, const pelto::HubOrigins& origins);
  void remove(const String& id);

 private:
  TruthStore& _store;
  std::int64_t _client;
};

}  // namespace corvane::loomer
