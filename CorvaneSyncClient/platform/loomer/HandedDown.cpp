#include "CorvaneSyncClient/platform/loomer/HandedDown.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace corvane::loomer {

namespace {

bool precedes(const BaseRecord& a, const BaseRecord& b) { return a.record < b.record; }

/// In records by ascending number; null for one that is not there.
const BaseRecord* find(const std::vector<BaseRecord>& records, RecordId record) {
  const auto found = std::lower_bound(records.begin(), records.end(), record,
                                      [](const BaseRecord& each, RecordId id) { return each.record < id; });
  return found != records.end() && found->record == record ? &*found : nullptr;
}

std::vector<BaseRecord> sorted(std::vector<BaseRecord> records) {
  if (!std::is_sorted(records.begin(), records.end(), precedes)) {
    std::sort(records.begin(), records.end(), precedes);
  }
  return records;
}

/// The base of a client to which the truth is handed down and which has changed nothing.
std::vector<BaseRecord> baseOfNews(MergeInput& input) {
  std::optional<std::vector<ClientRecord>> pushed = std::exchange(input.client, std::nullopt);
  std::vector<BaseRecord> base = merge(input).base;
  input.client = std::move(pushed);
  return base;
}

}  // namespace

HandedDown noteOf(MergeInput& input, const MergeResult& plan) {
  const std::vector<BaseRecord> answered = sorted(plan.base);
  const std::vector<BaseRecord> news = plan.truthChanges.empty() ? answered : sorted(baseOfNews(input));
  HandedDown note;
  for (BaseRecord record : news) {
    const BaseRecord* const answer = find(answered, record.record);
    if (!answer) continue;  // the client has deleted it
    if (answer->notHeld || answer->refusedRevision != 0) record = *answer;
    record.localId = answer->localId;
    const BaseRecord* const before = find(input.base, record.record);
    if (!before || !(*before == record)) note.held.push_back(std::move(record));
  }
  for (const BaseRecord& before : input.base) {
    if (!find(news, before.record) && !find(answered, before.record)) note.gone.push_back(before.record);
  }
  return note;
}

bool isOfNextSession(const HandedDown& handedDown, const ClientState& client) {
  return handedDown.registered == client.registered && handedDown.sessions == client.sessions &&
         handedDown.syncedRevision == client.syncedRevision;
}

bool showTaken(const HandedDown& handedDown, const std::vector<BaseRecord>& base,
               const std::vector<ClientRecord>& pushed) {
  std::unordered_map<String, const ClientRecord*> byLocalId;
  for (const ClientRecord& each : pushed) byLocalId.emplace(each.localId, &each);
  const auto parentId = [&](RecordId parent) {
    const BaseRecord* const folder = find(handedDown.held, parent);
    const BaseRecord* const before = folder ? folder : find(base, parent);
    return before ? before->localId : String();
  };
  return std::any_of(handedDown.held.begin(), handedDown.held.end(), [&](const BaseRecord& after) {
    if (after.notHeld || !after.localId) return false;
    const auto found = byLocalId.find(after.localId);
    if (found == byLocalId.end()) return false;
    const BaseRecord* const before = find(base, after.record);
    if (!before || before->notHeld) return true;
    const ClientRecord& now = *found->second;
    const auto came = [&](auto Content::*value) {
      return before->content.*value != after.content.*value && now.content.*value == after.content.*value;
    };
    return came(&Content::name) || came(&Content::url) || came(&Content::tabGroup) ||
           (before->parent != after.parent && now.parentLocalId == parentId(after.parent));
  });
}

std::vector<BaseRecord> withTaken(const HandedDown& handedDown, const std::vector<BaseRecord>& base) {
  std::vector<BaseRecord> records;
  records.reserve(base.size() + handedDown.held.size());
  std::copy_if(base.begin(), base.end(), std::back_inserter(records), [&](const BaseRecord& each) {
    return !find(handedDown.held, each.record) &&
           !std::binary_search(handedDown.gone.begin(), handedDown.gone.end(), each.record);
  });
  records.insert(records.end(), handedDown.held.begin(), handedDown.held.end());
  return sorted(std::move(records));
}

}  // namespace corvane::loomer
