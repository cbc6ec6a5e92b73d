#include "CorvaneSyncClient/platform/loomer/session/EarlierBase.h"

#include <algorithm>
#include <array>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomer {

namespace {

// What is known of one record: what the client held, oldest first.
struct Known {
  std::vector<const HeldVersion*> versions;
  const BaseRecord* atState = nullptr;  // the version that it held at the earlier state
  bool isHeld = false;                  // whether the client is known to have held the newest one to the end

  const BaseRecord& newest() const { return versions.back()->record; }
  // What the client held when the session of that number ended; null for nothing.
  const BaseRecord* at(std::int64_t session) const {
    for (const HeldVersion* const each : versions) {
      if (each->since <= session && (!each->until || *each->until > session)) return &each->record;
    }
    return nullptr;
  }
};

// A record of the base that the client holds now.
struct Met {
  BaseRecord base;
  const ClientRecord* now = nullptr;
  const Known* known = nullptr;
  bool isChanged = false;  // at the client since that state
  Ages ages = {};
};

// The base's order of the children that the client has in a folder now and had there before: how the client
// listed them when it and the truth parted. An order in which it is known to have held them before is one
// that somebody gave it again, from which the truth has moved on. Any other one was made by others, out of
// the newest known order that the client can have been given again since: every child that was moved on the
// way there was then written to it (see `EarlierBase::outdated`), so what was not written stands there as it
// does now. All that is only a guess for a client that cannot tell which places are new.
class EarlierOrder {
 public:
  // `session` is the one whose end the earlier state stood at.
  EarlierOrder(std::vector<Met*> children, std::int64_t session)
      : _children(std::move(children)), _session(session) {}

  // Numbers them.
  void number() {
    std::sort(_children.begin(), _children.end(),
              [](const Met* a, const Met* b) { return precedesAmongSiblings(*a->now, *b->now); });
    readKnownOrders();
    const Ranks ranks = areAgesKnown() ? orderBeforeNews() : baseOrder();
    for (std::size_t i = 0; i < _children.size(); ++i)
      _children[i]->base.position = static_cast<std::int32_t>(ranks[i]);
  }

 private:
  using Children = std::vector<std::size_t>;  // by their places in the present order
  using Ranks = std::vector<std::size_t>;     // the children's places in an order

  // What was not written since has now the number that it had then.
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

  void readKnownOrders() {
    Children now(_children.size());
    std::iota(now.begin(), now.end(), std::size_t{0});
    const Children last = completed(listed(&EarlierOrder::newest), now);
    enter(last);
    for (const std::int64_t session : sessionsBetween()) {
      const auto atSession = [session](const Met& child) {
        const BaseRecord* const version = child.known->at(session);
        return version ? std::optional(*version) : std::nullopt;
      };
      enter(completed(listed(atSession), last));
    }
    enter(completed(listed(&EarlierOrder::atState), last));
  }

  static Ranks ranksOf(const Children& order) {
    Ranks ranks(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) ranks[order[i]] = i;
    return ranks;
  }

  void enter(const Children& order) { _known.push_back(ranksOf(order)); }

  // The sessions since that state after which the client held something new here, the last ones of them: as
  // many as it takes to get over a server that took over.
  std::vector<std::int64_t> sessionsBetween() const {
    constexpr std::size_t kMost = 64;
    std::set<std::int64_t, std::greater<>> sessions;
    for (const Met* const child : _children) {
      for (const HeldVersion* const each : child->known->versions) {
        if (each->since > _session) sessions.insert(each->since);
      }
    }
    std::vector<std::int64_t> last(sessions.begin(), sessions.end());
    if (last.size() > kMost) last.resize(kMost);
    return last;
  }

  // The children that had such a version in this folder, in the order of these.
  template <typename VersionOf>
  Children listed(VersionOf versionOf) const {
    std::vector<std::pair<BaseRecord, std::size_t>> versions;
    for (std::size_t i = 0; i < _children.size(); ++i) {
      const std::optional<BaseRecord> version = versionOf(*_children[i]);
      if (version && version->parent == _children[i]->base.parent) versions.emplace_back(*version, i);
    }
    std::sort(versions.begin(), versions.end(),
              [](const auto& a, const auto& b) { return precedesAmongSiblings(a.first, b.first); });
    Children order;
    for (const auto& [version, child] : versions) order.push_back(child);
    return order;
  }

