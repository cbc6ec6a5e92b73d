#include "tests/properties/ComputersProperty.h"

#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "tests/kit/PropertyCheck.h"
#include "tests/kit/Steps.h"
#include "tests/properties/ComputerSimulation.h"

namespace corvane {

namespace {

using kit::require;
using kit::Step;
using kit::StepKind;

constexpr std::array kCalls = {"remote changes", "push", "pushed", "has push"};

// Computers whose users edit at random, and what must come of it. An entry's title is what it is known by
// throughout, and after a dot the number of its last renaming.
class RandomComputers {
 public:
  RandomComputers(const std::vector<std::size_t>& clients, MemoryHub::Kind service)
      : _simulation(clients, service) {
    for (std::size_t i = 0; i < _simulation.clientCount(); ++i) bookmarkInCommon(_simulation.client(i));
    _serial = kInCommon;
    for (int i = 1; i <= kInCommon; ++i) _live.insert("n" + std::to_string(i));
  }

  ComputerSimulation& simulation() { return _simulation; }

  void carryOut(const Step& step) {
    const std::size_t client = step.client % _simulation.clientCount();
    const char* const call = kCalls[step.index % kCalls.size()];
    switch (step.kind) {
      case StepKind::sync:
        return _simulation.sync(client);
      case StepKind::syncCutOff:
        return _simulation.syncCutOff(client, call);
      case StepKind::syncKilled:
        return _simulation.syncKilled(client, call);
      case StepKind::syncCrossed:
        return syncCrossed(client, step.entry % _simulation.clientCount(), call);
      case StepKind::syncCancelled:
        return _simulation.syncCancelled(client);
      case StepKind::restart:
        return _simulation.restart(client);
      case StepKind::dropTombstones:
        return _simulation.hub.dropTombstones();
      case StepKind::emptyService:
        return restore(0);
      case StepKind::restoreService:
        return restore(step.entry * 31U);
      case StepKind::switchService:
        _simulation.hub.enabled = !_simulation.hub.enabled;
        return;
      case StepKind::fillAccount:
        _simulation.hub.limit = static_cast<std::int64_t>(_simulation.hub.live() + step.index % 3);
        return;
      case StepKind::emptyAccount:
        _simulation.hub.limit = kAmple;
        return;
      default:
        return edit(_simulation.client(client), step);
    }
  }

  // Edits stop; the service works.
  void settle() {
    _simulation.hub.enabled = true;
    _simulation.hub.limit = kAmple;
    for (int round = 0; round < 2; ++round) roundInAnyOrder();
    _simulation.requireConverged();
  }

  void roundInAnyOrder() {
    std::vector<std::size_t> order(_simulation.clientCount());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    for (std::size_t i = 0; i + 1 < order.size(); ++i) {
      std::swap(order[i], order[*rc::gen::inRange(i, order.size())]);
    }
    for (const std::size_t client : order) _simulation.sync(client);
  }

  void requireNothingLost() {
    std::map<std::string, int> counts;
    for (const auto& [id, node] : _simulation.client(0).nodes) ++counts[identityOf(node)];
    for (const auto& [identity, count] : counts) {
      require(count == 1, identity + " is there more than once: " + _simulation.client(0).text());
    }
    for (const std::string& identity : _live) {
      require(counts.contains(identity),
              identity + " vanished though nobody deleted it: " + _simulation.client(0).text());
    }
  }

  // A computer that joins is given the very tree that is there, and gives nothing.
  void requireJoining() {
    const std::int64_t revision = _simulation.hub.state.now.revision;
    _simulation.join();
    const std::size_t last = _simulation.clientCount() - 1;
    _simulation.sync(last);
    require(_simulation.client(last).text() == _simulation.client(0).text(),
            "a new computer is given another tree:\n" + _simulation.client(0).text() + "\n" +
                _simulation.client(last).text());
    require(_simulation.hub.state.now.revision == revision, "a new computer changes the service");
  }

 private:
  static constexpr int kInCommon = 5;
  static constexpr std::int64_t kAmple = 1'000'000;
  static constexpr const char* kAnchor = "n1";  // never deleted: keeps the guard out of these histories

  using Node = ScriptedClient::Node;

  // What every client holds before it syncs for the first time.
  static void bookmarkInCommon(ScriptedClient& client) {
    const std::string bar = client.addSpecial("BookmarksBar");
    client.addBookmark("", kAnchor, "http://n1/");
    client.addBookmark(bar, "n2", "http://n2/");
    client.addBookmark(bar, "n3", "http://n3/");
    const std::string folder = client.addFolder("", "n4");
    client.addBookmark(folder, "n5", "http://n5/");
  }

