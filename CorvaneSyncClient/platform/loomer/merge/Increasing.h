#pragma once

#include <cstdint>
#include <vector>

namespace corvane::loomer {

enum class Rise : std::uint8_t {
  strict,
  level
};  ///< whether equal neighbours are allowed in the subsequence

/// The heaviest subsequence of `values` that rises: one flag for each value, true where it belongs. `weights`
/// holds one positive weight for each value; an empty one weighs each value 1, which makes it the longest
/// subsequence. Always the same answer for the same values. O(n log n).
std::vector<bool> heaviestRising(const std::vector<std::int64_t>& values, Rise rise,
                                 const std::vector<std::uint64_t>& weights = {});

}  // namespace corvane::loomer