  // `order` with the children that it lacks behind those that precede them in `whole`.
  static Children completed(const Children& order, const Children& whole) {
    std::vector<bool> isListed(whole.size(), false);
    for (const std::size_t child : order) isListed[child] = true;
    Children result;
    std::vector<Children> behind(whole.size());
    Children* run = &result;
    for (const std::size_t child : whole) {
      if (isListed[child]) {
        run = &behind[child];
      } else {
        run->push_back(child);
      }
    }
    for (const std::size_t child : order) {
      result.push_back(child);
      result.insert(result.end(), behind[child].begin(), behind[child].end());
    }
    return result;
  }

  bool areAgesKnown() const {
    return std::all_of(_children.begin(), _children.end(),
                       [](const Met* child) { return child->ages.place != Age::unknown; });
  }

  // The truth has moved on from the order of all that others did not move since.
  Ranks orderBeforeNews() const {
    Children unmoved, now(_children.size());
    std::iota(now.begin(), now.end(), std::size_t{0});
    for (const std::size_t child : now) {
      if (_children[child]->ages.place == Age::old) unmoved.push_back(child);
    }
    return ranksOf(completed(unmoved, completed(listed(&EarlierOrder::newest), now)));
  }

  const Ranks& baseOrder() const {
    for (const Ranks& ranks : _known) {
      if (std::is_sorted(ranks.begin(), ranks.end())) return ranks;
    }
    const auto newest = std::find_if(_known.begin(), _known.end(),
                                     [this](const Ranks& ranks) { return mayHaveBeenGivenAgain(ranks); });
    return newest == _known.end() ? _known.back() : *newest;
  }

  // Whether the children that were not written since that state stand there as they do now.
  bool mayHaveBeenGivenAgain(const Ranks& ranks) const {
    Ranks unwritten;
    for (std::size_t i = 0; i < ranks.size(); ++i) {
      if (!_children[i]->isChanged) unwritten.push_back(ranks[i]);
    }
    return std::is_sorted(unwritten.begin(), unwritten.end());
  }

  std::vector<Met*> _children;  // as the client lists them now
  std::int64_t _session;
  std::vector<Ranks> _known;  // the newest first, the one at that state last
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
    for (const BaseRecord& each : _stored) {
      if (!each.notHeld) _recordOf.emplace(each.localId, each.record);
    }
    for (const HeldVersion& each : _held) {
      Known& known = _known[each.record.record];
      known.versions.push_back(&each);
      if (each.since <= _earlier.session) known.atState = &each.record;
      known.isHeld = !each.until;
      _recordOf.insert_or_assign(each.record.localId, each.record.record);
    }
  }

  Ages agesOf(const ClientRecord& now) const {
    const auto found = _earlier.ages.find(now.localId);
    return found == _earlier.ages.end() ? Ages() : found->second;
  }

  std::array<Age, 5> listedAges(const ClientRecord& now) const {
    const Ages ages = agesOf(now);
    return {ages.name, ages.url, ages.tabGroup, ages.parent, ages.place};
  }

  bool areAll(Age age, const ClientRecord& now) const {
    const std::array<Age, 5> ages = listedAges(now);
    return std::all_of(ages.begin(), ages.end(), [age](Age each) { return each == age; });
  }

  // Whether others may have given the client a record that it is not known to have held, or something of it.
  bool mayBeNew(const ClientRecord& now) const {
    const std::array<Age, 5> ages = listedAges(now);
    if (std::find(ages.begin(), ages.end(), Age::news) != ages.end()) return true;
    return !areAll(Age::old, now) && _earlier.changed.contains(now.localId);
  }

