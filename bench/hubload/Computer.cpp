#include "bench/hubload/Computer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "CorvaneSyncClient/platform/pelto/PostgresHub.h"
#include "bench/hubload/Traffic.h"
#include "tests/kit/TreeText.h"

namespace corvane::hubload {

namespace {

constexpr int kComplaintsShown = 3;

// Adds the time that it lives to a sum of seconds.
class Stopwatch {
 public:
  explicit Stopwatch(double& sum) : _sum(sum) {}
  ~Stopwatch() { _sum += std::chrono::duration<double>(std::chrono::steady_clock::now() - _began).count(); }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  double& _sum;
  std::chrono::steady_clock::time_point _began = std::chrono::steady_clock::now();
};

// What a session had to do with the service.
struct Dealings {
  double seconds = 0;
  std::size_t taken = 0;  // records
  int given = 0;          // pushes
  int overtaken = 0;      // pushes for which another computer was faster
};

// Notes what passes through it.
class NotedHub : public pelto::Hub {
 public:
  NotedHub(std::unique_ptr<pelto::Hub> hub, Dealings& dealings) : _hub(std::move(hub)), _dealings(dealings) {}
  ~NotedHub() override {
    const Stopwatch timed(_dealings.seconds);
    _hub.reset();
  }

  pelto::RemoteChanges remoteChanges(const std::vector<pelto::HubState>& seen) override {
    const Stopwatch timed(_dealings.seconds);
    pelto::RemoteChanges remote = _hub->remoteChanges(seen);
    _dealings.taken += remote.records.size();
    return remote;
  }
  pelto::HubPushed push(const pelto::HubPush& push) override {
    const Stopwatch timed(_dealings.seconds);
    const pelto::HubPushed pushed = _hub->push(push);
    ++(pushed ? _dealings.given : _dealings.overtaken);
    return pushed;
  }
  bool hasPush(const String& pushId) override {
    const Stopwatch timed(_dealings.seconds);
    return _hub->hasPush(pushId);
  }
  bool isEnabled(const String& dataClass) override { return _hub->isEnabled(dataClass); }
  void setEnabled(const String& dataClass, bool enabled) override { _hub->setEnabled(dataClass, enabled); }

 private:
  std::unique_ptr<pelto::Hub> _hub;
  Dealings& _dealings;
};

Kind kindOf(const Dealings& dealings) {
  if (dealings.given > 0) return Kind::edit;
  return dealings.taken > 0 ? Kind::take : Kind::quiet;
}

// The truth in the notation of tests, with the identifiers that all computers know: equal texts are equal
// trees.
std::string truthText(loomer::TruthStore& store) {
  loomer::RecordTable records(store);
  const auto childrenOf = [&](const loomer::TruthRecord& folder) { return records.children(folder.id); };
  const auto nodeOf = [&](const loomer::TruthRecord& record) -> kit::TreeNode {
    return {.label = records.globalIdentifier(record.id).toString(),
            .folder = record.entity == loomer::Entity::folder,
            .title = record.content.name,
            .url = record.content.url,
            .tabGroup = record.content.tabGroup,
            .special = record.content.special};
  };
  return kit::printTree(kit::treeBelow(loomer::TruthRecord(), childrenOf, nodeOf));
}

}  // namespace

void Complaints::write(SystemLog::Kind, std::string_view message) {
  if (++_count <= kComplaintsShown) {
    std::fprintf(stderr, "corvane-hubload: %.*s\n", static_cast<int>(message.size()), message.data());
  }
}

Computer::Computer(int account, int number, std::string url, const std::string& home,
                   const Complaints& complaints)
    : _account(account),
      _number(number),
      _url(std::move(url)),
      _identifier(newUuidString()),
      _store(loomer::storePathForHome(home)),
      _complaints(complaints) {}

void Computer::switchOn() { pelto::PostgresHub(_url, _identifier).setEnabled(pelto::kHubDataClass, true); }

Sample Computer::sync(const loomer::TruthPlanner& edit) {
  Sample sample;
  Dealings dealings;
  const int complaints = _complaints.count();
  const Traffic before = traffic();
  double whole = 0, edited = 0;
  {
    const Stopwatch timed(whole);
    loomer::EmbeddedManager manager(_store);
    loomer::HubExchange exchange(manager.clients(), [&] {
      return std::make_unique<NotedHub>(std::make_unique<pelto::PostgresHub>(_url, _identifier), dealings);
    });
    exchange.takeIn();
    if (edit) {
      const Stopwatch timedEdit(edited);
      loomer::editTruth(manager.store(), "browser", loomer::SessionKind::slow, edit);
    }
    exchange.giveChanges();
  }
  sample.kind = kindOf(dealings);
  sample.failed = _complaints.count() > complaints;
  sample.retries = dealings.overtaken;
  sample.seconds = whole - edited;
  sample.serviceSeconds = dealings.seconds;
  sample.sent = traffic().sent - before.sent;
  sample.received = traffic().received - before.received;
  return sample;
}

Digest Computer::digest() const {
  loomer::TruthStore store(_store);
  const loomer::RecordCounts counts = loomer::RecordTable(store).counts();
  return {_account, _number, static_cast<std::int64_t>(counts.folders + counts.bookmarks),
          std::hash<std::string>()(truthText(store))};
}

}  // namespace corvane::hubload
