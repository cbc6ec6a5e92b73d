#pragma once

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

/// Where new identifiers come from.
class UuidSource {
 public:
  virtual ~UuidSource() = default;
  /// A new UUID in its string form: 36 characters, upper-case hexadecimal and hyphens.
  virtual String newUuid() = 0;
};

}  // namespace corvane
