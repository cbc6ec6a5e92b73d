#pragma once

namespace corvane {

/// A free port of the loopback interface. Raises std::runtime_error.
int freePort();

}  // namespace corvane
