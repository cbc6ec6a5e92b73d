#include "CorvaneSyncClient/platform/loomer/merge/Forest.h"

#include <numeric>

namespace corvane::loomer {

SiblingLists::SiblingLists(const Parents& parents) : _starts(parents.size() + 1, 0) {
  for (const Index parent : parents) {
    if (parent != kNoNode) ++_starts[parent + 1];
  }
  std::partial_sum(_starts.begin(), _starts.end(), _starts.begin());
  _children.resize(_starts.back());
  std::vector<std::size_t> next(_starts.begin(), _starts.end());
  for (std::size_t node = 0; node < parents.size(); ++node) {
    if (parents[node] != kNoNode) _children[next[parents[node]]++] = static_cast<Index>(node);
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

std::vector<Index> nodesOnCircles(const Parents& parents) {
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

}  // namespace corvane::loomer