  void meet(const ClientRecord& now) {
    const auto record = _recordOf.find(now.localId);
    if (record == _recordOf.end() || !_known.contains(record->second)) {
      if (record == _recordOf.end() && !mayBeNew(now)) _base.forgotten.insert(now.localId);
      return;
    }
    const Known& known = _known.at(record->second);
    const bool isGivenAnew = !known.isHeld && areAll(Age::news, now);
    if (isGivenAnew) return;
    if (known.newest().entity != now.entity || !_isMet.emplace(record->second).second) return;
    Met met{.base = known.atState ? *known.atState : known.versions.front()->record,
            .now = &now,
            .known = &known};
    met.isChanged = _earlier.changed.contains(now.localId);
    met.ages = agesOf(now);
    met.base.localId = now.localId;
    const BaseRecord* const stored = findRecord(_stored, met.base.record);
    met.base.refusedRevision = stored ? stored->refusedRevision : 0;
    takeEarlierValue(met, &Content::name, met.ages.name);
    takeEarlierValue(met, &Content::url, met.ages.url);
    takeEarlierValue(met, &Content::tabGroup, met.ages.tabGroup);
    takeEarlierValue(met, &Content::special, Age::unknown);
    takeEarlierParent(met);
    if (isOutdated(met)) _base.outdated.insert(met.base.record);
    _met.push_back(std::move(met));
  }

  // Whether the client holds it as it was earlier, be it that it had it in another place since and lost that.
  bool isOutdated(const Met& met) const {
    if (_earlier.outdated.contains(met.now->localId)) return true;
    const auto& versions = met.known->versions;
    return met.ages.place == Age::unknown && !met.isChanged &&
           std::any_of(versions.begin(), versions.end(), [&](const HeldVersion* each) {
             return each->since > _earlier.session && each->record.position != met.now->position;
           });
  }

  // Whether the truth has moved on from the value `now`; `valueOf` reads it from a version.
  template <typename Value, typename ValueOf>
  static bool isOld(const Met& met, Age age, const Value& now, const ValueOf& valueOf) {
    if (age != Age::unknown) return age == Age::old;
    const auto& versions = met.known->versions;
    return !met.isChanged || std::any_of(versions.begin(), versions.end(), [&](const HeldVersion* each) {
      return valueOf(each->record) == now;
    });
  }

  template <typename Value>
  static void takeEarlierValue(Met& met, Value Content::*attribute, Age age) {
    const Value& now = met.now->content.*attribute;
    const auto valueOf = [&](const BaseRecord& record) { return record.content.*attribute; };
    if (age == Age::news) met.base.content.*attribute = met.known->newest().content.*attribute;
    if (isOld(met, age, now, valueOf)) met.base.content.*attribute = now;
  }

  void takeEarlierParent(Met& met) {
    const std::optional<RecordId> now = parentOf(*met.now);
    const auto valueOf = [](const BaseRecord& record) { return std::optional(record.parent); };
    if (met.ages.parent == Age::news) met.base.parent = met.known->newest().parent;
    if (!isOld(met, met.ages.parent, now, valueOf)) return;
    if (now) {
      met.base.parent = *now;
    } else if (met.ages.parent == Age::old) {
      _base.unmoved.insert(met.base.record);
    }
  }

  // Nothing for a folder that was not known.
  std::optional<RecordId> parentOf(const ClientRecord& record) const {
    if (!record.parentLocalId || !_folders.contains(record.parentLocalId)) return kRoot;
    const auto found = _recordOf.find(record.parentLocalId);
    return found == _recordOf.end() ? std::nullopt : std::optional(found->second);
  }

  // What the client lacks though it had it, and what it never held.
  void takeMissing() {
    for (const auto& [record, known] : _known) {
      if (_isMet.contains(record)) continue;
      const String& localId = known.newest().localId;
      // What lived again after it was deleted is given to the client once more.
      const bool livedOn = known.isHeld && _earlier.oldDeletions.contains(localId);
      const bool wasDeleted = !livedOn && (known.atState || _earlier.changed.contains(localId));
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
    for (auto& [folder, children] : folders) EarlierOrder(std::move(children), _earlier.session).number();
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
