#include "tests/pelto/chain/ChainModel.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"

namespace corvane::model {

namespace {

using Edits = unsigned;

constexpr double kYoung = 0;
constexpr double kMonth = 40 * 86'400.0;

/// A commit. Its hash is one of its contents, so that equal states of the world are equal however they came
/// to be.
struct Made {
  Link link;
  Edits edits = 0;  ///< that it gives
  Edits all = 0;    ///< that the account holds with it
  std::size_t writer = 0;
  std::vector<PastState> told;
};

/// All commits ever made, by hash.
using Registry = std::unordered_map<std::string, Made>;

enum class Damage { none, passing, lasting };

struct Cell {
  std::string hash;
  Damage damage = Damage::none;
  double written = 0;
};

struct Place {
  std::map<std::string, Cell> commits;     ///< by name
  std::map<std::string, double> segments;  ///< when each was written
};

struct Request {
  std::string name;
  std::string hash;
};

enum class Doing { exchange, push, checkpoint, collection };

/// What a computer has in memory while it is at work.
struct Work {
  State state;
  Doing doing = Doing::exchange;
  std::string pushed;  ///< hash of what is given
  bool hasPutSegment = false;
  bool sawNone = false;   ///< of a look before a put
  Collectable collected;  ///< what is about to be removed
  bool wasMade = false;   ///< what the place answered to the put
};

struct Writer {
  Kept kept;
  // The engine: what it knows, what it takes the service to hold, and its last push while that is unsettled.
  Edits truth = 0;
  Edits base = 0;
  std::string seen;  ///< hash of the commit that the base is of
  std::string journal;
  std::set<std::string> known;  ///< hashes of commits that it has seen or given
  int editsLeft = 0;
  std::optional<Work> work;
};

struct World {
  Place place;
  std::vector<Place> past;  ///< what the place can be put back to
  std::vector<Request> late;
  std::vector<Writer> writers;
  Bounds left;
  double placeTime = kYoung;
  double clock = 1e6;  ///< of the computers
  Edits made = 0;
  bool hasRolledBack = false;
};

struct Fault {
  std::string what;
};

[[noreturn]] void fail(const std::string& what) { throw Fault{what}; }

// The world in bytes, for telling whether it was seen before.
class Digest {
 public:
  void add(const std::string& text) { (_bytes += text) += '|'; }
  template <typename Number>
  requires std::is_arithmetic_v<Number> || std::is_enum_v<Number>
  void add(Number number) { _bytes.append(reinterpret_cast<const char*>(&number), sizeof number); }
  void add(const Link& link) {
    add(link.hash);
    add(link.isWhole);
  }
  void add(const Kept& kept) {
    for (const Link& each : kept.path) add(each);
    add(kept.verified);
    add(kept.undecided ? kept.undecided->hash : std::string());
    for (const Sighting& each : kept.damaged) {
      add(each.name);
      add(each.hash);
      add(each.since.seconds);
    }
    add(kept.surveyed.seconds);
  }
  void add(const State& state) {
    add(state.kept);
    add(state.now.seconds);
    for (const int each : {static_cast<int>(state.stage), static_cast<int>(state.cause), state.tries,
                           state.surveys, state.attempt, state.followed})
      add(each);
    for (const bool each : {state.isPush, state.isUnkept, state.gives, state.asksForHead, state.isBlocked})
      add(each);
    if (state.listed) {
      for (const std::string& each : *state.listed) add(each);
    }
    for (const auto& [name, found] : state.read) {
      add(name);
      add(found.hash);
      add(found.state);
    }
  }
  void add(const Place& place) {
    for (const auto& [name, cell] : place.commits) {
      add(name);
      add(cell.hash);
      add(cell.damage);
      add(cell.written);
    }
    for (const auto& [name, written] : place.segments) {
      add(name);
      add(written);
    }
    add('#');
  }
  void add(const Writer& writer) {
    add(writer.kept);
    add(writer.truth);
    add(writer.base);
    add(writer.seen);
    add(writer.journal);
    for (const std::string& each : writer.known) add(each);
    add(writer.editsLeft);
    if (!writer.work) return add('-');
    add(writer.work->state);
    add(writer.work->doing);
    add(writer.work->pushed);
    for (const std::string& each : writer.work->collected.commits) add(each);
    for (const std::string& each : writer.work->collected.segments) add(each);
    for (const bool each : {writer.work->hasPutSegment, writer.work->sawNone, writer.work->wasMade})
      add(each);
  }
  void add(const World& world) {
    add(world.place);
    for (const Place& each : world.past) add(each);
    for (const Request& each : world.late) {
      add(each.name);
      add(each.hash);
    }
    for (const Writer& each : world.writers) add(each);
    const Bounds& left = world.left;
    for (const int each : {left.kills, left.lost, left.late, left.stale, left.rollBacks, left.damages,
                           left.checkpoints, left.ages})
      add(each);
    add(world.placeTime);
    add(world.clock);
    add(world.hasRolledBack);
  }
  std::pair<std::uint64_t, std::uint64_t> value() const {
    return {sipHash({}, _bytes), sipHash({1, 2}, _bytes)};
  }

