#include <optional>
#include <unordered_map>

#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// Which record of the client stands for which record of the truth.
//
// What the base knows goes by the base. The rest is matched folder by folder from the root down, so that the
// parent of every record is identified before the record itself: one to one, in the order of both sides,
// through hash maps.

namespace corvane::loomer {
namespace {

// What two records must share to be taken for one.
struct MatchKey {
  enum class Kind : std::uint8_t { folder, bookmark, bookmarkByAddress };
  Kind kind = Kind::folder;
  String name;
  String url;
  friend bool operator==(const MatchKey&, const MatchKey&) = default;
};

struct MatchKeyHash {
  std::size_t operator()(const MatchKey& key) const {
    const std::size_t names = key.name.hash() * std::size_t{0x9E3779B97F4A7C15};
    return names ^ (key.url.hash() * std::size_t{3}) ^ static_cast<std::size_t>(key.kind);
  }
};

std::optional<MatchKey> exactMatchKey(Entity entity, const Content& content) {
  if (entity == Entity::folder) return MatchKey{MatchKey::Kind::folder, content.name, String()};
  return MatchKey{MatchKey::Kind::bookmark, content.name, content.url};
}

std::optional<MatchKey> matchKeyByAddress(Entity entity, const Content& content) {
  if (entity == Entity::folder || !content.url) return std::nullopt;
  return MatchKey{MatchKey::Kind::bookmarkByAddress, String(), content.url};
}

std::optional<MatchKey> matchKeyOfSpecial(Entity entity, const Content& content) {
  if (entity != Entity::folder || !content.special) return std::nullopt;
  return exactMatchKey(entity, content);
}

// Makes everything that lies on a cycle a child of the root.
void cutCycles(Parents& parents) {
  for (const Index node : nodesOnCycles(parents)) parents[node] = kRootNode;
}

class Identification {
 public:
  explicit Identification(const MergeInput& input) : _input(input), _trees(input) {}

  Trees run() {
    readTruth();
    readBase();
    readClient();
    claimKnown();
    matchUnknown();
    placeClientNodes();
    return std::move(_trees);
  }

 private:
  using MatchKeyOf = std::optional<MatchKey> (*)(Entity, const Content&);

  void readTruth() {
    _trees.nodes.reserve(_input.truth.size() + 1);
    _trees.nodes.emplace_back();
    _nodeOfRecord.reserve(_input.truth.size());
    _nextRecord = std::max<RecordId>(_input.nextRecord, kRoot + 1);
    for (const TruthRecord& record : _input.truth) {
      if (record.id <= kRoot || !_nodeOfRecord.emplace(record.id, lastNode() + 1).second) continue;
      Node& node = _trees.nodes.emplace_back();
      node.id = record.id;
      node.entity = record.entity;
      node.truth = &record;
      _nextRecord = std::max(_nextRecord, record.id + 1);
    }
    _trees.truthParent.assign(_trees.nodes.size(), kNoNode);
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      if (!_trees.nodes[node].isLiveInTruth()) continue;
      const Index parent = folderOf(_trees.nodes[node].truth->parent);
      const bool usable = parent == kRootNode || (parent != kNoNode && _trees.nodes[parent].isLiveInTruth());
      _trees.truthParent[node] = usable ? parent : kRootNode;
    }
    cutCycles(_trees.truthParent);
    _trees.truthOrder = SiblingLists(_trees.truthParent, [this](Index a, Index b) {
      const TruthRecord& left = *_trees.nodes[a].truth;
      const TruthRecord& right = *_trees.nodes[b].truth;
      return left.place != right.place ? left.place < right.place : left.id < right.id;
    });
  }

  void readBase() {
    _trees.baseParent.assign(_trees.nodes.size(), kNoNode);
    _nodeOfLocalId.reserve(_input.base.size());
    for (const BaseRecord& record : _input.base) {
      const auto found = _nodeOfRecord.find(record.record);
      if (found == _nodeOfRecord.end()) continue;
      Node& node = _trees.nodes[found->second];
      if (node.entity != record.entity || node.base || node.notHeld) continue;
      const bool usableId = record.localId && record.localId != LoomerRootIdentifier;
      if (!record.notHeld && (!usableId || _nodeOfLocalId.contains(record.localId))) continue;
      if (usableId) _nodeOfLocalId.emplace(record.localId, found->second);
      (record.notHeld ? node.notHeld : node.base) = &record;
      // A client is told to delete everything before it is given everything anew: it held nothing then.
      if (_input.replace) node.base = nullptr;
      if (node.base) _trees.baseParent[found->second] = folderOf(record.parent);
    }
    _trees.baseOrder = SiblingLists(_trees.baseParent, [this](Index a, Index b) {
      return precedesAmongSiblings(*_trees.nodes[a].base, *_trees.nodes[b].base);
    });
  }

