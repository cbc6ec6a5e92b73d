#pragma once

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <span>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Text.h"
#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

// What the steps of the merge hand to one another: one node for each record that any side knows, with what
// the three sides say about it and, step by step, what it is to be.

namespace corvane::loomer {

using Index = std::uint32_t;
inline constexpr Index kRootNode = 0;
inline constexpr Index kNoNode = static_cast<Index>(-1);

/// The number of a special folder, wherever it stands in its client's list.
inline constexpr std::int32_t kSpecialPosition = -2;

/// For each node the node above it; kNoNode for those that hang nowhere, the root among them.
using Parents = std::vector<Index>;

/// The children of every node, each folder's in order, in one block of memory.
class SiblingLists {
 public:
  SiblingLists() = default;
  /// The children in the order of their indexes.
  explicit SiblingLists(const Parents& parents);
  template <typename Precedes>
  SiblingLists(const Parents& parents, Precedes precedes) : SiblingLists(parents) {
    for (std::size_t parent = 0; parent + 1 < _starts.size(); ++parent) {
      const std::span<Index> list = mutableOf(static_cast<Index>(parent));
      if (!std::is_sorted(list.begin(), list.end(), precedes)) {
        std::sort(list.begin(), list.end(), precedes);
      }
    }
  }

  /// Nothing for a node that came after the lists were made.
  std::span<const Index> of(Index parent) const {
    if (parent + std::size_t{1} >= _starts.size()) return {};
    return {_children.data() + _starts[parent], _starts[parent + 1] - _starts[parent]};
  }
  std::span<Index> mutableOf(Index parent) {
    return {_children.data() + _starts[parent], _starts[parent + 1] - _starts[parent]};
  }
  /// The root and everything below it, parents before their children, siblings in order.
  std::vector<Index> topDown() const;

 private:
  std::vector<std::size_t> _starts;
  std::vector<Index> _children;
};

/// Every node that lies on a circle, those of one circle next to one another. O(n), without recursion.
std::vector<Index> nodesOnCircles(const Parents& parents);

/// The order in which a client lists siblings that it, or its base, numbers: by number, then by title,
/// folders first.
template <typename Record>
bool precedesAmongSiblings(const Record& a, const Record& b) {
  if (a.position != b.position) return a.position < b.position;
  const int byTitle = compareCaseInsensitive(a.content.name.view(), b.content.name.view());
  if (byTitle != 0) return byTitle < 0;
  if (a.entity != b.entity) return a.entity == Entity::folder;
  return a.localId.view() < b.localId.view();
}

struct Node {
  RecordId id = kRoot;
  Entity entity = Entity::folder;
  bool lives = true;                   ///< after the merge
  bool changed = false;                ///< the truth's record is new or becomes different
  const TruthRecord* truth = nullptr;  ///< live or tombstone; none for what only the client has
  const BaseRecord* base = nullptr;  ///< what the client held after its last session; none if it held nothing
  const BaseRecord* notHeld = nullptr;  ///< the base's note that the client was offered the record in vain
  const ClientRecord* client = nullptr;
  Content content;         ///< after the merge
  std::int64_t place = 0;  ///< after the merge

  bool isLiveInTruth() const { return truth && !truth->deleted; }
};

struct Trees {
  explicit Trees(const MergeInput& from) : input(from) {}

  const MergeInput& input;
  /// What the client holds, each local id once, with the values that make no sense for an entity taken out.
  std::vector<ClientRecord> held;
  std::vector<Node> nodes;  ///< the first is the root
  // Where each side has the nodes that it has, and where they are after the merge (kNoNode: dead).
  Parents truthParent, baseParent, clientParent, parent;
  // The siblings of each side, and those after the merge.
  SiblingLists truthOrder, baseOrder, clientOrder, order;
  std::vector<Loss> losses;

  RecordId idOf(Index node) const { return nodes[node].id; }
};

// The steps, in their order.

/// Reads the three sides and finds out which client record stands for which record of the truth.
Trees identify(const MergeInput& input);
/// Decides what lives and under which parent.
void settleStructure(Trees& trees);
/// Merges the attributes of everything that lives.
void mergeContents(Trees& trees);
/// Merges the orders of siblings.
void mergeOrders(Trees& trees);
/// Numbers siblings in the truth and writes down what changes there.
void changeTruth(Trees& trees, MergeResult& result);
/// Writes down what the client is told and what it holds afterwards.
void handOut(const Trees& trees, MergeResult& result);

/// What the client says a record is. A folder without a name and a bookmark without an address were not
/// readable at the client, which cannot clear these two either: both count as not sent, and the value known
/// before stands.
Content sentContent(const Node& node);

}  // namespace corvane::loomer
