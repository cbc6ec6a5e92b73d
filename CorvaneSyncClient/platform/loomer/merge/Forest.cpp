#include "CorvaneSyncClient/platform/loomer/merge/Forest.h"

#include <numeric>

namespace corvane::loomer {

namespace {

std::vector<Index> indexes(std::size_t count) {
  std::vector<Index> all(count);
  std::iota(all.begin(), all.end(), Index{0});
  return all;
}

}  // namespace

SiblingLists::SiblingLists(const Parents& parents) : SiblingLists(parents, indexes(parents.size())) {}

SiblingLists::SiblingLists(const Parents& parents, const std::vector<Index>& sequence)
    : _starts(parents.size() + 1, 0) {
  for (const Index parent : parents) {
    if (parent != kNoNode) ++_starts[parent + 1];
  }
  std::partial_sum(_starts.begin(), _starts.end(), _starts.begin());
  _children.resize(_starts.back());
  std::vector<std::size_t> next(_starts.begin(), _starts.end());
  for (const Index node : sequence) {
    if (parents[node] != kNoNode) _children[next[parents[node]]++] = node;
  }
}

std::vector<Index> SiblingLists::topDown() const {
  std::vector<Index> reached{kRootNode};
  reached.reserve(_children.size() + 1);
  for (std::size_t at = 0; at < reached.size(); ++at) {
    const std::span<const Index> children = of(reached[at]);
    reached.insert(reached.end(), children.begin(), children.end());
  }
  return reached;
}

std::vector<Index> nodesOnCycles(const Parents& parents) {
  std::vector<Index> found;
  std::vector<Index> walkOf(parents.size(), kNoNode);  // the node from which a walk upwards first came by
  for (std::size_t start = 0; start < parents.size(); ++start) {
    const auto walk = static_cast<Index>(start);
    Index at = walk;
    while (at != kNoNode && walkOf[at] == kNoNode) {
      walkOf[at] = walk;
      at = parents[at];
    }
    if (at == kNoNode || walkOf[at] != walk) continue;
    const Index first = at;
    do {
      found.push_back(at);
      at = parents[at];
    } while (at != first);
  }
  return found;
}

namespace {

// One walk upwards, which goes on where it was after a cycle was opened. A node whose way leads out is
// settled for good, since only nodes on cycles change; one on a cycle falls back for good. So each node
// that can fall back is walked by once, and what lies between those never changes: it is skipped by ways
// that only get shorter.
class CycleBreaking {
 public:
  CycleBreaking(Parents& parents, const Parents& fallbacks)
      : _parents(parents),
        _fallbacks(fallbacks),
        _next(parents.size()),
        _states(parents.size(), State::open) {
    for (std::size_t i = 0; i < parents.size(); ++i) {
      const auto node = static_cast<Index>(i);
      const bool ends = parents[node] == kNoNode;
      if (ends) _states[node] = State::settled;
      _next[node] = ends || fallbacks[node] != kNoNode ? node : parents[node];
    }
  }

  std::vector<Index> run() {
    for (std::size_t start = 0; start < _parents.size(); ++start) walkFrom(static_cast<Index>(start));
    return std::move(_fallen);
  }

 private:
  enum class State : std::uint8_t { open, onWay, settled };

  void walkFrom(Index start) {
    Index at = unfixedFrom(start);
    while (_states[at] != State::settled) {
      if (_states[at] == State::onWay) {
        breakCycle(at);
      } else {
        _states[at] = State::onWay;
        _way.push_back(at);
        at = _parents[at];
      }
      at = unfixedFrom(at);
    }
    for (const Index node : _way) _states[node] = State::settled;
    _way.clear();
  }

  // The end of the way so far, from `first` on, is the cycle.
  void breakCycle(Index first) {
    Index last = kNoNode;
    while (last != first) {
      last = _way.back();
      _way.pop_back();
      _parents[last] = _next[last] = _fallbacks[last];
      _fallen.push_back(last);
    }
  }

  // The first node, from this one upwards, that can still fall back or has no parent.
  Index unfixedFrom(Index node) {
    while (_next[node] != node) node = _next[node] = _next[_next[node]];
    return node;
  }

  Parents& _parents;
  const Parents& _fallbacks;
  std::vector<Index> _next;  // towards the first that is not fixed; itself for those
  std::vector<State> _states;
  std::vector<Index> _way;
  std::vector<Index> _fallen;
};

}  // namespace

std::vector<Index> breakCycles(Parents& parents, const Parents& fallbacks) {
  return CycleBreaking(parents, fallbacks).run();
}

}  // namespace corvane::loomer
