#include <algorithm>
#include <numeric>
#include <queue>

#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"
#include "CorvaneSyncClient/platform/loomer/merge/LostTurns.h"
#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// The order of siblings, merged three ways.
//
// Of the siblings that both sides have, the two lists are read side by side, and one of the two heads is
// taken at each step. Whatever is taken, nothing that is left stands before it on both sides, so that two
// siblings that both sides order alike keep that order: the result is a linear extension of what the sides
// agree on. Where the heads differ, the two sides order this pair differently, so one of them turned it round
// since the base; that side's head is taken. So a one-sided reorder arrives exactly, and moves of different
// siblings both arrive, as far as the first rule leaves room.
//
// A sibling is disputed if both sides moved it, or if the base does not know it. Its place is the leading
// side's: the client's, or the truth's in a refresh. The following side's list is read past disputed
// siblings.
//
// What one side alone has in the folder goes in as runs, each whole: behind the last sibling that it stands
// behind on its side and that still precedes its next neighbour. Where the merge turned the two neighbours of
// a run round, it stays right behind the first. So a run lies between its neighbours wherever these keep
// their order, and what was put behind or before everything stays there.

namespace corvane::loomer {
namespace {

using Rank = std::int64_t;
constexpr Rank kUnranked = -1;

// Siblings that one side alone has, next to one another in its list.
struct Run {
  std::size_t after = 0;  // how many of the siblings that both sides have go before it
  std::size_t begin = 0;
  std::size_t end = 0;
};

class OrderMerge {
 public:
  explicit OrderMerge(Trees& trees)
      : _trees(trees),
        _rank(trees.nodes.size(), 0),
        _baseRank(trees.nodes.size(), kUnranked),
        _movedByClient(trees.nodes.size(), false),
        _movedInTruth(trees.nodes.size(), false),
        _taken(trees.nodes.size(), false) {}

  void run() {
    _trees.order = SiblingLists(_trees.parent);
    for (Index folder = 0; folder < _trees.nodes.size(); ++folder) {
      const std::span<Index> children = _trees.order.mutableOf(folder);
      if (children.empty()) continue;
      std::vector<Index> ordered = specialChildren(children);
      const std::vector<Index> others = mergedOrder(folder);
      ordered.insert(ordered.end(), others.begin(), others.end());
      std::copy(ordered.begin(), ordered.end(), children.begin());
    }
  }

 private:
  bool isSpecial(Index node) const { return _trees.nodes[node].content.special; }

  std::vector<Index> specialChildren(std::span<const Index> children) const {
    std::vector<Index> special;
    std::copy_if(children.begin(), children.end(), std::back_inserter(special),
                 [this](Index child) { return isSpecial(child); });
    std::sort(special.begin(), special.end(), [this](Index a, Index b) {
      return _trees.nodes[a].content.name.view() < _trees.nodes[b].content.name.view();
    });
    return special;
  }

  std::vector<Index> mergedOrder(Index folder) {
    const std::vector<Index> truth = staying(_trees.truthOrder.of(folder), folder);
    const std::vector<Index> client = staying(_trees.clientOrder.of(folder), folder);
    if (truth == client || client.empty()) return truth;
    if (truth.empty()) return client;
    const std::vector<Index> shared = sharedOrder(folder, inBoth(truth), inBoth(client));
    return withRuns(shared, truth, client);
  }

  // Those of a side's children of `folder` that are there after the merge and may stand anywhere.
  std::vector<Index> staying(std::span<const Index> children, Index folder) const {
    std::vector<Index> result;
    result.reserve(children.size());
    std::copy_if(children.begin(), children.end(), std::back_inserter(result),
                 [&](Index child) { return _trees.parent[child] == folder && !isSpecial(child); });
    return result;
  }

  bool isInBoth(Index node) const {
    const Index parent = _trees.parent[node];
    return _trees.truthParent[node] == parent && _trees.clientParent[node] == parent;
  }

