#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <set>
#include <utility>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "bench/service/Benches.h"
#include "bench/service/Edits.h"
#include "bench/service/Text.h"
#include "tests/fakes/ManualClock.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/pelto/chain/MemoryPlace.h"

namespace corvane::servicebench {

namespace {

constexpr double kDaySeconds = 86'400;
constexpr double kMinuteSeconds = 60;
constexpr int kMonth = 30;

constexpr std::size_t kEveryday = 3;  // computers; a fourth is used on one day of a month
constexpr std::size_t kSeldom = 3;
constexpr int kEditsADay = 20;
constexpr int kEditsOnSeldom = 5;
constexpr int kFromHour = 7, kToHour = 23;
constexpr int kImported = 50;  // once a month, by the first computer

// A session on a day.
struct Event {
  int minute = 0;
  std::size_t computer = 0;
  bool isEdit = false;
};

// Computers of one account at a place in memory, whose clock is moved with theirs.
class Family {
 public:
  explicit Family(int records) {
    for (std::size_t i = 0; i <= kSeldom; ++i) _computers.push_back(newComputer());
    _computers[0]->syncAll(additions(records));
    for (const auto& each : _computers) each->syncAll();
  }

  void live(int days) {
    printHead({"day", "records", "sessions", "edits", "commits", "checkpoints", "objects there",
               "bytes there", "objects removed"});
    const std::set<int> reported{30, 60, 90, 180, 270, days};
    for (int day = 1; day <= days; ++day) {
      liveOn(day);
      if (reported.contains(day)) report(day);
    }
    for (int round = 0; round < 2; ++round) {
      for (const auto& each : _computers) each->syncAll();
    }
    requireAgreement(_computers);
    conclude(days);
  }

 private:
  std::unique_ptr<Computer> newComputer() {
    const std::string home = _homes / std::to_string(_homesMade++);
    return std::make_unique<Computer>(
        _sealer, [this] { return counted(_place.connect(), _objects); }, home);
  }

  void liveOn(int day) {
    const double midnight = _clock.time.seconds;
    for (const Event& event : eventsOfADay()) {
      _clock.time.seconds = std::max(_clock.time.seconds, midnight + event.minute * kMinuteSeconds);
      sync(event.computer, event.isEdit ? dailyEdit(_random) : loomer::TruthPlanner());
    }
    if (day % kMonth == kMonth / 2) sync(0, additions(kImported));
    if (day % kMonth == 0) useSeldom();
    _clock.time.seconds = midnight + kDaySeconds;
  }

  // In the order of their times. Now and then each computer syncs without an edit of its own.
  std::vector<Event> eventsOfADay() {
    std::vector<Event> events;
    for (int hour = kFromHour; hour < kToHour; ++hour) {
      for (std::size_t computer = 0; computer < kEveryday; ++computer) {
        if (_random() % 4 == 0) events.push_back({hour * 60 + minute(60), computer, false});
      }
    }
    constexpr std::array<std::size_t, 10> kWho{0, 0, 0, 0, 0, 1, 1, 1, 2, 2};
    for (int i = 0; i < kEditsADay; ++i)
      events.push_back(
          {kFromHour * 60 + minute((kToHour - kFromHour) * 60), kWho[_random() % kWho.size()], true});
    std::sort(events.begin(), events.end(),
              [](const Event& a, const Event& b) { return a.minute < b.minute; });
    return events;
  }

  int minute(int below) { return static_cast<int>(_random() % static_cast<std::uint64_t>(below)); }

  void useSeldom() {
    const Traffic pull = sync(kSeldom);
    if (pull.received > _largestPull.received) _largestPull = pull;
    for (int i = 0; i < kEditsOnSeldom; ++i) sync(kSeldom, dailyEdit(_random));
  }

  Traffic sync(std::size_t number, const loomer::TruthPlanner& edit = {}) {
    _place.calls.clear();
    const Session session = _computers[number]->sync(edit);
    ++_sessions;
    _edits += edit ? 1 : 0;
    if (number < kEveryday) _everyday += session.traffic;
    if (session.given > 0) {
      const auto path = _computers[number]->kept().path;
      _commits = path.back().number;
      if (path.front().isCheckpoint) _checkpoints.insert(path.front().number);
    }
    return session.traffic;
  }

  void report(int day) const {
    std::int64_t bytes = 0;
    for (const auto& [name, object] : _place.objects) bytes += static_cast<std::int64_t>(object.bytes.size());
    printRow({numberText(day), numberText(static_cast<std::int64_t>(_computers[0]->records())),
              numberText(_sessions), numberText(_edits), numberText(_commits),
              numberText(static_cast<std::int64_t>(_checkpoints.size())),
              numberText(static_cast<std::int64_t>(_place.objects.size())), bytesText(bytes),
              numberText(_objects.removed)});
  }

  void conclude(int days) {
    const std::int64_t each = std::int64_t{days} * static_cast<std::int64_t>(kEveryday);
    const Session joined = newComputer()->syncAll();
    printHead({"", "requests", "up", "down"});
    print("an everyday computer, each day",
          {_everyday.requests / each, _everyday.sent / each, _everyday.received / each});
    print("the largest pull after a month's absence", _largestPull);
    print("a computer that joins in the end", joined.traffic);
  }

  static void print(const std::string& what, const Traffic& traffic) {
    std::vector<std::string> cells{what};
    for (std::string& cell : trafficCells(traffic)) cells.push_back(std::move(cell));
    printRow(cells);
  }

  ManualClock _clock;
  const Platform& _real = Platform::current();
  Platform _platform{_clock,    _real.uuids,         _real.process, _real.files, _real.preferences,
                     _real.log, _real.notifications, _real.bundles};
  PlatformScope _scope{_platform};
  MemoryPlace _place;
  ObjectCounts _objects;
  TemporaryDirectory _homes;
  int _homesMade = 0;
  pelto::Sealer _sealer = newSealer();
  std::vector<std::unique_ptr<Computer>> _computers;
  Random _random{1};
  Traffic _everyday, _largestPull;
  std::int64_t _sessions = 0, _edits = 0, _commits = 0;
  std::set<std::int64_t> _checkpoints;
};

}  // namespace

void benchYear(int days, int records) { Family(records).live(days); }

}  // namespace corvane::servicebench
