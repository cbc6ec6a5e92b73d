#include "CorvaneSyncClient/platform/loomer/api/LoomerChange.h"

#include "CorvaneSyncClient/platform/foundation/Optional.h"

namespace corvane {

std::string LoomerChange::description() const {
  return format("LoomerChange type %d identifier %@ record %@", _type, _recordIdentifier, pointerTo(_record));
}

}  // namespace corvane