 private:
  std::string _bytes;
};

struct PairHash {
  std::size_t operator()(const std::pair<std::uint64_t, std::uint64_t>& pair) const { return pair.first; }
};

/// What may happen to a computer's next step.
enum class Luck { good, lost, late, stale };

class Explorer {
 public:
  Explorer(const Bounds& bounds, const Decisions& decisions) : _bounds(bounds), _decisions(decisions) {}

  Explored run() {
    World first;
    first.left = _bounds;
    first.writers.resize(_bounds.writers);
    for (Writer& each : first.writers) each.editsLeft = _bounds.edits;
    Explored explored;
    try {
      enqueue(std::move(first), "");
      while (!_queue.empty()) {
        const auto [world, story] = std::move(_queue.front());
        _queue.pop_front();
        if (_seen.size() > _bounds.mostStates) {
          explored.isWhole = false;
          break;
        }
        _story = story;
        if (isIdle(*world)) requireConverging(*world);
        expand(*world, story);
      }
    } catch (const Fault& fault) {
      explored.fault = fault.what + "\n" + told(_story);
    }
    explored.states = _seen.size();
    return explored;
  }

 private:
  struct Told {
    std::string what;
    std::size_t before;
  };

  static bool isIdle(const World& world) {
    return std::none_of(world.writers.begin(), world.writers.end(),
                        [](const Writer& each) { return each.work.has_value(); });
  }

  std::string told(const std::string& story) const {
    std::string text;
    for (std::size_t at = story.empty() ? 0 : std::stoul(story); at != 0; at = _stories[at - 1].before)
      text = _stories[at - 1].what + "\n" + text;
    return text;
  }

  // `story` is the number of the last event, 0 or empty for none.
  void enqueue(World world, const std::string& story) {
    Digest digest;
    digest.add(world);
    if (!_seen.insert(digest.value()).second) return;
    _queue.emplace_back(std::make_unique<World>(std::move(world)), story);
  }

  template <typename Change>
  void event(const World& world, const std::string& story, const std::string& what, const Change& change) {
    World next = world;
    _stories.push_back({what, story.empty() ? 0 : std::stoul(story)});
    const std::string number = std::to_string(_stories.size());
    _story = number;
    change(next);
    _story = story;
    enqueue(std::move(next), number);
  }

  void expand(const World& world, const std::string& story) {
    for (std::size_t i = 0; i < world.writers.size(); ++i) expandWriter(world, i, story);
    for (std::size_t i = 0; i < world.late.size(); ++i) {
      event(world, story, "late: " + world.late[i].name, [&](World& next) {
        const Request request = next.late[i];
        next.late.erase(next.late.begin() + static_cast<std::ptrdiff_t>(i));
        make(next, request);
      });
    }
    if (world.left.rollBacks > 0) {
      for (std::size_t i = 0; i < world.past.size(); ++i) {
        event(world, story, "rolled back to " + std::to_string(i), [&](World& next) {
          next.place = next.past[i];
          next.past.resize(i);
          next.hasRolledBack = true;
          if (--next.left.rollBacks == 0) next.past.clear();
          if (!_bounds.lateAfterRollBack) next.late.clear();
        });
      }
    }
    // No exchange and no request lasts a month.
    if (world.left.ages > 0 && isIdle(world)) {
      event(world, story, "a month passes", [&](World& next) {
        --next.left.ages;
        next.placeTime += kMonth;
        next.late.clear();
      });
    }
    expandDamage(world, story);
  }

