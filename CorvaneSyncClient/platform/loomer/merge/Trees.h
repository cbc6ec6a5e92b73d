#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Forest.h"
#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

// What the steps of the merge hand to one another: one node for each record that any side knows, with what
// the three sides say about it and, step by step, what it is to be.

namespace corvane::loomer {

/// One record, as the three sides know it and as it is to be.
struct Node {
  RecordId id = kRoot;
  Entity entity = Entity::folder;
  bool lives = true;                   ///< after the merge
  bool changed = false;                ///< the truth's record is new or becomes different
  bool isForgotten = false;            ///< by the truth, which had deleted what the client still holds
  const TruthRecord* truth = nullptr;  ///< live or tombstone; none for what only the client has
  const BaseRecord* base = nullptr;  ///< what the client held after its last session; none if it held nothing
  const BaseRecord* notHeld =
      nullptr;  ///< the base's note that the client was offered the record and does not hold it
  const ClientRecord* client = nullptr;
  Content content;         ///< after the merge
  std::int64_t place = 0;  ///< after the merge

  bool isLiveInTruth() const { return truth && !truth->deleted; }
};

/// The nodes and the trees that they form.
struct Trees {
  explicit Trees(const MergeInput& from) : input(from) {}

  const MergeInput& input;
  /// What the client holds, each local id once, with the values that make no sense for an entity taken out.
  /// They stand in the input or in `made`.
  std::vector<const ClientRecord*> held;
  std::deque<ClientRecord> made;
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
/// Writes the changes for the client, and what it holds afterwards.
void diffClient(const Trees& trees, MergeResult& result);

/// What the client says a record is. A folder without a name and a bookmark without an address were not
/// readable at the client, which cannot clear these two either: both count as not sent, and the value known
/// before stands.
Content sentContent(const Node& node);

}  // namespace corvane::loomer
