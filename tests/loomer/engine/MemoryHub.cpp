#include "tests/loomer/engine/MemoryHub.h"

#include <algorithm>
#include <memory>

namespace corvane {

class MemoryHub::Connection : public pelto::Hub {
 public:
  explicit Connection(MemoryHub& hub) : _hub(hub) {}

  pelto::HubNews news(const std::vector<pelto::HubSeen>& seen) override {
    note("news");
    const State& state = _hub.state;
    pelto::HubNews news;
    news.now = state.now;
    news.enabled = _hub.enabled;
    if (!news.enabled) return news;
    news.common = newestCommon(seen);
    const bool continues = news.common && *news.common == seen.front();
    news.whole = !continues || news.common->revision < state.forgotten;
    for (const std::int64_t each : pelto::toldRevisions(revisionOf(news.common), state.now.revision)) {
      news.past.push_back({state.now.account, each, String(state.marks.at(each))});
    }
    news.room = _hub.limit - static_cast<std::int64_t>(_hub.live());
    news.roomForBytes = _hub.byteLimit - static_cast<std::int64_t>(_hub.liveBytes());
    for (const auto& [id, record] : state.records) {
      const std::int64_t revision = state.revisions.at(id);
      const bool isNew = news.common && revision > news.common->revision;
      const bool isTold = news.whole ? !record.deleted || (isNew && !continues) : isNew;
      if (!isTold) continue;
      news.records.push_back(record);
      news.records.back().revision = revision;
    }
    return news;
  }

  bool push(const pelto::HubPush& push) override {
    note("push");
    State& state = _hub.state;
    if (!(push.expected == state.now)) return false;
    const std::int64_t revision = ++state.now.revision;
    state.now.mark = push.mark;
    state.marks[revision] = push.mark.toString();
    for (const pelto::HubRecord& record : push.records) {
      state.records[record.id.toString()] = record;
      state.revisions[record.id.toString()] = revision;
    }
    note("pushed");
    return true;
  }

  bool hasPush(const String& mark) override {
    note("has push");
    return std::any_of(_hub.state.marks.begin(), _hub.state.marks.end(),
                       [&](const auto& each) { return mark == each.second; });
  }

  bool isEnabled(const String&) override { return _hub.enabled; }
  void setEnabled(const String&, bool enabled) override { _hub.enabled = enabled; }

 private:
  bool isOfThePast(const pelto::HubSeen& seen) const {
    const auto found = _hub.state.marks.find(seen.revision);
    return seen.revision == 0 ? !seen.mark : found != _hub.state.marks.end() && seen.mark == found->second;
  }

  std::optional<pelto::HubSeen> newestCommon(const std::vector<pelto::HubSeen>& seen) const {
    std::optional<pelto::HubSeen> newest;
    for (const pelto::HubSeen& each : seen) {
      if (!(each.account == _hub.state.now.account) || !isOfThePast(each)) continue;
      if (!newest || each.revision > newest->revision) newest = each;
    }
    return newest;
  }

  static std::int64_t revisionOf(const std::optional<pelto::HubSeen>& state) {
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