  void expandDamage(const World& world, const std::string& story) {
    for (const auto& commit : world.place.commits) {
      const auto& name = commit.first;
      const auto& cell = commit.second;
      if (cell.damage == Damage::passing) {
        event(world, story, name + " is whole again",
              [&](World& next) { next.place.commits.at(name).damage = Damage::none; });
      }
      const bool isHead =
          std::none_of(world.place.commits.begin(), world.place.commits.end(), [&](const auto& each) {
            return _registry.at(each.second.hash).link.number > _registry.at(cell.hash).link.number;
          });
      if (cell.damage != Damage::none || world.left.damages == 0 || !isHead) continue;
      for (const Damage damage : {Damage::passing, Damage::lasting}) {
        event(world, story,
              name + (damage == Damage::passing ? " is damaged, and heals" : " is damaged for good"),
              [&](World& next) {
                --next.left.damages;
                next.place.commits.at(name).damage = damage;
              });
      }
    }
    // Ten minutes are longer than any passing damage.
    const bool isPassing =
        std::any_of(world.place.commits.begin(), world.place.commits.end(),
                    [](const auto& each) { return each.second.damage == Damage::passing; });
    if (_bounds.damages > 0 && !isPassing && world.clock < 1e6 + 600) {
      event(world, story, "ten minutes pass", [](World& next) { next.clock += 600; });
    }
  }

  void expandWriter(const World& world, std::size_t i, const std::string& story) {
    const std::string who = "computer " + std::to_string(i);
    const Writer& writer = world.writers[i];
    if (!writer.work) {
      if (writer.editsLeft > 0) {
        event(world, story, who + " edits and begins", [&](World& next) {
          Writer& mine = next.writers[i];
          const Edits edit = 1U << (i * static_cast<std::size_t>(_bounds.edits) +
                                    static_cast<std::size_t>(--mine.editsLeft));
          mine.truth |= edit;
          next.made |= edit;
          beginSession(next, mine);
          goOnAlone(next, i);
        });
      }
      event(world, story, who + " begins", [&](World& next) {
        beginSession(next, next.writers[i]);
        goOnAlone(next, i);
      });
      return;
    }
    const Action action = _decisions.next(writer.work->state);
    const auto goOn = [&](Luck luck, const char* what) {
      event(world, story, who + nameOf(action) + what, [&](World& next) {
        step(next, i, luck);
        goOnAlone(next, i);
      });
    };
    goOn(Luck::good, "");
    if (action.kind == Action::Kind::give && world.left.lost > 0) goOn(Luck::lost, ", and that is lost");
    if (action.kind == Action::Kind::give && world.left.late > 0) goOn(Luck::late, ", and that takes long");
    if (action.kind == Action::Kind::get && world.left.stale > 0) goOn(Luck::stale, ", and is told of none");
    if (world.left.kills > 0) {
      event(world, story, who + " is killed", [&](World& next) {
        --next.left.kills;
        next.writers[i].work.reset();
      });
    }
  }

  // What touches nothing but the computer itself needs no interleaving with others. It may be killed before
  // it keeps what it decided.
  void goOnAlone(World& world, std::size_t i) {
    while (world.writers[i].work && world.writers[i].work->doing != Doing::collection) {
      const Action::Kind kind = _decisions.next(world.writers[i].work->state).kind;
      const bool isAlone =
          kind == Action::Kind::none || (kind == Action::Kind::keep && world.left.kills == 0);
      if (!isAlone) return;
      step(world, i, Luck::good);
    }
  }

