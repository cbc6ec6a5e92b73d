#include "CorvaneSyncClient/platform/loomer/records/Records.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace corvane::loomer {

bool isLive(const std::vector<TruthRecord>& truth, RecordId record) {
  const auto found = std::lower_bound(truth.begin(), truth.end(), record,
                                      [](const TruthRecord& each, RecordId id) { return each.id < id; });
  return found != truth.end() && found->id == record && !found->deleted;
}

const BaseRecord* findRecord(const std::vector<BaseRecord>& base, RecordId record) {
  const auto found = std::lower_bound(base.begin(), base.end(), record,
                                      [](const BaseRecord& each, RecordId id) { return each.record < id; });
  return found != base.end() && found->record == record ? &*found : nullptr;
}

BaseDifference differenceOf(const std::vector<BaseRecord>& before, std::vector<BaseRecord> after) {
  BaseDifference difference;
  for (const BaseRecord& each : before) {
    if (!findRecord(after, each.record)) difference.gone.push_back(each.record);
  }
  std::erase_if(after, [&](const BaseRecord& each) {
    const BaseRecord* const known = findRecord(before, each.record);
    return known && *known == each;
  });
  difference.held = std::move(after);
  return difference;
}

std::vector<BaseRecord> withDifference(const BaseDifference& difference,
                                       const std::vector<BaseRecord>& base) {
  std::vector<BaseRecord> records;
  records.reserve(base.size() + difference.held.size());
  std::copy_if(base.begin(), base.end(), std::back_inserter(records), [&](const BaseRecord& each) {
    return !findRecord(difference.held, each.record) &&
           !std::binary_search(difference.gone.begin(), difference.gone.end(), each.record);
  });
  records.insert(records.end(), difference.held.begin(), difference.held.end());
  sortByRecord(records);
  return records;
}

void sortByRecord(std::vector<BaseRecord>& base) {
  const auto precedes = [](const BaseRecord& a, const BaseRecord& b) { return a.record < b.record; };
  if (!std::is_sorted(base.begin(), base.end(), precedes)) std::sort(base.begin(), base.end(), precedes);
}

}  // namespace corvane::loomer
