#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// The pushes out of which the state of the online service has grown that its client's base stands for, also
/// those that a service lost that was put back: whatever value comes from one of them the truth has moved on
/// from.
class PushTable {
 public:
  /// Of that client.
  PushTable(TruthStore& store, std::int64_t client) : _store(store), _client(client) {}

  /// The ids of all.
  std::unordered_set<String> readAll();
  /// The states, of `account`, that those made of which the client's sessions after that one learned: `most`
  /// at most, the latest ones first.
  std::vector<pelto::HubState> learnedAfter(std::int64_t session, const String& account, std::size_t most);
  /// Adds the push that made `state`, of which the session of that number has learned, in the open
  /// transaction. What is known already stays as it is.
  void add(const pelto::HubState& state, std::int64_t session);

 private:
  TruthStore& _store;
  std::int64_t _client;
};

}  // namespace corvane::loomer