  static std::string nameOf(const Action& action) {
    std::string text;
    for (const std::string& each : action.names) text += " " + each.substr(0, 6);
    switch (action.kind) {
      case Action::Kind::keep:
        return " keeps";
      case Action::Kind::give:
        return " gives";
      case Action::Kind::get:
        return " gets" + text;
      case Action::Kind::list:
        return " lists";
      case Action::Kind::none:
        break;
    }
    return " goes on";
  }

  void beginSession(const World& world, Writer& writer) const {
    writer.work.emplace();
    writer.work->state = _decisions.begin(writer.kept, Date{world.clock});
  }

  // One action of a computer, or what its engine does between two exchanges.
  void step(World& world, std::size_t i, Luck luck) {
    Writer& writer = world.writers[i];
    Work& work = *writer.work;
    if (work.doing == Doing::collection) return remove(world, writer);
    const Action action = _decisions.next(work.state);
    if (action.kind == Action::Kind::none) return conclude(world, i);
    Answer answer;
    switch (action.kind) {
      case Action::Kind::keep:
        writer.kept = _decisions.kept(work.state.kept);
        break;
      case Action::Kind::give:
        if (!give(world, work, luck)) return;
        break;
      case Action::Kind::get:
        for (const std::string& each : action.names) answer.found.push_back(find(world, work, each));
        if (luck == Luck::stale) {
          --world.left.stale;
          answer.found.back() = {};
        }
        break;
      case Action::Kind::list:
        for (const auto& [name, cell] : world.place.commits) answer.listed.push_back(name);
        break;
      case Action::Kind::none:
        break;
    }
    answer.now = Date{world.clock};
    work.state = _decisions.after(std::move(work.state), action, answer);
    if (action.kind == Action::Kind::give && _decisions.believesAnswers) believe(work);
  }

  // False when more steps of giving follow.
  bool give(World& world, Work& work, Luck luck) {
    const Link& push = *work.state.kept.undecided;
    if (!work.hasPutSegment) {
      world.place.segments[push.hash] = world.placeTime;
      work.hasPutSegment = true;
      return false;
    }
    const Request request{pelto::chain::nameOf(push), push.hash};
    if (_decisions.replaces && !work.sawNone) {
      work.sawNone = true;
      work.wasMade = !world.place.commits.contains(request.name);
      return false;
    }
    const bool replaces = _decisions.replaces && work.wasMade;
    work.hasPutSegment = work.sawNone = false;
    if (luck == Luck::lost) --world.left.lost;
    if (luck == Luck::late) {
      --world.left.late;
      world.late.push_back(request);
    }
    if (replaces) world.place.commits.erase(request.name);
    work.wasMade = luck == Luck::good && make(world, request);
    return true;
  }

  // As one would who takes an error for a request that was not carried out.
  static void believe(Work& work) {
    const Link push = *work.state.kept.undecided;
    work.state.kept.undecided.reset();
    if (work.wasMade) work.state.kept.path.push_back(push);
    work.state.stage = Stage::settled;
  }

  bool make(World& world, const Request& request) {
    if (world.place.commits.contains(request.name)) return false;
    if (world.left.rollBacks > 0) world.past.push_back(world.place);
    world.place.commits[request.name] = {request.hash, Damage::none, world.placeTime};
    return true;
  }

  Found find(const World& world, const Work& work, const std::string& name) const {
    const auto found = world.place.commits.find(name);
    if (found == world.place.commits.end()) return {};
    const Cell& cell = found->second;
    if (cell.damage != Damage::none) return {Found::State::damaged, {}, "damaged " + cell.hash};
    Found good{Found::State::good, _registry.at(cell.hash).link, cell.hash};
    if (good.link.isCheckpoint && work.state.listed)
      good.link.isWhole = world.place.segments.contains(cell.hash);
    return good;
  }