  void readClient() {
    placeHeld(readHeld());
    _heldOrder = SiblingLists(_heldParent, [this](Index a, Index b) {
      return precedesAmongSiblings(heldRecord(a), heldRecord(b));
    });
    _heldTopDown = _heldOrder.topDown();
    takeSenselessValuesOut();
    _nodeOfHeld.assign(_trees.held.size() + 1, kNoNode);
    _nodeOfHeld[kRootNode] = kRootNode;
  }

  using HeldByLocalId = std::unordered_map<String, Index>;

  // Finds what the client holds, each local id once.
  HeldByLocalId readHeld() {
    HeldByLocalId byLocalId;
    if (_input.replace) return byLocalId;
    const std::size_t count = _input.client ? _input.client->size() : _input.base.size();
    byLocalId.reserve(count);
    _trees.held.reserve(count);
    const auto read = [&](const ClientRecord& record) {
      if (!record.localId || record.localId == LoomerRootIdentifier) return;
      const bool isNew = byLocalId.emplace(record.localId, lastHeld() + 1).second;
      if (isNew) _trees.held.push_back(&record);
    };
    if (_input.client) {
      for (const ClientRecord& record : *_input.client) read(record);
    } else {
      makeRecordsOfBase();
      for (const ClientRecord& record : _trees.made) read(record);
    }
    return byLocalId;
  }

  // A client that pushed nothing holds what its base says, as far as that is a tree.
  void makeRecordsOfBase() {
    for (const Index node : _trees.baseOrder.topDown()) {
      const BaseRecord* const base = _trees.nodes[node].base;
      if (!base) continue;
      const BaseRecord* const parent = _trees.nodes[_trees.baseParent[node]].base;
      _trees.made.push_back({.localId = base->localId,
                             .parentLocalId = parent ? parent->localId : String(),
                             .entity = base->entity,
                             .position = base->position,
                             .content = base->content});
    }
  }

  // What has no parent, a bookmark for its parent, or lies on a cycle becomes a child of the root.
  void placeHeld(const HeldByLocalId& byLocalId) {
    _heldParent.assign(_trees.held.size() + 1, kRootNode);
    _heldParent[kRootNode] = kNoNode;
    for (Index held = 1; held <= lastHeld(); ++held) {
      const auto parent = byLocalId.find(heldRecord(held).parentLocalId);
      if (parent != byLocalId.end() && heldRecord(parent->second).entity == Entity::folder) {
        _heldParent[held] = parent->second;
      }
    }
    cutCycles(_heldParent);
  }

  // A folder has no address, a bookmark does not open as tabs, and special are folders in the root alone.
  void takeSenselessValuesOut() {
    for (Index held = 1; held <= lastHeld(); ++held) {
      const ClientRecord& record = heldRecord(held);
      const bool folder = record.entity == Entity::folder;
      Content content = record.content;
      if (folder) content.url = String();
      content.tabGroup = content.tabGroup && folder;
      content.special = content.special && folder && _heldParent[held] == kRootNode;
      if (content == record.content) continue;
      _trees.made.push_back(record);
      _trees.made.back().content = std::move(content);
      _trees.held[held - 1] = &_trees.made.back();
    }
  }

  void claimKnown() {
    for (Index held = 1; held <= lastHeld(); ++held) {
      const auto found = _nodeOfLocalId.find(heldRecord(held).localId);
      if (found == _nodeOfLocalId.end()) continue;
      const Node& node = _trees.nodes[found->second];
      if (node.entity == heldRecord(held).entity && !node.client) claim(held, found->second);
    }
  }

  void matchUnknown() {
    for (const Index folder : _heldTopDown) {
      std::vector<Index> unknown;
      for (const Index held : _heldOrder.of(folder)) {
        if (_nodeOfHeld[held] != kNoNode) continue;
        if (_input.forgotten.contains(heldRecord(held).localId)) {
          addNode(held);
          _trees.nodes.back().isForgotten = true;
        } else {
          unknown.push_back(held);
        }
      }
      if (unknown.empty()) continue;
      const Index parent = _nodeOfHeld[folder];
      if (parent < truthNodeCount()) matchChildren(parent, unknown);
      for (const Index held : unknown) {
        if (_nodeOfHeld[held] == kNoNode) addNode(held);
      }
    }
  }

