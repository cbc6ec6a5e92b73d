#pragma once

#include <deque>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/bundles/LinuxBundleLoader.h"
#include "bench/hubload/Computer.h"
#include "bench/hubload/Worker.h"

namespace corvane::hubload {

/// The part of all computers that one worker plays.
struct Cast {
  std::vector<std::string> accountUrls;
  int computers = 1;      ///< of each account
  int records = 0;        ///< of each account
  int workers = 1;        ///< among whom the computers of an account are spread
  int worker = 0;         ///< of them, from 0
  std::string directory;  ///< for the homes
  std::uint64_t seed = 0;
};

/// Plays computers. It stands on the real services of the system, but for the log.
class Player {
 public:
  explicit Player(const Cast& cast);
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  Answer carryOut(const Order& order);

 private:
  std::vector<Sample> syncUntilTimeIsUp(const Order& order);
  std::vector<Sample> syncEach(bool (*isMeant)(const Computer&), const loomer::TruthPlanner& edit, Kind kind);

  int _records;
  Random _random;
  Complaints _complaints;
  LinuxBundleLoader _bundles;
  Platform _platform;
  PlatformScope _scope;
  std::deque<Computer> _computers;
};

}  // namespace corvane::hubload
