#include "CorvaneSyncClient/platform/loomer/session/Agreement.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"

namespace corvane::loomer {

namespace {

// Each is looked for in the base by its local id, which walks it. Beyond some, merging everything is as
// cheap.
constexpr std::size_t kMostChanged = 16;

// The truth as it is after the session, record by record.
class MergedTruth {
 public:
  explicit MergedTruth(const Plan& plan) : _truth(plan.input.truth), _changes(plan.result.truthChanges) {
    _byId.reserve(_changes.size());
    for (std::size_t place = 0; place < _changes.size(); ++place)
      _byId.enter(hashOf(_changes[place].after.id), place);
  }

  // Null for one that there never was. Ids must be asked for in ascending order.
  const TruthRecord* record(RecordId id) {
    if (const TruthRecord* const changed = changedRecord(id)) return changed;
    while (_at < _truth.size() && _truth[_at].id < id) ++_at;
    return _at < _truth.size() && _truth[_at].id == id ? &_truth[_at] : nullptr;
  }

  std::size_t liveCount() const {
    std::size_t count = 0;
    for (const TruthRecord& each : _truth) {
      if (!each.deleted && !changedRecord(each.id)) ++count;
    }
    return count + static_cast<std::size_t>(
                       std::count_if(_changes.begin(), _changes.end(),
                                     [](const TruthChange& each) { return !each.after.deleted; }));
  }

 private:
  const TruthRecord* changedRecord(RecordId id) const {
    const std::uint32_t place =
        _byId.find(hashOf(id), [&](std::uint32_t at) { return _changes[at].after.id == id; });
    return place == HashIndex::kNowhere ? nullptr : &_changes[place].after;
  }

  const std::vector<TruthRecord>& _truth;
  const std::vector<TruthChange>& _changes;
  HashIndex _byId;  // of the changes
  std::size_t _at = 0;
};

// What was not readable at the client is merged as if it had not been sent.
bool saysEverything(const ClientRecord& record) {
  return static_cast<bool>(record.entity == Entity::folder ? record.content.name : record.content.url);
}

}  // namespace

bool isAgreement(const Plan& plan, const Settlement& settlement) {
  const std::optional<std::vector<ClientRecord>>& client = plan.input.client;
  if (!plan.tookAllRecords || !client || plan.delivers() || plan.replacedBase) return false;
  if (!std::all_of(client->begin(), client->end(), saysEverything)) return false;
  MergedTruth truth(plan);
  if (client->size() != settlement.base.size() || truth.liveCount() != settlement.base.size()) return false;
  return std::all_of(settlement.base.begin(), settlement.base.end(), [&](const BaseRecord& each) {
    const TruthRecord* const record = truth.record(each.record);
    return record && !record->deleted && !each.notHeld && each.refusedRevision == 0 &&
           record->entity == each.entity && record->parent == each.parent && record->content == each.content;
  });
}

std::optional<std::vector<std::size_t>> differingPlaces(const std::vector<std::uint64_t>& before,
                                                        const std::vector<std::uint64_t>& now) {
  if (before.size() != now.size()) return std::nullopt;
  std::vector<std::size_t> places;
  for (std::size_t place = 0; place < now.size(); ++place) {
    if (before[place] == now[place]) continue;
    if (places.size() == kMostChanged) return std::nullopt;
    places.push_back(place);
  }
  return places;
}

std::optional<std::vector<TruthRecord>> newsSince(std::int64_t revision, RecordTable& records) {
  std::vector<TruthRecord> news = records.newest(revision, kMostChanged + 1);
  const auto isDeleted = [](const TruthRecord& each) { return each.deleted; };
  if (news.size() > kMostChanged || std::any_of(news.begin(), news.end(), isDeleted)) return std::nullopt;
  return news;
}

std::optional<Sides> sidesAround(std::int64_t client, const std::vector<ClientRecord>& changed,
                                 const std::vector<TruthRecord>& news, RecordTable& records,
                                 BaseTable& bases) {
  std::vector<RecordId> folders;
  for (const ClientRecord& each : changed) {
    const std::optional<BaseRecord> known = bases.find(client, each.localId);
    if (!known || known->entity != each.entity || known->position != each.position) return std::nullopt;
    const std::optional<BaseRecord> folder = bases.find(client, known->parent);
    if (each.parentLocalId != (folder ? folder->localId : String())) return std::nullopt;
    folders.push_back(known->parent);
  }
  for (const TruthRecord& each : news) {
    const std::optional<BaseRecord> known = bases.find(client, each.id);
    if (!known || known->entity != each.entity || known->parent != each.parent) return std::nullopt;
    folders.push_back(each.parent);
  }
  Sides sides;
  sides.truth = records.readFolders(folders);
  sides.base = bases.readOnly(client, sides.truth);
  sides.client.tree = clientTree(sides.base.records, changed);
  return sides;
}

bool deliversAlone(const Plan& plan, const std::vector<TruthRecord>& news) {
  const std::vector<ClientChange>& changes = plan.result.clientChanges;
  return std::all_of(changes.begin(), changes.end(), [&](const ClientChange& change) {
    return std::any_of(news.begin(), news.end(),
                       [&](const TruthRecord& each) { return each.id == change.record; });
  });
}

}  // namespace corvane::loomer
