#include "CorvaneSyncClient/platform/pelto/chain/History.h"

#include <algorithm>

namespace corvane::pelto::chain {

namespace {
constexpr std::int64_t kSmallTail = 64;
constexpr std::int64_t kSnapshotsInTail = 2;
}  // namespace

History::History(std::vector<Link> path, std::vector<PastState> told)
    : _path(std::move(path)), _told(std::move(told)) {}

std::optional<String> History::pushOf(std::int64_t number) const {
  if (!_path.empty() && number >= _path.front().number) {
    const auto index = static_cast<std::size_t>(number - _path.front().number);
    return index < _path.size() ? std::optional<String>(_path[index].pushId) : std::nullopt;
  }
  const auto told =
      std::lower_bound(_told.begin(), _told.end(), number,
                       [](const PastState& state, std::int64_t wanted) { return state.number > wanted; });
  if (told == _told.end() || told->number != number) return std::nullopt;
  return String(told->pushId);
}

bool History::contains(std::int64_t number, const String& pushId) const {
  if (number == 0) return true;
  const auto found = pushOf(number);
  return found && *found == pushId;
}

std::vector<HubState> History::statesBetween(std::int64_t since, const HubState& now) const {
  std::vector<HubState> states;
  const auto enter = [&](const auto& each) {
    if (each.number > since && each.number < now.revision)
      states.push_back({now.account, each.number, String(each.pushId)});
  };
  std::for_each(_path.rbegin(), _path.rend(), enter);
  std::for_each(_told.begin(), _told.end(), enter);
  return states;
}

bool History::isGivenAgain(const String& pushId) const {
  return std::any_of(_path.begin(), _path.end(), [&](const Link& link) {
    return std::any_of(link.givesAgain.begin(), link.givesAgain.end(),
                       [&](const GivenAgain& each) { return pushId == each.pushId; });
  });
}

std::optional<HubState> History::firstGivenAgain(const std::vector<HubState>& seen,
                                                 const std::optional<HubState>& common) const {
  for (const HubState& each : seen) {
    if (each == common) break;
    if (each.pushId && isGivenAgain(each.pushId)) return each;
  }
  return std::nullopt;
}

std::vector<GivenAgain> History::givenAgainSince(std::int64_t number, std::size_t most) const {
  std::vector<GivenAgain> states;
  for (auto link = _path.rbegin(); link != _path.rend() && link->number > number; ++link) {
    for (const GivenAgain& each : link->givesAgain) {
      if (states.size() == most) return states;
      if (std::find(states.begin(), states.end(), each) == states.end()) states.push_back(each);
    }
  }
  return states;
}

bool History::hasPush(const String& pushId) const {
  const auto isIt = [&](const auto& each) { return pushId == each.pushId; };
  return std::any_of(_path.begin(), _path.end(), isIt) || std::any_of(_told.begin(), _told.end(), isIt) ||
         isGivenAgain(pushId);
}

std::optional<HubState> History::newestCommon(const std::vector<HubState>& seen,
                                              const String& account) const {
  std::optional<HubState> newest;
  for (const HubState& each : seen) {
    if (!(each.account == account) || !contains(each.revision, each.pushId)) continue;
    if (!newest || each.revision > newest->revision) newest = each;
  }
  return newest;
}

bool isCheckpointDue(const Link& head) {
  const std::int64_t snapshot = head.records / static_cast<std::int64_t>(kSegmentRecords) + 1;
  return head.tail > kSmallTail + kSnapshotsInTail * snapshot;
}

Collectable collectable(const std::vector<PlaceObject>& commits, const std::vector<PlaceObject>& segments,
                        std::int64_t from, const std::vector<std::string>& named) {
  double newest = 0;
  bool isFirst = true;
  for (const auto* objects : {&commits, &segments}) {
    for (const PlaceObject& each : *objects) {
      newest = isFirst ? each.date.seconds : std::max(newest, each.date.seconds);
      isFirst = false;
    }
  }
  const auto isOld = [newest](const PlaceObject& each) {
    return newest - each.date.seconds > kCollectedAfter;
  };
  Collectable found;
  for (const PlaceObject& each : commits) {
    const auto slot = slotNamed(each.name);
    if (slot && slot->number < from && isOld(each)) found.commits.push_back(each.name);
  }
  for (const PlaceObject& each : segments) {
    if (!std::binary_search(named.begin(), named.end(), each.name) && isOld(each))
      found.segments.push_back(each.name);
  }
  return found;
}

std::vector<std::string> leftBehind(const std::vector<PlaceObject>& objects, const std::string& last,
                                    Date now) {
  std::vector<std::string> names;
  bool hasLast = last.empty();
  for (const PlaceObject& each : objects) {
    if (now.seconds - each.date.seconds <= kCollectedAfter) return {};
    if (each.name == last) {
      hasLast = true;
    } else {
      names.push_back(each.name);
    }
  }
  return hasLast ? names : std::vector<std::string>();
}

}  // namespace corvane::pelto::chain
