// corvane-hubload: plays many accounts and computers against the online service, and measures their
// exchanges. The exit status is 1 when something failed or computers of one account do not agree in the end,
// 2 for a command line that cannot be followed.

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>

#include "bench/hubload/Options.h"
#include "bench/hubload/Player.h"
#include "bench/hubload/Report.h"
#include "bench/hubload/Service.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/pelto/PostgresServer.h"

namespace {

using namespace corvane;
using namespace corvane::hubload;

constexpr int kSettlingRounds = 10;

// All computers of one population, played by workers.
class Play {
 public:
  Play(const Options& options, std::string administratorUrl, int accounts, int records)
      : _options(options),
        _administratorUrl(std::move(administratorUrl)),
        _accounts(_administratorUrl, options.via, accounts) {
    for (int worker = 0; worker < options.processes; ++worker) {
      const Cast cast{_accounts.urls(), options.computers, records,     options.processes,
                      worker,           _homes.path(),     options.seed};
      _workers.push_back(std::make_unique<Worker>([cast] {
        const auto player = std::make_shared<Player>(cast);
        return [player](const Order& order) { return player->carryOut(order); };
      }));
    }
  }

  // Whether every computer agreed with the others of its account, and no session failed.
  bool run() {
    order({Phase::switchOn});
    printHead();
    measure("load", {Phase::load});
    measure("first pull", {Phase::pull});
    settle();
    measure("quiet", {Phase::quiet, _options.seconds});
    measure("edits", {Phase::edits, _options.seconds, _options.editsPerSecond / _options.processes});
    settle();
    return agree() && _failures == 0;
  }

 private:
  Answer order(const Order& order) {
    for (const auto& worker : _workers) worker->give(order);
    Answer all;
    for (const auto& worker : _workers) {
      const Answer answer = worker->await();
      all.samples.insert(all.samples.end(), answer.samples.begin(), answer.samples.end());
      all.digests.insert(all.digests.end(), answer.digests.begin(), answer.digests.end());
    }
    for (const Sample& sample : all.samples) _failures += sample.failed ? 1 : 0;
    return all;
  }

  void measure(const std::string& name, const Order& wanted) {
    const bool isCounted = _options.via.empty();  // a pooler's connections tell what they did when they end
    const Effort before = isCounted ? effort() : Effort();
    const auto began = std::chrono::steady_clock::now();
    const Answer answer = order(wanted);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    if (!isCounted) return printPhase(name, answer.samples, seconds, nullptr);
    const Effort after = effort();
    const Effort spent{after.pages - before.pages, after.rows - before.rows};
    printPhase(name, answer.samples, seconds, &spent);
  }

  Effort effort() const { return effortSoFar(_administratorUrl, _accounts.prefix()); }

  // Rounds of sessions until nothing moves any more.
  void settle() {
    for (int round = 0; round < kSettlingRounds; ++round) {
      const Answer answer = order({Phase::settle});
      const bool isQuiet = std::all_of(answer.samples.begin(), answer.samples.end(),
                                       [](const Sample& sample) { return sample.kind == Kind::quiet; });
      if (isQuiet) return;
    }
    throw std::runtime_error("the computers do not come to rest");
  }

  bool agree() {
    std::vector<Digest> digests = order({Phase::digest}).digests;
    std::sort(digests.begin(), digests.end(), [](const Digest& a, const Digest& b) {
      return std::pair(a.account, a.computer) < std::pair(b.account, b.computer);
    });
    const std::vector<std::int64_t> held = _accounts.liveRecords();
    int differing = 0;
    for (const Digest& digest : digests) {
      const Digest& first = digests[static_cast<std::size_t>(digest.account * _options.computers)];
      const std::int64_t atService = held.at(static_cast<std::size_t>(digest.account));
      if (digest.hash == first.hash && digest.records == atService) continue;
      ++differing;
      std::fprintf(
          stderr,
          "corvane-hubload: account %d: computer %d holds %lld records, computer 0 %lld, the service "
          "%lld, and the trees are %s\n",
          digest.account, digest.computer, static_cast<long long>(digest.records),
          static_cast<long long>(first.records), static_cast<long long>(atService),
          digest.hash == first.hash ? "the same" : "not the same");
    }
    std::printf("%zu computers of %zu accounts: %s; %d sessions failed\n", digests.size(), held.size(),
                differing == 0 ? "all computers of each account and the service agree" : "NOT ALL AGREE",
                _failures);
    return differing == 0;
  }

  const Options& _options;
  std::string _administratorUrl;
  TemporaryDirectory _homes;
  Accounts _accounts;
  std::vector<std::unique_ptr<Worker>> _workers;
  int _failures = 0;
};

bool playAll(const Options& options) {
  std::optional<PostgresServer> server;
  if (options.url.empty()) server.emplace();
  bool isFine = true;
  for (const int records : options.records) {
    for (const int accounts : options.accounts) {
      std::printf(
          "\n%d accounts of %d computers and %d records; %d processes, %g edits a second, seed %llu\n",
          accounts, options.computers, records, options.processes, options.editsPerSecond,
          static_cast<unsigned long long>(options.seed));
      std::fflush(stdout);
      Play play(options, server ? server->administratorUrl() : options.url, accounts, records);
      isFine = play.run() && isFine;
    }
  }
  return isFine;
}

// Signals that end the program interrupt its waiting, so that what it made is removed.
void endInOrder() {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
  ::signal(SIGPIPE, SIG_IGN);  // a worker that is gone is an error of its own
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const Options options = parseOptions(argc, argv);
    endInOrder();
    return playAll(options) ? 0 : 1;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "corvane-hubload: %s\n%s", error.what(), kUsage);
    return 2;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "corvane-hubload: %s\n", exception.what());
    return 1;
  }
}
