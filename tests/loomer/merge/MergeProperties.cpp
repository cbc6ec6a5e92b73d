#include "tests/loomer/merge/MergeProperties.h"

#include <rapidcheck.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>

#include "tests/loomer/merge/HistorySteps.h"

namespace corvane::loomer::test {
namespace {

using kit::Step;
using kit::stepsOf;
using enum kit::StepKind;

const kit::Weights kEverything = {
    {3, addBookmark}, {2, addFolder}, {1, addHidden}, {1, rename},     {1, readdress}, {1, toggle}, {3, move},
    {2, reorder},     {1, erase},     {3, sync},      {1, syncKilled}, {1, refresh},   {1, replace}};

const kit::Weights kQuietEdits = {{2, addBookmark}, {1, addFolder}, {1, addHidden},
                                  {1, rename},      {1, readdress}, {1, toggle},
                                  {2, move},        {2, reorder},   {1, erase}};

std::set<std::string> titlesOf(const ClientSimulation& client) {
  std::set<std::string> titles;
  for (const std::string& each : client.subtree(ClientSimulation::kRoot)) {
    if (each != ClientSimulation::kRoot) titles.insert(client.nodes.at(each).name.toString());
  }
  return titles;
}

std::map<std::string, int> countTitles(const ClientSimulation& client) {
  std::map<std::string, int> counts;
  for (const std::string& uid : client.visibleNodes()) ++counts[client.nodes.at(uid).name.toString()];
  return counts;
}

// Gives every client the same first tree under uids of its own.
void growEqualTrees(History& history, unsigned& serial) {
  const unsigned first = serial;
  for (std::size_t at = 0; at < history.size(); ++at) {
    serial = first;
    ClientSimulation& client = history.client(at);
    for (unsigned i = 0; i < 4; ++i) {
      const std::string name = "t" + std::to_string(++serial);
      const std::string folder = client.add(kit::newNode(true, ClientSimulation::kRoot, name), i);
      const std::string child = "t" + std::to_string(++serial);
      client.add(kit::newNode(false, folder, child, child));
    }
  }
}

// The parts of the sides that stand in the folders of `changed`, and the folders above these.
MergeInput partAround(const MergeInput& whole, const std::set<RecordId>& changed) {
  std::map<RecordId, RecordId> parents;
  for (const BaseRecord& each : whole.base) parents[each.record] = each.parent;
  std::set<RecordId> folders;
  for (const RecordId record : changed) folders.insert(parents.at(record));
  std::set<RecordId> kept;
  for (const auto& [record, parent] : parents) {
    if (folders.contains(parent)) kept.insert(record);
  }
  for (RecordId at : folders) {
    for (; at != kRoot; at = parents.at(at)) kept.insert(at);
  }
  MergeInput part = whole;
  std::erase_if(part.truth, [&](const TruthRecord& each) { return !kept.contains(each.id); });
  std::erase_if(part.base, [&](const BaseRecord& each) { return !kept.contains(each.record); });
  std::erase_if(*part.client, [&](const ClientRecord& each) {
    return std::none_of(part.base.begin(), part.base.end(),
                        [&](const BaseRecord& base) { return base.localId == each.localId; });
  });
  return part;
}

// Whether all three say the same, special folders and hidden entries among them.
bool agree(const MergeInput& input) {
  std::map<RecordId, const TruthRecord*> live;
  for (const TruthRecord& each : input.truth) {
    if (!each.deleted) live[each.id] = &each;
  }
  std::map<std::string, const ClientRecord*> held;
  for (const ClientRecord& each : *input.client) held[each.localId.toString()] = &each;
  if (live.size() != input.base.size() || held.size() != input.base.size()) return false;
  return std::all_of(input.base.begin(), input.base.end(), [&](const BaseRecord& each) {
    const auto record = live.find(each.record);
    const auto client = held.find(each.localId.toString());
    return record != live.end() && client != held.end() && !each.notHeld && each.refusedRevision == 0 &&
           record->second->content == each.content && record->second->parent == each.parent &&
           client->second->content == each.content && client->second->position == each.position;
  });
}

// Adds the records to which the client gives other values; false where it did more than that.
bool addChangedByClient(const MergeInput& before, const MergeInput& now, std::set<RecordId>& changed) {
  if (before.client->size() != now.client->size()) return false;
  for (std::size_t i = 0; i < now.client->size(); ++i) {
    const ClientRecord& was = (*before.client)[i];
    const ClientRecord& is = (*now.client)[i];
    const bool stands = was.localId == is.localId && was.parentLocalId == is.parentLocalId &&
                        was.position == is.position && was.entity == is.entity;
    if (!stands) return false;
    if (was.content == is.content) continue;
    for (const BaseRecord& each : now.base) {
      if (each.localId == is.localId) changed.insert(each.record);
    }
  }
  return true;
}

// The same of the truth, whose records may also have got other places among their siblings.
bool addChangedInTruth(const MergeInput& before, const MergeInput& now, std::set<RecordId>& changed) {
  if (before.truth.size() != now.truth.size()) return false;
  for (std::size_t i = 0; i < now.truth.size(); ++i) {
    const TruthRecord& was = before.truth[i];
    const TruthRecord& is = now.truth[i];
    if (was.id != is.id || was.parent != is.parent || was.deleted != is.deleted) return false;
    if (was.revision != is.revision) changed.insert(is.id);
  }
  return true;
}

// What has other values than when all agreed.
struct Changed {
  std::set<RecordId> byClient;
  std::set<RecordId> inTruth;

