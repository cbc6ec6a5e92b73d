#include "CorvaneSyncClient/platform/system/Deadline.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace corvane {

using std::chrono::steady_clock;

Deadline after(double seconds) {
  return steady_clock::now() +
         std::chrono::duration_cast<Deadline::duration>(std::chrono::duration<double>(seconds));
}

Deadline shareOf(Deadline deadline, std::size_t count) {
  const steady_clock::time_point now = steady_clock::now();
  return now + (deadline - now) / static_cast<steady_clock::rep>(count);
}

short awaitEvents(int descriptor, short events, Deadline deadline) {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    if (left <= 0) return 0;
    pollfd waited{descriptor, events, 0};
    const int count = ::poll(&waited, 1, static_cast<int>(std::min<std::int64_t>(left, 60'000)));
    if (count > 0) return waited.revents;
    if (count < 0 && errno != EINTR) return POLLERR;
  }
}

}  // namespace corvane
