#include "CorvaneSyncClient/platform/loomer/EarlierBase.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"
#include "CorvaneSyncClient/platform/loomer/merge/Trees.h"

namespace corvane::loomer {

namespace {

/// What is known of one record: what the client held, oldest first.
struct Known {
  std::vector<const BaseRecord*> versions;
  const BaseRecord* atState = nullptr;  ///< the version that it held at the earlier state
  bool isHeld = false;  ///< whether the client is known to have held the newest one to the end

  const BaseRecord& newest() const { return *versions.back(); }
};

/// A record of the base that the client holds now.
struct Met {
  BaseRecord base;
  const ClientRecord* now = nullptr;
  const Known* known = nullptr;
  bool isChanged = false;  ///< at the client since that state
};

/// The base's order of the children that the client has in a folder now and had there before. They stand as
/// the client lists them now, but for those that others moved there since: these stand where they stood. A
/// record was moved if it was written since, and now stands in another place than in the order at that state,
/// and in another than in the newest one that is known.
class EarlierOrder {
 public:
  explicit EarlierOrder(std::vector<Met*> children)
      : _children(std::move(children)), _moved(_children.size()), _anchors(_children.size()) {}

  /// Numbers them.
  void number() {
    std::sort(_children.begin(), _children.end(),
              [](const Met* a, const Met* b) { return precedesAmongSiblings(*a->now, *b->now); });
    const Ranks before = rank(&EarlierOrder::atState);
    const Ranks newest = rank(&EarlierOrder::newest);
    const std::vector<bool> outsideBefore = outside(before, std::vector<bool>(_children.size(), false));
    const std::vector<bool> outsideNewest = outside(newest, outsideBefore);
    for (std::size_t i = 0; i < _children.size(); ++i) {
      const bool isRanked = before[i] || newest[i];
      _moved[i] = isRanked && (!before[i] || outsideBefore[i]) && (!newest[i] || outsideNewest[i]);
      _anchors[i] = {static_cast<std::int64_t>(i), -1};
    }
    anchor(newest);
    anchor(before);
    std::vector<std::size_t> order(_children.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](auto a, auto b) { return _anchors[a] < _anchors[b]; });
    for (std::size_t i = 0; i < order.size(); ++i)
      _children[order[i]]->base.position = static_cast<std::int32_t>(i);
  }

 private:
  using Ranks = std::vector<std::optional<std::int64_t>>;

  /// What was not written since has now the number that it had then.
  static std::optional<BaseRecord> atState(const Met& child) {
    if (!child.isChanged) {
      BaseRecord record = child.base;
      record.position = child.now->position;
      return record;
    }
    return child.known->atState ? std::optional(*child.known->atState) : std::nullopt;
  }

  static std::optional<BaseRecord> newest(const Met& child) {
    return child.known->isHeld ? std::optional(child.known->newest()) : std::nullopt;
  }

  /// Each child's place among those that had such a version in this folder.
  Ranks rank(std::optional<BaseRecord> (*versionOf)(const Met&)) const {
    std::vector<std::pair<BaseRecord, std::size_t>> listed;
    for (std::size_t i = 0; i < _children.size(); ++i) {
      const std::optional<BaseRecord> version = versionOf(*_children[i]);
      if (version && version->parent == _children[i]->base.parent) listed.emplace_back(*version, i);
    }
    std::sort(listed.begin(), listed.end(),
              [](const auto& a, const auto& b) { return precedesAmongSiblings(a.first, b.first); });
    Ranks ranks(_children.size());
    for (std::size_t at = 0; at < listed.size(); ++at)
      ranks[listed[at].second] = static_cast<std::int64_t>(at);
    return ranks;
  }

  /// Which children keep the others from standing in the order of the ranks, as few as can be, of those that
  /// were written since. Of two that traded places either could be it: a likely one, if there is one.
  std::vector<bool> outside(const Ranks& ranks, const std::vector<bool>& isLikely) const {
    const std::uint64_t one = _children.size() + 1;
    std::vector<std::int64_t> values;
    std::vector<std::uint64_t> weights;
    for (std::size_t i = 0; i < _children.size(); ++i) {
      if (!ranks[i]) continue;
      values.push_back(*ranks[i]);
      weights.push_back(!_children[i]->isChanged ? one * (one + 1) : isLikely[i] ? one : one + 1);
    }
    const std::vector<bool> stays = heaviestRising(values, Rise::strict, weights);
    std::vector<bool> outside(_children.size(), false);
    auto stay = stays.begin();
    for (std::size_t i = 0; i < _children.size(); ++i) {
      if (ranks[i]) outside[i] = !*stay++ && _children[i]->isChanged;
    }
    return outside;
  }

  /// Hangs what was moved on what precedes it in the order of the ranks.
  void anchor(const Ranks& ranks) {
    std::vector<std::size_t> byRank;
    for (std::size_t i = 0; i < _children.size(); ++i) {
      if (ranks[i]) byRank.push_back(i);
    }
    std::sort(byRank.begin(), byRank.end(), [&](auto a, auto b) { return *ranks[a] < *ranks[b]; });
    std::int64_t before = -1;
    for (const std::size_t each : byRank) {
      if (_moved[each]) {
        _anchors[each] = {before, *ranks[each]};
      } else {
        before = static_cast<std::int64_t>(each);
      }
    }
  }

