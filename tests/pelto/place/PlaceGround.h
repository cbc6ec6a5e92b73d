#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

namespace corvane::pelto {

/// A server for tests, or a directory, and the ways to it. Gone with this object.
class PlaceGround {
 public:
  virtual ~PlaceGround() = default;

  /// One more way to the one place. Each thread has one of its own.
  virtual std::unique_ptr<Place> place(Deadline deadline, double pauseBeforeEnd = 0) = 0;
};

/// The names of the grounds that this build can make.
std::vector<std::string> groundNames();

/// The ground of that name, made at the first call for it. Raises std::runtime_error when it cannot be.
PlaceGround& groundOf(const std::string& name);

}  // namespace corvane::pelto