  std::vector<Index> inBoth(const std::vector<Index>& list) const {
    std::vector<Index> result;
    result.reserve(list.size());
    std::copy_if(list.begin(), list.end(), std::back_inserter(result),
                 [this](Index node) { return isInBoth(node); });
    return result;
  }

  // --- The siblings that both sides have

  bool isInBase(Index node) const { return _baseRank[node] != kUnranked; }
  bool isDisputed(Index node) const {
    return !isInBase(node) || (_movedByClient[node] && _movedInTruth[node]);
  }

  std::vector<Index> sharedOrder(Index folder, const std::vector<Index>& truth,
                                 const std::vector<Index>& client) {
    if (truth == client) return truth;
    rankInBase(folder);
    markMoved(client, _movedByClient);
    markMoved(truth, _movedInTruth);
    std::vector<Index> order =
        _trees.input.refresh ? readSideBySide(truth, client) : readSideBySide(client, truth);
    recordLosses(order, truth, client);
    return order;
  }

  void rank(const std::vector<Index>& list) {
    for (std::size_t i = 0; i < list.size(); ++i) _rank[list[i]] = static_cast<Rank>(i);
  }

  void rankInBase(Index folder) {
    Rank next = 0;
    for (const Index node : _trees.baseOrder.of(folder)) {
      if (isInBoth(node) && _trees.parent[node] == folder && !isSpecial(node)) _baseRank[node] = next++;
    }
  }

  // Marks what is outside the longest subsequence of `list` that stands in the base's order.
  void markMoved(const std::vector<Index>& list, std::vector<bool>& moved) const {
    std::vector<Index> compared;
    std::vector<Rank> ranks;
    for (const Index node : list) {
      if (!isInBase(node)) continue;
      compared.push_back(node);
      ranks.push_back(_baseRank[node]);
    }
    const std::vector<bool> stays = heaviestRising(ranks, Rise::strict);
    for (std::size_t i = 0; i < compared.size(); ++i) moved[compared[i]] = !stays[i];
  }

  std::vector<Index> readSideBySide(const std::vector<Index>& leading, const std::vector<Index>& following) {
    rank(leading);
    std::vector<Index> order;
    order.reserve(leading.size());
    // Of the disputed siblings that the following list was read past, those still to come, the first in the
    // leading list on top: what both sides have behind one of them has to wait for it.
    std::priority_queue<Rank, std::vector<Rank>, std::greater<>> passed;
    auto follower = following.begin();
    for (const Index leader : leading) {
      while (!_taken[leader]) {
        for (; follower != following.end() && (_taken[*follower] || isDisputed(*follower)); ++follower) {
          if (!_taken[*follower]) passed.push(_rank[*follower]);
        }
        while (!passed.empty() && _taken[leading[static_cast<std::size_t>(passed.top())]]) passed.pop();
        const bool followerMayGo = follower != following.end() && !isDisputed(leader) &&
                                   (passed.empty() || passed.top() > _rank[*follower]);
        // The base has the leader's head first: it is the following side that turned the two round.
        const bool followerGoes = followerMayGo && _baseRank[leader] < _baseRank[*follower];
        order.push_back(followerGoes ? *follower : leader);
        _taken[order.back()] = true;
      }
    }
    return order;
  }

  // --- What one side alone has

  std::vector<Index> withRuns(const std::vector<Index>& shared, const std::vector<Index>& truth,
                              const std::vector<Index>& client) {
    rank(shared);
    const std::vector<Run> ofTruth = runsIn(truth, shared.size());
    const std::vector<Run> ofClient = runsIn(client, shared.size());
    std::vector<Index> order;
    order.reserve(truth.size() + client.size());
    auto nextOfTruth = ofTruth.begin();
    auto nextOfClient = ofClient.begin();
    for (std::size_t at = 0;; ++at) {
      for (; nextOfTruth != ofTruth.end() && nextOfTruth->after == at; ++nextOfTruth) {
        append(order, truth, *nextOfTruth);
      }
      for (; nextOfClient != ofClient.end() && nextOfClient->after == at; ++nextOfClient) {
        append(order, client, *nextOfClient);
      }
      if (at == shared.size()) return order;
      order.push_back(shared[at]);
    }
  }

