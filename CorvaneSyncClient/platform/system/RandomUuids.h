#pragma once

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/system/UuidSource.h"

namespace corvane {

/// Random UUIDs from the system's generator.
class RandomUuids : public UuidSource {
 public:
  String newUuid() override { return newUuidString(); }
};

}  // namespace corvane
