#pragma once

#include <cstdint>

namespace corvane::hubload {

/// Bytes that passed through this process's sockets, TLS included, the network's own headers not.
struct Traffic {
  std::int64_t sent = 0;
  std::int64_t received = 0;
};

/// Since the process began. One thread.
Traffic traffic();

}  // namespace corvane::hubload