  static void append(std::vector<Index>& order, const std::vector<Index>& list, const Run& run) {
    order.insert(order.end(), list.begin() + static_cast<std::ptrdiff_t>(run.begin),
                 list.begin() + static_cast<std::ptrdiff_t>(run.end));
  }

  // The runs of `list` by the place where they go; those of one place in the list's order. What both sides
  // have is ranked by the merged order.
  std::vector<Run> runsIn(const std::vector<Index>& list, std::size_t sharedCount) const {
    // The list is read from its end. `standing` is a union-find: of the first k of the merged order, the last
    // one that stands before the run in the list, counted from 1; 0 is the folder's beginning.
    std::vector<std::size_t> standing(sharedCount + 1);
    std::iota(standing.begin(), standing.end(), std::size_t{0});
    std::vector<Run> runs;
    std::size_t successor = sharedCount + 1;
    for (std::size_t end = list.size();;) {
      std::size_t begin = end;
      while (begin > 0 && !isInBoth(list[begin - 1])) --begin;
      const std::size_t predecessor = begin == 0 ? 0 : static_cast<std::size_t>(_rank[list[begin - 1]]) + 1;
      if (begin < end) {
        const bool keptTheirOrder = predecessor < successor;
        runs.push_back({keptTheirOrder ? lastStanding(standing, successor - 1) : predecessor, begin, end});
      }
      if (begin == 0) break;
      standing[predecessor] = predecessor - 1;
      successor = predecessor;
      end = begin - 1;
    }
    std::reverse(runs.begin(), runs.end());
    std::stable_sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.after < b.after; });
    return runs;
  }

  static std::size_t lastStanding(std::vector<std::size_t>& standing, std::size_t at) {
    while (standing[at] != at) at = standing[at] = standing[standing[at]];
    return at;
  }

  // --- For the change log

  // Notes what a side turned round and the merge did not, "after" one sibling against "before" it.
  void recordLosses(const std::vector<Index>& order, const std::vector<Index>& truth,
                    const std::vector<Index>& client) {
    rank(order);
    for (const LostTurn& turn : lostTurns(sideOf(truth, _movedInTruth))) {
      const std::string name = nameOf(truth[turn.other]);
      _trees.losses.push_back({_trees.idOf(truth[turn.sibling]), "order",
                               (turn.behind ? "before " : "after ") + name,
                               (turn.behind ? "after " : "before ") + name, true});
    }
    for (const LostTurn& turn : lostTurns(sideOf(client, _movedByClient))) {
      const std::string name = nameOf(client[turn.other]);
      _trees.losses.push_back({_trees.idOf(client[turn.sibling]), "order",
                               (turn.behind ? "after " : "before ") + name,
                               (turn.behind ? "before " : "after ") + name, false});
    }
  }

  OrderedSide sideOf(const std::vector<Index>& list, const std::vector<bool>& moved) const {
    OrderedSide side;
    for (const Index node : list) {
      const std::optional<std::size_t> inBase =
          isInBase(node) ? std::optional(static_cast<std::size_t>(_baseRank[node])) : std::nullopt;
      side.push_back({static_cast<std::size_t>(_rank[node]), inBase, moved[node], isDisputed(node)});
    }
    return side;
  }

  std::string nameOf(Index node) const { return _trees.nodes[node].content.name.toString(); }

  Trees& _trees;
  std::vector<Rank> _rank;
  std::vector<Rank> _baseRank;
  std::vector<bool> _movedByClient;
  std::vector<bool> _movedInTruth;
  std::vector<bool> _taken;
};

}  // namespace

void mergeOrders(Trees& trees) { OrderMerge(trees).run(); }

}  // namespace corvane::loomer
