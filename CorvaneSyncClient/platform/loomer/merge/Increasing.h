#pragma once

#include <cstdint>
#include <vector>

namespace corvane::loomer {

/// Whether equal neighbours are allowed in the subsequence (`level`).
enum class Rise : std::uint8_t { strict, level };

/// The heaviest subsequence of `values` that rises: one flag for each value, true where it belongs. `weights`
/// holds one positive weight for each value; an empty one weighs each value 1, which makes it the longest
/// subsequence. Always the same answer for the same values. O(n log n).
std::vector<bool> heaviestRising(const std::vector<std::int64_t>& values, Rise rise,
                                 const std::vector<std::uint64_t>& weights = {});

}  // namespace corvane::loomer
