#pragma once

#include <cstdint>

namespace corvane::servicebench {

/// What passed between this process and places: HTTP requests, and the bytes of the connections with all
/// heads, the network's own headers not. At a place without a network: objects asked for, written, looked for
/// in vain or removed, and listings; and their bytes.
struct Traffic {
  std::int64_t requests = 0;
  std::int64_t sent = 0;
  std::int64_t received = 0;

  Traffic& operator+=(const Traffic& other);
  friend Traffic operator-(Traffic a, const Traffic& b);
};

/// Since the process began. One thread.
Traffic traffic();

/// Adds what passed without a network.
void countTraffic(const Traffic& more);

}  // namespace corvane::servicebench
