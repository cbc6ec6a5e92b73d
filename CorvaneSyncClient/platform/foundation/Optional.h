#pragma once

#include <optional>

namespace corvane {

/// The value's address, null for an absent one; for as long as `optional` lives unchanged.
template <typename T>
const T* pointerTo(const std::optional<T>& optional) {
  return optional ? &*optional : nullptr;
}
template <typename T>
const T* pointerTo(const std::optional<T>&&) = delete;

}  // namespace corvane
