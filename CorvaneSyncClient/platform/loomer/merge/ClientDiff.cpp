#include <limits>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/merge/SiblingNumbers.h"
#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// The client's diff: what brings the client to the merged tree.
//
// The goal is the tree that the client will hold: the merged one less what it cannot take. Folders go first,
// since the client sets them aside until all of them have come: deletions, which it carries out at once, then
// everything else from the root down, so that no folder is ever placed below itself or in one that is still
// to come. Then bookmarks.

namespace corvane::loomer {
namespace {

enum class Standing : std::uint8_t {
  absent,   // the client will not hold it
  given,    // the client will hold it as the truth has it
  refused,  // the client holds it and will not take the truth's version: it stays as the client has it
};

class ClientDiff {
 public:
  ClientDiff(const Trees& trees, MergeResult& result) : _trees(trees), _result(result) {}

  void run() {
    _result.deleteAllFirst = _trees.input.replace;
    decideStandings();
    decideGoals();
    rankAll();
    numberFolders();
    writeClientChanges();
    writeBase();
  }

 private:
  bool isNamelessFolder(const Node& node) const {
    return node.entity == Entity::folder && !node.content.name;
  }

  // Of an addition that the client refused, nothing counts any more once it holds the record all the same.
  std::int64_t refusedRevision(const Node& node) const {
    const BaseRecord* const base = node.base || node.client ? node.base : node.notHeld;
    return base ? base->refusedRevision : 0;
  }

  // Whether the client refused the very version that there is.
  bool wasRefused(const Node& node) const {
    return node.truth && !node.changed && refusedRevision(node) != 0 &&
           refusedRevision(node) == node.truth->revision;
  }

  void decideStandings() {
    _standing.assign(_trees.nodes.size(), Standing::absent);
    _standing[kRootNode] = Standing::given;
    for (const Index node : _trees.order.topDown()) {
      if (node == kRootNode) continue;
      const Node& at = _trees.nodes[node];
      const bool untakable = isNamelessFolder(at) || wasRefused(at);
      const bool parentHeld = _standing[_trees.parent[node]] != Standing::absent;
      if (at.client && untakable) {
        _standing[node] = Standing::refused;
      } else if (parentHeld && !untakable) {
        _standing[node] = Standing::given;
      }
    }
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      const Node& at = _trees.nodes[node];
      if (at.client && !at.lives && wasRefused(at)) _standing[node] = Standing::refused;
    }
  }

