#include "tests/properties/ComputerSimulation.h"

#include <algorithm>
#include <filesystem>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "tests/kit/PropertyCheck.h"

namespace corvane {

namespace {

using kit::require;

std::string directoryOf(const std::string& path) {
  return std::filesystem::path(path).parent_path().string();
}

}  // namespace

std::string identityOf(const kit::ClientTree::Node& node) {
  const std::string name = node.name.toString();
  return name.substr(0, name.find('.'));
}

ComputerSimulation::ComputerSimulation(const std::vector<std::size_t>& clients, MemoryHub::Kind service)
    : hub(service) {
  backups.push_back(hub.state);
  for (const std::size_t count : clients) addComputer(count);
}

void ComputerSimulation::addComputer(std::size_t clients) {
  const std::size_t number = _computers.size();
  Computer computer;
  computer.storePath = loomer::storePathForHome(_platform.directory / ("home" + std::to_string(number)));
  computer.manager = open(computer);
  _computers.push_back(std::move(computer));
  for (std::size_t i = 0; i < clients; ++i) {
    const std::string name = "com.example.c" + std::to_string(number) + "." + std::to_string(i);
    Client& client = _clients.emplace_back();
    client.computer = number;
    client.scripted = _installation.makeClient(name);
  }
}

void ComputerSimulation::join() { addComputer(1); }

void ComputerSimulation::leave(std::size_t client) {
  _clients.erase(_clients.begin() + static_cast<std::ptrdiff_t>(client));
}

std::unique_ptr<loomer::EmbeddedManager> ComputerSimulation::open(const Computer& computer) {
  auto manager = std::make_unique<loomer::EmbeddedManager>(computer.storePath);
  manager->useHub([this, directory = directoryOf(computer.storePath)] { return hub.connect(directory); });
  return manager;
}

bool ComputerSimulation::shareComputer(std::size_t client, std::size_t other) const {
  return _clients[client].computer == _clients[other].computer;
}

bool ComputerSimulation::allHaveMet() const {
  return std::all_of(_clients.begin(), _clients.end(), [](const Client& client) { return client.hasMet; });
}

std::string ComputerSimulation::syncWith(loomer::EmbeddedManager& manager, std::size_t client) {
  const LoomerManagerScope scope(manager);
  const std::int64_t revision = hub.state.now.revision;
  const std::size_t complaints = _platform.log.messages.size();
  const std::string error = _clients[client].scripted->sync();
  const bool inTouch = hub.enabled && _platform.log.messages.size() == complaints;
  LoomerClient* const service = manager.clientWithIdentifier(loomer::kHubClientIdentifier);
  const bool tookAll = service && !loomer::leftOutOfHub(*service);
  if (error.empty() && inTouch && tookAll) _clients[client].hasMet = true;
  if (hub.state.now.revision != revision) backups.push_back(hub.state);
  return error;
}

std::string ComputerSimulation::trySync(std::size_t client) {
  return syncWith(*computerOf(client).manager, client);
}

void ComputerSimulation::sync(std::size_t client) {
  const std::string error = trySync(client);
  require(error.empty(), "a session fails: " + error);
}

void ComputerSimulation::atFirst(const std::string& call, std::function<void()> act) {
  hub.onCall = [this, call, act = std::move(act)](const std::string& now) {
    if (now != call) return;
    const std::function<void()> once = act;
    hub.onCall = nullptr;
    once();
  };
}

void ComputerSimulation::syncCutOff(std::size_t client, const std::string& call) {
  atFirst(call, [] { failAsService("it was cut off."); });
  sync(client);
  hub.onCall = nullptr;
}

// The engine catches whatever the service raises, so nothing that is raised ends it like a kill. The session
// goes on to its end, and all that a process that dies at that call would not have done any more is undone.
void ComputerSimulation::syncKilled(std::size_t client, const std::string& call) {
  const std::string directory = directoryOf(computerOf(client).storePath);
  const std::string copy = directory + ".killed";
  std::function<void()> undoTheRest;
  atFirst(call, [&] {
    copyStore(directory, copy);
    undoTheRest = [&, service = hub.state, saved = *_clients[client].scripted] {
      hub.state = service;
      *_clients[client].scripted = saved;
    };
  });
  const bool hadMet = _clients[client].hasMet;
  const std::size_t pushes = backups.size();
  const pelto::HubState before = hub.state.now;
  sync(client);
  hub.onCall = nullptr;
  if (!undoTheRest) return;
  undoTheRest();
  _clients[client].hasMet = hadMet;
  backups.resize(pushes);
  if (hub.state.now != before) backups.push_back(hub.state);
  computerOf(client).manager.reset();
  std::filesystem::remove_all(directory);
  std::filesystem::rename(copy, directory);
  computerOf(client).manager = open(computerOf(client));
}

void ComputerSimulation::syncCrossed(std::size_t client, const std::string& call, std::size_t other) {
  atFirst(call, [&] {
    const auto process = open(computerOf(other));
    const std::string error = syncWith(*process, other);
    require(error.empty(), "a session in another one's call fails: " + error);
  });
  sync(client);
  hub.onCall = nullptr;
}

void ComputerSimulation::syncCancelled(std::size_t client) {
  ScriptedClient& scripted = *_clients[client].scripted;
  scripted.finishAnswer = false;
  require(!trySync(client).empty(), "a session succeeds though its client cannot save");
  scripted.finishAnswer = true;
}

void ComputerSimulation::restart(std::size_t client) {
  Computer& computer = computerOf(client);
  computer.manager.reset();
  computer.manager = open(computer);
}

void ComputerSimulation::restore(const MemoryHub::State& state) { hub.state = state; }

void ComputerSimulation::requireConverged() {
  const std::string tree = client(0).text();
  for (std::size_t i = 1; i < clientCount(); ++i) {
    require(client(i).text() == tree, "two clients hold different trees:\n" + tree + "\n" + client(i).text());
  }
  const std::int64_t revision = hub.state.now.revision;
  _platform.log.messages.clear();
  for (std::size_t i = 0; i < clientCount(); ++i) {
    sync(i);
    require(client(i).delivered.empty(), "a session with nothing new delivers something");
  }
  require(hub.state.now.revision == revision, "a session with nothing new changes the service");
  const std::vector<std::string>& messages = _platform.log.messages;
  require(messages.empty(), "somebody complains: " + (messages.empty() ? "" : messages.front()));
  for (Computer& computer : _computers) requireSound(computer.manager->store());
}

}  // namespace corvane
