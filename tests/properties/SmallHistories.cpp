#include "tests/properties/SmallHistories.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "tests/kit/PropertyCheck.h"
#include "tests/kit/TreeText.h"
#include "tests/loomer/merge/History.h"
#include "tests/loomer/merge/RecordTrees.h"
#include "tests/properties/SmallEdits.h"
#include "tests/properties/SmallHistoryProperties.h"

namespace corvane::loomer::test {
namespace {

using kit::require;

constexpr std::size_t kExamples = 20;

struct Truth {
  std::vector<TruthRecord> records;
  std::int64_t revision = 0;
};

struct SyncedSide {
  ClientSimulation simulation;
  std::vector<BaseRecord> base;
  std::vector<BaseRecord> baseBefore = {};  // of the last session: it names what that session deleted
};

MergeResult mergeFor(const Truth& truth, SyncedSide& side) {
  MergeInput input;
  input.truth = truth.records;
  input.base = side.base;
  input.client = side.simulation.read();
  input.refresh = side.base.empty();
  for (const TruthRecord& record : truth.records)
    input.nextRecord = std::max(input.nextRecord, record.id + 1);
  input.revision = truth.revision + 1;
  MergeResult result = merge(input);
  requireSound(input, result);
  return result;
}

MergeResult sync(Truth& truth, SyncedSide& side) {
  MergeResult result = mergeFor(truth, side);
  truth.records = changedTruth(truth.records, result.truthChanges);
  ++truth.revision;
  side.baseBefore = std::move(side.base);
  side.base = result.base;
  side.simulation.apply(result, side.base);
  return result;
}

void requireQuiet(const Truth& truth, SyncedSide& side) {
  const MergeResult result = mergeFor(truth, side);
  require(result.truthChanges.empty(), "a session with nothing new changes the truth");
  require(result.clientChanges.empty(), "a session with nothing new delivers something");
}

Facts factsOf(const Truth& truth) {
  std::vector<TruthRecord> live;
  std::copy_if(truth.records.begin(), truth.records.end(), std::back_inserter(live),
               [](const TruthRecord& record) { return !record.deleted; });
  std::sort(live.begin(), live.end(), [](const auto& a, const auto& b) { return a.place < b.place; });
  std::map<RecordId, std::size_t> counts;
  Facts facts;
  for (const TruthRecord& record : live) {
    facts[record.id] = {record.parent, counts[record.parent]++, record.content.name.toString(),
                        record.content.url.toString(), record.entity};
  }
  return facts;
}

// What a side's tree said when it synced, by the records that its session found for its entries.
Facts factsOf(const ClientSimulation& simulation, const SyncedSide& synced) {
  std::map<std::string, RecordId> records{{ClientSimulation::kRoot, kRoot}};
  for (const auto* const base : {&synced.baseBefore, &synced.base}) {
    for (const BaseRecord& record : *base) records[record.localId.toString()] = record.record;
  }
  Facts facts;
  for (const auto& [folder, children] : simulation.children) {
    std::size_t index = 0;
    for (const std::string& uid : children) {
      const kit::ClientTree::Node& child = simulation.nodes.at(uid);
      facts[records.at(uid)] = {records.at(folder), index++, child.name.toString(), child.url.toString(),
                                child.folder ? Entity::folder : Entity::bookmark};
    }
  }
  return facts;
}

void grow(ClientSimulation& client, const std::string& folder, const std::vector<kit::TreeNode>& nodes,
          std::size_t& made) {
  for (const kit::TreeNode& each : nodes) {
    const std::string title = each.label + std::to_string(++made);
    const std::string uid = client.add(kit::newNode(each.folder, folder, title, "http://" + title));
    grow(client, uid, each.children, made);
  }
}

// A client that holds the tree, its entries numbered in the order of the text.
ClientSimulation grown(const std::string& text) {
  ClientSimulation client("A");
  std::size_t made = 0;
  grow(client, ClientSimulation::kRoot, kit::parseTree(text), made);
  return client;
}

std::string joined(const std::string& tree, const std::string& rest) {
  return rest.empty() ? tree : tree + " " + rest;
}

// All histories from one forest.
class Forest {
 public:
  Forest(const std::string& text, const SmallHistoryScope& scope, SmallHistoryCounts& counts)
      : _scope(scope), _counts(counts), _sides(grown(text)) {}

  void run() {
    ++_counts.forests;
    const std::vector<Outcome> outcomesOfA = outcomesOf(_sides.a(), _scope.editsOfA, "A");
    const std::vector<Outcome> outcomesOfB = outcomesOf(_sides.b(), _scope.editsOfB, "B");
    _counts.outcomes += outcomesOfA.size() + outcomesOfB.size();
    for (const Outcome& ofA : outcomesOfA) {
      const std::uint64_t first = _counts.pairs;
      _counts.pairs += outcomesOfB.size();
      const std::uint64_t skip = (_scope.parts + _scope.part - first % _scope.parts) % _scope.parts;
      if (skip < outcomesOfB.size()) runWith(ofA, outcomesOfB, skip);
    }
  }

