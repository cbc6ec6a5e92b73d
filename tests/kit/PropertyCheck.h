#pragma once

#include <stdexcept>
#include <string>

namespace corvane::kit {

/// Raises `what` as the reason why a property does not hold, where it does not.
inline void require(bool holds, const std::string& what) {
  if (!holds) throw std::logic_error(what);
}

}  // namespace corvane::kit
