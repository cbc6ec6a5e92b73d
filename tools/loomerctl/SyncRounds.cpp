#include "tools/loomerctl/SyncRounds.h"

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomerctl {

namespace {

constexpr int kRounds = 5;
constexpr int kTries = 3;
constexpr double kPauseSeconds = 5;
constexpr double kQuietSeconds = 2;
constexpr int kWaits = 30;

SyncEnd syncOnce(const String& client, SessionRunner& runner) {
  for (int tries = 1;; ++tries) {
    if (runner.sync(client)) return SyncEnd::succeeded;
    if (!runner.isBusy()) return SyncEnd::failed;
    if (tries == kTries) return SyncEnd::busy;
    Platform::current().clock.sleep(kPauseSeconds);
  }
}

}  // namespace

std::map<std::string, SyncEnd> syncInRounds(const std::vector<String>& clients, SessionRunner& runner) {
  std::map<std::string, SyncEnd> ends;
  std::vector<String> waiting = clients;
  for (int round = 1; round <= kRounds && !waiting.empty(); ++round) {
    for (const String& each : waiting) ends[each.toString()] = syncOnce(each, runner);
    waiting.clear();
    for (const String& each : clients) {
      if (ends[each.toString()] == SyncEnd::succeeded && runner.hasNews(each)) waiting.push_back(each);
    }
  }
  return ends;
}

void awaitQuiet(const std::string& path) {
  Platform& platform = Platform::current();
  for (int waits = 0; waits < kWaits; ++waits) {
    const auto file = platform.files.attributesIfKnown(path);
    if (!file) return;
    const double age = platform.clock.now().seconds - file->modificationDate.seconds;
    if (age < 0 || age >= kQuietSeconds) return;
    platform.clock.sleep(kQuietSeconds - age);
  }
}

}  // namespace corvane::loomerctl
