#pragma once

#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

namespace corvane::loomer::test {

/// The three sides of a merge in the notation of tests/kit/TreeText.h. A record has the same label on all
/// sides; one that the base lacks is unknown to the client by id, and one that the base has and the truth
/// lacks was deleted there.
struct ThreeTrees {
  std::string base;
  std::string truth;
  std::string client;
  bool refresh = false;
};

/// One merge and what came of it.
class MergeCase {
 public:
  explicit MergeCase(const ThreeTrees& trees);
  /// For inputs that text cannot say.
  MergeInput& input() { return _input; }
  RecordId record(const std::string& label) const { return _records.at(label); }
  static String localId(const std::string& label) { return String("L-" + label); }

  void run();
  const MergeResult& result() const { return _result; }
  /// The truth after the merge. New records have their client's label.
  std::string truth() const;
  /// The tree that the base says the client holds after the merge; additions have their record's label.
  std::string heldByClient() const { return held(_result.base); }
  /// The tree that a base says the client holds.
  std::string held(const std::vector<BaseRecord>& base) const;
  /// The live records of a truth.
  std::string truth(const std::vector<TruthRecord>& records) const;
  /// The changes for the client: "+a", "~a" and "-a", in order.
  std::string changes() const;
  /// "ATTRIBUTE of LABEL: client CLIENT, truth TRUTH, WINNER wins", in order, separated by "; ".
  std::string losses() const;

 private:
  std::string labelOf(RecordId record) const;

  MergeInput _input;
  MergeResult _result;
  std::map<std::string, RecordId> _records;
};

}  // namespace corvane::loomer::test
