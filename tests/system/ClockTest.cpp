#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <chrono>
#include <cmath>

#include "CorvaneSyncClient/platform/system/linux/LinuxClock.h"
#include "tests/fakes/ManualClock.h"

namespace corvane {
namespace {

class ClockContract : public testing::TestWithParam<bool> {
 protected:
  Clock& clock() { return GetParam() ? static_cast<Clock&>(_manual) : _linux; }

 private:
  LinuxClock _linux;
  ManualClock _manual;
};

INSTANTIATE_TEST_SUITE_P(Clocks, ClockContract, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Manual" : "Linux"; });

TEST_P(ClockContract, SleepTakesTime) {
  const Date before = clock().now();
  clock().sleep(0.02);
  clock().sleep(0);
  EXPECT_GE(clock().now().seconds - before.seconds,
            0.0199);  // a double near today keeps a tenth of a microsecond
}

TEST(LinuxClock, CountsFrom2001) {
  const double expected =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count() -
      978307200.0;
  EXPECT_LT(std::fabs(LinuxClock().now().seconds - expected), 3600.0);
}

TEST(LinuxClock, SignalsDoNotCutSleepShort) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
  const itimerval often{{0, 5000}, {0, 5000}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
  const auto start = std::chrono::steady_clock::now();
  LinuxClock().sleep(0.05);
  const auto slept = std::chrono::steady_clock::now() - start;
  const itimerval never{};
  ASSERT_EQ(setitimer(ITIMER_REAL, &never, nullptr), 0);
  ASSERT_EQ(sigaction(SIGALRM, &before, nullptr), 0);
  EXPECT_GE(slept, std::chrono::milliseconds(50));
}

TEST(ManualClock, RemembersSleeps) {
  ManualClock clock;
  int calls = 0;
  clock.onSleep = [&] { ++calls; };
  clock.sleep(0.25);
  clock.sleep(1.5);
  EXPECT_EQ(clock.sleeps, (std::vector<double>{0.25, 1.5}));
  EXPECT_EQ(clock.now(), Date{800'000'001.75});
  EXPECT_EQ(calls, 2);
}

}  // namespace
}  // namespace corvane
