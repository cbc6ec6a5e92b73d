#pragma once

#include <chrono>
#include <cstddef>

namespace corvane {

/// A moment of the clock that nobody sets.
using Deadline = std::chrono::steady_clock::time_point;

/// The moment that many seconds from now.
Deadline after(double seconds);

/// The end of the first of `count` equal parts of the time until `deadline`.
Deadline shareOf(Deadline deadline, std::size_t count);

/// Waits until one of the poll events `events` occurs at `descriptor`. Returns the events that occurred, 0 at
/// the deadline, and POLLERR where it is not possible to wait for them. Signals do not end the wait.
short awaitEvents(int descriptor, short events, Deadline deadline);

}  // namespace corvane
