#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"
#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// The order of siblings, merged three ways.
//
// Of the children that both sides have, those outside a longest subsequence in the base's order are the ones
// a side moved. One side leads: the client, or the truth in a refresh. Its order stands, but what only the
// other side moved goes right after the sibling that precedes it there. What one side alone has in the folder
// then follows the sibling that precedes it on that side. So a one-sided change arrives exactly, and what was
// inserted together stays together.

namespace corvane::loomer {
namespace {

/// Puts every run of owned nodes of `list` right after the other node that precedes it there, or first if
/// there is none. The other nodes of `list` are in `into`.
class Weaver {
 public:
  explicit Weaver(std::size_t nodeCount) : _runs(nodeCount) {}

  template <typename Owned>
  std::vector<Index> weave(const std::vector<Index>& into, const std::vector<Index>& list, Owned isOwned) {
    std::vector<Index> woven;
    woven.reserve(into.size() + list.size());
    std::size_t at = 0;
    while (at < list.size() && isOwned(list[at])) woven.push_back(list[at++]);
    for (const Index node : list) _runs[node] = {0, 0};
    while (at < list.size()) {
      const Index before = list[at++];
      const std::size_t begin = at;
      while (at < list.size() && isOwned(list[at])) ++at;
      _runs[before] = {begin, at};
    }
    for (const Index node : into) {
      woven.push_back(node);
      const auto [begin, end] = _runs[node];
      woven.insert(woven.end(), list.begin() + static_cast<std::ptrdiff_t>(begin),
                   list.begin() + static_cast<std::ptrdiff_t>(end));
      _runs[node] = {0, 0};
    }
    return woven;
  }

 private:
  std::vector<std::pair<std::size_t, std::size_t>> _runs;
};

class OrderMerge {
 public:
  explicit OrderMerge(Trees& trees)
      : _trees(trees),
        _weaver(trees.nodes.size()),
        _rank(trees.nodes.size(), 0),
        _movedByClient(trees.nodes.size(), false),
        _movedInTruth(trees.nodes.size(), false) {}

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

  /// Those of a side's children of `folder` that are there after the merge and may stand anywhere.
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

  bool isInAll(Index node) const { return isInBoth(node) && _trees.baseParent[node] == _trees.parent[node]; }

  template <typename Wanted>
  static std::vector<Index> only(const std::vector<Index>& list, Wanted wanted) {
    std::vector<Index> result;
    result.reserve(list.size());
    std::copy_if(list.begin(), list.end(), std::back_inserter(result), wanted);
    return result;
  }

  /// Ranks the nodes of `list` by their place in it.
  void rank(std::span<const Index> list) {
    for (std::size_t i = 0; i < list.size(); ++i) _rank[list[i]] = static_cast<std::int64_t>(i);
  }

  /// Marks what is outside the longest subsequence of `list` that rises in the present ranks.
  template <typename Wanted>
  void markMoved(const std::vector<Index>& list, std::vector<bool>& moved, Wanted wanted) const {
    const std::vector<Index> compared = only(list, wanted);
    std::vector<std::int64_t> ranks;
    ranks.reserve(compared.size());
    for (const Index node : compared) ranks.push_back(_rank[node]);
    const std::vector<bool> stays = heaviestRising(ranks, Rise::strict);
    for (std::size_t i = 0; i < compared.size(); ++i) moved[compared[i]] = !stays[i];
  }

  std::vector<Index> mergedOrder(Index folder) {
    const std::vector<Index> truth = staying(_trees.truthOrder.of(folder), folder);
    const std::vector<Index> client = staying(_trees.clientOrder.of(folder), folder);
    if (truth == client || client.empty()) return truth;
    if (truth.empty()) return client;
    const auto inBoth = [this](Index node) { return isInBoth(node); };
    const auto alone = [this](Index node) { return !isInBoth(node); };
    std::vector<Index> order = sharedOrder(folder, only(truth, inBoth), only(client, inBoth));
    order = _weaver.weave(order, client, alone);
    return _weaver.weave(order, truth, alone);
  }

  /// The order of the children that both sides have.
  std::vector<Index> sharedOrder(Index folder, const std::vector<Index>& truth,
                                 const std::vector<Index>& client) {
    if (truth == client) return truth;
    rank(_trees.baseOrder.of(folder));
    const auto inAll = [this](Index node) { return isInAll(node); };
    markMoved(client, _movedByClient, inAll);
    markMoved(truth, _movedInTruth, inAll);
    const bool clientLeads = !_trees.input.refresh;
    const std::vector<Index>& leading = clientLeads ? client : truth;
    const std::vector<Index>& following = clientLeads ? truth : client;
    const std::vector<bool>& movedByLeader = clientLeads ? _movedByClient : _movedInTruth;
    const std::vector<bool>& movedByFollower = clientLeads ? _movedInTruth : _movedByClient;
    const auto follows = [&](Index node) {
      return isInAll(node) && movedByFollower[node] && !movedByLeader[node];
    };
    const std::vector<Index> frame = only(leading, [&](Index node) { return !follows(node); });
    std::vector<Index> order = _weaver.weave(frame, following, follows);
    recordLosses(order, truth, client);
    return order;
  }

  /// What both sides moved, or what was met again in another order, lost the place that the side that did not
  /// lead gave it.
  void recordLosses(const std::vector<Index>& order, const std::vector<Index>& truth,
                    const std::vector<Index>& client) {
    const bool clientWon = !_trees.input.refresh;
    const std::vector<Index>& lost = clientWon ? truth : client;
    const auto isDisputed = [this](Index node) {
      return !isInAll(node) || (_movedByClient[node] && _movedInTruth[node]);
    };
    rank(order);
    std::vector<std::int64_t> ranks;
    std::vector<std::uint64_t> weights;
    for (const Index node : lost) {
      ranks.push_back(_rank[node]);
      weights.push_back(isDisputed(node) ? 1 : lost.size() + 1);
    }
    const std::vector<bool> stands = heaviestRising(ranks, Rise::strict, weights);
    std::vector<Index> losers;
    for (std::size_t i = 0; i < lost.size(); ++i) {
      if (!stands[i] && isDisputed(lost[i])) losers.push_back(lost[i]);
    }
    if (losers.empty()) return;
    std::vector<std::string> byClient = neighbours(losers, client);
    std::vector<std::string> inTruth = neighbours(losers, truth);
    for (std::size_t i = 0; i < losers.size(); ++i) {
      _trees.losses.push_back(
          {_trees.idOf(losers[i]), "order", std::move(byClient[i]), std::move(inTruth[i]), clientWon});
    }
  }

  /// For people: "after NAME" or "first", for each of `nodes`, which are in `list`.
  std::vector<std::string> neighbours(const std::vector<Index>& nodes, const std::vector<Index>& list) {
    rank(list);
    std::vector<std::string> result;
    result.reserve(nodes.size());
    for (const Index node : nodes) {
      const auto at = static_cast<std::size_t>(_rank[node]);
      result.push_back(at == 0 ? "first" : "after " + _trees.nodes[list[at - 1]].content.name.toString());
    }
    return result;
  }

  Trees& _trees;
  Weaver _weaver;
  std::vector<std::int64_t> _rank;
  std::vector<bool> _movedByClient;
  std::vector<bool> _movedInTruth;
};

}  // namespace

void mergeOrders(Trees& trees) { OrderMerge(trees).run(); }

}  // namespace corvane::loomer
