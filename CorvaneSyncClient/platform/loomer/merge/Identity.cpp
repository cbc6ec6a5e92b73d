#include <optional>
#include <unordered_map>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
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
    _nodesByRecord.reserve(_input.truth.size());
    _nextRecord = std::max<RecordId>(_input.nextRecord, kRoot + 1);
    for (const TruthRecord& record : _input.truth) {
      if (record.id <= kRoot || nodeOfRecord(record.id) != kNoNode) continue;
      _nodesByRecord.enter(hashOf(record.id), lastNode() + std::size_t{1});
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
    _baseByLocalId.reserve(_input.base.size());
    for (std::size_t place = 0; place < _input.base.size(); ++place) {
      const BaseRecord& record = _input.base[place];
      const Index found = nodeOfRecord(record.record);
      if (found == kNoNode) continue;
      Node& node = _trees.nodes[found];
      if (node.entity != record.entity || node.base || node.notHeld) continue;
      const bool usableId = record.localId && record.localId != LoomerRootIdentifier;
      const bool isTaken = usableId && nodeOfLocalId(record.localId) != kNoNode;
      if (!record.notHeld && (!usableId || isTaken)) continue;
      if (usableId && !isTaken) _baseByLocalId.enter(record.localId.hash(), place);
      (record.notHeld ? node.notHeld : node.base) = &record;
      // A client is told to delete everything before it is given everything anew: it held nothing then.
      if (_input.replace) node.base = nullptr;
      if (node.base) _trees.baseParent[found] = folderOf(record.parent);
    }
    _trees.baseOrder = SiblingLists(_trees.baseParent, [this](Index a, Index b) {
      return precedesAmongSiblings(*_trees.nodes[a].base, *_trees.nodes[b].base);
    });
  }

  void readClient() {
    readHeld();
    placeHeld();
    _heldOrder = SiblingLists(_heldParent, [this](Index a, Index b) {
      return precedesAmongSiblings(heldRecord(a), heldRecord(b));
    });
    _heldTopDown = _heldOrder.topDown();
    takeSenselessValuesOut();
    _nodeOfHeld.assign(_trees.held.size() + 1, kNoNode);
    _nodeOfHeld[kRootNode] = kRootNode;
  }

  // Finds what the client holds, each local id once.
  void readHeld() {
    if (_input.replace) return;
    const std::size_t count = _input.client ? _input.client->size() : _input.base.size();
    _heldByLocalId.reserve(count);
    _trees.held.reserve(count);
    const auto read = [&](const ClientRecord& record) {
      if (!record.localId || record.localId == LoomerRootIdentifier) return;
      if (heldOfLocalId(record.localId) != kNoNode) return;
      _trees.held.push_back(&record);
      _heldByLocalId.enter(record.localId.hash(), lastHeld());
    };
    if (_input.client) {
      for (const ClientRecord& record : *_input.client) read(record);
    } else {
      makeRecordsOfBase();
      for (const ClientRecord& record : _trees.made) read(record);
    }
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
  void placeHeld() {
    _heldParent.assign(_trees.held.size() + 1, kRootNode);
    _heldParent[kRootNode] = kNoNode;
    for (Index held = 1; held <= lastHeld(); ++held) {
      const Index parent = heldOfLocalId(heldRecord(held).parentLocalId);
      if (parent != kNoNode && heldRecord(parent).entity == Entity::folder) _heldParent[held] = parent;
    }
    cutCycles(_heldParent);
  }

  // A folder has no address, a bookmark does not open as tabs, and special are folders in the root alone.
  void takeSenselessValuesOut() {
    for (Index held = 1; held <= lastHeld(); ++held) {
      const ClientRecord& record = heldRecord(held);
      const bool folder = record.entity == Entity::folder;
      const bool mayBeSpecial = folder && _heldParent[held] == kRootNode;
      const bool makesSense = (folder ? !record.content.url : !record.content.tabGroup) &&
                              (mayBeSpecial || !record.content.special);
      if (makesSense) continue;
      Content& content = _trees.made.emplace_back(record).content;
      if (folder) content.url = String();
      content.tabGroup = content.tabGroup && folder;
      content.special = content.special && mayBeSpecial;
      _trees.held[held - 1] = &_trees.made.back();
    }
  }

  void claimKnown() {
    for (Index held = 1; held <= lastHeld(); ++held) {
      const Index found = nodeOfLocalId(heldRecord(held).localId);
      if (found == kNoNode) continue;
      const Node& node = _trees.nodes[found];
      if (node.entity == heldRecord(held).entity && !node.client) claim(held, found);
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
    const Index found = nodeOfRecord(id);
    return found != kNoNode && _trees.nodes[found].entity == Entity::folder ? found : kNoNode;
  }

  // Of what the truth knows; kNoNode for what it does not, here and below.
  Index nodeOfRecord(RecordId id) const {
    return _nodesByRecord.find(hashOf(id), [&](Index node) { return _trees.nodes[node].id == id; });
  }
  // By the base.
  Index nodeOfLocalId(const String& localId) const {
    const std::uint32_t place = _baseByLocalId.find(
        localId.hash(), [&](std::uint32_t at) { return _input.base[at].localId == localId; });
    return place == HashIndex::kNowhere ? kNoNode : nodeOfRecord(_input.base[place].record);
  }
  Index heldOfLocalId(const String& localId) const {
    return _heldByLocalId.find(localId.hash(),
                               [&](Index held) { return heldRecord(held).localId == localId; });
  }

  const ClientRecord& heldRecord(Index held) const { return *_trees.held[held - 1]; }
  Index lastHeld() const { return static_cast<Index>(_trees.held.size()); }
  Index lastNode() const { return static_cast<Index>(_trees.nodes.size() - 1); }
  // Nodes below this index are the root and what the truth knows.
  std::size_t truthNodeCount() const { return _trees.truthParent.size(); }

  const MergeInput& _input;
  Trees _trees;
  HashIndex _nodesByRecord;  // that the truth knows
  HashIndex _baseByLocalId;
  RecordId _nextRecord = 1;
  // The client's own tree; its indexes are those of `held` plus one, its root is 0.
  HashIndex _heldByLocalId;
  Parents _heldParent;
  SiblingLists _heldOrder;
  std::vector<Index> _heldTopDown;
  std::vector<Index> _nodeOfHeld;
};

}  // namespace

Trees identify(const MergeInput& input) { return Identification(input).run(); }

}  // namespace corvane::loomer
