#pragma once

#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

// The notation of bookmark trees in all tests: nodes separated by blanks, a folder's children in parentheses
// after it, `F(a b) c`.
//
// A node begins with what a test calls it. The rest says where it differs from the usual: `a=news` has the
// title "news" instead of "a", `a=` none; the bookmark `a@x` is at address "x" instead of "http://a", `a@` at
// none; `F*(…)` opens as tabs, `F!(…)` is special. Words that are empty or hold any of these characters
// stand in quotation marks, with a backslash before a quotation mark or a backslash.

namespace corvane::kit {

/// A bookmark, or a folder with all that it holds.
struct TreeNode {
  std::string label;  ///< what a test calls it
  bool folder = false;
  String title;
  String url = {};  ///< absent for a folder
  bool tabGroup = false;
  bool special = false;
  std::vector<TreeNode> children = {};
  friend bool operator==(const TreeNode&, const TreeNode&) = default;
};

/// Raises std::invalid_argument for text that is no tree.
std::vector<TreeNode> parseTree(const std::string& text);

/// The text that parseTree reads as `nodes`. Different trees have different texts.
std::string printTree(const std::vector<TreeNode>& nodes);

/// What lies below `root` in whatever holds a tree: `childrenOf` answers the keys in a folder, in order, and
/// `nodeOf` the node of a key, without children.
template <typename Key, typename ChildrenOf, typename NodeOf>
std::vector<TreeNode> treeBelow(const Key& root, const ChildrenOf& childrenOf, const NodeOf& nodeOf) {
  std::vector<TreeNode> nodes;
  for (const Key& key : childrenOf(root)) {
    TreeNode node = nodeOf(key);
    if (node.folder) node.children = treeBelow(key, childrenOf, nodeOf);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

}  // namespace corvane::kit