  // What the engine makes of a settled exchange or push.
  void conclude(World& world, std::size_t i) {
    Writer& writer = world.writers[i];
    Work& work = *writer.work;
    writer.kept = _decisions.kept(work.state.kept);
    const bool isStuck = work.state.stage == Stage::stuck;
    if (isStuck) return writer.work.reset();
    if (work.doing == Doing::exchange) {
      takeIn(world, i);
      const Edits given = writer.truth & ~writer.base;
      if (given != 0 && !work.state.isBlocked) return beginGiving(i, world, given, Doing::push);
      return writer.work.reset();
    }
    const bool isDone = work.state.kept.head() && isIn(work.state.kept.path, _registry.at(work.pushed).link);
    if (work.doing == Doing::push && isDone) {
      settlePush(writer, work.pushed);
      if (world.left.checkpoints > 0 && !work.state.isBlocked) {
        --world.left.checkpoints;
        return beginGiving(i, world, 0, Doing::checkpoint);
      }
    }
    if (work.doing != Doing::checkpoint || !isDone) return writer.work.reset();
    work.doing = Doing::collection;
    work.collected = collectableAt(world, work.state.kept);
  }

  void settlePush(Writer& writer, const std::string& hash) const {
    writer.base = _registry.at(hash).all;
    writer.seen = hash;
    writer.known.insert(hash);
    writer.journal.clear();
  }

  static History historyOf(const Registry& registry, const std::vector<Link>& path) {
    std::vector<PastState> told;
    if (!path.empty() && path.front().isCheckpoint) told = registry.at(path.front().hash).told;
    return {path, told};
  }

  void takeIn(World& world, std::size_t i) {
    Writer& writer = world.writers[i];
    const std::vector<Link>& path = writer.work->state.kept.path;
    const History history = historyOf(_registry, path);
    const Link seen = writer.seen.empty() ? Link() : _registry.at(writer.seen).link;
    const bool continues = writer.seen.empty() || _decisions.contains(history, seen);
    if (!continues && !world.hasRolledBack && _bounds.damages == 0)
      fail("what stood in the chain no longer does, though the place never went back");
    if (!continues) writer.base = 0;
    if (!writer.journal.empty() && continues && history.hasPush(_registry.at(writer.journal).link.pushId))
      writer.base |= _registry.at(writer.journal).edits;
    const bool isWhole =
        !continues || (!path.empty() && path.front().isCheckpoint && path.front().number > seen.number);
    for (const Link& link : path) {
      const Made& commit = _registry.at(link.hash);
      const bool isFirst = link.hash == path.front().hash;
      if (isWhole && isFirst) writer.base |= commit.all;
      if (!isWhole && link.number <= seen.number) continue;
      takeCommit(world, i, commit, continues && !isWhole);
      writer.known.insert(link.hash);
      writer.base |= commit.edits;
    }
    writer.truth |= writer.base;
    const Edits held = path.empty() ? 0 : _registry.at(path.back().hash).all;
    if (writer.base != held) fail("a computer takes the service to hold what it does not hold");
    writer.seen = path.empty() ? std::string() : path.back().hash;
    writer.journal.clear();
  }

  void takeCommit(const World& world, std::size_t i, const Made& commit, bool isNews) const {
    if (world.hasRolledBack) return;
    const bool isKnown =
        world.writers[i].journal == commit.link.hash || world.writers[i].known.contains(commit.link.hash);
    if (isNews && commit.writer == i && commit.edits != 0 && !isKnown)
      fail("a computer takes its own old values for another's new ones");
    if (commit.edits != 0 && !world.place.segments.contains(commit.link.hash) &&
        world.place.commits.contains(pelto::chain::nameOf(commit.link)))
      fail("a commit names what is not there");
  }

  void beginGiving(std::size_t i, World& world, Edits edits, Doing doing) {
    Writer& writer = world.writers[i];
    Work& work = *writer.work;
    const std::vector<Link>& path = work.state.kept.path;
    Made commit;
    commit.writer = i;
    commit.edits = edits;
    Link& link = commit.link;
    link.number = 1;
    link.previous = beginning();
    link.attempt = work.state.attempt;
    if (!path.empty()) {
      commit.all = _registry.at(path.back().hash).all;
      link.number = path.back().number + 1;
      link.previous = path.back().hash;
      link.before = path.front().isCheckpoint ? path.front().number : 0;
      link.tail = path.back().tail + 1;
    }
    if (commit.all & edits) fail("an edit is given twice");
    commit.all |= edits;
    if (doing == Doing::checkpoint) tell(commit, path);
    identify(commit);
    writer.journal = doing == Doing::push ? link.hash : writer.journal;
    work.doing = doing;
    work.pushed = link.hash;
    work.state = _decisions.beginPush(std::move(work.state), _registry.at(link.hash).link);
  }

