#include "tests/loomer/engine/MemoryHub.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"

namespace corvane {

class MemoryHub::Connection : public pelto::Hub {
 public:
  explicit Connection(MemoryHub& hub) : _hub(hub) {}

  pelto::RemoteChanges remoteChanges(const std::vector<pelto::HubState>& seen) override {
    note("remote changes");
    const State& service = _hub.state;
    pelto::RemoteChanges remote;
    remote.now = service.now;
    remote.enabled = _hub.enabled;
    if (!remote.enabled) return remote;
    remote.common = newestCommon(seen);
    remote.givenAgain = firstGivenAgain(seen, remote.common);
    const bool continues = remote.common && *remote.common == seen.front();
    remote.whole = !continues || remote.common->revision < service.forgotten;
    for (std::int64_t each = service.now.revision - 1; each > revisionOf(remote.common); --each) {
      remote.past.push_back({service.now.account, each, String(service.pushIds.at(each))});
    }
    for (const auto& [id, each] : service.givenAgain) {
      if (each.second > revisionOf(remote.common)) remote.pastGivenAgain.push_back(each.first);
    }
    remote.room = _hub.limit - static_cast<std::int64_t>(_hub.live());
    remote.roomForBytes = _hub.byteLimit - static_cast<std::int64_t>(_hub.liveBytes());
    for (const auto& [id, record] : service.records) {
      const std::int64_t revision = service.revisions.at(id);
      const bool isNew = remote.common && revision > remote.common->revision;
      const bool isTold = remote.whole ? !record.deleted || (!continues && !seen.empty()) : isNew;
      if (!isTold) continue;
      remote.records.push_back(record);
      remote.records.back().revision = revision;
    }
    return remote;
  }

  pelto::HubPushed push(const pelto::HubPush& push) override {
    note("push");
    State& service = _hub.state;
    if (!(push.expected == service.now)) return {};
    const std::int64_t revision = ++service.now.revision;
    service.now.pushId = push.id;
    service.pushIds[revision] = push.id.toString();
    for (const pelto::HubRecord& record : push.records) {
      service.records[record.id.toString()] = record;
      service.revisions[record.id.toString()] = revision;
    }
    for (const pelto::HubState& each : push.givesAgain) {
      if (!isOfThePast(each)) service.givenAgain.try_emplace(each.pushId.toString(), each, revision);
    }
    // As it is now: another computer may push before the answer arrives.
    const pelto::HubPushed pushed{pelto::HubPushed::Outcome::done, service.now};
    note("pushed");
    return pushed;
  }

  bool hasPush(const String& pushId) override {
    note("has push");
    if (_hub.state.givenAgain.contains(pushId.toString())) return true;
    return std::any_of(_hub.state.pushIds.begin(), _hub.state.pushIds.end(),
                       [&](const auto& each) { return pushId == each.second; });
  }

 private:
  bool isOfThePast(const pelto::HubState& seen) const {
    const auto found = _hub.state.pushIds.find(seen.revision);
    return seen.revision == 0 ? !seen.pushId
                              : found != _hub.state.pushIds.end() && seen.pushId == found->second;
  }

  std::optional<pelto::HubState> newestCommon(const std::vector<pelto::HubState>& seen) const {
    std::optional<pelto::HubState> newest;
    for (const pelto::HubState& each : seen) {
      if (!(each.account == _hub.state.now.account) || !isOfThePast(each)) continue;
      if (!newest || each.revision > newest->revision) newest = each;
    }
    return newest;
  }

  std::optional<pelto::HubState> firstGivenAgain(const std::vector<pelto::HubState>& seen,
                                                 const std::optional<pelto::HubState>& common) const {
    for (const pelto::HubState& each : seen) {
      if (each == common) break;
      if (_hub.state.givenAgain.contains(each.pushId.toString())) return each;
    }
    return std::nullopt;
  }

  static std::int64_t revisionOf(const std::optional<pelto::HubState>& state) {
    return state ? state->revision : 0;
  }

