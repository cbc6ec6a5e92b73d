#include <type_traits>
#include <unordered_set>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

namespace {

// Pairs of values that are still to be compared; containers put their contents here instead of recursing.
class EqualityWalk {
 public:
  void add(const Array& a, const Array& b) {
    if (a.isSameInstance(b)) return;
    if (a.size() != b.size()) {
      _equal = false;
      return;
    }
    for (std::size_t i = 0; i < a.size(); ++i) _pending.emplace_back(&a[i], &b[i]);
  }

  void add(const Dictionary& a, const Dictionary& b) {
    if (a.isSameInstance(b)) return;
    if (a.size() != b.size()) {
      _equal = false;
      return;
    }
    for (const auto& entry : a) {
      const Value* other = b.find(entry.key);
      if (!other) {
        _equal = false;
        return;
      }
      _pending.emplace_back(&entry.value, other);
    }
  }

  bool finish() {
    while (_equal && !_pending.empty()) {
      const auto [a, b] = _pending.back();
      _pending.pop_back();
      compare(*a, *b);
    }
    return _equal;
  }

 private:
  using Pair = std::pair<const void*, const void*>;
  struct PairHash {
    std::size_t operator()(const Pair& pair) const {
      return std::hash<const void*>()(pair.first) * 31 + std::hash<const void*>()(pair.second);
    }
  };

  // Containers that are shared many times over would be walked once for each path that leads to them. A walk
  // that gets long therefore remembers the pairs it has met; a short one is spared the cost.
  static constexpr std::size_t kLongWalk = 4096;

  template <typename Container>
  void addOnce(const Container& a, const Container& b) {
    if (++_containers > kLongWalk && !_met.emplace(a.identity(), b.identity()).second) return;
    add(a, b);
  }

  void compare(const Value& a, const Value& b) {
    if (a.as<Array>() && b.as<Array>()) {
      addOnce(*a.as<Array>(), *b.as<Array>());
    } else if (a.as<Dictionary>() && b.as<Dictionary>()) {
      addOnce(*a.as<Dictionary>(), *b.as<Dictionary>());
    } else {
      _equal = a == b;  // of two different types, or of one type that is no container: without recursion
    }
  }

  std::vector<std::pair<const Value*, const Value*>> _pending;
  std::size_t _containers = 0;
  std::unordered_set<Pair, PairHash> _met;
  bool _equal = true;
};

template <typename Container>
bool equalContainers(const Container& a, const Container& b) {
  EqualityWalk walk;
  walk.add(a, b);
  return walk.finish();
}

}  // namespace

bool operator==(const Array& a, const Array& b) { return equalContainers(a, b); }
bool operator==(const Dictionary& a, const Dictionary& b) { return equalContainers(a, b); }
bool operator==(const Value& a, const Value& b) {
  return a.visit([&b](const auto& payload) {
    const auto* const other = b.as<std::decay_t<decltype(payload)>>();
    return other && payload == *other;
  });
}

}  // namespace corvane
