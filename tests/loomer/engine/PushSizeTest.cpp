#include <gtest/gtest.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/hub/PushSize.h"

namespace corvane::loomer {
namespace {

// How many pushes it takes to give so many records over a line that carries so many a second.
int pushesFor(std::size_t records, double perSecond) {
  PushSize size;
  int pushes = 0;
  for (std::size_t left = records; left > 0; ++pushes) {
    const std::size_t given = std::min(left, size.records());
    left -= given;
    size.suit(static_cast<double>(given) / perSecond, left > 0);
  }
  return pushes;
}

// A push costs a session over everything: as many pushes for each record would be quadratic.
TEST(PushSize, TenTimesAsManyRecordsTakeTwoPushesMoreAtMost) {
  for (std::size_t records = 1'000; records <= 400'000; records *= 10)
    EXPECT_LE(pushesFor(records * 10, 1e6), pushesFor(records, 1e6) + 2) << records;
  EXPECT_LE(pushesFor(1'000'000, 1e6), 5);
}

TEST(PushSize, ASlowLineIsGivenSmallOnes) {
  PushSize size;
  for (int i = 0; i < 20; ++i) size.suit(60, true);
  EXPECT_EQ(size.records(), kSmallestPush);
  size.suit(5, true);
  EXPECT_EQ(size.records(), kSmallestPush) << "neither quick nor slow";
  size.suit(1, false);
  EXPECT_EQ(size.records(), kSmallestPush) << "it had nothing left";
  size.suit(2, true);
  EXPECT_EQ(size.records(), 2 * kSmallestPush);
}

}  // namespace
}  // namespace corvane::loomer
