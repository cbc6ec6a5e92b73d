#include "tests/properties/TwoSidedProperties.h"

#include <rapidcheck.h>

#include <stdexcept>
#include <tuple>

#include "tests/loomer/merge/Edits.h"
#include "tests/loomer/merge/History.h"
#include "tests/properties/SmallHistories.h"

namespace corvane::loomer::test {
namespace {

using Kind = EditKind;

rc::Gen<std::vector<Edit>> anyEdits() {
  return editsOf({Kind::addBookmark, Kind::addBookmark, Kind::addFolder, Kind::rename, Kind::readdress,
                  Kind::move, Kind::move, Kind::move, Kind::reorder, Kind::reorder, Kind::erase});
}

/// Carries out one edit with names that no other edit gives.
void editAtRandom(ClientSimulation& client, const Edit& edit, unsigned& serial) {
  const std::string title = "t" + std::to_string(++serial);
  const std::vector<std::string> folders = client.uids(Entity::folder);
  const std::string folder = folders[edit.folder % folders.size()];
  if (edit.kind == Kind::addBookmark || edit.kind == Kind::addFolder) {
    const Entity entity = edit.kind == Kind::addFolder ? Entity::folder : Entity::bookmark;
    client.add(folder, edit.index, entity, title, "http://" + title);
    return;
  }
  std::vector<std::string> all = client.uids(Entity::bookmark);
  for (const std::string& uid : folders) {
    if (uid != ClientSimulation::kRootUid) all.push_back(uid);
  }
  if (all.empty()) return;
  const std::string uid = all[(edit.entry * 12 + edit.value) % all.size()];
  const ClientSimulation::Entry entry = client.entries().at(uid);
  if (edit.kind == Kind::rename) client.rename(uid, title);
  if (edit.kind == Kind::readdress && entry.entity == Entity::bookmark)
    client.readdress(uid, "http://" + title);
  if (edit.kind == Kind::move) client.move(uid, folder, edit.index);
  if (edit.kind == Kind::reorder) client.move(uid, entry.parent, edit.index);
  if (edit.kind == Kind::erase) client.erase(uid);
}

}  // namespace

void bothSidesArrive() {
  unsigned serial = 0;
  ClientSimulation start("A");
  const auto first = *editsOf({Kind::addBookmark, Kind::addBookmark, Kind::addFolder});
  for (const Edit& edit : first) editAtRandom(start, edit, serial);
  const TwoSides sides(start);
  ClientSimulation a = sides.a();
  ClientSimulation b = sides.b();
  for (const Edit& edit : *anyEdits()) editAtRandom(a, edit, serial);
  for (const Edit& edit : *anyEdits()) editAtRandom(b, edit, serial);
  sides.run(a, b);
}

void movesNeverMeetTheGuard() {
  History history(2);
  unsigned serial = 0;
  for (const Edit& edit : *editsOf({Kind::addBookmark, Kind::addBookmark, Kind::addFolder})) {
    editAtRandom(history.client(0), edit, serial);
  }
  history.round();
  for (Edit edit :
       *editsOf({Kind::move, Kind::move, Kind::reorder, Kind::addFolder, Kind::rename, Kind::sync})) {
    const std::size_t at = edit.client % 2;
    if (edit.kind != Kind::sync) {
      editAtRandom(history.client(at), edit, serial);
    } else if (history.sync(at).deletedByAbsence != 0) {
      throw std::logic_error("a session without deletions counts some");
    }
  }
  for (const std::size_t at : {0, 1, 0}) {
    if (history.sync(at).deletedByAbsence != 0) throw std::logic_error("moves count as deletions");
  }
}

}  // namespace corvane::loomer::test