  void note(const std::string& call) {
    _hub.calls.push_back(call);
    if (const auto watcher = _hub.onCall) watcher(call);  // a copy: it may put another in its own place
  }

  MemoryHub& _hub;
};

/// The chain as one computer reaches it. What it gives is noted in the table, for the test.
class MemoryHub::ChainConnection : public pelto::Hub {
 public:
  ChainConnection(MemoryHub& hub, const std::string& directory)
      : _hub(hub),
        _sealer(pelto::AccountKey(std::string(pelto::AccountKey::kBytes, 'k')),
                hub.state.now.account.toString(), 1),
        _place(_memory.connect()),
        _chain(*_place, _sealer,
               {.keptPath = directory + "/Chain.plist",
                .computer = "0F000000-0000-4000-8000-000000000001",
                .mostRecords = hub.limit,
                .mostBytes = hub.byteLimit}) {
    _memory.onCall = [this](const std::string& call) {
      if (_hub.onPlaceCall) _hub.onPlaceCall(call);
    };
  }

 private:
  // The place's objects are part of the state that a test puts back.
  template <typename Work>
  auto atPlace(const Work& work) {
    _memory.objects.swap(_hub.state.objects);
    const std::shared_ptr<void> back(nullptr, [this](void*) {
      _memory.objects.swap(_hub.state.objects);
      _hub.placeRequests += std::exchange(_memory.requests, 0);
    });
    return work();
  }

 public:
  pelto::RemoteChanges remoteChanges(const std::vector<pelto::HubState>& seen) override {
    note("remote changes");
    if (!_hub.enabled) return {};
    return atPlace([&] { return _chain.remoteChanges(seen); });
  }

  pelto::HubPushed push(const pelto::HubPush& push) override {
    note("push");
    const pelto::HubPushed pushed = atPlace([&] { return _chain.push(push); });
    if (!pushed) return pushed;
    State& service = _hub.state;
    service.now = pushed.now;
    service.pushIds[push.expected.revision + 1] = push.id.toString();
    service.pushIds[pushed.now.revision] = pushed.now.pushId.toString();
    for (const pelto::HubRecord& record : push.records) {
      service.records[record.id.toString()] = record;
      service.revisions[record.id.toString()] = push.expected.revision + 1;
    }
    note("pushed");
    return pushed;
  }

  bool hasPush(const String& pushId) override {
    note("has push");
    return atPlace([&] { return _chain.hasPush(pushId); });
  }

 private:
  void note(const std::string& call) {
    _hub.calls.push_back(call);
    if (const auto watcher = _hub.onCall) watcher(call);  // a copy: it may put another in its own place
  }

  MemoryHub& _hub;
  pelto::Sealer _sealer;
  MemoryPlace _memory;
  std::unique_ptr<pelto::Place> _place;
  pelto::ChainHub _chain;
};

MemoryHub::MemoryHub(Kind of) : kind(of) { state.now.account = "0A000000-0000-4000-8000-000000000001"; }

std::unique_ptr<pelto::Hub> MemoryHub::connect(const std::string& directory) {
  if (kind == Kind::table) return std::make_unique<Connection>(*this);
  return std::make_unique<ChainConnection>(*this, directory);
}

void MemoryHub::empty() {
  const String account = state.now.account;
  state = {};
  state.now.account = account;
}

void MemoryHub::dropTombstones() {
  std::erase_if(state.records, [&](const auto& each) {
    if (!each.second.deleted) return false;
    state.forgotten = std::max(state.forgotten, state.revisions.at(each.first));
    return true;
  });
}

std::size_t MemoryHub::liveBytes() const {
  std::size_t bytes = 0;
  for (const auto& [id, record] : state.records) {
    if (!record.deleted) bytes += record.name.view().size() + record.url.view().size();
  }
  return bytes;
}

std::size_t MemoryHub::live() const {
  return static_cast<std::size_t>(std::count_if(state.records.begin(), state.records.end(),
                                                [](const auto& each) { return !each.second.deleted; }));
}

void failAsService(const std::string& reason) { throw PlatformException(pelto::DotPeltoException, reason); }

}  // namespace corvane
