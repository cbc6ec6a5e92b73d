#include "CorvaneSyncClient/platform/loomer/records/Records.h"

#include <algorithm>

namespace corvane::loomer {

const BaseRecord* findRecord(const std::vector<BaseRecord>& base, RecordId record) {
  const auto found = std::lower_bound(base.begin(), base.end(), record,
                                      [](const BaseRecord& each, RecordId id) { return each.record < id; });
  return found != base.end() && found->record == record ? &*found : nullptr;
}

}  // namespace corvane::loomer
