#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane {

/// A place in memory, shared by the computers of a test. A test makes it fail, and puts it back to earlier
/// states.
class MemoryPlace {
 public:
  struct Object {
    std::string bytes;
    Date date;
  };
  using Objects = std::map<std::string, Object>;

  /// The place as one computer reaches it. This object must outlive it.
  std::unique_ptr<pelto::Place> connect();

  Objects objects;
  double clockAhead = 0;  ///< seconds by which the place's clock is ahead of the computers'

  /// Called before and after each request is carried out, with "put new", "put", "get", "list" or "remove",
  /// and "… done". What it raises, the call raises.
  std::function<void(const std::string&)> onCall;
  std::vector<std::string> calls;
  std::size_t requests = 0;  ///< objects and folders that these calls named: of a server, one request each

 private:
  class Connection;
};

}  // namespace corvane
