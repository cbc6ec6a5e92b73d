#include "bench/hubload/Player.h"

#include <chrono>

namespace corvane::hubload {

namespace {

using Clock = std::chrono::steady_clock;

Platform platformWith(Complaints& complaints, BundleLoader& bundles) {
  const Platform& real = linuxPlatform();
  return {real.clock,       real.uuids, real.process,       real.files,
          real.preferences, complaints, real.notifications, bundles};
}

bool isFirst(const Computer& computer) { return computer.number() == 0; }
bool isNotFirst(const Computer& computer) { return computer.number() != 0; }

}  // namespace

Player::Player(const Cast& cast)
    : _records(cast.records),
      _random(cast.seed + static_cast<std::uint64_t>(cast.worker)),
      _bundles(linuxPlatform().files, CORVANE_CLIENT_PROGRAMS "/corvane-hubload", {"en"}),
      _platform(platformWith(_complaints, _bundles)),
      _scope(_platform) {
  for (int account = 0; account < static_cast<int>(cast.accountUrls.size()); ++account) {
    for (int number = 0; number < cast.computers; ++number) {
      if ((account + number) % cast.workers != cast.worker) continue;
      const std::string home = cast.directory + "/" + std::to_string(account) + "-" + std::to_string(number);
      _computers.emplace_back(account, number, cast.accountUrls[static_cast<std::size_t>(account)], home,
                              _complaints);
    }
  }
}

Answer Player::carryOut(const Order& order) {
  Answer answer;
  switch (order.phase) {
    case Phase::switchOn:
      for (Computer& computer : _computers) computer.switchOn();
      break;
    case Phase::load:
      answer.samples = syncEach(isFirst, additions(_records), Kind::load);
      break;
    case Phase::pull:
      answer.samples = syncEach(isNotFirst, {}, Kind::pull);
      break;
    case Phase::quiet:
    case Phase::edits:
      answer.samples = syncUntilTimeIsUp(order);
      break;
    case Phase::settle:
      for (Computer& computer : _computers) answer.samples.push_back(computer.sync());
      break;
    case Phase::digest:
      for (const Computer& computer : _computers) answer.digests.push_back(computer.digest());
      break;
  }
  return answer;
}

std::vector<Sample> Player::syncEach(bool (*isMeant)(const Computer&), const loomer::TruthPlanner& edit,
                                     Kind kind) {
  std::vector<Sample> samples;
  for (Computer& computer : _computers) {
    if (!isMeant(computer)) continue;
    samples.push_back(computer.sync(edit));
    samples.back().kind = kind;
  }
  return samples;
}

// One session after another, each of any computer; with an edit where one is due.
std::vector<Sample> Player::syncUntilTimeIsUp(const Order& order) {
  std::vector<Sample> samples;
  const auto began = Clock::now();
  double due = 0;
  while (!_computers.empty()) {
    const double now = std::chrono::duration<double>(Clock::now() - began).count();
    if (now >= order.seconds) break;
    const bool isDue = order.editsPerSecond > 0 && due <= now;
    if (isDue) due += 1 / order.editsPerSecond;
    Computer& computer = _computers[_random() % _computers.size()];
    samples.push_back(computer.sync(isDue ? randomEdit(_random) : loomer::TruthPlanner()));
  }
  return samples;
}

}  // namespace corvane::hubload
