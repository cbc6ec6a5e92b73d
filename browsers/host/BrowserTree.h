#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "browsers/host/BrowserNode.h"
#include "browsers/host/SiblingList.h"

namespace corvane::browsers {

/// The browser's tree as it was read: whatever order of nodes the messages gave, this is a forest below the
/// roots that show, each folder's children in their order.
class BrowserTree {
 public:
  static constexpr std::size_t kMostNodes = 1'000'000;
  static constexpr std::size_t kMostText = std::size_t{1} << 30;  ///< bytes of all titles and addresses

  explicit BrowserTree(std::size_t mostNodes = kMostNodes) : _mostNodes(mostNodes) {}

  /// Adds a node behind its parent, which was added before, as the last of its children. Of two roots of one
  /// kind, which Chromium has with an account, the one that the account keeps in step counts; the other one
  /// is left aside with all that is in it, wherever it comes. Raises MessageProblem for a second node of one
  /// id, for a parent that is no folder or did not come before, and beyond the limits.
  void add(BrowserNode node);

  /// Parents first, siblings in their order.
  std::vector<const BrowserNode*> nodes() const;
  /// Null for an unknown id.
  const BrowserNode* find(const std::string& id) const;
  /// The root of that kind; null where the browser has none.
  const BrowserNode* root(RootKind kind) const;
  /// The ids of a folder's children; none for anything else.
  const std::vector<std::string>& childrenOf(const std::string& id) const;
  /// The place of a node that is known, and no root, among its siblings.
  std::size_t indexOf(const std::string& id) const;
  /// Whether the browser's own account keeps a root in step.
  bool isSyncedByBrowser() const;

  // What changes of single nodes make of it.

  /// Puts a node, new or known, into a folder that is known, at `index` or at the end.
  void put(const BrowserNode& node, std::size_t index);
  /// Takes a node without children away.
  void remove(const std::string& id);

 private:
  void unlist(const BrowserNode& node);

  std::unordered_map<std::string, BrowserNode> _nodes;
  std::unordered_map<std::string, SiblingList> _children;
  std::map<RootKind, std::string> _roots;
  std::size_t _mostNodes;
  std::size_t _text = 0;
};

}  // namespace corvane::browsers
