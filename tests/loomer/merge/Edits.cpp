#include "tests/loomer/merge/Edits.h"

#include <array>
#include <ostream>

namespace corvane::loomer::test {
namespace {

constexpr std::array kTitles = {"a", "B", "b", "c", "D", "BookmarksBar", "BookmarksMenu"};
constexpr std::array kAddresses = {"http://x", "http://y", "http://z"};

std::string titleFor(const Edit& edit, Titles titles, unsigned& serial) {
  return titles == Titles::unique ? "t" + std::to_string(++serial) : kTitles[edit.value % kTitles.size()];
}

/// An entry a person can point at, without the root; empty if there is none.
std::string entryFor(const ClientSimulation& client, const Edit& edit) {
  std::vector<std::string> all = client.uids(Entity::folder);
  std::erase(all, ClientSimulation::kRootUid);
  const std::vector<std::string> bookmarks = client.uids(Entity::bookmark);
  all.insert(all.end(), bookmarks.begin(), bookmarks.end());
  return all.empty() ? std::string() : all[edit.entry % all.size()];
}

std::string folderFor(const ClientSimulation& client, const Edit& edit) {
  const std::vector<std::string> folders = client.uids(Entity::folder);
  return folders[edit.folder % folders.size()];
}

void carryOutAt(ClientSimulation& client, const Edit& edit, Titles titles, unsigned& serial) {
  const std::string folder = folderFor(client, edit);
  if (edit.kind == EditKind::addBookmark || edit.kind == EditKind::addHidden) {
    const std::string title = titleFor(edit, titles, serial);
    const std::string url = titles == Titles::unique ? title : kAddresses[edit.entry % kAddresses.size()];
    client.add(folder, edit.index, Entity::bookmark, title, url, edit.kind == EditKind::addHidden);
    return;
  }
  if (edit.kind == EditKind::addFolder) {
    client.add(folder, edit.index, Entity::folder, titleFor(edit, titles, serial), "");
    return;
  }
  const std::string uid = entryFor(client, edit);
  if (uid.empty()) return;
  const ClientSimulation::Entry& entry = client.entries().at(uid);
  const bool bookmark = entry.entity == Entity::bookmark;
  if (edit.kind == EditKind::rename) client.rename(uid, titleFor(edit, titles, serial));
  if (edit.kind == EditKind::readdress && bookmark && titles == Titles::few) {
    client.readdress(uid, kAddresses[edit.value % kAddresses.size()]);
  }
  if (edit.kind == EditKind::toggle && !bookmark) client.toggle(uid);
  if (edit.kind == EditKind::move) client.move(uid, folder, edit.index);
  if (edit.kind == EditKind::reorder) {
    const std::string parent = entry.parent;
    client.move(uid, parent, edit.index % (client.entries().at(parent).children.size() + 1));
  }
  if (edit.kind == EditKind::erase) client.erase(uid);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Edit& edit) {
  static constexpr std::array kNames = {"addBookmark", "addFolder", "addHidden", "rename", "readdress",
                                        "toggle",      "move",      "reorder",   "erase",  "sync",
                                        "syncKilled",  "refresh",   "replace"};
  return out << "{EditKind::" << kNames[static_cast<std::size_t>(edit.kind)] << ", " << edit.client << ", "
             << edit.entry << ", " << edit.folder << ", " << edit.index << ", " << edit.value << "}";
}

rc::Gen<std::vector<Edit>> editsOf(std::vector<EditKind> kinds) {
  const auto number = rc::gen::inRange(0U, 12U);
  return rc::gen::container<std::vector<Edit>>(
      rc::gen::construct<Edit>(rc::gen::elementOf(std::move(kinds)), number, number, number, number, number));
}

void carryOut(History& history, const Edit& edit, Titles titles, unsigned& serial) {
  const std::size_t at = edit.client % history.size();
  switch (edit.kind) {
    case EditKind::sync:
      history.sync(at);
      return;
    case EditKind::syncKilled:
      return history.syncKilled(at);
    case EditKind::refresh:
      history.sync(at, History::Mode::refresh);
      return;
    case EditKind::replace:
      history.sync(at, History::Mode::replace);
      return;
    default:
      return carryOutAt(history.client(at), edit, titles, serial);
  }
}

}  // namespace corvane::loomer::test
