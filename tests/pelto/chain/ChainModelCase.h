#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "tests/pelto/chain/ChainModel.h"

namespace corvane::model {

/// Bounds within which nothing may go wrong.
struct Case {
  std::string name;
  Bounds bounds;
};

/// A test's name says it all.
inline void PrintTo(const Case& each, std::ostream* out) { *out << each.name; }

/// Explores, and prints how many states there are. CORVANE_MODEL=N allows N more kills, and N more late
/// requests where there are any, and as many states as memory holds.
inline void expectNoFault(const Case& each) {
  Bounds bounds = each.bounds;
  if (const char* const extra = std::getenv("CORVANE_MODEL")) {
    const int more = std::max(0, std::atoi(extra));
    bounds.kills += more;
    if (bounds.late > 0) bounds.late += more;
    bounds.mostStates *= 100;
  }
  const Explored explored = explore(bounds);
  std::printf("%s: %zu states\n", each.name.c_str(), explored.states);
  EXPECT_EQ(explored.fault, "");
  EXPECT_TRUE(explored.isWhole);
}

}  // namespace corvane::model
