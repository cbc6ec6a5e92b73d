#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// What lives, and where.
//
// A record lives or dies by what the two sides did to it. A folder that one side deleted and the other
// changed brings back what went with it; then every folder above a living record lives. What counts is what
// the record says and its folder. Its place among its siblings does not: order is a relation of siblings to
// one another, so that whoever moves one past the others has changed none of them, and which of two traded
// places cannot even be told. A deletion on one side stands against a reorder on the other. Parents merge
// like any value. Two moves that are harmless alone may close a cycle together: then the client's moves on
// that cycle are undone, which may revive a folder or close another cycle, so the step is repeated. It
// ends: every cycle holds a move of the client, since the truth alone and the client's tree alone have none,
// and each pass undoes some for good.

namespace corvane::loomer {
namespace {

// After so many passes every remaining move of a folder by the client is undone at once, which keeps tangles
// that were made on purpose from costing more than n·log n.
constexpr int kCyclePasses = 24;

class Structure {
 public:
  explicit Structure(Trees& trees) : _trees(trees) {}

  void run() {
    _trees.parent.assign(_trees.nodes.size(), kNoNode);
    _chosen.assign(_trees.nodes.size(), kNoNode);
    _livesAlone.assign(_trees.nodes.size(), false);
    findUnread();
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      _livesAlone[node] = livesAlone(node);
      _chosen[node] = chooseParent(node);
    }
    reviveContents();
    attach();
    undoCycles();
    for (Index node = 1; node < _trees.nodes.size(); ++node) recordLosses(node);
  }

 private:
  // A folder that came without its name was not readable at the client, so that what is missing below it is
  // no deletion: the folder, and with it all below that is missing, was not read.
  void findUnread() {
    _unread.assign(_trees.nodes.size(), false);
    for (const Index node : _trees.baseOrder.topDown()) {
      const Node& at = _trees.nodes[node];
      if (!at.base) continue;
      if (at.client) {
        _unread[node] = at.entity == Entity::folder && at.base->content.name && !at.client->content.name;
      } else {
        _unread[node] = _unread[_trees.baseParent[node]];
      }
    }
  }

  bool changedByClient(Index node) const {
    const Node& at = _trees.nodes[node];
    if (at.isForgotten) return false;
    return !at.base || _trees.clientParent[node] != _trees.baseParent[node] ||
           sentContent(at) != at.base->content;
  }

  bool changedInTruth(Index node) const {
    const Node& at = _trees.nodes[node];
    return !at.base || _trees.truthParent[node] != _trees.baseParent[node] ||
           at.truth->content != at.base->content;
  }

  bool livesAlone(Index node) const {
    const Node& at = _trees.nodes[node];
    if (!at.isLiveInTruth()) return at.client && changedByClient(node);
    if (at.client || !at.base || !_trees.input.client || _trees.input.refresh) return true;
    return _unread[node] || changedInTruth(node);
  }

  bool isMissingAtClient(Index node) const {
    const Node& at = _trees.nodes[node];
    return at.isLiveInTruth() && !at.client && at.base && _trees.input.client && !_trees.input.refresh;
  }

  // A folder that one side deleted and the other changed comes back with what it held: with all that went in
  // the same deletion. In the truth that is one revision; of a client's deletions all that is known is that
  // they came between the same two sessions.
  void reviveContents() {
    for (const Index node : _trees.clientOrder.topDown()) {
      const Index above = _trees.clientParent[node];
      if (node == kRootNode || _livesAlone[node] || !isTombstone(node) || !isTombstone(above)) continue;
      const bool wentTogether = _trees.nodes[node].truth->revision == _trees.nodes[above].truth->revision;
      _livesAlone[node] = wentTogether && _livesAlone[above];
    }
    for (const Index node : _trees.truthOrder.topDown()) {
      const Index above = _trees.truthParent[node];
      if (node == kRootNode || !isMissingAtClient(node) || !isMissingAtClient(above)) continue;
      if (_livesAlone[above]) _livesAlone[node] = true;
    }
  }

