#include "bench/service/Computer.h"

#include <time.h>

#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "CorvaneSyncClient/platform/pelto/chain/KeptFile.h"
#include "tests/kit/TreeText.h"

namespace corvane::servicebench {

namespace {

double processorSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Adds what a clock tells of the time that it lives to a sum.
class Stopwatch {
 public:
  Stopwatch(double (*clock)(), double& sum) : _clock(clock), _sum(sum), _began(clock()) {}
  ~Stopwatch() { _sum += _clock() - _began; }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  double (*_clock)();
  double& _sum;
  double _began;
};

// Notes what passes through it.
class NotedHub : public pelto::Hub {
 public:
  NotedHub(std::unique_ptr<pelto::Place> place, const pelto::Sealer& sealer, pelto::ChainHubOptions options,
           Session& session)
      : _place(std::move(place)), _hub(*_place, sealer, std::move(options)), _session(session) {}

  pelto::RemoteChanges remoteChanges(const std::vector<pelto::HubState>& seen) override {
    const Stopwatch timed(wallSeconds, _session.serviceSeconds);
    pelto::RemoteChanges remote = _hub.remoteChanges(seen);
    _session.taken += remote.records.size();
    return remote;
  }
  pelto::HubPushed push(const pelto::HubPush& push) override {
    const Stopwatch timed(wallSeconds, _session.serviceSeconds);
    const pelto::HubPushed pushed = _hub.push(push);
    _session.given += pushed ? 1 : 0;
    return pushed;
  }
  bool hasPush(const String& pushId) override { return _hub.hasPush(pushId); }

 private:
  std::unique_ptr<pelto::Place> _place;
  pelto::ChainHub _hub;
  Session& _session;
};

}  // namespace

Session& Session::operator+=(const Session& other) {
  traffic += other.traffic;
  processorSeconds += other.processorSeconds;
  serviceSeconds += other.serviceSeconds;
  given += other.given;
  taken += other.taken;
  return *this;
}

Computer::Computer(const pelto::Sealer& sealer, Connect connect, std::string home)
    : _sealer(sealer),
      _connect(std::move(connect)),
      _home(std::move(home)),
      _store(loomer::storePathForHome(_home)),
      _identifier(newUuidString()) {}

Session Computer::sync(const loomer::TruthPlanner& edit) {
  Session session;
  const Traffic before = traffic();
  double edited = 0;
  {
    const Stopwatch timed(processorSeconds, session.processorSeconds);
    loomer::EmbeddedManager manager(_store);
    loomer::HubExchange exchange(manager.clients(), [&] {
      const pelto::ChainHubOptions options{.keptPath = keptPath(), .computer = _identifier};
      return std::make_unique<NotedHub>(_connect(), _sealer, options, session);
    });
    exchange.takeIn();
    if (edit) {
      const Stopwatch timedEdit(processorSeconds, edited);
      loomer::editTruth(manager.store(), "browser", loomer::SessionKind::slow, edit);
    }
    exchange.giveChanges();
  }
  session.processorSeconds -= edited;
  session.traffic = traffic() - before;
  return session;
}

Session Computer::syncAll(const loomer::TruthPlanner& edit) {
  Session all = sync(edit);
  while (true) {
    const Session more = sync();
    if (more.isQuiet()) return all;
    all += more;
  }
}

std::size_t Computer::records() const {
  loomer::TruthStore store(_store);
  const loomer::RecordCounts counts = loomer::RecordTable(store).counts();
  return counts.folders + counts.bookmarks;
}

std::string Computer::tree() const {
  loomer::TruthStore store(_store);
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

pelto::chain::Kept Computer::kept() const {
  return pelto::chain::KeptFile(keptPath(), _sealer.folder()).read().kept;
}

pelto::Sealer newSealer() { return {pelto::AccountKey::random(), newUuidString(), 1}; }

void requireAgreement(const std::vector<std::unique_ptr<Computer>>& computers) {
  const std::string tree = computers.front()->tree();
  for (const auto& each : computers) {
    if (each->tree() != tree) throw std::runtime_error("the computers of an account do not agree");
  }
}

}  // namespace corvane::servicebench
