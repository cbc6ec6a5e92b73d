#include <gtest/gtest.h>

#include <random>

#include "CorvaneSyncClient/platform/loomer/merge/Forest.h"

namespace corvane::loomer::test {
namespace {

// What opening cycles means: pass by pass, until none is left.
std::vector<bool> fallenPassByPass(Parents parents, const Parents& fallbacks) {
  std::vector<bool> fallen(parents.size(), false);
  for (;;) {
    const std::vector<Index> cycles = nodesOnCycles(parents);
    if (cycles.empty()) return fallen;
    for (const Index node : cycles) {
      if (fallbacks[node] == kNoNode || fallen[node]) continue;
      fallen[node] = true;
      parents[node] = fallbacks[node];
    }
  }
}

// A random tree: of any two nodes the one that comes first in a random order stands above.
Parents randomTree(Index nodes, std::mt19937& random) {
  std::vector<Index> order;
  for (Index node = 1; node < nodes; ++node) order.push_back(node);
  std::shuffle(order.begin(), order.end(), random);
  Parents parents(nodes, kNoNode);
  for (std::size_t i = 0; i < order.size(); ++i) {
    const std::size_t above = random() % (i + 1);
    parents[order[i]] = above == i ? kRootNode : order[above];
  }
  return parents;
}

TEST(OpeningCycles, LeavesWhatPassesOverAllNodesWouldLeave) {
  std::mt19937 random(1);
  std::size_t opened = 0;
  for (int round = 0; round < 20'000; ++round) {
    const auto nodes = static_cast<Index>(2 + random() % 12);
    const Parents wanted = randomTree(nodes, random);
    const Parents held = randomTree(nodes, random);
    Parents parents = wanted;
    Parents fallbacks = held;
    for (Index node = 1; node < nodes; ++node) {
      if (random() % 3 != 0) continue;
      parents[node] = held[node];
      fallbacks[node] = kNoNode;
    }
    const std::vector<bool> expected = fallenPassByPass(parents, fallbacks);
    std::vector<bool> fallen(nodes, false);
    for (const Index node : breakCycles(parents, fallbacks)) {
      EXPECT_FALSE(fallen[node]) << "once";
      fallen[node] = true;
      ++opened;
    }
    ASSERT_EQ(fallen, expected) << "round " << round;
    ASSERT_TRUE(nodesOnCycles(parents).empty()) << "round " << round;
  }
  EXPECT_GT(opened, 1'000U);
}

TEST(OpeningCycles, EachCycleClosesTheNext) {
  // Everything is below the first node, which stays below the second: one cycle after another, each closed
  // by opening the one before. Passes over all nodes would be as many as there are nodes.
  constexpr Index kNodes = 500'000;
  Parents parents(kNodes, 1);
  Parents fallbacks(kNodes, kNoNode);
  parents[kRootNode] = kNoNode;
  parents[1] = 2;
  for (Index node = 2; node < kNodes; ++node) fallbacks[node] = node + 1 < kNodes ? node + 1 : kRootNode;
  const std::vector<Index> fallen = breakCycles(parents, fallbacks);
  EXPECT_EQ(fallen.size(), kNodes - 2U);
  EXPECT_EQ(parents[kNodes - 1], kRootNode);
}

}  // namespace
}  // namespace corvane::loomer::test
