#include "CorvaneSyncClient/platform/loomer/merge/Places.h"

#include <algorithm>
#include <limits>

#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"
#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

// Places in the truth. Children that keep their order keep their places; the others are numbered into the
// gaps, and the folder is numbered afresh when a gap is used up. Places are spread so widely that this is
// rare.

namespace corvane::loomer {
namespace {

using Place = std::int64_t;
// Places stay this far from the ends of the number range, so that no distance between two overflows.
constexpr Place kFarthest = std::numeric_limits<Place>::max() / 4;

void numberAfresh(Trees& trees, std::span<const Index> children) {
  Place place = 0;
  for (const Index child : children) trees.nodes[child].place = place += kPlaceSpread;
}

// Numbers the run [begin, end) between its neighbours. Answers false if there is no room.
bool numberRun(Trees& trees, std::span<const Index> children, std::size_t begin, std::size_t end) {
  const auto count = static_cast<Place>(end - begin);
  const bool first = begin == 0;
  const bool last = end == children.size();
  Place below = first ? 0 : trees.nodes[children[begin - 1]].place;
  Place step = kPlaceSpread;
  if (!last) {
    const Place above = trees.nodes[children[end]].place;
    if (first) below = above - (count + 1) * kPlaceSpread;
    step = std::min(kPlaceSpread, (above - below) / (count + 1));
  }
  if (step == 0 || below < -kFarthest || below + count * step > kFarthest) return false;
  for (std::size_t i = begin; i < end; ++i) trees.nodes[children[i]].place = below += step;
  return true;
}

void numberChildren(Trees& trees, Index folder) {
  const std::span<const Index> children = trees.order.of(folder);
  std::vector<std::int64_t> places;
  std::vector<std::size_t> staying;
  for (std::size_t i = 0; i < children.size(); ++i) {
    const Node& child = trees.nodes[children[i]];
    if (trees.truthParent[children[i]] != folder) continue;
    if (child.truth->place < -kFarthest || child.truth->place > kFarthest) continue;
    places.push_back(child.truth->place);
    staying.push_back(i);
  }
  const std::vector<bool> kept = heaviestRising(places, Rise::strict);
  std::vector<bool> numbered(children.size(), false);
  for (std::size_t i = 0; i < staying.size(); ++i) {
    trees.nodes[children[staying[i]]].place = places[i];
    numbered[staying[i]] = kept[i];
  }
  for (std::size_t begin = 0; begin < children.size();) {
    std::size_t end = begin;
    while (end < children.size() && !numbered[end]) ++end;
    if (end > begin && !numberRun(trees, children, begin, end)) return numberAfresh(trees, children);
    begin = end + 1;
  }
}

TruthRecord recordOf(const Trees& trees, Index node) {
  const Node& at = trees.nodes[node];
  TruthRecord record;
  if (at.truth) record = *at.truth;
  record.id = at.id;
  record.entity = at.entity;
  record.deleted = !at.lives;
  if (at.lives) {
    record.parent = trees.idOf(trees.parent[node]);
    record.place = at.place;
    record.content = at.content;
  }
  return record;
}

bool differs(const TruthRecord& a, const TruthRecord& b) {
  return a.parent != b.parent || a.place != b.place || a.deleted != b.deleted || a.content != b.content;
}

void writeChange(Trees& trees, Index node, MergeResult& result) {
  Node& at = trees.nodes[node];
  TruthRecord after = recordOf(trees, node);
  at.changed = !at.truth || differs(*at.truth, after);
  if (!at.changed) return;
  after.revision = trees.input.revision;
  result.truthChanges.push_back({at.truth ? std::optional(*at.truth) : std::nullopt, std::move(after)});
}

}  // namespace

void changeTruth(Trees& trees, MergeResult& result) {
  for (Index folder = 0; folder < trees.nodes.size(); ++folder) numberChildren(trees, folder);
  result.truthChanges.reserve(static_cast<std::size_t>(std::count_if(
      trees.nodes.begin() + 1, trees.nodes.end(), [](const Node& each) { return !each.truth; })));
  for (const Index node : trees.order.topDown()) {
    if (node != kRootNode) writeChange(trees, node, result);
  }
  for (Index node = 1; node < trees.nodes.size(); ++node) {
    const Node& at = trees.nodes[node];
    if (at.isLiveInTruth()) ++result.liveBefore;
    if (at.lives || at.isForgotten) continue;
    if (at.isLiveInTruth()) ++result.deletedByAbsence;
    writeChange(trees, node, result);
  }
}

}  // namespace corvane::loomer
