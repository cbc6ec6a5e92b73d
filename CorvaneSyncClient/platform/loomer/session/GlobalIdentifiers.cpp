#include "CorvaneSyncClient/platform/loomer/session/GlobalIdentifiers.h"

#include <algorithm>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"

namespace corvane::loomer {

std::optional<std::vector<BaseRecord>> baseMetByIdentifier(RecordTable& records,
                                                           const std::vector<BaseRecord>& base,
                                                           const std::vector<ClientRecord>& pushed) {
  std::unordered_set<String> known;
  for (const BaseRecord& each : base) known.insert(each.localId);
  std::vector<BaseRecord> met;
  std::optional<std::unordered_map<String, RecordId>> byIdentifier;
  for (const ClientRecord& each : pushed) {
    if (known.contains(each.localId)) continue;
    if (!byIdentifier) byIdentifier = records.byGlobalIdentifier();
    const auto found = byIdentifier->find(each.localId);
    if (found == byIdentifier->end()) continue;
    const BaseRecord* const before = findRecord(base, found->second);
    if (before && !before->notHeld) continue;
    BaseRecord& record = met.emplace_back(before ? *before : BaseRecord());
    record.localId = each.localId;
    record.record = found->second;
    record.entity = each.entity;
    record.notHeld = true;
  }
  if (met.empty()) return std::nullopt;
  std::sort(met.begin(), met.end(), [](const auto& a, const auto& b) { return a.record < b.record; });
  std::vector<BaseRecord> all;
  all.reserve(base.size() + met.size());
  std::set_union(met.begin(), met.end(), base.begin(), base.end(), std::back_inserter(all),
                 [](const auto& a, const auto& b) { return a.record < b.record; });
  return all;
}

void adoptIdentifiers(RecordTable& records, const std::vector<BaseRecord>& before,
                      const std::vector<BaseRecord>& after) {
  std::vector<const BaseRecord*> met;
  for (const BaseRecord& each : after) {
    if (each.notHeld || !each.localId) continue;
    const BaseRecord* const known = findRecord(before, each.record);
    if (!known || known->localId != each.localId) met.push_back(&each);
  }
  if (met.empty()) return;
  const std::unordered_map<String, RecordId> bearers = records.byGlobalIdentifier();
  for (const BaseRecord* each : met) {
    const auto bearer = bearers.find(each->localId);
    if (bearer != bearers.end() && bearer->second == each->record) continue;
    if (bearer != bearers.end()) records.makeGlobalIdentifier(bearer->second);
    records.setGlobalIdentifier(each->record, each->localId);
  }
}

}  // namespace corvane::loomer
