#include "tests/loomer/engine/MemoryHub.h"

#include <algorithm>
#include <memory>

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
    const bool continues = remote.common && *remote.common == seen.front();
    remote.whole = !continues || remote.common->revision < service.forgotten;
    for (const std::int64_t each : pelto::sampledRevisions(revisionOf(remote.common), service.now.revision)) {
      remote.past.push_back({service.now.account, each, String(service.pushIds.at(each))});
    }
    remote.room = _hub.limit - static_cast<std::int64_t>(_hub.live());
    remote.roomForBytes = _hub.byteLimit - static_cast<std::int64_t>(_hub.liveBytes());
    for (const auto& [id, record] : service.records) {
      const std::int64_t revision = service.revisions.at(id);
      const bool isNew = remote.common && revision > remote.common->revision;
      const bool isTold = remote.whole ? !record.deleted || (isNew && !continues) : isNew;
      if (!isTold) continue;
      remote.records.push_back(record);
      remote.records.back().revision = revision;
    }
    return remote;
  }

  bool push(const pelto::HubPush& push) override {
    note("push");
    State& service = _hub.state;
    if (!(push.expected == service.now)) return false;
    const std::int64_t revision = ++service.now.revision;
    service.now.pushId = push.id;
    service.pushIds[revision] = push.id.toString();
    for (const pelto::HubRecord& record : push.records) {
      service.records[record.id.toString()] = record;
      service.revisions[record.id.toString()] = revision;
    }
    note("pushed");
    return true;
  }

  bool hasPush(const String& pushId) override {
    note("has push");
    return std::any_of(_hub.state.pushIds.begin(), _hub.state.pushIds.end(),
                       [&](const auto& each) { return pushId == each.second; });
  }

  bool isEnabled(const String&) override { return _hub.enabled; }
  void setEnabled(const String&, bool value) override { _hub.enabled = value; }

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

  static std::int64_t revisionOf(const std::optional<pelto::HubState>& state) {
    return state ? state->revision : 0;
  }

  void note(const std::string& call) {
    _hub.calls.push_back(call);
    if (_hub.onCall) _hub.onCall(call);
  }

  MemoryHub& _hub;
};

MemoryHub::MemoryHub() { state.now.account = "0A000000-0000-4000-8000-000000000001"; }

std::unique_ptr<pelto::Hub> MemoryHub::connect() { return std::make_unique<Connection>(*this); }

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
