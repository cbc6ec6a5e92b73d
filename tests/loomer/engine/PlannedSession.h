#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/session/Settlement.h"
#include "tests/loomer/merge/MergeCase.h"

namespace corvane::loomer::test {

/// A session as values, from trees as text. Records are called by their labels.
class PlannedSession {
 public:
  explicit PlannedSession(const ThreeTrees& trees) : _case(trees) {
    opening.kind = trees.refresh ? SessionKind::refresh : SessionKind::slow;
    opening.client.id = 1;
    opening.client.identifier = "client";
    opening.client.syncedRevision = 1;
    opening.truth = {_case.input().revision - 1, _case.input().nextRecord, 0};
    sides.truth.records = _case.input().truth;
    sortById(sides.truth.records);
    sides.base.records = _case.input().base;
    sortByRecord(sides.base.records);
    sides.client.tree = _case.input().client;
    sides.client.count = sides.client.tree->size();
    sides.client.all = true;
  }

  RecordId record(const std::string& label) const { return _case.record(label); }
  std::string held(const std::vector<BaseRecord>& base) const { return _case.held(base); }
  std::string truth(const std::vector<TruthRecord>& records) const { return _case.truth(records); }

  /// The client takes every change but those of the records named.
  static Delivery delivery(const Plan& plan, const std::vector<RecordId>& refused = {},
                           const std::vector<RecordId>& withheld = {}) {
    Delivery delivery;
    if (plan.delivers()) delivery.pushId = "push";
    delivery.refused = {refused.begin(), refused.end()};
    delivery.withheld = {withheld.begin(), withheld.end()};
    for (const ClientChange& change : plan.result.clientChanges) {
      const bool taken =
          !delivery.refused.contains(change.record) && !delivery.withheld.contains(change.record);
      if (change.type == LoomerChangeTypeAdd && taken) {
        delivery.localIds.emplace(change.record, String("new-" + std::to_string(change.record)));
      }
    }
    return delivery;
  }

  /// The truth once the plan is carried out, by ascending id.
  static std::vector<TruthRecord> truthAfter(const Plan& plan) {
    std::vector<TruthRecord> records = plan.input.truth;
    for (const TruthChange& change : plan.result.truthChanges) {
      std::erase_if(records, [&](const TruthRecord& each) { return each.id == change.after.id; });
      records.push_back(change.after);
    }
    sortById(records);
    return records;
  }

  /// What a client pushes that holds what its base says.
  static std::vector<ClientRecord> pushed(const std::vector<BaseRecord>& base) {
    return clientTree(base, {});
  }

  static void sortById(std::vector<TruthRecord>& records) {
    std::sort(records.begin(), records.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
  }

  Opening opening;
  Sides sides;

 private:
  MergeCase _case;
};

}  // namespace corvane::loomer::test
