#include "tools/loomerctl/FileDifference.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"
#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

class EntryMatch {
 public:
  EntryMatch(const std::vector<TruthRecord>& truth, const std::vector<BaseRecord>& base,
             const std::vector<ClientRecord>& file)
      : _file(file) {
    for (const TruthRecord& each : truth) {
      if (!each.deleted) _live.emplace(each.id, &each);
    }
    match(truth, base);
  }

  std::vector<FileDifference> differences() {
    std::vector<FileDifference> found;
    for (const ClientRecord& each : _file) {
      const FileDifference difference = compared(each);
      (difference.agreed ? _pairs : found).push_back(difference);
    }
    markReordered();
    for (const FileDifference& each : _pairs) {
      if (each.saysOther || each.liesElsewhere || each.isReordered) found.push_back(each);
      _live.erase(each.agreed->id);
    }
    std::vector<FileDifference> missing;
    for (const auto& [record, agreed] : _live) missing.push_back({agreed});
    std::sort(missing.begin(), missing.end(),
              [](const FileDifference& a, const FileDifference& b) { return a.agreed->id < b.agreed->id; });
    found.insert(found.end(), missing.begin(), missing.end());
    return found;
  }

 private:
  // Which record each entry of the file stands for: what a merge makes of them, and what it would delete from
  // the file, which only the base knows.
  void match(const std::vector<TruthRecord>& truth, const std::vector<BaseRecord>& base) {
    MergeInput input;
    input.truth = truth;
    input.base = base;
    input.client = _file;
    input.refresh = base.empty();
    for (const TruthRecord& each : truth) input.nextRecord = std::max(input.nextRecord, each.id + 1);
    for (const BaseRecord& each : base) {
      input.nextRecord = std::max(input.nextRecord, each.record + 1);
      if (each.localId) _records.emplace(each.localId, each.record);
    }
    for (const BaseRecord& each : merge(input).base) {
      if (each.localId) _records.insert_or_assign(each.localId, each.record);
    }
  }

  // Null for an entry that stands for none that lives.
  const TruthRecord* agreedFor(const String& localId) const {
    const auto record = _records.find(localId);
    const auto live = record == _records.end() ? _live.end() : _live.find(record->second);
    return live == _live.end() ? nullptr : live->second;
  }

  FileDifference compared(const ClientRecord& inFile) const {
    FileDifference difference;
    difference.inFile = &inFile;
    difference.agreed = agreedFor(inFile.localId);
    if (!difference.agreed) return difference;
    difference.saysOther = !(difference.agreed->content == inFile.content);
    const TruthRecord* const folder = inFile.parentLocalId ? agreedFor(inFile.parentLocalId) : nullptr;
    const RecordId parent = difference.agreed->parent;
    difference.liesElsewhere = inFile.parentLocalId ? !folder || folder->id != parent : parent != kRoot;
    return difference;
  }

  // Of the siblings that both sides have in one folder, the fewest that have to move.
  void markReordered() {
    std::unordered_map<RecordId, std::vector<FileDifference*>> siblings;
    for (FileDifference& each : _pairs) {
      // The special folders stand first, whatever their numbers.
      if (!each.liesElsewhere && !each.agreed->content.special)
        siblings[each.agreed->parent].push_back(&each);
    }
    for (auto& [folder, children] : siblings) {
      std::sort(children.begin(), children.end(), [](const FileDifference* a, const FileDifference* b) {
        return precedesAmongSiblings(*a->inFile, *b->inFile);
      });
      std::vector<std::int64_t> places;
      for (const FileDifference* const each : children) places.push_back(each->agreed->place);
      const std::vector<bool> stays = heaviestRising(places, Rise::strict);
      for (std::size_t i = 0; i < children.size(); ++i) children[i]->isReordered = !stays[i];
    }
  }

  const std::vector<ClientRecord>& _file;
  std::unordered_map<RecordId, const TruthRecord*> _live;
  std::unordered_map<String, RecordId> _records;  // by local id
  std::vector<FileDifference> _pairs;
};

}  // namespace

std::vector<FileDifference> differencesOf(const std::vector<TruthRecord>& truth,
                                          const std::vector<BaseRecord>& base,
                                          const std::vector<ClientRecord>& file) {
  return EntryMatch(truth, base, file).differences();
}

}  // namespace corvane::loomerctl
