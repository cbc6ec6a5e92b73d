#include "tests/loomer/merge/MergeProperties.h"

#include <rapidcheck.h>

#include <algorithm>
#include <iterator>
#include <map>
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
