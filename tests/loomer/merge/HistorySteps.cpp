#include "tests/loomer/merge/HistorySteps.h"

#include <array>

namespace corvane::loomer::test {
namespace {

using kit::Step;
using kit::StepKind;

constexpr std::array kTitles = {"a", "B", "b", "c", "D", "BookmarksBar", "BookmarksMenu"};
constexpr std::array kAddresses = {"http://x", "http://y", "http://z"};

std::string titleFor(const Step& step, Titles titles, unsigned& serial) {
  return titles == Titles::unique ? "t" + std::to_string(++serial) : kTitles[step.value % kTitles.size()];
}

// An entry a person can point at, without the root; empty if there is none.
std::string entryFor(const ClientSimulation& client, const Step& step) {
  std::vector<std::string> all = client.uids(Entity::folder);
  std::erase(all, ClientSimulation::kRootUid);
  const std::vector<std::string> bookmarks = client.uids(Entity::bookmark);
  all.insert(all.end(), bookmarks.begin(), bookmarks.end());
  return all.empty() ? std::string() : all[step.entry % all.size()];
}

std::string folderFor(const ClientSimulation& client, const Step& step) {
  const std::vector<std::string> folders = client.uids(Entity::folder);
  return folders[step.folder % folders.size()];
}

void carryOutAt(ClientSimulation& client, const Step& step, Titles titles, unsigned& serial) {
  const std::string folder = folderFor(client, step);
  if (step.kind == StepKind::addBookmark || step.kind == StepKind::addHidden) {
    const std::string title = titleFor(step, titles, serial);
    const std::string url = titles == Titles::unique ? title : kAddresses[step.entry % kAddresses.size()];
    client.add(folder, step.index, Entity::bookmark, title, url, step.kind == StepKind::addHidden);
    return;
  }
  if (step.kind == StepKind::addFolder) {
    client.add(folder, step.index, Entity::folder, titleFor(step, titles, serial), "");
    return;
  }
  const std::string uid = entryFor(client, step);
  if (uid.empty()) return;
  const ClientSimulation::Entry& entry = client.entries().at(uid);
  const bool bookmark = entry.entity == Entity::bookmark;
  if (step.kind == StepKind::rename) client.rename(uid, titleFor(step, titles, serial));
  if (step.kind == StepKind::readdress && bookmark && titles == Titles::few) {
    client.readdress(uid, kAddresses[step.value % kAddresses.size()]);
  }
  if (step.kind == StepKind::toggle && !bookmark) client.toggle(uid);
  if (step.kind == StepKind::move) client.move(uid, folder, step.index);
  if (step.kind == StepKind::reorder) {
    const std::string parent = entry.parent;
    client.move(uid, parent, step.index % (client.entries().at(parent).children.size() + 1));
  }
  if (step.kind == StepKind::erase) client.erase(uid);
}

}  // namespace

void carryOut(History& history, const Step& step, Titles titles, unsigned& serial) {
  const std::size_t at = step.client % history.size();
  switch (step.kind) {
    case StepKind::sync:
      history.sync(at);
      return;
    case StepKind::syncKilled:
      return history.syncKilled(at);
    case StepKind::refresh:
      history.sync(at, History::Mode::refresh);
      return;
    case StepKind::replace:
      history.sync(at, History::Mode::replace);
      return;
    default:
      return carryOutAt(history.client(at), step, titles, serial);
  }
}

}  // namespace corvane::loomer::test
