#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/loomer/engine/EngineHome.h"
#include "tests/loomer/engine/MemoryHub.h"

namespace corvane {

/// What an entry of a random history is known by, whatever it is renamed to: its name up to a dot.
std::string identityOf(const kit::ClientTree::Node& node);

/// Computers that share an account of the online service. Each has a store of its own, and clients in memory
/// on it.
class ComputerSimulation {
 public:
  /// `clients` says how many each computer has.
  ComputerSimulation(const std::vector<std::size_t>& clients, MemoryHub::Kind service);

  std::size_t clientCount() const { return _clients.size(); }
  ScriptedClient& client(std::size_t client) { return *_clients[client].scripted; }
  loomer::TruthStore& store(std::size_t client) { return computerOf(client).manager->store(); }
  bool shareComputer(std::size_t client, std::size_t other) const;
  /// Whether what each client held has met what is at the service.
  bool allHaveMet() const;

  /// One session with the exchanges around it; its error, empty for a success.
  std::string trySync(std::size_t client);
  /// Raises std::logic_error when the session does not succeed.
  void sync(std::size_t client);
  /// The service fails at the first such call (see MemoryHub) of the session.
  void syncCutOff(std::size_t client, const std::string& call);
  /// The computer dies at the first such call.
  void syncKilled(std::size_t client, const std::string& call);
  /// Before the first such call goes on, a process of its own syncs the other client.
  void syncCrossed(std::size_t client, const std::string& call, std::size_t other);
  /// The client fails while it saves.
  void syncCancelled(std::size_t client);
  void restart(std::size_t client);

  /// Adds a computer with one client.
  void join();
  /// The client's computer is gone for good, and those of later numbers move up.
  void leave(std::size_t client);

  /// The service's states after each push so far, oldest first, and how it is put back to one of them.
  std::vector<MemoryHub::State> backups;
  void restore(const MemoryHub::State& state);

  /// Raises unless all clients hold one tree, another round of sessions changes nothing, nobody complains,
  /// and all stores are sound.
  void requireConverged();

  MemoryHub hub;

 private:
  struct Computer {
    std::string storePath;
    std::unique_ptr<loomer::EmbeddedManager> manager;
  };
  struct Client {
    std::unique_ptr<ScriptedClient> scripted;
    std::size_t computer = 0;
    bool hasMet = false;
  };

  void addComputer(std::size_t clients);
  std::unique_ptr<loomer::EmbeddedManager> open(const Computer& computer);
  Computer& computerOf(std::size_t client) { return _computers[_clients[client].computer]; }
  std::string syncWith(loomer::EmbeddedManager& manager, std::size_t client);
  void atFirst(const std::string& call, std::function<void()> act);

  FakePlatform _platform;
  EngineInstallation _installation{_platform};
  std::vector<Computer> _computers;
  std::vector<Client> _clients;
};

}  // namespace corvane
