#include <tuple>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// Attributes, each on its own. Being special goes with the name that made the folder special, and never
// leaves the root or doubles.

namespace corvane::loomer {
namespace {

std::string textOf(const String& value) { return value ? value.toString() : "(none)"; }
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

// Of each title that makes a folder special, one folder of the root is special and no other: the one that
// both sides or one of them made so, the truth's before the client's; else the oldest, since a client that
// finds no other takes it.
class SpecialFolders {
 public:
  explicit SpecialFolders(Trees& trees) : _trees(trees) {}

  void settle() {
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      if (isCandidate(node)) offer(node);
    }
    for (Node& node : _trees.nodes) node.content.special = false;
    for (const auto& [title, node] : _chosen) _trees.nodes[node].content.special = true;
  }

 private:
  bool isCandidate(Index node) const {
    const Node& at = _trees.nodes[node];
    if (!at.lives || at.entity != Entity::folder || _trees.parent[node] != kRootNode) return false;
    return at.content.name == LoomerTitleBookmarksBar || at.content.name == LoomerTitleBookmarksMenu ||
           (at.content.special && at.content.name);
  }

  // The less, the better the claim to be special.
  auto claim(Index node) const {
    const Node& at = _trees.nodes[node];
    const bool inTruth = at.isLiveInTruth() && at.truth->content.special;
    return std::tuple(!at.content.special, !inTruth, at.id);
  }

  void offer(Index node) {
    const auto [found, first] = _chosen.emplace(_trees.nodes[node].content.name, node);
    if (!first && claim(node) < claim(found->second)) found->second = node;
  }

  Trees& _trees;
  std::unordered_map<String, Index> _chosen;
};

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
  SpecialFolders(trees).settle();
}

}  // namespace corvane::loomer
