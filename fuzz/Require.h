#pragma once

#include <cstdio>
#include <cstdlib>

namespace corvane {

/// Ends the fuzzer with a crash when something that must hold does not.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace corvane
