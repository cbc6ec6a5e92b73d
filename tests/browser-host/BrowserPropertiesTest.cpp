#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "tests/browser-host/BrowserProperties.h"
#include "tests/kit/TestSize.h"
#include "tests/loomer/merge/CheckTimes.h"

// RapidCheck prints its seed; RC_PARAMS="seed=…" replays one. CORVANE_PROPERTIES=N runs N times as many
// histories.

namespace corvane {
namespace {

int times(int count) {
  const char* const factor = std::getenv("CORVANE_PROPERTIES");
  return factor ? count * std::max(1, std::atoi(factor)) : count;
}

TEST(Browsers, ConvergeWithFilesWhateverIsKilled) {
  loomer::test::checkTimes(times(sized(40, 8)), 40, browsersConverge);
}

TEST(Browsers, ConvergeWithFilesWhatIsRestored) {
  loomer::test::checkTimes(times(sized(40, 8)), 40, restoredBrowsersConverge);
}

}  // namespace
}  // namespace corvane
