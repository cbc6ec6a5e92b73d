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

void carryOutAt(ClientSimulation& client, const Step& step, Titles titles, unsigned& serial) {
  const std::string folder = kit::chosen(client.visibleFolders(), step.folder);
  if (step.kind <= StepKind::addHidden) {
    const std::string title = titleFor(step, titles, serial);
    const std::string url = titles == Titles::unique ? title : kAddresses[step.entry % kAddresses.size()];
    kit::ClientTree::Node node = kit::newNode(step.kind == StepKind::addFolder, folder, title, url);
    node.hidden = step.kind == StepKind::addHidden;
    client.add(std::move(node), step.index);
    return;
  }
  const std::vector<std::string> all = client.visibleNodes();
  if (all.empty()) return;
  const std::string uid = kit::chosen(all, step.entry);
  const kit::ClientTree::Node node = client.nodes.at(uid);
  if (step.kind == StepKind::rename) client.rename(uid, titleFor(step, titles, serial));
  if (step.kind == StepKind::readdress && !node.folder && titles == Titles::few) {
    client.readdress(uid, kAddresses[step.value % kAddresses.size()]);
  }
  if (step.kind == StepKind::toggle && node.folder) client.toggle(uid);
  if (step.kind == StepKind::move) client.move(uid, folder, step.index);
  if (step.kind == StepKind::reorder) {
    client.move(uid, node.parent, step.index % (client.childrenOf(node.parent).size() + 1));
  }
  if (step.kind == StepKind::erase) client.remove(uid);
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
