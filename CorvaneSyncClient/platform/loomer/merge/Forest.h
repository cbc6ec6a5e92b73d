#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

// Trees as lists of parents, with dense numbers for nodes.

namespace corvane::loomer {

using Index = std::uint32_t;
inline constexpr Index kRootNode = 0;
inline constexpr Index kNoNode = static_cast<Index>(-1);

/// The parent of each node; kNoNode for those without one, the root among them.
using Parents = std::vector<Index>;

/// The children of every node, each folder's in order, in one block of memory.
class SiblingLists {
 public:
  SiblingLists() = default;
  /// The children in the order of their indexes.
  explicit SiblingLists(const Parents& parents);
  /// The children in the order in which they stand in `sequence`, each once.
  SiblingLists(const Parents& parents, const std::vector<Index>& sequence);
  template <typename Precedes>
  SiblingLists(const Parents& parents, Precedes precedes) : SiblingLists(parents) {
    for (std::size_t parent = 0; parent + 1 < _starts.size(); ++parent) {
      const std::span<Index> list = mutableOf(static_cast<Index>(parent));
      if (!std::is_sorted(list.begin(), list.end(), precedes)) {
        std::sort(list.begin(), list.end(), precedes);
      }
    }
  }

  /// Nothing for a node that came after the lists were made.
  std::span<const Index> of(Index parent) const {
    if (parent + std::size_t{1} >= _starts.size()) return {};
    return {_children.data() + _starts[parent], _starts[parent + 1] - _starts[parent]};
  }
  std::span<Index> mutableOf(Index parent) {
    return {_children.data() + _starts[parent], _starts[parent + 1] - _starts[parent]};
  }
  /// The root and everything below it, parents before their children, siblings in order.
  std::vector<Index> topDown() const;

 private:
  std::vector<std::size_t> _starts;
  std::vector<Index> _children;
};

/// Every node that lies on a cycle, those of one cycle next to one another. O(n), without recursion.
std::vector<Index> nodesOnCycles(const Parents& parents);

/// Breaks every cycle: each node on it that has a fallback (not kNoNode) becomes its child, and so on with
/// the cycles that close then, until there is none. Answers the nodes that fell back. Nodes without a
/// fallback, and those that fell back, must form no cycle among themselves. O(n log n), without recursion,
/// however many cycles follow one another.
std::vector<Index> breakCycles(Parents& parents, const Parents& fallbacks);

}  // namespace corvane::loomer
