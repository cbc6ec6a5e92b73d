// A library to be preloaded into programs under test: the computer's clock is off by as many seconds as the
// environment variable CORVANE_TEST_CLOCK_SHIFT says. Files get their dates from the kernel, which knows
// nothing of it.

#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace {

time_t shift() {
  const char* seconds = std::getenv("CORVANE_TEST_CLOCK_SHIFT");
  return seconds ? std::atol(seconds) : 0;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const int result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (result == 0 && clock == CLOCK_REALTIME) time->tv_sec += shift();
  return result;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
  timespec now{};
  const int result = clock_gettime(CLOCK_REALTIME, &now);
  time->tv_sec = now.tv_sec;
  time->tv_usec = now.tv_nsec / 1000;
  return result;
}

time_t time(time_t* time) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (time) *time = now.tv_sec;
  return now.tv_sec;
}
}