  void matchChildren(Index parent, const std::vector<Index>& unknown) {
    std::vector<Index> candidates;
    const std::span<const Index> children = _trees.truthOrder.of(parent);
    if (parent == kRootNode) {
      // There is one special folder of each title: it is matched even where the client knew it by another
      // id.
      std::copy_if(children.begin(), children.end(), std::back_inserter(candidates),
                   [this](Index child) { return _trees.nodes[child].truth->content.special; });
      matchByKey(unknown, candidates, matchKeyOfSpecial);
      candidates.clear();
    }
    std::copy_if(children.begin(), children.end(), std::back_inserter(candidates),
                 [this](Index child) { return !_trees.nodes[child].base; });
    std::vector<Index> withMissing = candidates;
    std::copy_if(children.begin(), children.end(), std::back_inserter(withMissing),
                 [this](Index child) { return _trees.nodes[child].base && !_trees.nodes[child].client; });
    matchByKey(unknown, withMissing, exactMatchKey);
    matchByKey(unknown, candidates, matchKeyByAddress);
  }

  // Claims, in order, for each unknown record the first free candidate that is like it.
  void matchByKey(const std::vector<Index>& unknown, const std::vector<Index>& candidates,
                  MatchKeyOf matchKeyOf) {
    struct Queue {
      std::vector<Index> nodes;
      std::size_t next = 0;
    };
    std::unordered_map<MatchKey, Queue, MatchKeyHash> free;
    for (const Index node : candidates) {
      if (_trees.nodes[node].client) continue;
      const auto key = matchKeyOf(_trees.nodes[node].entity, _trees.nodes[node].truth->content);
      if (key) free[*key].nodes.push_back(node);
    }
    if (free.empty()) return;
    for (const Index held : unknown) {
      if (_nodeOfHeld[held] != kNoNode) continue;
      const auto key = matchKeyOf(heldRecord(held).entity, heldRecord(held).content);
      const auto found = key ? free.find(*key) : free.end();
      if (found == free.end() || found->second.next == found->second.nodes.size()) continue;
      claim(held, found->second.nodes[found->second.next++]);
    }
  }

  void claim(Index held, Index node) {
    _nodeOfHeld[held] = node;
    _trees.nodes[node].client = &heldRecord(held);
  }

  void addNode(Index held) {
    Node& node = _trees.nodes.emplace_back();
    node.id = _nextRecord++;
    node.entity = heldRecord(held).entity;
    claim(held, lastNode());
  }

  void placeClientNodes() {
    _trees.truthParent.resize(_trees.nodes.size(), kNoNode);
    _trees.baseParent.resize(_trees.nodes.size(), kNoNode);
    _trees.clientParent.assign(_trees.nodes.size(), kNoNode);
    for (Index held = 1; held <= lastHeld(); ++held) {
      _trees.clientParent[_nodeOfHeld[held]] = _nodeOfHeld[_heldParent[held]];
    }
    for (Index node = 1; node < _trees.nodes.size(); ++node) {
      const Node& at = _trees.nodes[node];
      if (at.base && at.client && _input.unmoved.contains(at.id))
        _trees.baseParent[node] = _trees.clientParent[node];
    }
    for (Index& held : _heldTopDown) held = _nodeOfHeld[held];
    _trees.clientOrder = SiblingLists(_trees.clientParent, _heldTopDown);
  }

  // The folder with that id, kNoNode if there is none.
  Index folderOf(RecordId id) const {
    if (id == kRoot) return kRootNode;
    const auto found = _nodeOfRecord.find(id);
    const bool folder = found != _nodeOfRecord.end() && _trees.nodes[found->second].entity == Entity::folder;
    return folder ? found->second : kNoNode;
  }

  const ClientRecord& heldRecord(Index held) const { return *_trees.held[held - 1]; }
  Index lastHeld() const { return static_cast<Index>(_trees.held.size()); }
  Index lastNode() const { return static_cast<Index>(_trees.nodes.size() - 1); }
  // Nodes below this index are the root and what the truth knows.
  std::size_t truthNodeCount() const { return _trees.truthParent.size(); }

  const MergeInput& _input;
  Trees _trees;
  std::unordered_map<RecordId, Index> _nodeOfRecord;
  std::unordered_map<String, Index> _nodeOfLocalId;
  RecordId _nextRecord = 1;
  // The client's own tree; its indexes are those of `held` plus one, its root is 0.
  Parents _heldParent;
  SiblingLists _heldOrder;
  std::vector<Index> _heldTopDown;
  std::vector<Index> _nodeOfHeld;
};

}  // namespace

Trees identify(const MergeInput& input) { return Identification(input).run(); }

}  // namespace corvane::loomer
