// corvane-soak [--seed S] [--minutes M] [--property NAME]
//
// Drives random histories against every property until the time is up, in memory and over real files in turn,
// and prints how many. A failure is shrunk and printed with the command that replays it; the exit status is
// then
// 1. Without --seed one is drawn and printed; with --property one property alone is driven.

#include <rapidcheck.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/browser-host/BrowserProperties.h"
#include "tests/loomer/merge/MergeProperties.h"
#include "tests/loomer/merge/OrderProperties.h"
#include "tests/properties/ComputersProperty.h"
#include "tests/properties/FileProperties.h"
#include "tests/properties/RollbackProperty.h"
#include "tests/properties/TwoSidedProperties.h"

namespace {

using namespace corvane;
using Clock = std::chrono::steady_clock;

struct Property {
  const char* name;
  std::function<void()> check;
  int histories;  // in one turn
  int size;       // of the largest history, in edits
  std::uint64_t done = 0;
  double seconds = 0;
};

std::vector<Property> allProperties() {
  using Kind = MemoryHub::Kind;
  return {{"convergence", loomer::test::clientsConverge, 500, 80},
          {"order", loomer::test::ordersKeepTheirRules, 5000, 100},
          {"arrival", loomer::test::changesArrive, 300, 60},
          {"conservation", loomer::test::nothingVanishes, 300, 80},
          {"changed-values", loomer::test::changedValuesMergeInTheirFolders, 500, 60},
          {"killing", loomer::test::killedSessionsLeaveNoTrace, 300, 60},
          {"both-sides", loomer::test::bothSidesArrive, 300, 60},
          {"guard", loomer::test::movesNeverMeetTheGuard, 200, 80},
          {"refusal", refusedRecordsStay, 20, 60},
          {"files", filesConverge, 10, 60},
          {"agreements", agreementsChangeNothing, 10, 40},
          {"undo", undoRestoresEveryFile, 10, 40},
          {"browsers", browsersConverge, 10, 40},
          {"restored-browsers", restoredBrowsersConverge, 10, 40},
          {"computers", [] { computersConverge(Kind::table); }, 20, 60},
          {"chain-computers", [] { computersConverge(Kind::chain); }, 10, 60},
          {"rollbacks", [] { editsSurviveRollbacks(Kind::table); }, 20, 60},
          {"chain-rollbacks", [] { editsSurviveRollbacks(Kind::chain); }, 10, 60}};
}

struct SoakOptions {
  std::uint64_t seed = std::random_device{}();
  double minutes = 1;
  std::string property;
};

// One turn of a property; false when it does not hold.
bool drive(Property& property, std::uint64_t seed) {
  rc::detail::TestParams params;
  params.seed = seed;
  params.maxSuccess = property.histories;
  params.maxSize = property.size;
  rc::detail::TestMetadata metadata;
  metadata.id = property.name;
  metadata.description = property.name;
  const auto began = Clock::now();
  const rc::detail::TestResult result = rc::detail::checkTestable(property.check, metadata, params);
  property.seconds += std::chrono::duration<double>(Clock::now() - began).count();
  if (result.is<rc::detail::SuccessResult>()) {
    property.done += static_cast<std::uint64_t>(property.histories);
    return true;
  }
  std::ostringstream text;
  rc::detail::printResultMessage(result, text);
  std::printf("%s does not hold:\n%s\nreplay: corvane-soak --seed %llu --minutes 0 --property %s\n",
              property.name, text.str().c_str(), static_cast<unsigned long long>(seed), property.name);
  return false;
}

// Turns until the time is up, at least one of each property. The seed of a turn is the first one plus the
// number of turns before it, so that a turn can be replayed alone.
bool soak(std::vector<Property>& properties, const SoakOptions& options) {
  const auto end = Clock::now() + std::chrono::duration<double>(options.minutes * 60);
  std::uint64_t seed = options.seed;
  do {
    for (Property& property : properties) {
      if (!drive(property, seed)) return false;
    }
    ++seed;
  } while (Clock::now() < end);
  return true;
}

bool readOptions(int argc, char** argv, SoakOptions& options) {
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 == argc) return false;
    const std::string name = argv[i];
    char* rest = nullptr;
    if (name == "--seed") {
      options.seed = std::strtoull(argv[i + 1], &rest, 10);
    } else if (name == "--minutes") {
      options.minutes = std::strtod(argv[i + 1], &rest);
    } else if (name == "--property") {
      options.property = argv[i + 1];
    } else {
      return false;
    }
    if (rest && (rest == argv[i + 1] || *rest != '\0')) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  SoakOptions options;
  std::vector<Property> properties = allProperties();
  const bool understood = readOptions(argc, argv, options);
  if (!options.property.empty())
    std::erase_if(properties, [&](const Property& property) { return property.name != options.property; });
  if (!understood || properties.empty()) {
    std::fputs("usage: corvane-soak [--seed S] [--minutes M] [--property NAME]\nproperties:", stderr);
    for (const Property& property : allProperties()) std::fprintf(stderr, " %s", property.name);
    std::fputs("\n", stderr);
    return 2;
  }
  std::printf("seed %llu\n", static_cast<unsigned long long>(options.seed));
  const bool allHold = soak(properties, options);
  for (const Property& property : properties) {
    std::printf("%-12s %10llu histories %8.1f s\n", property.name,
                static_cast<unsigned long long>(property.done), property.seconds);
  }
  return allHold ? 0 : 1;
}