  std::vector<Met*> _children;  // as the client lists them now
  std::vector<bool> _moved;
  std::vector<std::pair<std::int64_t, std::int64_t>>
      _anchors;  // the child it follows, and its place behind it
};

class EarlierBaseMaker {
 public:
  EarlierBaseMaker(const std::vector<BaseRecord>& stored, const std::vector<HeldVersion>& held,
                   const std::vector<ClientRecord>& pushed, const EarlierState& earlier)
      : _stored(stored), _held(held), _pushed(pushed), _earlier(earlier) {}

  EarlierBase run() {
    readKnown();
    for (const ClientRecord& each : _pushed) {
      if (each.entity == Entity::folder) _folders.emplace(each.localId, &each);
    }
    for (const ClientRecord& each : _pushed) meet(each);
    orderSiblings();
    takeMissing();
    for (Met& each : _met) _base.records.push_back(std::move(each.base));
    std::sort(_base.records.begin(), _base.records.end(),
              [](const BaseRecord& a, const BaseRecord& b) { return a.record < b.record; });
    return std::move(_base);
  }

 private:
  void readKnown() {
    for (const HeldVersion& each : _held) {
      Known& known = _known[each.record.record];
      known.versions.push_back(&each.record);
      if (each.since <= _earlier.session) known.atState = &each.record;
      known.isHeld = !each.until;
      _recordOf.insert_or_assign(each.record.localId, each.record.record);
    }
  }

  void meet(const ClientRecord& now) {
    const auto record = _recordOf.find(now.localId);
    if (record == _recordOf.end()) return;
    const Known& known = _known.at(record->second);
    if (known.newest().entity != now.entity || !_isMet.emplace(record->second).second) return;
    Met met{.base = known.atState ? *known.atState : *known.versions.front(), .now = &now, .known = &known};
    met.isChanged = _earlier.changed.contains(now.localId);
    met.base.localId = now.localId;
    const BaseRecord* const stored = findRecord(_stored, met.base.record);
    met.base.refusedRevision = stored ? stored->refusedRevision : 0;
    takeOldValue(met, &Content::name);
    takeOldValue(met, &Content::url);
    takeOldValue(met, &Content::tabGroup);
    takeOldValue(met, &Content::special);
    takeOldParent(met);
    _met.push_back(std::move(met));
  }

  template <typename Value>
  void takeOldValue(Met& met, Value Content::*attribute) const {
    const Value& now = met.now->content.*attribute;
    const auto& versions = met.known->versions;
    const auto held = [&](const BaseRecord* each) { return each->content.*attribute == now; };
    if (!met.isChanged || std::any_of(versions.begin(), versions.end(), held))
      met.base.content.*attribute = now;
  }

  void takeOldParent(Met& met) const {
    const std::optional<RecordId> now = parentOf(*met.now);
    const auto& versions = met.known->versions;
    const auto held = [&](const BaseRecord* each) { return each->parent == now; };
    if (now && (!met.isChanged || std::any_of(versions.begin(), versions.end(), held)))
      met.base.parent = *now;
  }

  /// Nothing for a folder that was not known.
  std::optional<RecordId> parentOf(const ClientRecord& record) const {
    if (!record.parentLocalId || !_folders.contains(record.parentLocalId)) return kRoot;
    const auto found = _recordOf.find(record.parentLocalId);
    return found == _recordOf.end() ? std::nullopt : std::optional(found->second);
  }

  /// What the client lacks though it had it, and what it never held.
  void takeMissing() {
    for (const auto& [record, known] : _known) {
      if (_isMet.contains(record)) continue;
      const bool wasDeleted = known.atState || _earlier.changed.contains(known.newest().localId);
      if (!wasDeleted) _base.lost.push_back(record);
      if (wasDeleted && known.isHeld) _base.records.push_back(known.newest());
    }
    for (const BaseRecord& each : _stored) {
      if (each.notHeld && !_isMet.contains(each.record)) _base.records.push_back(each);
    }
  }

  void orderSiblings() {
    std::map<RecordId, std::vector<Met*>> folders;
    for (Met& each : _met) {
      if (parentOf(*each.now) == each.base.parent) folders[each.base.parent].push_back(&each);
    }
    for (auto& [folder, children] : folders) EarlierOrder(std::move(children)).number();
  }

  const std::vector<BaseRecord>& _stored;
  const std::vector<HeldVersion>& _held;
  const std::vector<ClientRecord>& _pushed;
  const EarlierState& _earlier;
  std::unordered_map<RecordId, Known> _known;
  std::unordered_map<String, RecordId> _recordOf;  // by local id
  std::unordered_map<String, const ClientRecord*> _folders;
  std::unordered_set<RecordId> _isMet;
  std::vector<Met> _met;
  EarlierBase _base;
};

}  // namespace

EarlierBase baseOfEarlierState(const std::vector<BaseRecord>& stored, const std::vector<HeldVersion>& held,
                               const std::vector<ClientRecord>& pushed, const EarlierState& earlier) {
  return EarlierBaseMaker(stored, held, pushed, earlier).run();
}

}  // namespace corvane::loomer
