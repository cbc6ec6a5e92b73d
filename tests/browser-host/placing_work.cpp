// usage: corvane-placing-work N
// Has a scripted browser make N bookmarks at the front of a folder, move N others there one by one, and
// remove N more: what a session does to one large folder.

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "browsers/host/ExtensionRequests.h"
#include "browsers/host/Intake.h"
#include "browsers/host/Presenting.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/fakes/ScriptedBrowser.h"

namespace corvane {
namespace {

using browsers::HeldNode;
using browsers::NodeKind;
using browsers::RootKind;

class DirectChannel : public browsers::MessageChannel {
 public:
  explicit DirectChannel(ScriptedBrowser& browser) : _browser(browser) {}
  void send(std::string_view message) override { _browser.take(message); }
  std::optional<std::string> receive() override { return _browser.next(); }

 private:
  ScriptedBrowser& _browser;
};

// Bookmarks that the browser is to make.
std::vector<std::string> addWaiting(browsers::HeldTree& held, const std::string& folder, std::size_t count) {
  std::vector<std::string> added;
  for (std::size_t i = 0; i < count; ++i) {
    HeldNode node;
    node.localId = "new " + std::to_string(i);
    node.parent = folder;
    node.title.set(String(node.localId));
    node.url.set(String("http://new/" + std::to_string(i)));
    added.push_back(held.add(std::move(node)).localId);
  }
  return added;
}

void removeLater(browsers::HeldTree& held, const std::string& localId) {
  const HeldNode node = *held.find(localId);
  held.removed.push_back({.kind = node.kind,
                          .browserId = node.browserId,
                          .title = node.title.shown,
                          .url = node.url.shown,
                          .added = node.added,
                          .changed = {},
                          .isWaiting = true});
  held.drop(localId);
}

bool presentsAll(std::size_t count) {
  const FakePlatform platform;
  ScriptedBrowser browser(ScriptedBrowser::Kind::firefox);
  const std::string root = browser.root(RootKind::bar);
  for (std::size_t i = 0; i < 2 * count; ++i)
    browser.add(root, NodeKind::bookmark, std::to_string(i), "http://h/" + std::to_string(i));
  DirectChannel channel(browser);
  browsers::ExtensionRequests requests(channel, [](const browsers::ExtensionMessage&) {});
  browsers::BrowserTree tree = requests.read();
  browsers::HeldTree held;
  browsers::takeIn(held, tree, {}, {1, 0.0});
  const std::string bar = held.root(RootKind::bar)->localId;
  const std::vector<std::string> listed = held.childrenOf(bar);
  const auto middle = listed.begin() + static_cast<std::ptrdiff_t>(count);
  std::vector<std::string> order = addWaiting(held, bar, count);
  order.insert(order.end(), std::make_reverse_iterator(middle), listed.rend());
  for (auto each = middle; each != listed.end(); ++each) removeLater(held, *each);
  held.setChildren(bar, order);
  const auto presented =
      browsers::present(held, tree, requests, {1, 0.0}, [](std::size_t, std::size_t) { return true; });
  std::vector<std::string> shown;
  for (const std::string& each : order) shown.push_back(held.find(each)->browserId);
  return presented.isFinished && !presented.isDifferent && browser.childrenOf(root) == shown &&
         browser.requests() <= 3 * count;
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: corvane-placing-work N\n", stderr);
    return 2;
  }
  if (corvane::presentsAll(static_cast<std::size_t>(std::atoll(argv[1])))) return 0;
  std::fputs("the browser does not show what it was given, in as many requests\n", stderr);
  return 1;
}
