#include "CorvaneSyncClient/platform/loomer/session/HandedDown.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"

namespace corvane::loomer {

namespace {

bool precedes(const BaseRecord& a, const BaseRecord& b) { return a.record < b.record; }

std::vector<BaseRecord> sorted(std::vector<BaseRecord> records) {
  if (!std::is_sorted(records.begin(), records.end(), precedes)) {
    std::sort(records.begin(), records.end(), precedes);
  }
  return records;
}

/// Whether the client's record has a value that came with the change.
bool showsChange(const BaseRecord& before, const BaseRecord& after, const ClientRecord& now,
                 const std::vector<BaseRecord>& base) {
  const auto came = [&](auto Content::*value) {
    return before.content.*value != after.content.*value && now.content.*value == after.content.*value;
  };
  if (came(&Content::name) || came(&Content::url) || came(&Content::tabGroup)) return true;
  const BaseRecord* const folder = findRecord(base, after.parent);
  return before.parent != after.parent && now.parentLocalId == (folder ? folder->localId : String());
}

/// The base of a client to which the truth is handed down and which has changed nothing.
std::vector<BaseRecord> baseOfNews(MergeInput& input) {
  std::optional<std::vector<ClientRecord>> pushed = std::exchange(input.client, std::nullopt);
  std::vector<BaseRecord> base = merge(input).base;
  input.client = std::move(pushed);
  return base;
}

}  // namespace

BaseDifference handedDifference(MergeInput& input, const MergeResult& plan) {
  const std::vector<BaseRecord> answered = sorted(plan.base);
  const std::vector<BaseRecord> news = plan.truthChanges.empty() ? answered : sorted(baseOfNews(input));
  std::vector<BaseRecord> after;
  for (const BaseRecord& told : news) {
    const BaseRecord* const answer = findRecord(answered, told.record);
    const BaseRecord* const before = findRecord(input.base, told.record);
    if (!answer) {
      if (before)
        after.push_back(*before);  // the client has deleted it, of which the truth then knows nothing
    } else if (answer->notHeld || answer->refusedRevision != 0) {
      // Who refused it is asked once more: what it noted of that went with the session.
      after.push_back(*answer);
      after.back().refusedRevision = 0;
    } else {
      after.push_back(told);
      after.back().localId = answer->localId;
    }
  }
  for (const BaseRecord& before : input.base) {
    // What was deleted and lives again because the client has changed it.
    if (findRecord(answered, before.record) && !findRecord(news, before.record)) after.push_back(before);
  }
  return differenceOf(input.base, sorted(std::move(after)));
}

bool isOfNextSession(const HandedDown& handedDown, const ClientState& client) {
  return handedDown.registered == client.registered && handedDown.sessions == client.sessions &&
         handedDown.syncedRevision == client.syncedRevision;
}

std::vector<String> addedIds(const MergeResult& plan) {
  const std::vector<BaseRecord> base = sorted(plan.base);
  std::vector<String> added;
  for (const ClientChange& change : plan.clientChanges) {
    if (change.type != LoomerChangeTypeAdd) continue;
    const BaseRecord* const record = findRecord(base, change.record);
    if (record && !record->notHeld) added.push_back(record->localId);
  }
  return added;
}

bool showTaken(const HandedDown& handedDown, const std::vector<BaseRecord>& base,
               const std::vector<ClientRecord>& pushed) {
  std::unordered_map<String, const ClientRecord*> byLocalId;
  for (const ClientRecord& each : pushed) byLocalId.emplace(each.localId, &each);
  if (!handedDown.added.empty()) {
    return std::any_of(handedDown.added.begin(), handedDown.added.end(),
                       [&](const String& localId) { return byLocalId.contains(localId); });
  }
  return std::any_of(handedDown.handed.held.begin(), handedDown.handed.held.end(), [&](const auto& after) {
    const auto found = after.notHeld ? byLocalId.end() : byLocalId.find(after.localId);
    const BaseRecord* const before = findRecord(base, after.record);
    return found != byLocalId.end() && before && showsChange(*before, after, *found->second, base);
  });
}

BaseDifference differenceOf(const std::vector<BaseRecord>& before, const std::vector<BaseRecord>& after) {
  BaseDifference difference;
  for (const BaseRecord& each : after) {
    const BaseRecord* const known = findRecord(before, each.record);
    if (!known || !(*known == each)) difference.held.push_back(each);
  }
  for (const BaseRecord& each : before) {
    if (!findRecord(after, each.record)) difference.gone.push_back(each.record);
  }
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
  return sorted(std::move(records));
}

}  // namespace corvane::loomer
