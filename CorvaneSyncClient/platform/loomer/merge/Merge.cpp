#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// How a client's tree is merged with the truth
//
// Three trees meet: the base (what the client held when its last session ended), the truth, and what the
// client holds now. What differs between the base and a side is what that side changed. Each of the steps
// below stands in a file of its own; between them goes `Trees`, one node for each record that any side knows.
//
//  1. Identity    Client records are matched to records of the truth: by the base, the rest by match key,
//                 top down.
//  2. Structure   Who lives, under which parent. A record that one side deleted and the other changed lives,
//                 a folder with all that went in the same deletion, and so does every folder above a living
//                 record. A move of the client that closes a cycle with moves in the truth is undone.
//  3. Content     Attributes, each on its own.
//  4. Order       Siblings: what both sides order alike keeps that order; of two that they order differently,
//                 the side that turned them round decides.
//  5. Places      The truth's own numbers for that order; what stays in order keeps its number.
//  6. ClientDiff  The fewest changes that bring the client there, in an order in which it can carry them
//                 out, with the numbers that make it list siblings in their order (SiblingNumbers).
//
// What is lost, and when. Where both sides changed one thing to different values, one of them loses: the
// truth's, or in a refresh the client's. Three exceptions. A deletion loses to any change of the other side;
// that of a folder loses whole, since a folder that came back empty is what neither side wanted, and deleting
// again what came back too much costs less than finding again what is gone. Of two moves that close a cycle
// the client's loses. And where moves of different siblings cannot all stand, those lose that are met last
// when the two lists are read side by side. Every losing value is in `losses`. Three things are not conflicts
// and leave no trace there: an insertion that is parted from a neighbour by another insertion, a deletion on
// both sides, and a new place among its siblings for what the other side deleted.
//
// Cost: everything is a walk over the nodes, a sort of siblings, a hash look-up or a heaviest increasing
// subsequence, so O(n log n) in the number of records, in O(n) memory, without recursion. Undoing cycles
// takes a bounded number of walks.
//
// Where it comes from. Three-way merging of ordered trees with a base: T. Lindholm, "A three-way merge for
// XML documents" (DocEng 2004). Why moves need a rule against cycles: M. Kleppmann, D. P. Mulligan, V. B. F.
// Gomes and A. R. Beresford, "A highly-available move operation for replicated trees" (IEEE TPDS 2022); here
// one authority decides, so that a move is undone once and for all instead of being replayed. What a side
// moved is the complement of a longest increasing subsequence: C. Schensted, "Longest increasing and
// decreasing subsequences" (Canad. J. Math. 1961), found with the prefix maxima of P. M. Fenwick, "A new data
// structure for cumulative frequency tables" (Softw. Pract. Exp. 1994).

namespace corvane::loomer {

MergeResult merge(const MergeInput& input) {
  MergeResult result;
  Trees trees = identify(input);
  settleStructure(trees);
  mergeContents(trees);
  mergeOrders(trees);
  changeTruth(trees, result);
  diffClient(trees, result);
  result.losses = std::move(trees.losses);
  return result;
}

}  // namespace corvane::loomer
