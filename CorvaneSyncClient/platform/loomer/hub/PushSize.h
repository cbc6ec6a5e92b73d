#pragma once

#include <cstddef>

namespace corvane::loomer {

/// No push is made smaller than this, in records, because a line is slow.
inline constexpr std::size_t kSmallestPush = 250;

/// How many records one push takes at most: what the line carries in a few seconds, as far as the pushes
/// before have shown. A push locks the store, so it may not take long. But each takes a session over
/// everything, whatever it carries, so there may not be many: while pushes cross quickly, the next one grows
/// by a factor, and their number grows with the logarithm of what is to be given.
class PushSize {
 public:
  std::size_t records() const { return _records; }
  /// Sizes the next push after one that took so long to cross; `wasFull`: it had to leave something.
  void suit(double seconds, bool wasFull);

 private:
  std::size_t _records = 2'000;
};

}  // namespace corvane::loomer