  // Before all have met, an edit of what they have in common makes two different things of it.
  bool mayBeEdited(const Node& node) {
    return std::stoi(identityOf(node).substr(1)) > kInCommon || _simulation.allHaveMet();
  }

  // As above: who meets an emptied service without ever having met another computer's entries has a history
  // of its own.
  void restore(std::size_t backup) {
    if (_simulation.allHaveMet())
      _simulation.restore(_simulation.backups[backup % _simulation.backups.size()]);
  }

  void syncCrossed(std::size_t client, std::size_t other, const std::string& call) {
    // In a push the computer's own store is locked, and another process of it waits.
    const bool waits = _simulation.shareComputer(client, other) && call != "remote changes";
    if (client == other || waits) return _simulation.sync(client);
    _simulation.syncCrossed(client, call, other);
  }

  void edit(ScriptedClient& client, const Step& step) {
    std::vector<std::string> all = client.visibleNodes();
    std::erase_if(all, [&](const std::string& id) { return client.nodes.at(id).isSpecial(); });
    const std::string folder = kit::chosen(client.visibleFolders(), step.folder);
    if (step.kind <= StepKind::addFolder) return add(client, step, folder);
    if (all.empty()) return;
    const std::string id = kit::chosen(all, step.entry);
    const Node node = client.nodes.at(id);
    if (!mayBeEdited(node)) return;
    const std::string version = std::to_string(++_versions);
    if (step.kind == StepKind::rename) client.rename(id, identityOf(node) + "." + version);
    if (step.kind == StepKind::readdress && !node.folder) client.readdress(id, "http://v" + version + "/");
    if (step.kind == StepKind::toggle && node.folder) client.toggle(id);
    if (step.kind == StepKind::move) move(client, id, folder, step.index);
    if (step.kind == StepKind::erase) erase(client, id);
  }

  void add(ScriptedClient& client, const Step& step, const std::string& folder) {
    const std::string name = "n" + std::to_string(++_serial);
    const int at = static_cast<int>(step.index % (client.ordinaryChildren(folder) + 1));
    _live.insert(name);
    if (step.kind == StepKind::addFolder) {
      client.addFolder(folder, name, at);
    } else {
      client.addBookmark(folder, name, "http://" + name + "/", at);
    }
  }

  static void move(ScriptedClient& client, const std::string& id, const std::string& folder, unsigned index) {
    if (client.nodes.at(id).name == kAnchor && !folder.empty()) return;
    const bool stays = client.nodes.at(id).parent == folder;
    const std::size_t places = client.ordinaryChildren(folder) + (stays ? 0 : 1);
    client.move(id, folder, static_cast<int>(index % places));
  }

  void erase(ScriptedClient& client, const std::string& id) {
    const std::vector<std::string> below = client.subtree(id);
    for (const std::string& each : below) {
      const Node& node = client.nodes.at(each);
      if (identityOf(node) == kAnchor || !mayBeEdited(node)) return;
    }
    for (const std::string& each : below) _live.erase(identityOf(client.nodes.at(each)));
    client.remove(id);
  }

  ComputerSimulation _simulation;
  int _serial = 0;
  int _versions = 0;
  std::set<std::string> _live;  // what nobody deleted
};

using enum StepKind;
const kit::Weights kComputerSteps = {
    {4, addBookmark},    {2, addFolder},     {2, rename},      {1, readdress},      {1, toggle},
    {6, move},           {2, erase},         {9, sync},        {3, syncCutOff},     {3, syncKilled},
    {3, syncCrossed},    {1, syncCancelled}, {1, restart},     {1, dropTombstones}, {1, emptyService},
    {1, restoreService}, {1, switchService}, {1, fillAccount}, {1, emptyAccount}};

}  // namespace

void computersConverge(MemoryHub::Kind service) {
  const auto clients = *rc::gen::withSize([](int) {
    return rc::gen::mapcat(rc::gen::inRange<std::size_t>(2, 6), [](std::size_t computers) {
      return rc::gen::container<std::vector<std::size_t>>(computers, rc::gen::inRange<std::size_t>(1, 3));
    });
  });
  RandomComputers random(clients, service);
  for (const Step& step : *kit::stepsOf(kComputerSteps)) random.carryOut(step);
  random.settle();
  random.requireNothingLost();
  random.requireJoining();
}

}  // namespace corvane
