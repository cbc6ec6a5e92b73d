#pragma once

#include <functional>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/Hub.h"

namespace corvane::loomer {

/// What a push is made over, by id and with origins.
struct PushedOver {
  std::unordered_map<String, const pelto::HubRecord*> held;  ///< what the service holds
  /// What it held before it was put back, as long as it is not given all of that again.
  std::unordered_map<String, pelto::HubRecord> lost;
  /// Whether a value of that origin came to the service since, so that it is newer than the lost one.
  std::function<bool(const String&)> isNews;
};

/// Says of every value in `given`, which the push of that id writes, where it comes from: a value that stands
/// keeps its origin, one that is given again has that of the lost one, and all others come from this push.
/// Of siblings in a new order those in `given` are new that moved: as few as explain the order.
void setOrigins(std::vector<pelto::HubRecord>& given, const String& pushId, const PushedOver& over);

}  // namespace corvane::loomer
