#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane {

/// Finds, by the hash of its key, the place of each item of an array: a table of hashes and places with open
/// addressing. Items and keys are the array's: the table allocates nothing for each, and looks at an item
/// only where hashes are equal.
class HashIndex {
 public:
  static constexpr std::uint32_t kNowhere = static_cast<std::uint32_t>(-1);

  /// The place that was entered with that hash and for which `isAt(place)` holds; `kNowhere` if there is
  /// none.
  template <typename IsAt>
  std::uint32_t find(std::uint32_t hash, const IsAt& isAt) const {
    if (_slots.empty()) return kNowhere;
    for (std::size_t at = hash & mask();; at = (at + 1) & mask()) {
      const Slot& slot = _slots[at];
      if (slot.place == kNowhere) return kNowhere;
      if (slot.hash == hash && isAt(slot.place)) return slot.place;
    }
  }

  /// Enters a place, which must not be there yet.
  void enter(std::uint32_t hash, std::size_t place) {
    if (_count * 4 >= _slots.size() * 3) resize(_count + 1);
    put({hash, static_cast<std::uint32_t>(place)});
    ++_count;
  }

  /// Makes room for that many places in all.
  void reserve(std::size_t count) {
    if (count * 4 > _slots.size() * 3) resize(count);
  }

  void clear() {
    _slots.clear();
    _count = 0;
  }

 private:
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t place = kNowhere;
  };

  std::size_t mask() const { return _slots.size() - 1; }

  void put(const Slot& slot) {
    std::size_t at = slot.hash & mask();
    while (_slots[at].place != kNowhere) at = (at + 1) & mask();
    _slots[at] = slot;
  }

  // A power of two of which `count` fill less than three quarters.
  void resize(std::size_t count) {
    std::size_t slots = 16;
    while (slots * 3 <= count * 4) slots *= 2;
    std::vector<Slot> before(slots);
    before.swap(_slots);
    for (const Slot& slot : before) {
      if (slot.place != kNowhere) put(slot);
    }
  }

  std::vector<Slot> _slots;
  std::size_t _count = 0;
};

/// The hash of a number for a HashIndex: those of neighbours lie far apart.
inline std::uint32_t hashOf(std::int64_t number) {
  return static_cast<std::uint32_t>((static_cast<std::uint64_t>(number) * 0x9E3779B97F4A7C15) >> 32);
}

}  // namespace corvane
