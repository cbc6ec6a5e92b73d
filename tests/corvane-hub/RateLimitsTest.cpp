#include <gtest/gtest.h>

#include <string>

#include "tools/corvane-hub/HubService.h"
#include "tools/corvane-hub/RateLimits.h"

namespace corvane::hubserver {

namespace {

class RateLimitsTest : public testing::Test {
 protected:
  /// How many of the requests are let through.
  int taken(const std::string& who, int asked, std::chrono::milliseconds when = {}) {
    int count = 0;
    for (int i = 0; i < asked; ++i) count += limits.take(who, TimePoint(when)) ? 1 : 0;
    return count;
  }

  RateLimits limits{kRequestsAtOnce, kRequestsPerSecond};
};

TEST_F(RateLimitsTest, EachComputerHasAThousandRequestsAtOnce) {
  EXPECT_EQ(taken("ada.laptop", 1500), 1000);
  EXPECT_EQ(taken("ada.phone", 1500), 1000);
}

TEST_F(RateLimitsTest, AHundredAreAddedEachSecond) {
  taken("ada.laptop", 1000);
  EXPECT_EQ(taken("ada.laptop", 500, std::chrono::milliseconds(9)), 0);
  EXPECT_EQ(taken("ada.laptop", 500, std::chrono::seconds(1)), 100);
  EXPECT_EQ(taken("ada.laptop", 500, std::chrono::seconds(3)), 200);
  EXPECT_EQ(taken("ada.laptop", 5000, std::chrono::hours(1)), 1000);
}

TEST_F(RateLimitsTest, OnlyWhoCouldAskAThousandTimesAgainIsForgotten) {
  taken("ada.laptop", 1000);
  taken("ada.phone", 1);
  limits.tidy(TimePoint(std::chrono::seconds(5)));
  EXPECT_EQ(limits.buckets(), 1U);
  EXPECT_EQ(taken("ada.laptop", 1000, std::chrono::seconds(5)), 500);
  limits.tidy(TimePoint(std::chrono::seconds(15)));
  EXPECT_EQ(limits.buckets(), 0U);
}

}  // namespace

}  // namespace corvane::hubserver
