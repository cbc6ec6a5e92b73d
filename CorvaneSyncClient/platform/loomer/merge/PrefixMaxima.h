#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvane::loomer {

/// The greatest of the values entered so far whose keys lie below a bound: a Fenwick tree. Both operations
/// take O(log n). P. M. Fenwick, "A new data structure for cumulative frequency tables" (Softw. Pract. Exp.
/// 1994).
class PrefixMaxima {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  /// For keys below `count`.
  explicit PrefixMaxima(std::size_t count) : _items(count + 1, kNone), _values(count + 1, 0) {}

  /// The item with the greatest value of those whose keys are less than `bound`, and that value; kNone and 0
  /// if there is none. Of equal values the one entered first.
  std::pair<std::size_t, std::uint64_t> below(std::size_t bound) const {
    std::pair<std::size_t, std::uint64_t> greatest{kNone, 0};
    for (std::size_t at = bound; at > 0; at &= at - 1) {
      if (_values[at] > greatest.second) greatest = {_items[at], _values[at]};
    }
    return greatest;
  }

  /// `value` is greater than 0.
  void enter(std::size_t key, std::size_t item, std::uint64_t value) {
    for (std::size_t at = key + 1; at < _items.size(); at += at & (~at + 1)) {
      if (value > _values[at]) {
        _items[at] = item;
        _values[at] = value;
      }
    }
  }

 private:
  std::vector<std::size_t> _items;
  std::vector<std::uint64_t> _values;
};

}  // namespace corvane::loomer