  void tell(Made& commit, const std::vector<Link>& path) const {
    commit.link.isCheckpoint = true;
    commit.link.keeps = commit.link.number - 1;
    commit.link.tail = 0;
    for (auto each = path.rbegin(); each != path.rend(); ++each)
      commit.told.push_back({each->number, each->pushId, {}});
    if (!path.empty() && path.front().isCheckpoint) {
      const std::vector<PastState>& before = _registry.at(path.front().hash).told;
      commit.told.insert(commit.told.end(), before.begin(), before.end());
    }
  }

  void identify(Made& commit) {
    Digest digest;
    digest.add(commit.link.previous);
    digest.add(commit.link.attempt);
    digest.add(commit.link.isCheckpoint);
    digest.add(commit.edits);
    digest.add(commit.writer);
    const std::uint64_t hash = digest.value().first;
    commit.link.hash.assign(reinterpret_cast<const char*>(&hash), sizeof hash);
    commit.link.pushId = commit.link.hash;
    _registry.try_emplace(commit.link.hash, commit);
  }

  // The place may have gone back since it was listed.
  static void remove(World& world, Writer& writer) {
    for (const std::string& each : writer.work->collected.commits) world.place.commits.erase(each);
    for (const std::string& each : writer.work->collected.segments) world.place.segments.erase(each);
    writer.work.reset();
  }

  Collectable collectableAt(const World& world, const Kept& kept) const {
    std::vector<pelto::PlaceObject> commits, segments;
    std::vector<std::string> named;
    for (const auto& [name, cell] : world.place.commits) {
      commits.push_back({name, 0, Date{cell.written}});
      named.push_back(cell.hash);
    }
    for (const auto& [name, written] : world.place.segments) segments.push_back({name, 0, Date{written}});
    std::sort(named.begin(), named.end());
    return _decisions.collectable(commits, segments, kept.path.front().before, named);
  }

  // From here on nothing goes wrong.
  void requireConverging(World world) {
    world.left = {};
    world.late.clear();
    world.past.clear();
    for (auto& [name, cell] : world.place.commits) {
      if (cell.damage == Damage::passing) cell.damage = Damage::none;
    }
    if (_bounds.surveysInTheEnd) world.clock += kSurveySeconds;
    Digest digest;
    digest.add(world);
    if (!_converging.insert(digest.value()).second) return;
    const int rounds = 4;
    for (int round = 0; round < rounds; ++round) {
      for (std::size_t i = 0; i < world.writers.size(); ++i) runSession(world, i);
      if (_bounds.damages > 0) world.clock += kDamagedSeconds;
    }
    for (const Writer& each : world.writers) {
      if (each.truth != world.made) fail("an edit is lost");
      if (each.seen != world.writers.front().seen) fail("computers follow different chains");
    }
    const std::size_t commits = world.place.commits.size();
    for (std::size_t i = 0; i < world.writers.size(); ++i) runSession(world, i);
    if (world.place.commits.size() != commits) fail("a session with nothing new gives something");
  }

  void runSession(World& world, std::size_t i) {
    constexpr int kMostSteps = 400;
    beginSession(world, world.writers[i]);
    for (int steps = 0; world.writers[i].work; ++steps) {
      if (steps == kMostSteps) fail("a session has no end");
      step(world, i, Luck::good);
    }
  }

  const Bounds _bounds;
  const Decisions& _decisions;
  Registry _registry;
  std::deque<std::pair<std::unique_ptr<World>, std::string>> _queue;
  std::unordered_set<std::pair<std::uint64_t, std::uint64_t>, PairHash> _seen;
  std::unordered_set<std::pair<std::uint64_t, std::uint64_t>, PairHash> _converging;
  std::vector<Told> _stories;
  std::string _story;
};

}  // namespace

Explored explore(const Bounds& bounds, const Decisions& decisions) {
  return Explorer(bounds, decisions).run();
}

}  // namespace corvane::model
