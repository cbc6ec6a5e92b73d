#pragma once

#include <cstdint>
#include <memory>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::servicebench {

/// What became of a place's objects.
struct ObjectCounts {
  std::int64_t written = 0;
  std::int64_t removed = 0;
};

/// A way to a place without a network, whose calls count as traffic: a name with the bytes asked for or given
/// with it, and a listing with a line for each object, as corvane-hub writes it. `counts` must outlive it.
std::unique_ptr<pelto::Place> counted(std::unique_ptr<pelto::Place> place, ObjectCounts& counts);

}  // namespace corvane::servicebench
