#pragma once

#include <cstdint>

namespace corvane::loomer {

/// The distance between the places of new siblings in the truth, so that others fit between them later.
inline constexpr std::int64_t kPlaceSpread = std::int64_t{1} << 20;

}  // namespace corvane::loomer
