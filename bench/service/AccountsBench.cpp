#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "bench/service/Benches.h"
#include "bench/service/Edits.h"
#include "bench/service/Text.h"
#include "tests/corvane-hub/HubProcess.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace corvane::servicebench {

namespace {

// Sessions that are measured, spread over the accounts. When there is only one, it gets no checkpoint by
// them.
constexpr int kSessions = 50;
constexpr std::size_t kObjectBytes = 1024;

// Accounts at one service, of which any can be reached.
class Population {
 public:
  virtual ~Population() = default;
  // Makes as many accounts as lack for that number; each has an object.
  virtual void grow(int accounts) = 0;
  // A way to the account's place, at an index from 0.
  virtual Connect connect(int account) = 0;
  // The service's own; absent where there is none.
  virtual std::optional<double> processorSeconds() const { return std::nullopt; }
  virtual std::string memory() const { return "–"; }
};

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Accounts are copies of one that nobody uses, by other names.
class HubPopulation : public Population {
 public:
  HubPopulation() {
    _token = accountCommand(_directory.path(), {"add", kTemplate, "laptop"});
    const HubProcess hub(_directory.path());
    wayTo(hub.port(), _token)
        ->putNew("0123456789abcdef0123456789abcdef/c/1-ab", std::string(kObjectBytes, 'x'));
  }

  void grow(int accounts) override {
    _hub.reset();
    const std::filesystem::path all = _directory / "data/accounts";
    for (; _accounts < accounts; ++_accounts)
      std::filesystem::copy(all / kTemplate, all / nameOf(_accounts),
                            std::filesystem::copy_options::recursive);
    _hub = std::make_unique<HubProcess>(_directory.path());
  }

  Connect connect(int account) override {
    const std::string token = nameOf(account) + _token.substr(_token.find('.'));
    return [this, token] { return wayTo(_hub->port(), token); };
  }

  std::optional<double> processorSeconds() const override {
    double nanoseconds = 0;
    for (const auto& task : std::filesystem::directory_iterator(processFile("task")))
      nanoseconds += std::stod(contents(task.path() / "schedstat"));  // time on a processor comes first
    return nanoseconds / 1e9;
  }

  std::string memory() const override {
    const std::string text = contents(processFile("status"));
    constexpr std::string_view kLabel = "VmRSS:";
    const std::size_t at = text.find(kLabel);
    return bytesText(std::stoll(text.substr(at + kLabel.size())) * 1024);
  }

 private:
  static constexpr const char* kTemplate = "template";

  static std::string nameOf(int account) { return "a" + std::to_string(account); }

  static std::unique_ptr<pelto::Place> wayTo(int port, const std::string& token) {
    const std::string address = "hub://127.0.0.1:" + std::to_string(port) + "?tls=no";
    return makePlace(pelto::parsePlaceAddress(address), {"", pelto::SharedSecret(token)},
                     after(kExchangeSeconds));
  }

  std::string processFile(const std::string& name) const {
    return "/proc/" + std::to_string(_hub->process()) + "/" + name;
  }

  TemporaryDirectory _directory;
  std::string _token;
  int _accounts = 0;
  std::unique_ptr<HubProcess> _hub;
};

class DirectoryPopulation : public Population {
 public:
  void grow(int accounts) override {
    for (; _accounts < accounts; ++_accounts) {
      char folder[33];
      std::snprintf(folder, sizeof folder, "%032x", static_cast<unsigned>(_accounts));
      const std::string path = _directory / folder + "/c";
      std::filesystem::create_directories(path);
      writeFile(path + "/1-ab", std::string(kObjectBytes, 'x'));
    }
  }

  Connect connect(int /*account*/) override {
    return [this] {
      return counted(std::make_unique<pelto::DirectoryPlace>(_directory.path(), after(kExchangeSeconds)),
                     _objects);
    };
  }

 private:
  TemporaryDirectory _directory;
  ObjectCounts _objects;
  int _accounts = 0;
};

// A computer with the account of its own that it plays.
struct Played {
  explicit Played(Connect connect) : computer(sealer, std::move(connect), home.path()) {}

  TemporaryDirectory home;
  pelto::Sealer sealer = newSealer();
  Computer computer;
};

// Of that many sessions, with what the median is taken of.
struct Sessions {
  Session sum;
  std::vector<double> times;
  std::optional<double> atService;
};

Sessions measure(const std::vector<Computer*>& computers, const Population& population,
                 const loomer::TruthPlanner& edit) {
  Sessions sessions;
  const auto before = population.processorSeconds();
  for (Computer* const each : computers) {
    const Session session = each->sync(edit);
    sessions.sum += session;
    sessions.times.push_back(session.serviceSeconds);
  }
  if (before) sessions.atService = (*population.processorSeconds() - *before) / kSessions;
  std::sort(sessions.times.begin(), sessions.times.end());
  return sessions;
}

void printAccountsRow(int accounts, const std::string& what, const Sessions& sessions,
                      const Population& population) {
  const Traffic& all = sessions.sum.traffic;
  std::vector<std::string> cells{numberText(accounts), what};
  for (std::string& cell :
       trafficCells({all.requests / kSessions, all.sent / kSessions, all.received / kSessions}))
    cells.push_back(std::move(cell));
  cells.push_back(secondsText(sessions.times[sessions.times.size() / 2]));
  cells.push_back(sessions.atService ? secondsText(*sessions.atService) : "–");
  cells.push_back(population.memory());
  printRow(cells);
}

void benchPopulation(Population& population, const std::vector<int>& counts) {
  Random random(1);
  for (const int accounts : counts) {
    population.grow(accounts);
    std::map<int, std::unique_ptr<Played>> played;
    std::vector<Computer*> computers;
    for (int i = 0; i < kSessions; ++i) {
      const int account = static_cast<int>(std::int64_t{i} * accounts / kSessions);
      auto& one = played[account];
      if (!one) {
        one = std::make_unique<Played>(population.connect(account));
        one->computer.syncAll(additions(10));
      }
      computers.push_back(&one->computer);
    }
    printAccountsRow(accounts, "quiet", measure(computers, population, {}), population);
    printAccountsRow(accounts, "one edit", measure(computers, population, newTitle(random)), population);
  }
}

}  // namespace

void benchAccounts(const std::vector<int>& counts) {
  const auto head = [](const std::string& service) {
    printHead({"accounts " + service, "session", "requests", "up", "down", "median", "server's processor",
               "its memory"});
  };
  head("at one corvane-hub");
  HubPopulation hub;
  benchPopulation(hub, counts);
  head("in one directory");
  DirectoryPopulation directory;
  benchPopulation(directory, counts);
}

}  // namespace corvane::servicebench
