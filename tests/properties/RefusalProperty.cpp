#include <rapidcheck.h>

#include <memory>
#include <set>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "tests/kit/PropertyCheck.h"
#include "tests/kit/Steps.h"
#include "tests/loomer/engine/EngineHome.h"
#include "tests/properties/FileProperties.h"

namespace corvane {

namespace {

using kit::require;
using kit::Step;
using kit::StepKind;

constexpr std::size_t kClients = 3;
constexpr std::size_t kPicky = 2;  // the client that does not take everything

const kit::Weights kRefusalSteps = {{2, StepKind::addBookmark}, {1, StepKind::addFolder},
                                    {1, StepKind::readdress},   {2, StepKind::move},
                                    {1, StepKind::erase},       {4, StepKind::sync}};

// Three clients in memory on a real engine, one of which refuses and ignores at random what is delivered to
// it.
class PickySimulation {
 public:
  PickySimulation() {
    for (std::size_t i = 0; i < kClients; ++i) {
      _clients.push_back(_home.makeClient("com.example.client" + std::to_string(i)));
    }
    _clients[0]->addBookmark("", "anchor", "http://anchor");
    sync(0);
    _clients[kPicky]->answer = [this](const LoomerChange&) {
      // A stream of its own: what is answered must not depend on when RapidCheck draws.
      _answers = _answers * 1103515245U + 12345U;
      const unsigned drawn = (_answers >> 16U) % 6U;
      return drawn == 0 ? LoomerChangeRefused : drawn == 1 ? LoomerChangeIgnored : LoomerChangeAccepted;
    };
  }

  void seedAnswers(unsigned seed) { _answers = seed; }

  void sync(std::size_t at) {
    const std::string error = _clients[at]->sync();
    require(error.empty(), "a session fails: " + error);
  }

  void carryOut(const Step& step) {
    const std::size_t at = step.client % kClients;
    ScriptedClient& client = *_clients[at];
    client.edited = true;
    if (step.kind == StepKind::sync) return sync(at);
    std::vector<std::string> all = client.visibleNodes();
    std::erase(all, client.find("anchor"));
    const std::string parent = kit::chosen(client.visibleFolders(), step.folder);
    const auto place = static_cast<int>(step.index % (client.childrenOf(parent).size() + 1));
    const std::string title = "t" + std::to_string(++_serial);
    if (step.kind == StepKind::addBookmark)
      client.addBookmark(parent, given(title), "http://" + title, place);
    if (step.kind == StepKind::addFolder) client.addFolder(parent, given(title), place);
    if (step.kind <= StepKind::addFolder || all.empty()) return;
    const std::string id = kit::chosen(all, step.entry);
    if (step.kind == StepKind::readdress && !client.nodes.at(id).folder)
      client.readdress(id, "http://" + title);
    if (step.kind == StepKind::move) client.move(id, parent);
    if (step.kind == StepKind::erase) remove(client, id);
  }

  void requireNothingLost() {
    const std::string tree = _clients[0]->text();
    require(_clients[1]->text() == tree,
            "two clients that take everything differ:\n" + tree + "\n" + _clients[1]->text());
    std::multiset<std::string> titles;
    for (const auto& [id, node] : _clients[0]->nodes) titles.insert(node.name.toString());
    for (const std::string& title : titles) require(titles.count(title) == 1, title + " is there twice");
    for (const std::string& title : _given) {
      require(_gone.contains(title) || titles.contains(title), title + " vanished though nobody deleted it");
    }
    requireSound(_home.store());
  }

 private:
  const char* given(const std::string& title) { return _given.insert(title).first->c_str(); }

  void remove(ScriptedClient& client, const std::string& id) {
    const std::vector<std::string> below = client.subtree(id);
    for (const std::string& each : below) {
      if (client.nodes.at(each).name == "anchor") return;
    }
    for (const std::string& each : below) _gone.insert(client.nodes.at(each).name.toString());
    client.remove(id);
  }

  FakePlatform _platform;
  EngineHome _home{_platform};
  std::vector<std::unique_ptr<ScriptedClient>> _clients;
  unsigned _serial = 0;
  unsigned _answers = 1;
  std::set<std::string> _given;
  std::set<std::string> _gone;
};

}  // namespace

void refusedRecordsStay() {
  PickySimulation simulation;
  simulation.seedAnswers(*rc::gen::inRange(0U, 100'000U));
  for (const Step& step : *kit::stepsOf(kRefusalSteps)) simulation.carryOut(step);
  for (int round = 0; round < 2; ++round) {
    for (const std::size_t client : {kPicky, std::size_t{0}, std::size_t{1}}) simulation.sync(client);
  }
  simulation.requireNothingLost();
}

}  // namespace corvane
