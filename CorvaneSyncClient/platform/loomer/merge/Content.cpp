#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// Attributes, each on its own. Being special goes with the name that made the folder special, and never
// leaves the root or doubles.

namespace corvane::loomer {
namespace {

std::string textOf(const String& value) { return value.toString(); }
std::string textOf(bool value) { return value ? "1" : "0"; }

class ContentMerge {
 public:
  ContentMerge(Trees& trees, Node& node) : _trees(trees), _node(node), _sent(sentContent(node)) {}

  void run() {
    merge(&Content::name, "name");
    merge(&Content::url, "url");
    merge(&Content::tabGroup, "tab group");
    const Content& truth = _node.truth->content;
    if (truth.name == _sent.name) {
      _node.content.special = clientStands(&Content::special) ? _sent.special : truth.special;
    } else {
      _node.content.special = _node.content.name == _sent.name ? _sent.special : truth.special;
    }
  }

 private:
  template <typename Value>
  bool clientStands(Value Content::*attribute) const {
    const Value& truth = _node.truth->content.*attribute;
    if (_node.base && _node.base->content.*attribute == _sent.*attribute) return false;
    if (_node.base && _node.base->content.*attribute == truth) return true;
    return !_trees.input.refresh;
  }

  template <typename Value>
  void merge(Value Content::*attribute, const char* name) {
    const Value& truth = _node.truth->content.*attribute;
    const Value& sent = _sent.*attribute;
    const bool clientWon = clientStands(attribute);
    _node.content.*attribute = clientWon ? sent : truth;
    if (sent == truth) return;
    const bool oneSided =
        _node.base && (_node.base->content.*attribute == sent || _node.base->content.*attribute == truth);
    if (!oneSided) _trees.losses.push_back({_node.id, name, textOf(sent), textOf(truth), clientWon});
  }

  Trees& _trees;
  Node& _node;
  Content _sent;
};

/// Leaves one special folder of each title, in the root: the one that the truth has, else the oldest.
void settleSpecialFolders(Trees& trees) {
  std::unordered_map<String, Index> chosen;
  for (Index node = 1; node < trees.nodes.size(); ++node) {
    Node& at = trees.nodes[node];
    if (!at.lives || !at.content.special) continue;
    at.content.special = trees.parent[node] == kRootNode && at.content.name;
    if (!at.content.special) continue;
    const auto [found, first] = chosen.emplace(at.content.name, node);
    if (first) continue;
    const auto rank = [&](const Node& folder) {
      return std::pair(!(folder.isLiveInTruth() && folder.truth->content.special), folder.id);
    };
    Node& other = trees.nodes[found->second];
    if (rank(at) < rank(other)) {
      other.content.special = false;
      found->second = node;
    } else {
      at.content.special = false;
    }
  }
}

}  // namespace

void mergeContents(Trees& trees) {
  for (Node& node : trees.nodes) {
    if (node.client && node.truth) {
      if (node.lives) ContentMerge(trees, node).run();
    } else if (node.client) {
      node.content = node.client->content;
    } else if (node.truth) {
      node.content = node.truth->content;
    }
  }
  settleSpecialFolders(trees);
}

}  // namespace corvane::loomer
