#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "bench/hubload/Sample.h"

namespace corvane::hubload {

/// What all workers do at one time.
enum class Phase : std::int32_t {
  switchOn,  ///< every computer, at the service
  load,      ///< the first computer of each account makes and gives its records
  pull,      ///< the others take them
  quiet,     ///< sessions without edits, until the time is up
  edits,     ///< sessions with edits at the given rate and without in between, until the time is up
  settle,    ///< one session of every computer
  digest,    ///< what every computer holds
};

struct Order {
  Phase phase = Phase::digest;
  double seconds = 0;
  double editsPerSecond = 0;  ///< of this worker
};

struct Answer {
  std::vector<Sample> samples;
  std::vector<Digest> digests;
};

/// A process of its own that carries out orders: the engine works in one thread. It ends with this object,
/// and when this process ends.
class Worker {
 public:
  /// `makeServant` is called in the new process, and what it returns for every order.
  using Servant = std::function<Answer(const Order&)>;
  /// Raises std::system_error.
  explicit Worker(const std::function<Servant()>& makeServant);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Raises std::runtime_error, here and below, when the worker ended, which has then said why on standard
  /// error, or a signal came.
  void give(const Order& order);
  /// Waits for the answer to the order.
  Answer await();

 private:
  pid_t _process = -1;
  int _socket = -1;
};

}  // namespace corvane::hubload
