#include "tests/properties/TwoSidedProperties.h"

#include <rapidcheck.h>

#include <stdexcept>
#include <tuple>

#include "tests/kit/Steps.h"
#include "tests/loomer/merge/History.h"
#include "tests/properties/SmallHistories.h"

namespace corvane::loomer::test {
namespace {

using kit::Step;
using kit::stepsOf;
using Kind = kit::StepKind;

const kit::Weights kTrees = {{2, Kind::addBookmark}, {1, Kind::addFolder}};
const kit::Weights kEdits = {{2, Kind::addBookmark}, {1, Kind::addFolder}, {1, Kind::rename},
                             {1, Kind::readdress},   {3, Kind::move},      {2, Kind::reorder},
                             {1, Kind::erase}};

// Carries out one edit with names that no other edit gives.
void editAtRandom(ClientSimulation& client, const Step& step, unsigned& serial) {
  const std::string title = "t" + std::to_string(++serial);
  const std::string folder = kit::chosen(client.visibleFolders(), step.folder);
  if (step.kind <= Kind::addFolder) {
    client.add(kit::newNode(step.kind == Kind::addFolder, folder, title, "http://" + title), step.index);
    return;
  }
  const std::vector<std::string> all = client.visibleNodes();
  if (all.empty()) return;
  const std::string uid = kit::chosen(all, step.entry * 12 + step.value);
  const kit::ClientTree::Node node = client.nodes.at(uid);
  if (step.kind == Kind::rename) client.rename(uid, title);
  if (step.kind == Kind::readdress && !node.folder) client.readdress(uid, "http://" + title);
  if (step.kind == Kind::move) client.move(uid, folder, step.index);
  if (step.kind == Kind::reorder) client.move(uid, node.parent, step.index);
  if (step.kind == Kind::erase) client.remove(uid);
}

}  // namespace

void bothSidesArrive() {
  unsigned serial = 0;
  ClientSimulation start("A");
  for (const Step& step : *stepsOf(kTrees)) editAtRandom(start, step, serial);
  const TwoSides sides(start);
  ClientSimulation a = sides.a();
  ClientSimulation b = sides.b();
  for (const Step& step : *stepsOf(kEdits)) editAtRandom(a, step, serial);
  for (const Step& step : *stepsOf(kEdits)) editAtRandom(b, step, serial);
  sides.run(a, b);
}

void movesNeverMeetTheGuard() {
  History history(2);
  unsigned serial = 0;
  for (const Step& step : *stepsOf(kTrees)) {
    editAtRandom(history.client(0), step, serial);
  }
  history.round();
  for (Step step : *stepsOf(
           {{2, Kind::move}, {1, Kind::reorder}, {1, Kind::addFolder}, {1, Kind::rename}, {1, Kind::sync}})) {
    const std::size_t at = step.client % 2;
    if (step.kind != Kind::sync) {
      editAtRandom(history.client(at), step, serial);
    } else if (history.sync(at).deletedByAbsence != 0) {
      throw std::logic_error("a session without deletions counts some");
    }
  }
  for (const std::size_t at : {0, 1, 0}) {
    if (history.sync(at).deletedByAbsence != 0) throw std::logic_error("moves count as deletions");
  }
}

}  // namespace corvane::loomer::test