  bool isTombstone(Index node) const {
    const Node& at = _trees.nodes[node];
    return at.truth && at.truth->deleted;
  }

  // kNoNode for what no side has any more.
  Index chooseParent(Index node) const {
    const Node& at = _trees.nodes[node];
    const Index truth = _trees.truthParent[node];
    const Index client = _trees.clientParent[node];
    if (!at.isLiveInTruth() || truth == client) return client;
    if (!at.client) return truth;
    if (at.base && _trees.baseParent[node] == client) return truth;
    if (at.base && _trees.baseParent[node] == truth) return client;
    return _trees.input.refresh ? truth : client;
  }

  // Gives a parent to everything that lives by itself, and the folders above it.
  void attach() {
    std::fill(_trees.parent.begin(), _trees.parent.end(), kNoNode);
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      if (!_livesAlone[node]) continue;
      for (Index at = node; at != kRootNode && _trees.parent[at] == kNoNode; at = _chosen[at]) {
        _trees.parent[at] = _chosen[at];
      }
    }
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      _trees.nodes[node].lives = _trees.parent[node] != kNoNode;
    }
  }

  // Whether the node is where the client moved it, which can be undone.
  bool isClientMove(Index node) const {
    return _trees.nodes[node].isLiveInTruth() && _chosen[node] != _trees.truthParent[node];
  }

  void undo(Index node) {
    if (isClientMove(node)) _chosen[node] = _trees.truthParent[node];
  }

  void undoCycles() {
    for (int pass = 0;; ++pass) {
      const std::vector<Index> cycles = nodesOnCycles(_trees.parent);
      if (cycles.empty()) return;
      if (pass < kCyclePasses) {
        for (const Index node : cycles) undo(node);
      } else {
        for (Index node = 1; node < _trees.nodes.size(); ++node) {
          if (_trees.nodes[node].entity == Entity::folder) undo(node);
        }
      }
      attach();
    }
  }

  std::string nameOf(Index node) const {
    if (node == kRootNode) return "Root";
    const Node& at = _trees.nodes[node];
    return (at.client ? at.client->content.name : at.truth->content.name).toString();
  }

  void recordLosses(Index node) {
    const Node& at = _trees.nodes[node];
    if (!at.lives || !at.truth || (!at.base && !at.client)) return;
    if (!at.isLiveInTruth()) {
      _trees.losses.push_back({at.id, "deletion", "kept", "deleted", true});
    } else if (!at.client && _trees.input.client && !_trees.input.refresh && !_unread[node]) {
      _trees.losses.push_back({at.id, "deletion", "deleted", "kept", false});
    } else if (at.client) {
      recordParentLoss(node);
    }
  }

  void recordParentLoss(Index node) {
    const Index truth = _trees.truthParent[node];
    const Index client = _trees.clientParent[node];
    if (truth == client) return;
    const bool clientMoved = !_trees.nodes[node].base || _trees.baseParent[node] != client;
    const bool truthMoved = !_trees.nodes[node].base || _trees.baseParent[node] != truth;
    const bool clientWon = _trees.parent[node] == client;
    if (!clientMoved || (!truthMoved && clientWon)) return;
    std::string atClient = nameOf(client);
    std::string inTruth = nameOf(truth);
    if (atClient == inTruth) {
      // Two folders of one name are told apart by their numbers.
      atClient += " (" + std::to_string(_trees.idOf(client)) + ')';
      inTruth += " (" + std::to_string(_trees.idOf(truth)) + ')';
    }
    _trees.losses.push_back(
        {_trees.idOf(node), "parent", std::move(atClient), std::move(inTruth), clientWon});
  }

  Trees& _trees;
  Parents _chosen;
  std::vector<bool> _livesAlone;
  std::vector<bool> _unread;
};

}  // namespace

void settleStructure(Trees& trees) { Structure(trees).run(); }

}  // namespace corvane::loomer
