#include "tests/loomer/merge/MergeProperties.h"

#include <rapidcheck.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "tests/loomer/merge/Edits.h"

namespace corvane::loomer::test {
namespace {

using Kind = EditKind;

const std::vector<Kind> kEverything = {
    Kind::addBookmark, Kind::addBookmark, Kind::addBookmark, Kind::addFolder,  Kind::addFolder,
    Kind::addHidden,   Kind::rename,      Kind::readdress,   Kind::toggle,     Kind::move,
    Kind::move,        Kind::move,        Kind::reorder,     Kind::reorder,    Kind::erase,
    Kind::sync,        Kind::sync,        Kind::sync,        Kind::syncKilled, Kind::refresh,
    Kind::replace};

const std::vector<Kind> kQuietEdits = {Kind::addBookmark, Kind::addBookmark, Kind::addFolder, Kind::addHidden,
                                       Kind::rename,      Kind::readdress,   Kind::toggle,    Kind::move,
                                       Kind::move,        Kind::reorder,     Kind::reorder,   Kind::erase};

/// Every title below an entry, its own included.
std::set<std::string> titlesBelow(const ClientSimulation& client, const std::string& uid) {
  std::set<std::string> titles;
  std::vector<std::string> open{uid};
  while (!open.empty()) {
    const ClientSimulation::Entry& entry = client.entries().at(open.back());
    open.pop_back();
    titles.insert(entry.title.toString());
    open.insert(open.end(), entry.children.begin(), entry.children.end());
  }
  return titles;
}

std::map<std::string, int> countTitles(const ClientSimulation& client) {
  std::map<std::string, int> counts;
  for (const auto& [uid, entry] : client.entries()) {
    if (uid != ClientSimulation::kRootUid && !entry.hidden) ++counts[entry.title.toString()];
  }
  return counts;
}

/// Gives every client the same first tree under uids of its own.
void growEqualTrees(History& history, unsigned& serial) {
  const unsigned first = serial;
  for (std::size_t at = 0; at < history.size(); ++at) {
    serial = first;
    ClientSimulation& client = history.client(at);
    for (unsigned i = 0; i < 4; ++i) {
      const std::string name = "t" + std::to_string(++serial);
      const std::string folder = client.add(ClientSimulation::kRootUid, i, Entity::folder, name, "");
      const std::string child = "t" + std::to_string(++serial);
      client.add(folder, 0, Entity::bookmark, child, child);
    }
  }
}

}  // namespace

void clientsConverge() {
  History history(*rc::gen::inRange<std::size_t>(2, 6));
  unsigned serial = 0;
  for (const Edit& edit : *editsOf(kEverything)) carryOut(history, edit, Titles::few, serial);
  history.round();
  history.round();
  history.requireConverged();
}

void changesArrive() {
  History history(3);
  unsigned serial = 0;
  for (const Edit& edit : *editsOf(kEverything)) carryOut(history, edit, Titles::few, serial);
  history.round();
  history.round();
  for (Edit edit : *editsOf(kQuietEdits)) {
    edit.client = 1;
    carryOut(history, edit, Titles::few, serial);
  }
  static_cast<void>(history.client(1).read());
  const std::string edited = history.client(1).print();
  history.round();
  history.sync(0);
  for (std::size_t i = 0; i < history.size(); ++i) RC_ASSERT(history.client(i).print() == edited);
}

void nothingVanishes() {
  const std::vector<Kind> kinds = {Kind::addBookmark, Kind::addBookmark, Kind::addFolder, Kind::toggle,
                                   Kind::move,        Kind::move,        Kind::move,      Kind::reorder,
                                   Kind::erase,       Kind::sync,        Kind::sync,      Kind::sync,
                                   Kind::syncKilled,  Kind::refresh};

  History history(*rc::gen::inRange<std::size_t>(2, 5));
  unsigned serial = 0;
  growEqualTrees(history, serial);
  for (std::size_t at = 0; at < history.size(); ++at) {
    if (*rc::gen::arbitrary<bool>()) history.syncKilled(at);
    history.sync(at);
    RC_ASSERT(history.truth().size() == 8U);
  }
  std::set<std::string> deleted;
  for (const Edit& edit : *editsOf(kinds)) {
    const std::size_t at = edit.client % history.size();
    const std::set<std::string> before = titlesBelow(history.client(at), ClientSimulation::kRootUid);
    carryOut(history, edit, Titles::unique, serial);
    if (edit.kind == Kind::erase) {
      const std::set<std::string> after = titlesBelow(history.client(at), ClientSimulation::kRootUid);
      std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                          std::inserter(deleted, deleted.end()));
    }
    if (edit.kind == Kind::syncKilled) history.sync(at);
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
  const std::vector<Edit> edits = *editsOf(kQuietEdits);
  History killed(2);
  History whole(2);
  unsigned serials[2] = {0, 0};
  for (const Edit& edit : edits) {
    carryOut(killed, edit, Titles::unique, serials[0]);
    carryOut(whole, edit, Titles::unique, serials[1]);
  }
  for (std::size_t at : {0, 1, 0}) {
    killed.syncKilled(at);
    killed.sync(at);
    whole.sync(at);
  }
  RC_ASSERT(killed.printTruth() == whole.printTruth());
}

}  // namespace corvane::loomer::test