  std::set<RecordId> all() const {
    std::set<RecordId> both = byClient;
    both.insert(inTruth.begin(), inTruth.end());
    return both;
  }
};

// None where there is more to it than values.
Changed changedInPlace(const MergeInput& before, const MergeInput& now) {
  Changed changed;
  const bool stand =
      addChangedByClient(before, now, changed.byClient) && addChangedInTruth(before, now, changed.inTruth);
  return stand ? changed : Changed();
}

std::map<RecordId, BaseRecord> baseById(const std::vector<BaseRecord>& base) {
  std::map<RecordId, BaseRecord> records;
  for (const BaseRecord& each : base) records[each.record] = each;
  return records;
}

// What is delivered may be no more than the truth's news: then the whole is merged.
void requireSameMerge(const MergeInput& whole, const MergeInput& part, const std::set<RecordId>& news) {
  const MergeResult some = merge(part);
  if (std::any_of(some.clientChanges.begin(), some.clientChanges.end(),
                  [&](const ClientChange& each) { return !news.contains(each.record); }))
    return;
  const MergeResult all = merge(whole);
  RC_ASSERT(all.clientChanges.size() == some.clientChanges.size());
  for (std::size_t i = 0; i < all.clientChanges.size(); ++i) {
    const ClientChange& one = all.clientChanges[i];
    const ClientChange& other = some.clientChanges[i];
    RC_ASSERT(one.type == other.type);
    RC_ASSERT(one.entity == other.entity);
    RC_ASSERT(one.record == other.record);
    RC_ASSERT(one.localId == other.localId);
    RC_ASSERT(one.parent == other.parent);
    RC_ASSERT(one.moves == other.moves);
    RC_ASSERT(one.position == other.position);
    RC_ASSERT(one.content == other.content);
  }
  RC_ASSERT(!all.deleteAllFirst);
  RC_ASSERT(all.deletedByAbsence == 0U);
  RC_ASSERT(some.deletedByAbsence == 0U);
  RC_ASSERT(all.losses.size() == some.losses.size());
  RC_ASSERT(all.truthChanges.size() == some.truthChanges.size());
  for (std::size_t i = 0; i < all.truthChanges.size(); ++i) {
    const TruthRecord& one = all.truthChanges[i].after;
    const TruthRecord& other = some.truthChanges[i].after;
    RC_ASSERT(one.id == other.id);
    RC_ASSERT(one.parent == other.parent);
    RC_ASSERT(one.place == other.place);
    RC_ASSERT(one.content == other.content);
    RC_ASSERT(one.deleted == other.deleted);
  }
  std::map<RecordId, BaseRecord> base = baseById(whole.base);
  for (const BaseRecord& each : some.base) base[each.record] = each;
  RC_ASSERT(base == baseById(all.base));
}

}  // namespace

void clientsConverge() {
  History history(*rc::gen::inRange<std::size_t>(2, 6));
  unsigned serial = 0;
  for (const Step& step : *stepsOf(kEverything)) carryOut(history, step, Titles::few, serial);
  history.round();
  history.round();
  history.requireConverged();
}

void changesArrive() {
  History history(3);
  unsigned serial = 0;
  for (const Step& step : *stepsOf(kEverything)) carryOut(history, step, Titles::few, serial);
  history.round();
  history.round();
  for (Step step : *stepsOf(kQuietEdits)) {
    step.client = 1;
    carryOut(history, step, Titles::few, serial);
  }
  static_cast<void>(history.client(1).read());
  const std::string edited = history.client(1).print();
  history.round();
  history.sync(0);
  for (std::size_t i = 0; i < history.size(); ++i) RC_ASSERT(history.client(i).print() == edited);
}

void nothingVanishes() {
  const kit::Weights weights = {{2, addBookmark}, {1, addFolder}, {1, toggle},     {3, move},   {1, reorder},
                                {1, erase},       {3, sync},      {1, syncKilled}, {1, refresh}};

  History history(*rc::gen::inRange<std::size_t>(2, 5));
  unsigned serial = 0;
  growEqualTrees(history, serial);
  for (std::size_t at = 0; at < history.size(); ++at) {
    if (*rc::gen::arbitrary<bool>()) history.syncKilled(at);
    history.sync(at);
    RC_ASSERT(history.truth().size() == 8U);
  }
  std::set<std::string> deleted;
  for (const Step& step : *stepsOf(weights)) {
    const std::size_t at = step.client % history.size();
    const std::set<std::string> before = titlesOf(history.client(at));
    carryOut(history, step, Titles::unique, serial);
    if (step.kind == erase) {
      const std::set<std::string> after = titlesOf(history.client(at));
      std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                          std::inserter(deleted, deleted.end()));
    }
    if (step.kind == syncKilled) history.sync(at);
  }
  history.round();
  history.round();
  history.requireConverged();
  const std::map<std::string, int> counts = countTitles(history.client(0));
  for (const auto& [title, count] : counts) RC_ASSERT(count == 1);
  for (unsigned i = 1; i <= serial; ++i) {
    const std::string title = "t" + std::to_string(i);
    if (!deleted.contains(title)) RC_ASSERT(counts.contains(title));
  }
}

