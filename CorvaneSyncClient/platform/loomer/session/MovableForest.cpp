#include "CorvaneSyncClient/platform/loomer/session/MovableForest.h"

namespace corvane::loomer {

MovableForest::MovableForest(const Parents& parents) : _nodes(parents.size()) {
  // At first every node is a path of its own.
  for (std::size_t node = 0; node < parents.size(); ++node) _nodes[node].up = parents[node];
}

Index MovableForest::add() {
  _nodes.emplace_back();
  return static_cast<Index>(_nodes.size() - 1);
}

void MovableForest::hang(Index node, Index parent) {
  if (parent != kNoNode && isAtOrAbove(node, parent)) return;
  expose(node);
  if (const Index above = _nodes[node].above; above != kNoNode) _nodes[above].up = kNoNode;
  _nodes[node].above = kNoNode;
  _nodes[node].up = parent;
}

bool MovableForest::isAtOrAbove(Index upper, Index lower) {
  expose(upper);
  return expose(lower) == upper;
}

bool MovableForest::isTop(Index node) const {
  const Index up = _nodes[node].up;
  return up == kNoNode || (_nodes[up].above != node && _nodes[up].below != node);
}

void MovableForest::rotate(Index node) {
  const Index parent = _nodes[node].up;
  const Index grandparent = _nodes[parent].up;
  const bool parentIsTop = isTop(parent);
  const bool isAbove = _nodes[parent].above == node;
  Index Node::*const side = isAbove ? &Node::above : &Node::below;
  Index Node::*const otherSide = isAbove ? &Node::below : &Node::above;
  const Index between = _nodes[node].*otherSide;
  _nodes[parent].*side = between;
  if (between != kNoNode) _nodes[between].up = parent;
  _nodes[node].*otherSide = parent;
  _nodes[parent].up = node;
  _nodes[node].up = grandparent;
  if (parentIsTop) return;
  (_nodes[grandparent].above == parent ? _nodes[grandparent].above : _nodes[grandparent].below) = node;
}

void MovableForest::splay(Index node) {
  while (!isTop(node)) {
    const Index parent = _nodes[node].up;
    if (!isTop(parent)) {
      const Index grandparent = _nodes[parent].up;
      const bool straight = (_nodes[parent].above == node) == (_nodes[grandparent].above == parent);
      rotate(straight ? parent : node);
    }
    rotate(node);
  }
}

Index MovableForest::expose(Index node) {
  Index joined = kNoNode;
  for (Index at = node; at != kNoNode; at = _nodes[at].up) {
    splay(at);
    _nodes[at].below = joined;
    joined = at;
  }
  splay(node);
  return joined;
}

}  // namespace corvane::loomer
