#pragma once

#include "CorvaneSyncClient/platform/loomer/merge/Forest.h"

namespace corvane::loomer {

/// Trees whose nodes are hung elsewhere one at a time, and the question in between whether one node stands
/// above another. Both cost O(log n), taken over many, at any depth.
///
/// After D. D. Sleator and R. E. Tarjan, "A data structure for dynamic trees" (J. Comput. Syst. Sci. 1983):
/// every tree falls apart into paths from the top down, and each path is a splay tree ordered by depth
/// ("Self-adjusting binary search trees", J. ACM 1985).
class MovableForest {
 public:
  /// `parents` holds no circle.
  explicit MovableForest(const Parents& parents);

  /// A new node that hangs nowhere.
  Index add();
  /// Hangs the node, with everything below it, under `parent`; kNoNode: nowhere. Does nothing where that
  /// would close a circle.
  void hang(Index node, Index parent);
  /// Whether the way up from `lower` comes by `upper`, which may be `lower` itself.
  bool isAtOrAbove(Index upper, Index lower);

 private:
  /// A node of the splay tree of its path: `up` is its parent there or, for the top of a splay tree, the node
  /// above the path.
  struct Node {
    Index up = kNoNode;
    Index above = kNoNode;  ///< the subtree of what stands above it on its path
    Index below = kNoNode;  ///< the subtree of what stands below it
  };

  bool isTop(Index node) const;
  void rotate(Index node);
  void splay(Index node);
  /// Makes the way from the root down to `node` one path, and `node` the top of its splay tree. Answers the
  /// node where the way joined the path that was there before.
  Index expose(Index node);

  std::vector<Node> _nodes;
};

}  // namespace corvane::loomer