 private:
  void runWith(const Outcome& ofA, const std::vector<Outcome>& outcomesOfB, std::uint64_t skip) {
    std::unique_ptr<TwoSides::AfterA> afterA;
    try {
      afterA = _sides.syncA(ofA.simulation);
    } catch (const std::exception& failure) {
      return fail(ofA, outcomesOfB.front(), failure);
    }
    for (std::uint64_t i = skip; i < outcomesOfB.size(); i += _scope.parts) {
      ++_counts.histories;
      try {
        _sides.run(*afterA, outcomesOfB[i].simulation);
      } catch (const std::exception& failure) {
        fail(ofA, outcomesOfB[i], failure);
      }
    }
  }

  void fail(const Outcome& ofA, const Outcome& ofB, const std::exception& failure) {
    ++_counts.failures;
    if (_counts.examples.size() >= kExamples) return;
    _counts.examples.push_back(std::string(failure.what()) + "\n  start: " + _sides.b().print() +
                               "\n  A: " + ofA.edits + "\n     " + ofA.simulation.print() +
                               "\n  B: " + ofB.edits + "\n     " + ofB.simulation.print());
  }

  const SmallHistoryScope& _scope;
  SmallHistoryCounts& _counts;
  TwoSides _sides;
};

}  // namespace

struct TwoSides::State {
  Truth truth;
  SyncedSide a;
  SyncedSide b;
  Facts origin;
  std::string printed;
};

struct TwoSides::AfterA {
  Truth truth;
  SyncedSide a;
  Facts facts;
  std::string edited;  // A's tree when it synced
};

TwoSides::TwoSides(const ClientSimulation& start)
    : _state(std::make_unique<State>(State{{}, {start, {}}, {ClientSimulation("B"), {}}, {}, {}})) {
  sync(_state->truth, _state->a);
  sync(_state->truth, _state->b);
  _state->origin = factsOf(_state->truth);
  _state->printed = printTruth(_state->truth.records);
}

TwoSides::~TwoSides() = default;

const ClientSimulation& TwoSides::a() const { return _state->a.simulation; }
const ClientSimulation& TwoSides::b() const { return _state->b.simulation; }

std::unique_ptr<TwoSides::AfterA> TwoSides::syncA(const ClientSimulation& ofA) const {
  auto after = std::make_unique<AfterA>(AfterA{_state->truth, {ofA, _state->a.base}, {}, ofA.print()});
  const MergeResult result = sync(after->truth, after->a);
  require(result.clientChanges.empty(), "something is delivered to A, who alone changed anything");
  require(printTruth(after->truth.records) == after->edited, "A's edits did not arrive as they were");
  after->facts = factsOf(ofA, after->a);
  return after;
}

void TwoSides::run(const ClientSimulation& ofA, const ClientSimulation& ofB) const { run(*syncA(ofA), ofB); }

void TwoSides::run(const AfterA& afterA, const ClientSimulation& ofB) const {
  Truth truth = afterA.truth;
  SyncedSide a = afterA.a;
  SyncedSide b{ofB, _state->b.base};
  sync(truth, b);
  const MergeResult second = sync(truth, a);
  require(second.truthChanges.empty(), "A, who has nothing new, changes the truth");
  const std::string end = printTruth(truth.records);
  require(a.simulation.print() == end && b.simulation.print() == end, "the clients hold different trees");
  requireQuiet(truth, a);
  requireQuiet(truth, b);
  const std::string edited = ofB.print();
  if (edited == _state->printed) require(end == afterA.edited, "A's edits did not reach B as they were");
  if (afterA.edited == _state->printed) require(end == edited, "B's edits did not reach A as they were");
  requireProperties({_state->origin, afterA.facts, factsOf(ofB, b), factsOf(truth)});
}

std::vector<std::string> forests(std::size_t nodes) {
  // By the first tree of the forest: a bookmark, or a folder with a smaller forest in it.
  std::vector<std::vector<std::string>> known{{""}};
  while (known.size() <= nodes) {
    const std::size_t size = known.size();
    std::vector<std::string> found;
    for (const std::string& rest : known[size - 1]) found.push_back(joined("b", rest));
    for (std::size_t inside = 0; inside < size; ++inside) {
      for (const std::string& content : known[inside]) {
        for (const std::string& rest : known[size - 1 - inside])
          found.push_back(joined("f(" + content + ")", rest));
      }
    }
    known.push_back(std::move(found));
  }
  return known[nodes];
}

SmallHistoryCounts runSmallHistories(const SmallHistoryScope& scope) {
  SmallHistoryCounts counts;
  for (const std::string& text : forests(scope.nodes)) Forest(text, scope, counts).run();
  return counts;
}

}  // namespace corvane::loomer::test
