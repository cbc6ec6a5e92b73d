#include "CorvaneSyncClient/platform/loomer/api/LoomerChange.h"

namespace corvane {

std::string LoomerChange::description() const {
  return format("LoomerChange type %d identifier %@ record %@", _type, _recordIdentifier,
                _record ? &*_record : static_cast<const Dictionary*>(nullptr));
}

}  // namespace corvane