void changedValuesMergeInTheirFolders() {
  History history(*rc::gen::inRange<std::size_t>(1, 4));
  unsigned serial = 0;
  // What is compared is cheap beside the histories that lead there.
  constexpr double kShort = 0.4;
  for (const Step& step : *rc::gen::scale(kShort, stepsOf(kEverything))) {
    carryOut(history, step, Titles::few, serial);
  }
  history.round();
  history.round();
  int compared = 0, pulled = 0;
  MergeInput agreed = history.inputFor(0);
  for (const Step& step : *stepsOf({{3, rename}, {1, readdress}, {1, toggle}, {1, reorder}, {3, sync}})) {
    carryOut(history, step, Titles::few, serial);
    const MergeInput now = history.inputFor(0);
    if (step.kind == sync && step.client % history.size() == 0) agreed = now;
    const Changed changed = agree(agreed) ? changedInPlace(agreed, now) : Changed();
    if (changed.all().empty()) continue;
    requireSameMerge(now, partAround(now, changed.all()), changed.inTruth);
    ++compared;
    pulled += changed.inTruth.empty() ? 0 : 1;
  }
  RC_CLASSIFY(compared > 0);
  RC_CLASSIFY(pulled > 0);
}

void killedSessionsLeaveNoTrace() {
  const std::vector<Step> steps = *stepsOf(kQuietEdits);
  History killed(2);
  History whole(2);
  unsigned serials[2] = {0, 0};
  for (const Step& step : steps) {
    carryOut(killed, step, Titles::unique, serials[0]);
    carryOut(whole, step, Titles::unique, serials[1]);
  }
  for (std::size_t at : {0, 1, 0}) {
    killed.syncKilled(at);
    killed.sync(at);
    whole.sync(at);
  }
  RC_ASSERT(killed.printTruth() == whole.printTruth());
}

}  // namespace corvane::loomer::test