  // The parent that each node will have at the client. What stays in its place against the truth may close a
  // cycle with what moves: that then stays too.
  void decideGoals() {
    _goal.assign(_trees.nodes.size(), kNoNode);
    Parents fallbacks(_trees.nodes.size(), kNoNode);
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      if (_standing[node] == Standing::refused) _goal[node] = _trees.clientParent[node];
      if (_standing[node] != Standing::given) continue;
      _goal[node] = _trees.parent[node];
      if (_trees.nodes[node].client) fallbacks[node] = _trees.clientParent[node];
    }
    // What cannot fall back forms no cycle alone: what was refused stays in the client's own tree, and what
    // is new to the client, of which nothing there is a child, in the merged one.
    for (const Index node : breakCycles(_goal, fallbacks)) _standing[node] = Standing::refused;
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      if (_goal[node] != kNoNode && _standing[_goal[node]] == Standing::absent) _goal[node] = kRootNode;
    }
  }

  // Siblings rank as they are to be listed; what is dead ranks before all else.
  void rankAll() {
    _rank.assign(_trees.nodes.size(), 0);
    Index rank = 0;
    for (const Index node : _trees.order.topDown()) _rank[node] = ++rank;
  }

  bool isListedIn(Index node, Index folder) const {
    return _trees.nodes[node].client && _trees.clientParent[node] == folder;
  }

  void numberFolders() {
    _number.assign(_trees.nodes.size(), 0);
    _changes.assign(_trees.nodes.size(), false);
    std::vector<std::uint32_t> ranks(_trees.nodes.size(), 0);
    for (Index folder = 0; folder < _trees.nodes.size(); ++folder) {
      if (_standing[folder] == Standing::absent) continue;
      const std::span<const Index> listed = _trees.clientOrder.of(folder);
      for (std::size_t i = 0; i < listed.size(); ++i) ranks[listed[i]] = static_cast<std::uint32_t>(i);
      numberFolder(folder, ranks);
    }
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      if (_standing[node] == Standing::refused) _number[node] = _trees.nodes[node].client->position;
    }
  }

  bool differsAtClient(Index node) const {
    const Node& at = _trees.nodes[node];
    if (!at.client || _trees.clientParent[node] != _trees.parent[node]) return true;
    if (_trees.input.rewritten.contains(at.id)) return true;
    // An address that could not be sent, because it is none, is what the user typed: it stays until somebody
    // changes the one that the client is known to have had.
    if (at.entity == Entity::bookmark && !at.client->content.url) return sentContent(at) != at.content;
    return at.client->content != at.content;
  }

  void numberFolder(Index folder, const std::vector<std::uint32_t>& ranks) {
    std::vector<Index> ordinary;
    std::vector<PlacedChild> children;
    for (const Index node : _trees.order.of(folder)) {
      if (_standing[node] != Standing::given) continue;
      const Node& at = _trees.nodes[node];
      _changes[node] = differsAtClient(node);
      if (at.content.special) {
        _number[node] = _changes[node] ? LoomerPositionSpecial : at.client->position;
        continue;
      }
      const bool listed = isListedIn(node, folder);
      ordinary.push_back(node);
      children.push_back({.listed = listed,
                          .rank = ranks[node],
                          .number = listed ? at.client->position : 0,
                          .delivered = _changes[node],
                          .hasTitle = static_cast<bool>(at.content.name),
                          .title = at.content.name.view()});
    }
    numberChildren(children, folder == kRootNode ? kLeastInRoot : std::numeric_limits<std::int32_t>::min());
    for (std::size_t i = 0; i < ordinary.size(); ++i) {
      _number[ordinary[i]] = children[i].number;
      _changes[ordinary[i]] = children[i].delivered;
    }
    if (folder == kRootNode) keepSpecialFoldersFirst(ordinary);
  }

  // A client takes the first folder with a special title for the special one, wherever its special folders
  // stand in its list. Where another folder of such a title gets a new place, the special one is told its
  // number again, which puts it at the front of the list.
  void keepSpecialFoldersFirst(const std::vector<Index>& ordinary) {
    std::unordered_map<String, Index> special;
    for (const Index node : _trees.order.of(kRootNode)) {
      if (_standing[node] != Standing::given || !_trees.nodes[node].content.special) break;
      special.emplace(_trees.nodes[node].content.name, node);
    }
    for (const Index node : ordinary) {
      if (!_changes[node] || _trees.nodes[node].entity != Entity::folder) continue;
      const auto twin = special.find(_trees.nodes[node].content.name);
      if (twin == special.end()) continue;
      _changes[twin->second] = true;
      _number[twin->second] = LoomerPositionSpecial;
    }
  }

  void writeClientChanges() {
    const std::vector<Index> held = _trees.clientOrder.topDown();
    const std::vector<Index> goal =
        SiblingLists(_goal, [this](Index a, Index b) { return _rank[a] > _rank[b]; }).topDown();
    for (const Entity entity : {Entity::folder, Entity::bookmark}) {
      writeDeletions(held, entity);
      writeChanges(goal, entity);
    }
  }

  // The client's entries that it is not to hold any more, children before their folders.
  void writeDeletions(const std::vector<Index>& held, Entity entity) {
    for (auto node = held.rbegin(); node != held.rend(); ++node) {
      const Node& at = _trees.nodes[*node];
      if (!at.client || _standing[*node] != Standing::absent || at.entity != entity) continue;
      ClientChange change;
      change.type = LoomerChangeTypeDelete;
      change.entity = entity;
      change.record = at.id;
      change.localId = at.client->localId;
      _result.clientChanges.push_back(std::move(change));
    }
  }

  // Additions and modifications, folders before what is in them, the siblings of one folder from the
  // greatest number to the smallest.
  void writeChanges(const std::vector<Index>& goal, Entity entity) {
    for (const Index node : goal) {
      const Node& at = _trees.nodes[node];
      if (_standing[node] != Standing::given || !_changes[node] || at.entity != entity) continue;
      ClientChange change;
      change.type = at.client ? LoomerChangeTypeModify : LoomerChangeTypeAdd;
      change.entity = entity;
      change.record = at.id;
      if (at.client) change.localId = at.client->localId;
      change.parent = _trees.idOf(_goal[node]);
      change.moves = at.client && _trees.clientParent[node] != _goal[node];
      change.position = _number[node];
      change.content = at.content;
      _result.clientChanges.push_back(std::move(change));
    }
  }

  BaseRecord baseOf(Index node) const {
    const Node& at = _trees.nodes[node];
    BaseRecord base;
    base.record = at.id;
    base.entity = at.entity;
    if (_standing[node] == Standing::refused) {
      base.localId = at.client->localId;
      base.parent = _trees.idOf(_trees.clientParent[node]);
      base.position = at.client->position;
      base.content = at.client->content;
    } else {
      if (at.client) base.localId = at.client->localId;
      base.parent = _trees.idOf(_trees.parent[node]);
      base.content = at.content;
      base.notHeld = _standing[node] == Standing::absent;
      if (!base.notHeld) base.position = _number[node];
    }
    if (wasRefused(at) && _standing[node] != Standing::given) base.refusedRevision = refusedRevision(at);
    return base;
  }

  void writeBase() {
    _result.base.reserve(_trees.nodes.size());
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      const Node& at = _trees.nodes[node];
      if (!at.lives && _standing[node] != Standing::refused) continue;
      _result.base.push_back(baseOf(node));
    }
    std::sort(_result.base.begin(), _result.base.end(),
              [](const BaseRecord& a, const BaseRecord& b) { return a.record < b.record; });
  }

  // In the root numbers below are left to the special folders.
  static constexpr std::int32_t kLeastInRoot = -1;

  const Trees& _trees;
  MergeResult& _result;
  std::vector<Standing> _standing;
  Parents _goal;
  std::vector<Index> _rank;
  std::vector<std::int32_t> _number;
  std::vector<bool> _changes;
};

}  // namespace

void diffClient(const Trees& trees, MergeResult& result) { ClientDiff(trees, result).run(); }

}  // namespace corvane::loomer
