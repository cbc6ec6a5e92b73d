// corvane-histories: every small history of two clients.
//
//   corvane-histories                        what the test run does
//   corvane-histories --full                 up to four entries, up to three edits on each side
//   corvane-histories --nodes N --edits A B  exactly N entries, at most A and B edits
//   ... --part I N                           of the histories every N-th, beginning with number I (from 0)

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/kit/TestSize.h"
#include "tests/properties/SmallHistories.h"

namespace {

using corvane::loomer::test::runSmallHistories;
using corvane::loomer::test::SmallHistoryCounts;
using corvane::loomer::test::SmallHistoryScope;

// Everything that some ten thousand histories can hold, and of the next size an even part.
const std::vector<SmallHistoryScope> kDefault = {
    {.nodes = 0, .editsOfA = 2, .editsOfB = 2},
    {.nodes = 1, .editsOfA = 2, .editsOfB = 2},
    {.nodes = 2, .editsOfA = 1, .editsOfB = 2},
    {.nodes = 3, .editsOfA = 1, .editsOfB = 1},
    {.nodes = 3, .editsOfA = 2, .editsOfB = 2, .parts = 499},
};

// Each kind of edit beside each, for the sanitizers.
const std::vector<SmallHistoryScope> kSanitized = {
    {.nodes = 1, .editsOfA = 1, .editsOfB = 1},
    {.nodes = 2, .editsOfA = 1, .editsOfB = 1},
    {.nodes = 3, .editsOfA = 1, .editsOfB = 1, .parts = 199},
};

std::vector<SmallHistoryScope> fullScopes() {
  std::vector<SmallHistoryScope> scopes;
  for (std::size_t nodes = 0; nodes <= 4; ++nodes) {
    scopes.push_back({.nodes = nodes, .editsOfA = 3, .editsOfB = 3});
  }
  return scopes;
}

bool run(const SmallHistoryScope& scope) {
  const auto began = std::chrono::steady_clock::now();
  const SmallHistoryCounts counts = runSmallHistories(scope);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf(
      "%zu entries, at most %zu and %zu edits: %llu forests, %llu outcomes, %llu of %llu histories, "
      "%llu failed, %.1f s\n",
      scope.nodes, scope.editsOfA, scope.editsOfB, static_cast<unsigned long long>(counts.forests),
      static_cast<unsigned long long>(counts.outcomes), static_cast<unsigned long long>(counts.histories),
      static_cast<unsigned long long>(counts.pairs), static_cast<unsigned long long>(counts.failures),
      took.count());
  for (const std::string& example : counts.examples) std::printf("%s\n", example.c_str());
  std::fflush(stdout);
  return counts.failures == 0 && counts.histories > 0;
}

int printUsage() {
  std::fputs("usage: corvane-histories [--full | --nodes N --edits A B] [--part I N]\n", stderr);
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<SmallHistoryScope> scopes = corvane::kIsSanitized ? kSanitized : kDefault;
  SmallHistoryScope chosen;
  std::uint64_t part = 0;
  std::uint64_t parts = 1;
  for (int i = 1; i < argc; ++i) {
    const int left = argc - 1 - i;
    if (!std::strcmp(argv[i], "--full")) {
      scopes = fullScopes();
    } else if (!std::strcmp(argv[i], "--nodes") && left >= 1) {
      chosen.nodes = std::stoul(argv[++i]);
      scopes = {chosen};
    } else if (!std::strcmp(argv[i], "--edits") && left >= 2) {
      chosen.editsOfA = std::stoul(argv[++i]);
      chosen.editsOfB = std::stoul(argv[++i]);
      scopes = {chosen};
    } else if (!std::strcmp(argv[i], "--part") && left >= 2) {
      part = std::stoull(argv[++i]);
      parts = std::stoull(argv[++i]);
    } else {
      return printUsage();
    }
  }
  if (parts == 0 || part >= parts) return printUsage();
  bool allHold = true;
  for (SmallHistoryScope scope : scopes) {
    if (parts > 1) {
      scope.part = part;
      scope.parts = parts;
    }
    allHold = run(scope) && allHold;
  }
  return allHold ? 0 : 1;
}
