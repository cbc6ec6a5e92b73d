#include "CorvaneSyncClient/platform/loomer/hub/PushOrigins.h"

#include <algorithm>
#include <unordered_set>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"

namespace corvane::loomer {

namespace {

using pelto::HubOrigins;
using pelto::HubRecord;

// The order in which the service lists siblings.
bool isBefore(const HubRecord& a, const HubRecord& b) {
  if (a.position != b.position) return a.position < b.position;
  const int byTitle = compareCaseInsensitive(a.name.view(), b.name.view());
  if (byTitle != 0) return byTitle < 0;
  if (a.folder != b.folder) return a.folder;
  return a.id.view() < b.id.view();
}

class OriginSetter {
 public:
  OriginSetter(const std::vector<HubRecord>& given, const String& pushId, const PushedOver& over)
      : _pushId(pushId), _over(over) {
    std::unordered_map<String, const HubRecord*> after = over.held;
    for (const HubRecord& each : given) {
      after[each.id] = &each;
      _given.insert(each.id);
    }
    std::unordered_map<String, std::vector<const HubRecord*>> folders;
    for (const HubRecord& each : given) {
      if (!each.deleted) folders[each.parent];
    }
    for (const auto& [id, record] : after) {
      const auto folder = record->deleted ? folders.end() : folders.find(record->parent);
      if (folder != folders.end()) folder->second.push_back(record);
    }
    for (auto& [id, children] : folders) findMoved(children);
  }

  HubOrigins originsOf(const HubRecord& given) const {
    const Versions versions{given, held(given.id), lost(given.id)};
    HubOrigins origins;
    origins.name = originOf(versions, &HubRecord::name, &HubOrigins::name);
    origins.url = originOf(versions, &HubRecord::url, &HubOrigins::url);
    origins.tabGroup = originOf(versions, &HubRecord::tabGroup, &HubOrigins::tabGroup);
    origins.parent = originOf(versions, &HubRecord::parent, &HubOrigins::parent);
    const bool standsStill = versions.held && versions.held->parent == given.parent;
    const bool stoodThere = versions.lost && versions.lost->parent == given.parent;
    origins.place = chosen(versions, &HubOrigins::place, standsStill && !_moved.contains(given.id),
                           stoodThere && !_movedSinceLost.contains(given.id));
    return origins;
  }

 private:
  struct Versions {
    const HubRecord& given;
    const HubRecord* held;
    const HubRecord* lost;
  };

  const HubRecord* held(const String& id) const {
    const auto found = _over.held.find(id);
    return found == _over.held.end() ? nullptr : found->second;
  }
  const HubRecord* lost(const String& id) const {
    const auto found = _over.lost.find(id);
    return found == _over.lost.end() ? nullptr : &found->second;
  }

  bool isNews(const HubRecord* held, String HubOrigins::*origin) const {
    return held && held->origins.*origin && _over.isNews(held->origins.*origin);
  }

  template <typename Value>
  String originOf(const Versions& versions, Value HubRecord::*value, String HubOrigins::*origin) const {
    const auto isSame = [&](const HubRecord* other) {
      return other && other->*value == versions.given.*value;
    };
    return chosen(versions, origin, isSame(versions.held), isSame(versions.lost));
  }

  // `stands`: as the service holds it; `isGivenAgain`: as it was lost. What is neither lost nor news was
  // changed since, be it back to what the service holds.
  String chosen(const Versions& versions, String HubOrigins::*origin, bool stands, bool isGivenAgain) const {
    if (versions.lost && !isNews(versions.held, origin)) {
      if (!isGivenAgain) return _pushId;
      if (versions.lost->origins.*origin || !stands) return versions.lost->origins.*origin;
    }
    return stands ? versions.held->origins.*origin : _pushId;
  }

  // Those that others moved are held against one another alone, and so are all others.
  void findMoved(std::vector<const HubRecord*>& children) {
    std::sort(children.begin(), children.end(),
              [](const HubRecord* a, const HubRecord* b) { return isBefore(*a, *b); });
    const bool givesAgain = !_over.lost.empty();
    findMoved(children, _moved, [&](const HubRecord& child) {
      const HubRecord* const before = held(child.id);
      return !givesAgain || isNews(before, &HubOrigins::place) ? before : nullptr;
    });
    findMoved(children, _movedSinceLost, [&](const HubRecord& child) {
      return isNews(held(child.id), &HubOrigins::place) ? nullptr : lost(child.id);
    });
  }

  template <typename Before>
  void findMoved(const std::vector<const HubRecord*>& children, std::unordered_set<String>& moved,
                 const Before& before) const {
    std::vector<const HubRecord*> list;
    for (const HubRecord* const child : children) {
      const HubRecord* const earlier = before(*child);
      if (earlier && earlier->parent == child->parent) list.push_back(earlier);
    }
    std::vector<const HubRecord*> sorted = list;
    std::sort(sorted.begin(), sorted.end(),
              [](const HubRecord* a, const HubRecord* b) { return isBefore(*a, *b); });
    std::unordered_map<const HubRecord*, std::int64_t> rank;
    for (const HubRecord* const each : sorted) rank.emplace(each, static_cast<std::int64_t>(rank.size()));
    std::vector<std::int64_t> ranks;
    std::vector<std::uint64_t> weights;  // all that is given weighs less than anything else
    for (const HubRecord* const each : list) {
      ranks.push_back(rank.at(each));
      weights.push_back(_given.contains(each->id) ? 1 : list.size());
    }
    const std::vector<bool> stays = heaviestRising(ranks, Rise::strict, weights);
    for (std::size_t i = 0; i < list.size(); ++i) {
      if (!stays[i]) moved.insert(list[i]->id);
    }
  }

  const String& _pushId;
  const PushedOver& _over;
  std::unordered_set<String> _given, _moved, _movedSinceLost;
};

}  // namespace

void setOrigins(std::vector<HubRecord>& given, const String& pushId, const PushedOver& over) {
  const OriginSetter setter(given, pushId, over);
  for (HubRecord& each : given) {
    if (!each.deleted) each.origins = setter.originsOf(each);
  }
}

}  // namespace corvane::loomer
