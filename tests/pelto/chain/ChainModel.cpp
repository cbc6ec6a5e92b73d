#include "tests/pelto/chain/ChainModel.h"

#include <algorithm>
#include <deque>
#include <unordered_set>
#include <utility>

#include "tests/pelto/chain/ChainModelComputers.h"

namespace corvane::model {

namespace {

constexpr double kMonth = 40 * 86'400.0;

[[noreturn]] void failHaving(const std::string& what) { throw Fault{what}; }

struct FirstHalf {
  std::size_t operator()(const Hash& hash) const { return hash.first; }
};

class Explorer {
 public:
  Explorer(const Bounds& bounds, const Decisions& decisions)
      : _bounds(bounds), _computers(_bounds, decisions) {}

  Explored run() {
    World first;
    first.left = _bounds;
    first.writers.resize(_bounds.writers);
    for (std::size_t i = 0; i < _bounds.writers; ++i)
      first.writers[i].change().editsLeft = i < _bounds.editors ? _bounds.edits : 0;
    Explored explored;
    try {
      _seen.insert(hashOf(first));
      _queue.emplace_back(std::move(first), 0);
      while (!_queue.empty()) {
        const auto [world, story] = std::move(_queue.front());
        _queue.pop_front();
        if (_seen.size() > _bounds.mostStates) {
          explored.isWhole = false;
          break;
        }
        _story = story;
        if (isIdle(world)) requireConverging(world);
        expand(world, story);
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
                        [](const CopyOnWrite<Writer>& each) { return each->work.has_value(); });
  }

  // `story` is the number of the last event, 0 for none.
  std::string told(std::size_t story) const {
    std::string text;
    for (std::size_t at = story; at != 0; at = _stories[at - 1].before)
      text = _stories[at - 1].what + "\n" + text;
    return text;
  }

  // `what` answers what happens, which is asked for where that leads to something new.
  template <typename What, typename Change>
  void event(const World& world, std::size_t story, const What& what, const Change& change) {
    World next = world;
    try {
      change(next);
    } catch (const Fault&) {
      _story = add(what(), story);
      throw;
    }
    if (_seen.insert(hashOf(next)).second) _queue.emplace_back(std::move(next), add(what(), story));
  }
  std::size_t add(std::string what, std::size_t before) {
    _stories.push_back({std::move(what), before});
    return _stories.size();
  }

  void expand(const World& world, std::size_t story) {
    for (std::size_t i = 0; i < world.writers.size(); ++i) {
      world.writers[i]->work ? expandWork(world, i, story) : expandRest(world, i, story);
    }
    for (std::size_t i = 0; i < world.late.size(); ++i) {
      event(
          world, story, [&] { return "late: " + world.late[i].name; },
          [&](World& next) {
            const Request request = next.late[i];
            next.late.erase(next.late.begin() + static_cast<std::ptrdiff_t>(i));
            Computers::make(next, request);
          });
    }
    expandRollBacks(world, story);
    for (const auto& [key, chain] : *world.place) {
      expandDamage(world, key, chain, story);
      expandLosses(world, key, chain, story);
    }
    expandTime(world, story);
  }

  void expandRollBacks(const World& world, std::size_t story) {
    if (world.left.rollBacks == 0) return;
    for (std::size_t i = 0; i < world.past.size(); ++i) {
      event(
          world, story, [&] { return "rolled back to " + std::to_string(i); },
          [&](World& next) {
            next.place = next.past[i];
            next.past.resize(i);
            next.hasRolledBack = true;
            if (--next.left.rollBacks == 0) next.past.clear();
            if (!_bounds.lateAfterRollBack) next.late.clear();
          });
    }
  }

  void expandDamage(const World& world, const std::string& key, const Chain& chain, std::size_t story) {
    for (const auto& commit : chain.commits) {
      const auto& name = commit.first;
      const auto& cell = commit.second;
      if (cell.damage == Damage::passing) {
        event(
            world, story, [&] { return name + " is whole again"; },
            [&](World& next) { next.place.change()[key].commits.at(name).damage = Damage::none; });
      }
      const bool isHead = std::none_of(chain.commits.begin(), chain.commits.end(), [&](const auto& each) {
        return linkOf(each.second).number > linkOf(cell).number;
      });
      if (cell.damage != Damage::none || world.left.damages == 0 || !isHead) continue;
      for (const Damage damage : {Damage::passing, Damage::lasting}) {
        event(
            world, story,
            [&] {
              return name + (damage == Damage::passing ? " is damaged, and heals" : " is damaged for good");
            },
            [&](World& next) {
              --next.left.damages;
              next.place.change()[key].commits.at(name).damage = damage;
            });
      }
    }
  }

  // Segments that a commit names.
  void expandLosses(const World& world, const std::string& key, const Chain& chain, std::size_t story) {
    for (const auto& away : chain.away) {
      const std::string& hash = away.first;
      event(
          world, story, [] { return "a segment comes back"; },
          [&](World& next) {
            Chain& changed = next.place.change()[key];
            changed.segments[hash] = changed.away.at(hash);
            changed.away.erase(hash);
          });
    }
    if (world.left.losses == 0) return;
    for (const auto& commit : chain.commits) {
      const std::string& hash = commit.second.hash;
      if (!isReadable(chain, hash)) continue;
      const auto lose = [&](const char* how, const auto& change) {
        event(
            world, story, [&] { return "the segment of " + commit.first + how; },
            [&](World& next) {
              --next.left.losses;
              change(next.place.change()[key]);
            });
      };
      lose(" is spoilt", [&](Chain& changed) { changed.spoilt.insert(hash); });
      lose(" is lost", [&](Chain& changed) { changed.segments.erase(hash); });
      lose(" is away", [&](Chain& changed) {
        changed.away[hash] = changed.segments.at(hash);
        changed.segments.erase(hash);
      });
    }
  }

  void expandTime(const World& world, std::size_t story) {
    const auto is = [&](const auto& test) {
      return std::any_of(world.place->begin(), world.place->end(),
                         [&](const auto& each) { return test(each.second); });
    };
    const bool isPassing = is([](const Chain& chain) {
      return std::any_of(chain.commits.begin(), chain.commits.end(),
                         [](const auto& each) { return each.second.damage == Damage::passing; });
    });
    // Ten minutes are longer than any passing damage.
    if (_bounds.damages > 0 && !isPassing && world.clock < kBeginning + kDamagedSeconds)
      event(
          world, story, [] { return "ten minutes pass"; },
          [](World& next) { next.clock += kDamagedSeconds; });
    if (_bounds.losses > 0 && hasLosses(world) && world.clock < kBeginning + kMissingSeconds)
      event(
          world, story, [] { return "a day passes"; }, [](World& next) { next.clock += kMissingSeconds; });
    // No exchange and no request lasts a month.
    if (world.left.ages > 0 && isIdle(world)) {
      event(
          world, story, [] { return "a month passes"; },
          [&](World& next) {
            --next.left.ages;
            next.placeTime += kMonth;
            next.late.clear();
          });
    }
  }

  static bool hasLosses(const World& world) {
    return std::any_of(world.place->begin(), world.place->end(), [](const auto& each) {
      const Chain& chain = each.second;
      return std::any_of(chain.commits.begin(), chain.commits.end(),
                         [&](const auto& commit) { return !isReadable(chain, commit.second.hash); });
    });
  }

  void expandRest(const World& world, std::size_t i, std::size_t story) {
    const Writer& writer = *world.writers[i];
    if (writer.isOut) return;
    const auto start = [&](const std::string& what, const auto& change) {
      event(
          world, story, [&] { return computer(i) + what; },
          [&](World& next) {
            change(next, next.writers[i].change());
            _computers.goOnAlone(next, i);
          });
    };
    if (writer.editsLeft > 0) {
      start(" edits and begins", [&](World& next, Writer& mine) {
        const Edits edit =
            1U << (i * static_cast<std::size_t>(_bounds.edits) + static_cast<std::size_t>(--mine.editsLeft));
        mine.truth |= edit;
        next.made |= edit;
        _computers.beginSession(next, mine);
      });
    }
    start(" begins", [&](World& next, Writer& mine) { _computers.beginSession(next, mine); });
    if (world.left.changes == 0 || i >= _bounds.changers) return;
    const std::size_t last = world.writers.size() - 1, removed = i == last ? 0 : last;
    start(" takes computer " + std::to_string(removed) + " out", [&](World& next, Writer& mine) {
      --next.left.changes;
      _computers.beginSession(next, mine);
      mine.work->removes = removed;
    });
  }

  void expandWork(const World& world, std::size_t i, std::size_t story) {
    const Action action = _computers.next(*world.writers[i]);
    const auto goOn = [&](Luck luck, const char* what) {
      event(
          world, story, [&] { return computer(i) + nameOf(action) + what; },
          [&](World& next) {
            _computers.step(next, i, luck);
            _computers.goOnAlone(next, i);
          });
    };
    goOn(Luck::good, "");
    if (action.kind == Action::Kind::give && world.left.lost > 0) goOn(Luck::lost, ", and that is lost");
    if (action.kind == Action::Kind::give && world.left.late > 0) goOn(Luck::late, ", and that takes long");
    if (action.kind == Action::Kind::get && world.left.stale > 0) goOn(Luck::stale, ", and is told of none");
    if (world.left.kills > 0) {
      event(
          world, story, [&] { return computer(i) + " is killed"; },
          [&](World& next) {
            --next.left.kills;
            next.writers[i].change().work.reset();
          });
    }
  }

  static std::string computer(std::size_t i) { return "computer " + std::to_string(i); }
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

  // From here on nothing goes wrong.
  void requireConverging(World world) {
    heal(world);
    if (!_converging.insert(hashOf(world)).second) return;
    Edits wanted = _bounds.changes == 0 ? world.made : 0;
    const std::vector<CopyOnWrite<Writer>> before = world.writers;
    // A place that goes back forgets segments of which the commit is still to come.
    const bool takesDays = hasLosses(world);
    const int rounds = takesDays ? 6 : 4;
    for (int round = 0; round < rounds; ++round) {
      for (std::size_t i = 0; i < world.writers.size(); ++i) runSession(world, i);
      if (_bounds.damages > 0) world.clock += kDamagedSeconds;
      // An undecided push may have come to a generation that was seen ended.
      if (_bounds.changes > 0 && _bounds.surveysInTheEnd) world.clock += kSurveySeconds;
      if (takesDays) world.clock += kMissingSeconds;
    }
    const Writer* first = nullptr;
    for (std::size_t i = 0; i < world.writers.size(); ++i) {
      if (world.writers[i]->isOut) continue;
      wanted |= before[i]->truth;
      if (!first) first = &*world.writers[i];
    }
    if (!first) failHaving("nobody is left");
    for (const CopyOnWrite<Writer>& each : world.writers) {
      if (each->isOut) continue;
      if ((each->truth & wanted) != wanted || each->truth != first->truth) failHaving("an edit is lost");
      if (each->key != first->key) failHaving("computers have different keys");
      if (each->seen != first->seen) failHaving("computers follow different chains");
    }
    requireQuiet(std::move(world));
  }

  void heal(World& world) const {
    world.left = {};
    world.late.clear();
    world.past.clear();
    for (auto& [key, chain] : world.place.change()) {
      for (auto& [name, cell] : chain.commits) {
        if (cell.damage == Damage::passing) cell.damage = Damage::none;
      }
      chain.segments.insert(chain.away.begin(), chain.away.end());
      chain.away.clear();
    }
    if (_bounds.surveysInTheEnd) world.clock += kSurveySeconds;
  }

  void requireQuiet(World world) {
    const auto count = [&] {
      std::size_t commits = 0;
      for (const auto& [key, chain] : *world.place) commits += chain.commits.size();
      return commits;
    };
    const std::size_t commits = count();
    for (std::size_t i = 0; i < world.writers.size(); ++i) runSession(world, i);
    if (count() != commits) failHaving("a session with nothing new gives something");
  }

  void runSession(World& world, std::size_t i) {
    constexpr int kMostSteps = 400;
    if (world.writers[i]->isOut) return;
    _computers.beginSession(world, world.writers[i].change());
    for (int steps = 0; world.writers[i]->work; ++steps) {
      if (steps == kMostSteps) failHaving("a session has no end");
      _computers.step(world, i, Luck::good);
    }
  }

  const Link& linkOf(const Cell& cell) const { return _computers.registry().at(cell.hash).link; }

  const Bounds _bounds;
  Computers _computers;
  std::deque<std::pair<World, std::size_t>> _queue;
  std::unordered_set<Hash, FirstHalf> _seen;
  std::unordered_set<Hash, FirstHalf> _converging;
  std::vector<Told> _stories;
  std::size_t _story = 0;
};

}  // namespace

Explored explore(const Bounds& bounds, const Decisions& decisions) {
  return Explorer(bounds, decisions).run();
}

}  // namespace corvane::model
