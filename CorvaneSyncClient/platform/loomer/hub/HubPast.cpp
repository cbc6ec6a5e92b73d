#include "CorvaneSyncClient/platform/loomer/hub/HubPast.h"

#include <algorithm>

namespace corvane::loomer {

namespace {

constexpr const char* kSeenKey = "seen";
constexpr const char* kPastKey = "past";
constexpr const char* kAccountKey = "account";
constexpr const char* kRevisionKey = "revision";
constexpr const char* kPushIdKey = "mark";
constexpr const char* kSessionKey = "session";
constexpr const char* kMetKey = "met";

// Within this distance in revisions every state is kept, up to a limit for a service that is restored often.
constexpr std::uint64_t kNear = 64;
constexpr std::size_t kMostNear = 128;

std::int64_t integer(const Dictionary& stored, const char* key) {
  const Value* const value = stored.find(key);
  const auto* const number = value ? value->as<std::int64_t>() : nullptr;
  return number ? *number : 0;
}

pelto::HubState seenIn(const Dictionary& stored, const String& account) {
  return {account, integer(stored, kRevisionKey), stored.string(kPushIdKey)};
}

Dictionary dictionaryOf(const pelto::HubState& seen) {
  Dictionary value{{kRevisionKey, seen.revision}};
  if (seen.pushId) value.set(kPushIdKey, seen.pushId);
  return value;
}

}  // namespace

HubPast::HubPast(LoomerClient& client) {
  const std::optional<Value> newest = client.objectForKey(kSeenKey);
  const Dictionary* const seen = newest ? newest->as<Dictionary>() : nullptr;
  if (!seen) return;
  const String account = seen->string(kAccountKey);
  const std::optional<Value> past = client.objectForKey(kPastKey);
  if (const Array* const states = past ? past->as<Array>() : nullptr) {
    for (const Value& each : *states) {
      const Dictionary* const state = each.as<Dictionary>();
      if (!state) continue;
      _states.push_back(
          {seenIn(*state, account), integer(*state, kSessionKey), state->date(kMetKey).value_or(Date{})});
    }
  }
  // The store of an older version, which kept only the last state.
  const pelto::HubState last = seenIn(*seen, account);
  if (_states.empty() || _states.front().seen != last) _states = {{last, 1, Date{}}};
}

std::vector<pelto::HubState> HubPast::states() const {
  std::vector<pelto::HubState> states;
  for (const State& each : _states) states.push_back(each.seen);
  if (!empty()) states.push_back({newest().account, 0, String()});
  return states;
}

std::int64_t HubPast::sessionOf(const pelto::HubState& state) const {
  const auto found =
      std::find_if(_states.begin(), _states.end(), [&](const State& each) { return each.seen == state; });
  return found == _states.end() || state.revision == 0 ? 0 : found->session;
}

std::int64_t HubPast::lastSessionBefore(Date date) const {
  std::int64_t session = 0;
  for (const State& each : _states) {
    if (each.met.seconds < date.seconds) session = std::max(session, each.session);
  }
  return session;
}

bool HubPast::goesOnWith(const pelto::RemoteChanges& remote) const {
  return !empty() && (remote.common == newest() || remote.givenAgain == newest());
}

std::int64_t HubPast::sessionInCommon(const pelto::RemoteChanges& remote) const {
  std::int64_t session = 0;
  for (const auto& each : {remote.common, remote.givenAgain}) {
    if (each) session = std::max(session, sessionOf(*each));
  }
  return session;
}

void HubPast::enter(const pelto::RemoteChanges& remote, const pelto::HubState& now, std::int64_t session,
                    Date date) {
  std::vector<State> entered{{now, session, date}};
  const auto add = [&](const pelto::HubState& seen, std::int64_t sessionBefore) {
    const bool isKnown = seen == now || std::any_of(_states.begin(), _states.end(),
                                                    [&](const State& each) { return each.seen == seen; });
    if (!isKnown) entered.push_back({seen, sessionBefore, date});
  };
  add(remote.now, sessionInCommon(remote));
  const std::int64_t sessionOfCommon = remote.common ? sessionOf(*remote.common) : 0;
  for (const pelto::HubState& each : remote.past) add(each, sessionOfCommon);
  const std::size_t again = std::min(remote.pastGivenAgain.size(), kMostNear);
  for (std::size_t i = 0; i < again; ++i) add(remote.pastGivenAgain[i], 0);
  std::erase_if(_states, [&](const State& each) { return each.seen == now; });
  _states.insert(_states.begin(), entered.begin(), entered.end());
  thinOut();
}

// Farther back, a state is dropped when the next older one is at most twice as far away as the next newer
// one.
void HubPast::thinOut() {
  std::vector<State> kept;
  std::size_t near = 0;
  const auto distance = [&](const State& state) {
    const auto [least, greatest] = std::minmax(_states.front().seen.revision, state.seen.revision);
    return static_cast<std::uint64_t>(greatest) - static_cast<std::uint64_t>(least);
  };
  for (const State& each : _states) {
    if (distance(each) <= kNear && ++near > kMostNear) continue;
    while (!kept.empty() && distance(kept.back()) > kNear &&
           distance(each) / 2 <= distance(kept[kept.size() - 2])) {
      kept.pop_back();
    }
    kept.push_back(each);
  }
  _states = std::move(kept);
}

void HubPast::store(LoomerClient& client) const {
  Array past;
  for (const State& each : _states) {
    Dictionary state = dictionaryOf(each.seen);
    state.set(kSessionKey, each.session);
    state.set(kMetKey, each.met);
    past.append(Value(std::move(state)));
  }
  Dictionary seen = dictionaryOf(newest());
  seen.set(kAccountKey, newest().account);
  client.setObject(Value(std::move(seen)), kSeenKey);
  client.setObject(Value(std::move(past)), kPastKey);
}

}  // namespace corvane::loomer
